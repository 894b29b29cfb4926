// Calls of the library on fixed inputs, whose instructions Tools/instruction_counts.sh counts. Callgrind collects
// inside each call alone and then dumps what it counted under the case's name. An emulator logs every instruction with
// its function: what it logs from one ToggleCounting to the next belongs to a call, and the names of the cases are
// printed in order. The calls are the same without either.

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"
#include "kr_sort.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <valgrind/callgrind.h>
#include <vector>

using namespace Vexmoor;

namespace
{
const CFloat3 kCamera(25.0f, 4.0f, -3.0f); // outside what the positions fill
constexpr u32 kVerticesPerQuad = 4;
constexpr u32 kQuad[6] = {0, 1, 2, 0, 2, 3};
constexpr u32 kRibbon[12] = {0, 1, 2, 0, 2, 3, 3, 2, 4, 3, 4, 5};

// What the processor has decides which lanes are used: the names of cases counted with 256-bit lanes say so.
const char *s_LanesSuffix = "";
} // namespace

template<typename _Type>
static TMemoryView<_Type> View(std::vector<_Type> &elements)
{
	return TMemoryView<_Type>(elements.data(), u32(elements.size()));
}

template<typename _Type>
static TMemoryView<const _Type> ConstView(const std::vector<_Type> &elements)
{
	return TMemoryView<const _Type>(elements.data(), u32(elements.size()));
}

extern "C" VX_NOINLINE void ToggleCounting()
{
	__asm__ volatile(""); // else compilers drop the calls
}

// The first call is not counted: it has what happens once per process.
template<typename _Call>
static void Count(const char *name, const _Call &call)
{
	call();
	const std::string fullName = std::string(name) + s_LanesSuffix;
	std::puts(fullName.c_str());
	ToggleCounting();
	CALLGRIND_ZERO_STATS;
	CALLGRIND_TOGGLE_COLLECT;
	call();
	CALLGRIND_TOGGLE_COLLECT;
	ToggleCounting();
	CALLGRIND_DUMP_STATS_AT(fullName.c_str());
}

// The count of a call that does something else is worth nothing.
static void Require(bool isRight, const char *name)
{
	if (isRight)
		return;
	std::fprintf(stderr, "counted_calls: %s%s: the result is wrong\n", name, s_LanesSuffix);
	std::exit(1);
}

static bool HasLowerDepth(const SIndexAndDepth &a, const SIndexAndDepth &b)
{
	return a.m_Depth < b.m_Depth;
}

// The inputs. The generator's numbers are the same with every standard library.

static std::vector<CFloat3> MakePositions(u32 count)
{
	std::mt19937 random(count);
	const auto coordinate = [&random]() { return float(s32(u32(random()))) * (10.0f / 2147483648.0f); };
	std::vector<CFloat3> positions;
	for (u32 i = 0; i < count; ++i)
	{
		const float x = coordinate();
		const float y = coordinate();
		positions.emplace_back(x, y, coordinate());
	}
	return positions;
}

static void FillByDistance(const std::vector<CFloat3> &positions, std::vector<SIndexAndDepth> &records)
{
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		View(records), ConstView(positions), kCamera, TStridedMemoryView<const u8>(), 0, kVerticesPerQuad);
}

static std::vector<SIndexAndDepth> MakeRecords(u32 count)
{
	std::vector<SIndexAndDepth> records(count);
	FillByDistance(MakePositions(count), records);
	return records;
}

// Pages of particles that are all enabled.
class CPages
{
public:
	CPages(u32 particleCount, u32 particlesPerPage)
		: m_Particles(MakePositions(particleCount))
	{
		for (u32 first = 0; first < particleCount; first += particlesPerPage)
		{
			const u32 count = std::min(particlesPerPage, particleCount - first);
			m_Positions.emplace_back(m_Particles.data() + first, count, u32(sizeof(CFloat3)));
			m_RenderedCounts.push_back(count);
		}
		m_Enableds.resize(m_Positions.size());
	}

	u32 Count() const { return u32(m_Positions.size()); }
	u32 ParticleCount() const { return u32(m_Particles.size()); }
	u32 RenderedCount(u32 page) const { return m_RenderedCounts[page]; }

