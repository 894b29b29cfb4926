// Whole sorts of triangles: pages of particles, each page with a mesh of its own, sorted triangle by triangle; against
// distances beside triangle numbers, std::sort and a gather, and a loop that moves the same bytes and is told the
// order.

#include "bench_inputs.h"
#include "bench_moves.h"
#include "bench_pairs.h"
#include "bench_registry.h"
#include "bench_whole.h"
#include "two_cores.h"
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr u32 kParticlesPerPage = 1024;
	constexpr u32 kIndicesPerTriangle = 3;

	// Pages take turns: a quad, and a ribbon of two quads.
	struct SMesh
	{
		std::vector<u32> m_Pattern;
		u32 m_VertexCount;
	};
	const SMesh kMeshes[2] = {
		{{0, 1, 2, 0, 2, 3},                   4},
		{{0, 1, 2, 0, 2, 3, 3, 2, 4, 3, 4, 5}, 6},
	};

	struct SPage
	{
		const CFloat3 *m_Positions;
		u32 m_Count;
		const SMesh *m_Mesh;
		u32 m_FirstVertex;
	};

	struct SScene
	{
		explicit SScene(u32 count)
			: m_Count(count)
		{
			const CFloat3 *const positions = Positions(EShape::Ball, count).Data();
			for (u32 first = 0; first < count; first += kParticlesPerPage)
			{
				const SMesh &mesh = kMeshes[m_Pages.size() % 2];
				const u32 inPage = std::min(kParticlesPerPage, count - first);
				m_Pages.push_back({positions + first, inPage, &mesh, m_VertexCount});
				m_VertexCount += inPage * mesh.m_VertexCount;
				m_IndexCount += inPage * u32(mesh.m_Pattern.size());
			}
		}

		u32 m_Count;
		std::vector<SPage> m_Pages;
		u32 m_VertexCount = 0;
		u32 m_IndexCount = 0;
	};

	class CVexmoorTriangles
	{
	public:
		static constexpr const char *kName = "vexmoor";
		static constexpr bool kSorts = true;

		explicit CVexmoorTriangles(const SScene &scene)
			: m_Scene(scene)
			, m_Scratch(
				  size_t(CTriangleSorter::GetJobsWorkingBufferSize_tri(scene.m_IndexCount, CTwoCores::kMaxJobCount)))
		{
			for (const SPage &page : scene.m_Pages)
			{
				m_Positions.emplace_back(page.m_Positions, page.m_Count, u32(sizeof(CFloat3)));
				m_Enableds.emplace_back();
				m_RenderedCounts.push_back(page.m_Count);
				m_Patterns.emplace_back(
					TMemoryView<const u32>(page.m_Mesh->m_Pattern.data(), u32(page.m_Mesh->m_Pattern.size())));
				m_VertexCounts.push_back(page.m_Mesh->m_VertexCount);
			}
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			SetUp(camera, out);
			Sort();
		}

		void SetUp(const CFloat3 &camera, u32 *out)
		{
			m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(out, m_Scene.m_IndexCount), m_Scene.m_VertexCount);
			m_Sorter.Setup_InputPageCache(
				View(m_Positions), View(m_Enableds), View(m_RenderedCounts), m_Scene.m_Count, camera);
			m_Sorter.Setup_Geometry(View(m_Patterns), View(m_VertexCounts), m_Scene.m_IndexCount);
		}
		void Sort() { m_Sorter.SortTriangles_AutogenIndices(m_Scratch.Data()); }
		void SortInJobs(const SSortJobs &jobs)
		{
			m_Sorter.SortTriangles_AutogenIndices(m_Scratch.Data(), m_Scratch.Count(), jobs);
		}

	private:
		template<typename _Element>
		static TMemoryView<const _Element> View(const std::vector<_Element> &elements)
		{
			return TMemoryView<const _Element>(elements.data(), u32(elements.size()));
		}

		const SScene &m_Scene;
		CTriangleSorter m_Sorter;
		CBuffer<u8> m_Scratch;
		std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
		std::vector<TStridedMemoryView<const u8>> m_Enableds;
		std::vector<u32> m_RenderedCounts;
		std::vector<CTriangleSorter::CIndexPattern> m_Patterns;
		std::vector<u32> m_VertexCounts;
	};

	class CUserTriangles
	{
	public:
		static constexpr const char *kName = "user";
		static constexpr bool kSorts = true;

		explicit CUserTriangles(const SScene &scene)
			: m_Scene(scene)
			, m_Depths(scene.m_IndexCount / kIndicesPerTriangle)
			, m_Unsorted(scene.m_IndexCount)
		{
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			u32 index = 0;
			for (const SPage &page : m_Scene.m_Pages)
			{
				for (u32 i = 0; i < page.m_Count; ++i)
				{
					const float distance = SquaredDistance(page.m_Positions[i], camera);
					const u32 firstVertex = page.m_FirstVertex + i * page.m_Mesh->m_VertexCount;
					for (const u32 entry : page.m_Mesh->m_Pattern)
					{
						if (index % kIndicesPerTriangle == 0)
							m_Depths[index / kIndicesPerTriangle] = {distance, index / kIndicesPerTriangle};
						m_Unsorted[index++] = firstVertex + entry;
					}
				}
			}
			std::sort(m_Depths.begin(), m_Depths.end(),
				[](const SDepth &a, const SDepth &b) { return a.m_SquaredDistance > b.m_SquaredDistance; });
			for (const SDepth &depth : m_Depths)
			{
				const u32 *const triangle = m_Unsorted.data() + depth.m_Triangle * kIndicesPerTriangle;
				for (u32 i = 0; i < kIndicesPerTriangle; ++i)
					*out++ = triangle[i];
			}
		}

	private:
		struct SDepth
		{
			float m_SquaredDistance;
			u32 m_Triangle;
		};
		const SScene &m_Scene;
		std::vector<SDepth> m_Depths;
		std::vector<u32> m_Unsorted;
	};

	// Reads and writes what the sort does, where it does: a key for each position, unsorted indices and a record for
	// each triangle, three moves of each record to known places, and the triangles gathered.
	class CSameTraffic
	{
	public:
		static constexpr const char *kName = "same_traffic";
		static constexpr bool kSorts = false;

		explicit CSameTraffic(const SScene &scene)
			: m_Scene(scene)
			, m_Unsorted(scene.m_IndexCount)
			, m_Records{CBuffer<SIndexAndDepth>(scene.m_IndexCount / kIndicesPerTriangle),
				  CBuffer<SIndexAndDepth>(scene.m_IndexCount / kIndicesPerTriangle)}
			, m_Moves(scene.m_IndexCount / kIndicesPerTriangle,
				  [distances = Distances(scene)](u32 triangle) { return distances[triangle]; })
		{
		}

		void Draw(const CFloat3 &camera, u32 *out)
		{
			u32 *index = m_Unsorted.Data();
			SIndexAndDepth *record = m_Records[0].Data();
			u32 triangle = 0;
			for (const SPage &page : m_Scene.m_Pages)
			{
				const u32 width = u32(page.m_Mesh->m_Pattern.size());
				const u32 *const pattern = page.m_Mesh->m_Pattern.data();
				for (u32 i = 0; i < page.m_Count; ++i)
				{
					const u32 key = ~FloatBits(SquaredDistance(page.m_Positions[i], camera));
					const u32 firstVertex = page.m_FirstVertex + i * page.m_Mesh->m_VertexCount;
					for (u32 k = 0; k < width; ++k)
						*index++ = firstVertex + pattern[k];
					for (u32 k = 0; k < width; k += kIndicesPerTriangle)
						*record++ = {key, triangle++};
				}
			}
			const SIndexAndDepth *const sorted = m_Moves.Move(m_Records);
			for (u32 i = 0; i < triangle; ++i)
				std::memcpy(out + size_t(i) * kIndicesPerTriangle,
					m_Unsorted.Data() + size_t(sorted[i].m_Index) * kIndicesPerTriangle,
					kIndicesPerTriangle * sizeof(u32));
		}

	private:
		// Of each triangle's particle, page by page.
		static std::vector<float> Distances(const SScene &scene)
		{
			std::vector<float> distances;
			for (const SPage &page : scene.m_Pages)
			{
				for (u32 i = 0; i < page.m_Count; ++i)
					distances.insert(distances.end(), page.m_Mesh->m_Pattern.size() / kIndicesPerTriangle,
						SquaredDistance(page.m_Positions[i], CameraOfFrame(1)));
			}
			return distances;
		}

		const SScene &m_Scene;
		CBuffer<u32> m_Unsorted;
		CBuffer<SIndexAndDepth> m_Records[2];
		CKnownMoves m_Moves;
	};

	// Whether every triangle is there once, back to front.
	bool IsDrawnBackToFront(const SScene &scene, const CFloat3 &camera, const u32 *indices)
	{
		struct SOwner
		{
			float m_SquaredDistance;
			u32 m_FirstVertex;
			const SMesh *m_Mesh;
		};
		std::vector<SOwner> owners(scene.m_VertexCount);
		for (const SPage &page : scene.m_Pages)
		{
			for (u32 i = 0; i < page.m_Count; ++i)
			{
				const u32 firstVertex = page.m_FirstVertex + i * page.m_Mesh->m_VertexCount;
				for (u32 v = 0; v < page.m_Mesh->m_VertexCount; ++v)
					owners[firstVertex + v] = {SquaredDistance(page.m_Positions[i], camera), firstVertex, page.m_Mesh};
			}
		}
		std::vector<u8> seen(scene.m_VertexCount); // per particle, at its first vertex: a bit per triangle of its mesh
		float previous = INFINITY;
		for (u32 index = 0; index < scene.m_IndexCount; index += kIndicesPerTriangle)
		{
			if (indices[index] >= scene.m_VertexCount)
				return false;
			const SOwner &owner = owners[indices[index]];
			if (owner.m_SquaredDistance > previous)
				return false;
			previous = owner.m_SquaredDistance;

			const std::vector<u32> &pattern = owner.m_Mesh->m_Pattern;
			u32 entry = 0;
			while (entry < pattern.size() &&
				   !std::equal(indices + index, indices + index + kIndicesPerTriangle, pattern.data() + entry,
					   [&](u32 vertex, u32 i) { return vertex == owner.m_FirstVertex + i; }))
				entry += kIndicesPerTriangle;
			if (entry == pattern.size())
				return false;
			const u8 bit = u8(1u << (entry / kIndicesPerTriangle));
			if ((seen[owner.m_FirstVertex] & bit) != 0)
				return false;
			seen[owner.m_FirstVertex] = u8(seen[owner.m_FirstVertex] | bit);
		}
		return true;
	}

	template<typename _JobSystem>
	void RunPairOfCores(benchmark::State &state, u32 count)
	{
		const SScene scene(count);
		const CFloat3 camera = Camera();
		CBuffer<u32> indices(scene.m_IndexCount);
		CVexmoorTriangles triangles(scene);
		triangles.SetUp(camera, indices.Data());
		RunPairsOfCores<_JobSystem>(
			state, [&] { triangles.Sort(); }, [&](const SSortJobs &jobs) { triangles.SortInJobs(jobs); });
		if (!IsDrawnBackToFront(scene, camera, indices.Data()))
			state.SkipWithError("not sorted");
		DescribeIteration(state, u64(kPairsPerIteration) * 2, count);
	}

	template<typename _JobSystem>
	void RegisterPairOfCores(u32 count)
	{
		benchmark::RegisterBenchmark(CaseName({"jobs", "triangles", _JobSystem::kName, std::to_string(count)}).c_str(),
			[count](benchmark::State &state) { RunPairOfCores<_JobSystem>(state, count); })
			->UseRealTime()
			->Iterations(1);
	}
} // namespace

void RegisterTriangles()
{
	for (const u32 count : {10000u, 100000u, 1000000u})
	{
		RegisterPairOfCores<CTwoCores>(count);
		RegisterPairOfCores<CPoolOfTwo>(count);
	}
	for (const u32 count : kWholeCounts)
		RegisterWhole<SScene, CVexmoorTriangles, CUserTriangles, CSameTraffic>("triangles_u32_ball", count);
}
} // namespace VexmoorBench
