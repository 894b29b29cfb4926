// By age, or by spawn order: for stylised effects whose layers must not swap when the camera moves. A pool that reuses
// the slots of dead particles is in neither order by itself.
//
// By age, the value is 0 - age, so the oldest is drawn first. Particles of one burst have the same age. Their order is
// the same for the same input, but nobody has chosen it. A number given at spawning is never the same for two
// particles. As a float it would be exact up to 2^24 only, so its bits are used as the bits of a float: positive floats
// sort as their bits do.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <cstring>

using namespace Vexmoor;

constexpr u32 kCount = 5;

static std::vector<u32> SortByValues(const float (&values)[kCount])
{
	std::vector<u32> indices(kCount * 6);
	const CSortKeyPage pages[] = {ViewOf(values)};

	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	return Minimal::DrawnParticles(indices, 6, 4);
}

int main()
{
	const float ages[kCount] = {0.5f, 3.0f, 0.1f, 2.0f, 1.5f}; // of slots
	float values[kCount];
	for (u32 i = 0; i < kCount; ++i)
		values[i] = 0.0f - ages[i];
	const std::vector<u32> byAge = SortByValues(values);

	const u32 spawnNumbers[kCount] = {100000002, 100000000, 7, 100000001, 2000000000}; // below 0x7F800000
	for (u32 i = 0; i < kCount; ++i)
		std::memcpy(&values[i], &spawnNumbers[i], sizeof(float));
	const std::vector<u32> bySpawnNumber = SortByValues(values);

	Minimal::Print("By age, the oldest first", byAge);
	Minimal::Print("By spawn number, the first one first", bySpawnNumber);
	Minimal::Require(byAge == std::vector<u32>{1, 3, 4, 0, 2}, "the particles are not drawn by falling age.");
	Minimal::Require(float(spawnNumbers[0]) == float(spawnNumbers[1]), "floats hold these numbers after all.");
	Minimal::Require(bySpawnNumber == std::vector<u32>{2, 1, 3, 0, 4}, "the particles are not drawn as they came.");
	return 0;
}
