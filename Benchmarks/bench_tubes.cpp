// Whole sorts of tubes: particles of some quads each, sorted by position, and the quads inside every particle by their
// centres; against two nested calls of std::sort, and a loop that moves the same bytes and is told every order.

#include "bench_inputs.h"
#include "bench_moves.h"
#include "bench_registry.h"
#include "bench_whole.h"
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kQuadCounts[] = {2, 4, 8, 15};
	constexpr u32 kMostQuads = 15;
	constexpr u32 kIndicesPerQuad = 6;
	constexpr u32 kCentersPerParticle = 16; // slots, whatever the number of quads

	struct SScene
	{
		SScene(u32 count, u32 quads)
			: m_Positions(Positions(EShape::Ball, count))
			, m_Count(count)
			, m_Quads(quads)
			, m_Width(quads * kIndicesPerQuad)
			, m_Vertices(2 * (quads + 1)) // a strip
			, m_IndexCount(count * quads * kIndicesPerQuad)
			, m_Centers(size_t(count) * kCentersPerParticle)
			, m_FirstVertices(count)
		{
			for (u32 quad = 0; quad < m_Quads; ++quad)
			{
				for (const u32 entry : {0u, 1u, 2u, 2u, 1u, 3u})
					m_Pattern.push_back(2 * quad + entry);
			}
			// The segments of a tube point away from the origin.
			for (u32 i = 0; i < count; ++i)
			{
				m_FirstVertices[i] = i * m_Vertices;
				for (u32 quad = 0; quad < m_Quads; ++quad)
				{
					const float scale = 1.0f + 0.02f * float(quad);
					const CFloat3 &position = m_Positions[i];
					m_Centers[size_t(i) * kCentersPerParticle + quad] =
						CFloat4(position.x() * scale, position.y() * scale, position.z() * scale, 1.0f);
				}
			}
		}

		CFloat3 Center(u32 particle, u32 quad) const
		{
			const CFloat4 &center = m_Centers[size_t(particle) * kCentersPerParticle + quad];
			return CFloat3(center.x(), center.y(), center.z());
		}

		const CBuffer<CFloat3> &m_Positions;
		u32 m_Count;
		u32 m_Quads;
		u32 m_Width;
		u32 m_Vertices;
		u32 m_IndexCount;
		CBuffer<CFloat4> m_Centers;
		CBuffer<u32> m_FirstVertices;
		std::vector<u32> m_Pattern;
	};

	class CVexmoorTubes
	{
	public:
		static constexpr const char *kName = "vexmoor";
		static constexpr bool kSorts = true;

		explicit CVexmoorTubes(SScene &scene)
			: m_Scene(scene)
			, m_Page(scene.m_Positions.Data(), scene.m_Count, u32(sizeof(CFloat3)))
			, m_Scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(scene.m_Count))
		{
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			m_Sorter.Setup_OutputIndexBuffer(
				TMemoryView<u32>(out, m_Scene.m_IndexCount), m_Scene.m_Count * m_Scene.m_Vertices);
			m_Sorter.Setup_InputPageCache(TMemoryView<const TStridedMemoryView<const CFloat3>>(m_Page),
				TMemoryView<const TStridedMemoryView<const u8>>(m_NoEnableds), TMemoryView<const u32>(m_Scene.m_Count),
				m_Scene.m_Count, camera);
			m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Scene.m_Pattern.data(), m_Scene.m_Width),
				TMemoryView<const u32>(m_Scene.m_FirstVertices.Data(), m_Scene.m_Count),
				TMemoryView<const CFloat4>(m_Scene.m_Centers.Data(), u32(m_Scene.m_Centers.Count())),
				m_Scene.m_Vertices);
			m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data());
		}

	private:
		SScene &m_Scene;
		CTriangleSorter m_Sorter;
		TStridedMemoryView<const CFloat3> m_Page;
		TStridedMemoryView<const u8> m_NoEnableds;
		CBuffer<u8> m_Scratch;
	};

	class CUserTubes
	{
	public:
		static constexpr const char *kName = "user";
		static constexpr bool kSorts = true;

		explicit CUserTubes(SScene &scene)
			: m_Scene(scene)
			, m_Depths(scene.m_Count)
		{
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			const auto farthestFirst = [](const SDepth &a, const SDepth &b)
			{ return a.m_SquaredDistance > b.m_SquaredDistance; };
			for (u32 i = 0; i < m_Scene.m_Count; ++i)
				m_Depths[i] = {SquaredDistance(m_Scene.m_Positions[i], camera), i};
			std::sort(m_Depths.begin(), m_Depths.end(), farthestFirst);
			for (const SDepth &particle : m_Depths)
			{
				SDepth quads[kMostQuads];
				for (u32 quad = 0; quad < m_Scene.m_Quads; ++quad)
					quads[quad] = {SquaredDistance(m_Scene.Center(particle.m_Number, quad), camera), quad};
				std::sort(quads, quads + m_Scene.m_Quads, farthestFirst);
				const u32 firstVertex = m_Scene.m_FirstVertices[particle.m_Number];
				for (u32 q = 0; q < m_Scene.m_Quads; ++q)
				{
					for (u32 i = 0; i < kIndicesPerQuad; ++i)
						*out++ = firstVertex + m_Scene.m_Pattern[quads[q].m_Number * kIndicesPerQuad + i];
				}
			}
		}

	private:
		struct SDepth
		{
			float m_SquaredDistance;
			u32 m_Number;
		};
		SScene &m_Scene;
		std::vector<SDepth> m_Depths;
	};

	// Reads and writes what the sort does, where it does: a key and a first vertex for each position, three moves of
	// each record to known places, and for each record the centres of its particle and the indices, in pattern order.
	class CSameTraffic
	{
	public:
		static constexpr const char *kName = "same_traffic";
		static constexpr bool kSorts = false;

		explicit CSameTraffic(SScene &scene)
			: m_Scene(scene)
			, m_Records{CBuffer<SIndexAndDepth>(scene.m_Count), CBuffer<SIndexAndDepth>(scene.m_Count)}
			, m_Moves(
				  scene.m_Count, [&scene](u32 i) { return SquaredDistance(scene.m_Positions[i], CameraOfFrame(1)); })
		{
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			for (u32 i = 0; i < m_Scene.m_Count; ++i)
				m_Records[0][i] = {
					~FloatBits(SquaredDistance(m_Scene.m_Positions[i], camera)), m_Scene.m_FirstVertices[i]};
			const SIndexAndDepth *const sorted = m_Moves.Move(m_Records);
			const u32 *const pattern = m_Scene.m_Pattern.data();
			for (u32 i = 0; i < m_Scene.m_Count; ++i)
			{
				const u32 firstVertex = sorted[i].m_Index;
				const CFloat4 *const centers =
					&m_Scene.m_Centers[size_t(firstVertex / m_Scene.m_Vertices) * kCentersPerParticle];
				for (u32 quad = 0; quad < m_Scene.m_Quads; ++quad)
				{
					m_Sum += centers[quad].x();
					for (u32 k = 0; k < kIndicesPerQuad; ++k)
						*out++ = firstVertex + pattern[quad * kIndicesPerQuad + k];
				}
			}
			benchmark::DoNotOptimize(m_Sum);
		}

	private:
		SScene &m_Scene;
		CBuffer<SIndexAndDepth> m_Records[2];
		CKnownMoves m_Moves;
		float m_Sum = 0;
	};

	// Whether every quad of every particle is there once, particles back to front and the quads of each as well. Quads
	// whose keys differ in the lowest four bits only may come in either order.
	bool IsDrawnBackToFront(const SScene &scene, const CFloat3 &camera, const u32 *indices)
	{
		constexpr u32 kComparedBits = ~15u;
		std::vector<bool> drawn(scene.m_Count);
		float previous = INFINITY;
		for (u32 i = 0; i < scene.m_Count; ++i)
		{
			const u32 particle = indices[0] / scene.m_Vertices;
			if (particle >= scene.m_Count || drawn[particle])
				return false;
			drawn[particle] = true;
			const float distance = SquaredDistance(scene.m_Positions[particle], camera);
			if (distance > previous)
				return false;
			previous = distance;

			u32 seen = 0;
			u32 previousBits = ~0u;
			for (u32 q = 0; q < scene.m_Quads; ++q)
			{
				const u32 quad = (indices[0] - particle * scene.m_Vertices) / 2;
				if (quad >= scene.m_Quads || indices[0] / scene.m_Vertices != particle)
					return false;
				seen |= 1u << quad;
				const u32 bits = FloatBits(SquaredDistance(scene.Center(particle, quad), camera)) & kComparedBits;
				if (bits > previousBits)
					return false;
				previousBits = bits;
				for (u32 j = 0; j < kIndicesPerQuad; ++j)
				{
					if (*indices++ != particle * scene.m_Vertices + scene.m_Pattern[quad * kIndicesPerQuad + j])
						return false;
				}
			}
			if (seen != (1u << scene.m_Quads) - 1)
				return false;
		}
		return true;
	}

	// Four quads, which the goals are for, have the plain name.
	std::string TubesName(u32 quads)
	{
		return quads == 4 ? "tubes_u32_ball" : "tubes_" + std::to_string(quads) + "_quads_u32_ball";
	}
} // namespace

void RegisterTubes()
{
	for (const u32 quads : kQuadCounts)
	{
		for (const u32 count : kWholeCounts)
			RegisterWhole<SScene, CVexmoorTubes, CUserTubes, CSameTraffic>(TubesName(quads), count, quads);
	}
}
} // namespace VexmoorBench