	void Setup(CTriangleSorter &sorter) const
	{
		sorter.Setup_InputPageCache(
			ConstView(m_Positions), ConstView(m_Enableds), ConstView(m_RenderedCounts), ParticleCount(), kCamera);
	}

private:
	std::vector<CFloat3> m_Particles;
	std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
	std::vector<TStridedMemoryView<const u8>> m_Enableds;
	std::vector<u32> m_RenderedCounts;
};

// The cases.

static void Case_FillByDistance()
{
	const std::vector<CFloat3> positions = MakePositions(10000);
	std::vector<SIndexAndDepth> records(positions.size());
	Count("fill_by_distance_10k", [&]() { FillByDistance(positions, records); });
	// A distance has no sign, so the inverted sign is set.
	Require(std::all_of(records.begin(), records.end(), [](const SIndexAndDepth &r) { return r.m_Depth >> 31 == 1; }),
		"fill_by_distance_10k");
}

// Every third particle is disabled, in pages of 1,000. A compacted distance is negated, so its key has no upper bit.
static void Case_FillEnabledByDistance()
{
	constexpr u32 kPageSize = 1000;
	const std::vector<CFloat3> positions = MakePositions(10000);
	std::vector<u8> enabled(kPageSize, 1);
	for (u32 i = 0; i < kPageSize; i += 3)
		enabled[i] = 0;
	std::vector<SIndexAndDepth> records(u32(std::count(enabled.begin(), enabled.end(), 1)));
	const auto fill = [&]()
	{
		for (u32 first = 0; first < positions.size(); first += kPageSize)
			CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(View(records),
				TMemoryView<const CFloat3>(&positions[first], kPageSize), kCamera, ConstView(enabled), 0,
				kVerticesPerQuad);
	};
	Count("fill_enabled_by_distance_10k", fill);
	Require(std::all_of(records.begin(), records.end(), [](const SIndexAndDepth &r) { return r.m_Depth >> 31 == 0; }),
		"fill_enabled_by_distance_10k");
}

static void Case_Sort(const char *name, u32 count)
{
	std::vector<SIndexAndDepth> records = MakeRecords(count);
	std::vector<SIndexAndDepth> sorted(count);
	Count(name,
		[&]() {
			Sort<SSortKeyExtractor_TriangleIndexAndDepth>(
				records.data(), records.data() + records.size(), sorted.data());
		});
	Require(std::is_sorted(sorted.begin(), sorted.end(), HasLowerDepth), name);
	// Equal keys would send a small sort another way.
	Require(count > kMaxQuickSortCount || std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end(), name);
}

static void Case_Expand()
{
	const std::vector<SIndexAndDepth> records = MakeRecords(10000);
	const TMemoryView<const u32> pattern(kQuad, 6);
	std::vector<u32> indices(records.size() * 6);
	Count("expand_6_u32_10k",
		[&]() { CTriangleSorter::ExpandIndices(pattern, records.data(), indices.data(), u32(records.size())); });
	Require(
		indices.front() == records.front().m_Index && indices.back() == records.back().m_Index + 3, "expand_6_u32_10k");
}

// Tubes of four quads, whose centres lie around the origin, in the order of other particles' depths.
static void Case_Tubes()
{
	constexpr u32 kParticles = 1000;
	constexpr u32 kSlots = 16;
	constexpr u32 kVertices = 10;
	std::vector<SIndexAndDepth> records = MakeRecords(kParticles);
	for (SIndexAndDepth &record : records)
		record.m_Index = record.m_Index / kVerticesPerQuad * kVertices;
	std::vector<u32> pattern;
	for (u32 quad = 0; quad < 4; ++quad)
	{
		for (const u32 entry : kQuad)
			pattern.push_back(2 * quad + entry);
	}
	std::vector<CFloat4> centers;
	for (const CFloat3 &position : MakePositions(kParticles * kSlots))
		centers.emplace_back(position.x(), position.y(), position.z(), 1.0f);
	std::vector<u32> indices(kParticles * pattern.size());
	Count("expand_tubes_u32_1k",
		[&]()
		{
			CTriangleSorter::ExpandAndSortIndices(
				ConstView(pattern), ConstView(centers), kCamera, records.data(), indices.data(), kParticles, kVertices);
		});
	const auto sumOf = [](const std::vector<u32> &values)
	{ return std::accumulate(values.begin(), values.end(), u64(0)); };
	u64 sum = kParticles * sumOf(pattern);
	for (const SIndexAndDepth &record : records)
		sum += u64(record.m_Index) * pattern.size();
	Require(sumOf(indices) == sum, "expand_tubes_u32_1k");
}

