// An allocator of the host's own, for engines that account for every byte. A sort allocates in one case only: if it is
// given no working buffer. A point sort then takes eight times the size that the buffer needs, so it is better to give
// it one.

#include "ge_mesh_pages.h"

#include "kr_mem.h"

#include "minimal.h"
#include <cstdlib>

using namespace Vexmoor;

struct SAccount
{
	u32 m_BlockCount = 0; // taken so far
	u32 m_LiveCount = 0;  // taken and not given back
	u64 m_LargestSize = 0;
	bool m_Exhausted = false;
};

static void *Take(void *userData,
	u64 size,
	u32 alignment,
	Mem::EAllocType,
	Mem::EOrigin,
	const char * /*module*/,
	const char * /*file*/,
	int /*line*/,
	const char * /*function*/)
{
	SAccount &account = *static_cast<SAccount *>(userData);
	if (account.m_Exhausted)
		return null;
	account.m_BlockCount += 1;
	account.m_LiveCount += 1;
	account.m_LargestSize = size > account.m_LargestSize ? size : account.m_LargestSize;
	return std::aligned_alloc(alignment, (size + alignment) / alignment * alignment); // not null for a size of 0
}

static void GiveBack(
	void *userData, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
{
	static_cast<SAccount *>(userData)->m_LiveCount -= 1;
	std::free(block);
}

int main()
{
	SAccount account;
	const Mem::SAllocator allocator = {Take, GiveBack, &account};
	Mem::SetAllocator(&allocator); // at start-up, before the first sort

	constexpr u32 kCount = 1000;
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CPositionPage pages[] = {ViewOf(positions)};
	std::vector<u32> indices(kCount * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), CFloat3(0, 0, 0));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	Minimal::Require(account.m_BlockCount == 0, "a sort with scratch memory allocated.");

	const std::vector<u32> sorted = indices;
	Minimal::Require(Minimal::IsFarthestFirst(Minimal::DrawnParticles(sorted, 6, 4), positions, CFloat3(0, 0, 0)),
		"the particles are not drawn by distance.");
	sorter.SortPoints_AutogenIndices(null);
	std::printf("A sort without scratch memory took %u block of %llu bytes; it was to be given %zu.\n",
		account.m_BlockCount, static_cast<unsigned long long>(account.m_LargestSize), scratch.size());
	Minimal::Require(account.m_BlockCount == 1 && account.m_LargestSize == scratch.size() * 8, "the block is another.");
	Minimal::Require(account.m_LiveCount == 0, "a block was not given back.");
	Minimal::Require(indices == sorted, "the results differ.");

	// Where the allocator has nothing left, a sort ends and leaves the output as it was.
	indices.assign(indices.size(), 0xFFFFFFFFu);
	account.m_Exhausted = true;
	sorter.SortPoints_AutogenIndices(null);
	Minimal::Require(indices == std::vector<u32>(indices.size(), 0xFFFFFFFFu), "a sort without memory wrote.");
	Mem::SetAllocator(null);
	return 0;
}
