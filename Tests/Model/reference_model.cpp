// The model's order stage and its drivers, which put the stages together as the two entry points do.

#include "reference_model.h"

#include <algorithm>
#include <stdexcept>

namespace Model
{
static bool LowerKey(const SRecord &a, const SRecord &b)
{
	return a.m_Key < b.m_Key;
}

static void Require(bool condition, const char *text)
{
	if (!condition)
		throw std::invalid_argument(text);
}

// Order.

void InsertionSort(std::vector<SRecord> &records, s32 lo, s32 hi)
{
	const auto at = [&records](s32 i) -> SRecord & { return records[std::size_t(i)]; };
	for (; hi > lo; --hi)
	{
		s32 max = hi;
		for (s32 p = hi - 1; p >= lo; --p)
		{
			if (!LowerKey(at(p), at(max))) // among equal maxima the lowest position wins
				max = p;
		}
		if (max != hi)
			std::swap(at(max), at(hi));
	}
}

// The two parts that a partition of [lo, hi] leaves to sort: [lo, m_LowerEnd] and [m_UpperBegin, hi].
struct SParts
{
	s32 m_LowerEnd;
	s32 m_UpperBegin;
};

static SParts Partition(std::vector<SRecord> &records, s32 lo, s32 hi)
{
	const auto at = [&records](s32 i) -> SRecord & { return records[std::size_t(i)]; };
	const auto less = [&at](s32 i, s32 j) { return at(i).m_Key < at(j).m_Key; };
	const auto equal = [&at](s32 i, s32 j) { return at(i).m_Key == at(j).m_Key; };

	s32 mid = lo + (hi - lo + 1) / 2;
	if (less(mid, lo))
		std::swap(at(lo), at(mid));
	if (less(hi, lo))
		std::swap(at(lo), at(hi));
	if (less(hi, mid))
		std::swap(at(mid), at(hi));

	// The pivot is the record at mid, and mid follows it when it is swapped.
	s32 loElem = lo;
	s32 hiElem = hi;
	for (;;)
	{
		if (mid > loElem)
		{
			do
				++loElem;
			while (loElem < mid && !less(mid, loElem));
		}
		if (mid <= loElem)
		{
			do
				++loElem;
			while (loElem <= hi && !less(mid, loElem));
		}
		do
			--hiElem;
		while (hiElem > mid && less(mid, hiElem));
		if (hiElem < loElem)
			break;
		std::swap(at(loElem), at(hiElem));
		if (mid == hiElem)
			mid = loElem;
	}

	// Records equal to the pivot need no further sorting.
	++hiElem;
	if (mid < hiElem)
	{
		do
			--hiElem;
		while (hiElem > mid && equal(hiElem, mid));
	}
	if (mid >= hiElem)
	{
		do
			--hiElem;
		while (hiElem > lo && equal(hiElem, mid));
	}
	return {hiElem, loElem};
}

// Which part is sorted first decides nothing, as the parts share no record: so this one recurses.
static void QuickSort(std::vector<SRecord> &records, s32 lo, s32 hi)
{
	constexpr s32 kMaxInsertionSortCount = 12;
	if (hi - lo + 1 <= kMaxInsertionSortCount)
	{
		InsertionSort(records, lo, hi);
		return;
	}
	const SParts parts = Partition(records, lo, hi);
	if (lo < parts.m_LowerEnd)
		QuickSort(records, lo, parts.m_LowerEnd);
	if (parts.m_UpperBegin < hi)
		QuickSort(records, parts.m_UpperBegin, hi);
}

void QuickSort(std::vector<SRecord> &records)
{
	QuickSort(records, 0, s32(records.size()) - 1);
}

std::vector<SRecord> RadixSort(std::vector<SRecord> &input)
{
	std::vector<SRecord> sorted = input;
	std::stable_sort(sorted.begin(), sorted.end(), LowerKey);

	const auto lowerDigits = [](const SRecord &a, const SRecord &b)
	{
		constexpr u32 kLow22 = (1u << 22) - 1;
		return (a.m_Key & kLow22) < (b.m_Key & kLow22);
	};
	std::stable_sort(input.begin(), input.end(), lowerDigits);
	return sorted;
}

std::vector<SRecord> Sort(std::vector<SRecord> &input)
{
	constexpr std::size_t kMaxQuickSortCount = 109;
	if (input.size() > kMaxQuickSortCount)
		return RadixSort(input);
	std::vector<SRecord> sorted = input;
	QuickSort(sorted);
	return sorted;
}

// Triangles.

std::vector<SRecord> WidenToTriangles(
	const std::vector<SRecord> &particles, u32 trianglesPerParticle, u32 triangleOffset)
{
	std::vector<SRecord> triangles;
	for (u32 triangle = 0; triangle < trianglesPerParticle; ++triangle)
	{
		for (u32 p = 0; p < particles.size(); ++p)
			triangles.push_back({particles[p].m_Key, triangleOffset + p * trianglesPerParticle + triangle});
	}
	return triangles;
}

std::vector<u32> GatherTriangles(const std::vector<SRecord> &records, const std::vector<u32> &sourceIndices)
{
	std::vector<u32> out;
	for (const SRecord &record : records)
	{
		for (std::size_t corner = 0; corner < 3; ++corner)
			out.push_back(sourceIndices.at(std::size_t(record.m_Index) * 3 + corner));
	}
	return out;
}

// Drivers.

static void SortFilled(SSortResult &result)
{
	result.m_Scratch = result.m_Filled;
	result.m_Sorted = Sort(result.m_Scratch);
}

static std::vector<SRecord> WrittenRecords(const SSortResult &result)
{
	const auto first = result.m_Sorted.begin() + std::ptrdiff_t(result.m_ReadOffset);
	return {first, first + std::ptrdiff_t(result.m_WriteCount)};
}

SSortResult PointSort(const SScene &scene)
{
	Require(scene.m_Geometry != EGeometry::PerPage, "a point sort has one geometry for all pages");
	Require(!scene.m_Pattern.empty(), "a point sort divides by the pattern's width");

	SSortResult result;
	result.m_Filled = FillSource(scene, 0, scene.m_ParticleCount, result.m_Warnings);
	SortFilled(result);

	// The first record read stays on a 16-byte boundary: with an odd shortfall the last record is lost as well.
	result.m_WriteCount = std::min(scene.m_ParticleCount, scene.m_IndexCapacity / u32(scene.m_Pattern.size()));
	result.m_ReadOffset = (scene.m_ParticleCount - result.m_WriteCount) & ~1u;
	const std::vector<SRecord> written = WrittenRecords(result);

	if (scene.m_Geometry == EGeometry::IndexListAndQuadCenters)
	{
		result.m_Output = ExpandAndSortIndices(scene.m_IndexType, scene.m_Pattern, scene.m_QuadCenters, scene.m_Camera,
			written, scene.m_VerticesPerParticle, result.m_Warnings);
	}
	else
	{
		const std::vector<u32> indices =
			ExpandIndices(scene.m_IndexType, scene.m_Pattern, written, scene.m_OutputAddressMod16, result.m_Warnings);
		result.m_Output.assign(indices.begin(), indices.end());
	}
	result.m_Output.resize(scene.m_IndexCapacity);
	return result;
}

// The records of one page's particles. They read the whole views of the page, so a page with enabled bytes that is
// cut by the vertex budget goes through compaction.
static std::vector<SRecord> FillTrianglePage(const SScene &scene,
	const SPage &page,
	u32 particleCount,
	u32 recordsAddressMod16,
	u32 startIndex,
	SWarnings &warnings)
{
	const u32 increment = page.m_VerticesPerParticle;
	return scene.m_SortType == ESortType::ByPosition
	           ? FillNoIndices(particleCount, recordsAddressMod16, page.m_Positions, scene.m_Camera, page.m_Enabled,
					 startIndex, increment, warnings)
	           : FillNoIndices(particleCount, page.m_Values, page.m_Enabled, startIndex, increment, warnings);
}

SSortResult TriangleSort(const SScene &scene)
{
	Require(scene.m_Geometry == EGeometry::PerPage, "a triangle sort has one geometry per page");
	Require(scene.m_TriangleIndexCount % 3 == 0, "whole triangles");
	const u32 triangleCount = scene.m_TriangleIndexCount / 3;
	const u32 bytesPerIndex = scene.m_IndexType == EIndexType::U32 ? 4 : 2;

	SSortResult result;
	std::vector<SRecord> &records = result.m_Filled;
	std::vector<u32> &indices = result.m_TriangleIndices; // the list begins on a 16-byte boundary
	u32 startIndex = 0;
	for (const SPage &page : scene.m_Pages)
	{
		if (startIndex + page.m_VerticesPerParticle > scene.m_VertexCount)
			break; // empty pages obey this as well
		const u32 affordable = (scene.m_VertexCount - startIndex) / page.m_VerticesPerParticle;
		const u32 particleCount = std::min(page.m_RenderedCount, affordable);
		if (particleCount == 0)
			continue;

		Require(!page.m_Pattern.empty() && page.m_Pattern.size() % 3 == 0, "a page draws whole triangles");
		const u32 startPrim = u32(records.size());
		const std::vector<SRecord> particles =
			FillTrianglePage(scene, page, particleCount, startPrim % 2 * 8, startIndex, result.m_Warnings);
		const u32 indicesAddressMod16 = startPrim * 3 * bytesPerIndex % 16;
		const std::vector<u32> pageIndices =
			ExpandIndices(scene.m_IndexType, page.m_Pattern, particles, indicesAddressMod16, result.m_Warnings);
		const std::vector<SRecord> triangles = WidenToTriangles(particles, u32(page.m_Pattern.size()) / 3, startPrim);
		records.insert(records.end(), triangles.begin(), triangles.end());
		indices.insert(indices.end(), pageIndices.begin(), pageIndices.end());
		startIndex += particleCount * page.m_VerticesPerParticle;
	}
	Require(records.size() <= triangleCount, "the triangle list holds every page's triangles");

	// Filler triangles: degenerate, they draw nothing.
	while (records.size() < triangleCount)
		records.push_back({kFloatKeyFar, u32(records.size())});
	indices.resize(scene.m_TriangleIndexCount, 0);

	SortFilled(result);
	result.m_WriteCount = std::min(triangleCount, scene.m_IndexCapacity / 3);
	result.m_ReadOffset = triangleCount - result.m_WriteCount;
	const std::vector<u32> gathered = GatherTriangles(WrittenRecords(result), indices);
	result.m_Output.assign(gathered.begin(), gathered.end());
	result.m_Output.resize(scene.m_IndexCapacity);
	return result;
}
} // namespace Model