// Pages of four: what a page costs beside its particles shows.
static void Case_Billboards()
{
	const CPages pages(1000, 4);
	std::vector<u32> pattern(kQuad, kQuad + 6);
	std::vector<u32> indices(pages.ParticleCount() * pattern.size());
	std::vector<u8> workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(pages.ParticleCount()));
	CTriangleSorter sorter;
	Count("sort_billboards_by_position_1k",
		[&]()
		{
			sorter.Setup_OutputIndexBuffer(View(indices), pages.ParticleCount() * kVerticesPerQuad);
			pages.Setup(sorter);
			sorter.Setup_Geometry(View(pattern), kVerticesPerQuad);
			sorter.SortPoints_AutogenIndices(workingBuffer.data());
		});
	const TMemoryView<SIndexAndDepth> sorted =
		CTriangleSorter::WorkingBuffer_SortedPoints(workingBuffer.data(), pages.ParticleCount(), 0);
	Require(std::is_sorted(sorted.Data(), sorted.Data() + sorted.Count(), HasLowerDepth) &&
				indices.back() == sorted[sorted.Count() - 1].m_Index + 3,
		"sort_billboards_by_position_1k");
}

// Quads and ribbons take turns, page by page.
static void Case_Triangles()
{
	const CPages pages(1000, 50);
	std::vector<CTriangleSorter::CIndexPattern> patterns;
	std::vector<u32> vertexCounts;
	u32 indexCount = 0;
	u32 vertexCount = 0;
	for (u32 page = 0; page < pages.Count(); ++page)
	{
		const bool isQuad = page % 2 == 0;
		patterns.emplace_back(TMemoryView<const u32>(isQuad ? kQuad : kRibbon, isQuad ? 6 : 12));
		vertexCounts.push_back(isQuad ? kVerticesPerQuad : 6);
		indexCount += pages.RenderedCount(page) * patterns.back().Count();
		vertexCount += pages.RenderedCount(page) * vertexCounts.back();
	}
	std::vector<u32> indices(indexCount);
	std::vector<u8> workingBuffer(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount));
	CTriangleSorter sorter;
	Count("sort_triangles_per_page_1k",
		[&]()
		{
			sorter.Setup_OutputIndexBuffer(View(indices), vertexCount);
			pages.Setup(sorter);
			sorter.Setup_Geometry(ConstView(patterns), ConstView(vertexCounts), indexCount);
			sorter.SortTriangles_AutogenIndices(workingBuffer.data());
		});
	const TMemoryView<SIndexAndDepth> sorted =
		CTriangleSorter::WorkingBuffer_SortedTris(workingBuffer.data(), indexCount, 0);
	Require(std::is_sorted(sorted.Data(), sorted.Data() + sorted.Count(), HasLowerDepth) &&
				*std::max_element(indices.begin(), indices.end()) == vertexCount - 1,
		"sort_triangles_per_page_1k");
}

int main()
{
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Baseline);
	Case_FillByDistance();
	Case_FillEnabledByDistance();
	Case_Sort("radix_sort_10k", 10000);
	Case_Sort("small_sort_64", 64);
	Case_Expand();
	Case_Tubes();
	Case_Billboards();
	Case_Triangles();

	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx2);
	if (Cpu::InstructionSet() != Cpu::InstructionSet_Avx2)
		return 0;
	s_LanesSuffix = "_avx2";
	Case_FillByDistance();
	Case_FillEnabledByDistance();
	Case_Sort("radix_sort_10k", 10000);
	Case_Sort("small_sort_64", 64);
	Case_Tubes();
}
