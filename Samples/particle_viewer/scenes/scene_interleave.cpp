// Long glass shards woven into each other: each passes over one neighbour and under the next, so that no order of whole
// shards is right. Every triangle has three vertices of its own, and the frame gives their middles: the scene can be
// sorted under its particles' keys, and by the true depth of every triangle.

#include "deterministic.h"
#include "scene.h"
#include <algorithm>

namespace Viewer
{
namespace
{
	constexpr u32 kDirectionCount = 2; // along x, then along y: a page each, with a mesh of its own
	constexpr float kSpacing = 0.36f;
	constexpr float kHalfWidth = 0.145f;
	constexpr float kRise = 0.17f; // how far a shard passes over the one that it crosses
	constexpr u32 kSegmentsPerCrossing = 8;

	class CInterleaveScene final : public IScene
	{
	public:
		CInterleaveScene(u32 particleCount, u32 seed)
			: m_Counts{std::max(particleCount * 9 / 25, 1u), 0}
			, m_Phase(CRandom(seed).Unit())
		{
			m_Counts[1] = particleCount - std::min(particleCount, m_Counts[0]);
			for (u32 direction = 0; direction < kDirectionCount; ++direction)
			{
				const u32 indexCount = SegmentCount(direction) * 6;
				std::vector<u32> pattern(indexCount);
				for (u32 i = 0; i < indexCount; ++i)
					pattern[i] = i;
				m_Patterns[direction] = TMemoryView<u32>(pattern.data(), indexCount);
				m_VerticesPerParticle[direction] = indexCount;
			}
		}

		u32 WarmUpStepCount() const override { return 1; }

		void Advance() override { ++m_Step; }

		SFrame Frame() override
		{
			m_Vertices.clear();
			m_Positions.clear();
			m_Centres.clear();
			for (u32 direction = 0; direction < kDirectionCount; ++direction)
				for (u32 shard = 0; shard < m_Counts[direction]; ++shard)
					AddShard(direction, shard);
			return DescribeFrame();
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::ByValue,    "per_particle.png", "under their particle's key"},
				{EOrder::ByTriangle, "per_triangle.png", "by the depth of triangles" },
			};
		}

	private:
		u32 SegmentCount(u32 direction) const { return (m_Counts[1 - direction] + 1) * kSegmentsPerCrossing; }

		SFrame DescribeFrame()
		{
			for (u32 direction = 0, first = 0; direction < kDirectionCount; first += m_Counts[direction++])
				m_PagePositions[direction] =
					TMemoryView<const CFloat3>(m_Positions.data() + first, m_Counts[direction]);

			SFrame frame;
			frame.m_Camera = Camera();
			frame.m_Positions = TMemoryView<const TStridedMemoryView<const CFloat3>>(m_PagePositions, kDirectionCount);
			frame.m_Enableds = TMemoryView<const TStridedMemoryView<const u8>>(m_PageEnableds, kDirectionCount);
			frame.m_RenderedCounts = TMemoryView<const u32>(m_Counts, kDirectionCount);
			frame.m_ParticleCount = u32(m_Positions.size());
			frame.m_PagePatterns = TMemoryView<const CTriangleSorter::CIndexPattern>(m_Patterns, kDirectionCount);
			frame.m_PageVerticesPerParticle = TMemoryView<const u32>(m_VerticesPerParticle, kDirectionCount);
			frame.m_TriangleCentres = TMemoryView<const CFloat3>(m_Centres.data(), u32(m_Centres.size()));
			frame.m_VertexKind = EVertices::Mesh;
			frame.m_MeshVertices = TMemoryView<const SMeshVertex>(m_Vertices.data(), u32(m_Vertices.size()));
			frame.m_VertexCount = u32(m_Vertices.size());
			return frame;
		}

		SCamera Camera() const
		{
			const float turns = -0.030f + 0.02f * SineOfTurns(float(m_Step) / 300.0f + m_Phase);
			const float distance = 0.90f + 1.42f * kSpacing * float(std::max(m_Counts[0], m_Counts[1] / 2));
			SCamera camera;
			camera.m_Position =
				CFloat3(distance * SineOfTurns(turns), 0.26f * distance, distance * CosineOfTurns(turns));
			return camera;
		}

		void AddShard(u32 direction, u32 shard)
		{
			const u32 segmentCount = SegmentCount(direction);
			for (u32 segment = 0; segment < segmentCount; ++segment)
			{
				const CFloat3 low0 = Edge(direction, shard, segment, -1.0f);
				const CFloat3 high0 = Edge(direction, shard, segment, 1.0f);
				const CFloat3 low1 = Edge(direction, shard, segment + 1, -1.0f);
				const CFloat3 high1 = Edge(direction, shard, segment + 1, 1.0f);
				AddTriangle(direction, shard, low0, low1, high1);
				AddTriangle(direction, shard, low0, high1, high0);
			}
			m_Positions.push_back(OnAxis(direction, shard, float(segmentCount) * 0.5f));
		}

		// The point of a shard's middle line after the given number of segments. Measured in crossings, shard i of one
		// direction crosses shard j of the other at j, over it where i + j is even.
		CFloat3 OnAxis(u32 direction, u32 shard, float segment) const
		{
			const float crossing = segment / float(kSegmentsPerCrossing) - 1.0f;
			const float along = (crossing - 0.5f * float(m_Counts[1 - direction]) + 0.5f) * kSpacing;
			const float across = (float(shard) - 0.5f * float(m_Counts[direction]) + 0.5f) * kSpacing;
			const float wave = CosineOfTurns(0.5f * (crossing + float(shard) + 2.0f)) * kRise;
			return direction == 0 ? CFloat3(along, across, wave) : CFloat3(across, along, -wave);
		}

		// A shard is pointed at both ends.
		CFloat3 Edge(u32 direction, u32 shard, u32 segment, float side) const
		{
			const float fromEnd = float(std::min(segment, SegmentCount(direction) - segment));
			const float width = side * kHalfWidth * std::min(1.0f, fromEnd / float(kSegmentsPerCrossing));
			const CFloat3 middle = OnAxis(direction, shard, float(segment));
			return direction == 0 ? CFloat3(middle.x(), middle.y() + width, middle.z())
			                      : CFloat3(middle.x() + width, middle.y(), middle.z());
		}

		void AddTriangle(u32 direction, u32 shard, const CFloat3 &a, const CFloat3 &b, const CFloat3 &c)
		{
			const float shade = 0.75f + 0.25f * SineOfTurns(float(shard) * 0.381966f + m_Phase);
			SMeshVertex vertex;
			vertex.m_Shine = 0.5f;
			vertex.m_Colour = direction == 0 ? CFloat4(0.05f * shade, 0.42f * shade, 0.85f * shade, 0.82f)
			                                 : CFloat4(1.00f * shade, 0.36f * shade, 0.05f * shade, 0.82f);
			for (const CFloat3 &corner : {a, b, c})
			{
				vertex.m_Position = corner;
				m_Vertices.push_back(vertex);
			}
			CFloat3 centre;
			for (u32 axis = 0; axis < 3; ++axis)
				centre[axis] = ((a[axis] + b[axis]) + c[axis]) * (1.0f / 3.0f);
			m_Centres.push_back(centre);
		}

		u32 m_Counts[kDirectionCount];
		float m_Phase;
		u32 m_Step = 0;

		CTriangleSorter::CIndexPattern m_Patterns[kDirectionCount];
		u32 m_VerticesPerParticle[kDirectionCount];
		TStridedMemoryView<const CFloat3> m_PagePositions[kDirectionCount];
		TStridedMemoryView<const u8> m_PageEnableds[kDirectionCount]; // none is disabled

		std::vector<SMeshVertex> m_Vertices;
		std::vector<CFloat3> m_Positions;
		std::vector<CFloat3> m_Centres;
	};
} // namespace

std::unique_ptr<IScene> CreateInterleaveScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CInterleaveScene>(particleCount, seed);
}
} // namespace Viewer
