// Checks, sorts, compares. Two sorts over unlike bytes tell the indices that a sort writes from those that it leaves.

#include "ge_mesh_sort_replay.h"

#include "include/pv_sort_validation.h"

#include <cstring>

namespace Vexmoor
{
// Behind writtenSize bytes the output may lie over the input, which stays as it is.
static void SortOver(u8 byte, CCapturedSort &capture, u64 writtenSize)
{
	if (writtenSize != 0)
		std::memset(capture.Output(), byte, writtenSize);
	capture.Sort();
}

static u32 IndexAt(const u8 *output, u32 place, u32 indexSize)
{
	u32 index = 0;
	std::memcpy(&index, output + u64(place) * indexSize, indexSize); // little-endian
	return index;
}

static VX_WRAPS u64 CarryOn(u64 hash, u32 index)
{
	for (u32 byte = 0; byte < sizeof(index); ++byte)
		hash = (hash ^ (index >> (8 * byte) & 0xFF)) * 0x100000001B3ull;
	return hash;
}

u32 CCapturedSort::RecordedIndex(u32 place) const
{
	return IndexAt(RecordedOutput(), place, IndexSize());
}

bool CCapturedSort::ReplayedIndex(u32 place, u32 &index) const
{
	if (place >= m_WrittenEnd)
		return false;
	index = IndexAt(Output(), place, IndexSize());
	return index == IndexAt(_SpareOutput(), place, IndexSize());
}

SSortReplay ReplaySort(CCapturedSort &capture, CbSortFinding handler, void *userData)
{
	SSortReplay replay;
	replay.m_ViolationCount =
		ValidateSort(capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), handler, userData);
	if (replay.m_ViolationCount != 0)
		return replay;

	const u32 writtenCount = u32(WrittenIndexCount(capture.Sorter()));
	const u64 writtenSize = u64(writtenCount) * capture.IndexSize();
	SortOver(0xFF, capture, writtenSize);
	if (writtenSize != 0)
		std::memcpy(capture._SpareOutput(), capture.Output(), writtenSize);
	SortOver(0x00, capture, writtenSize);
	capture.m_WrittenEnd = writtenCount;

	replay.m_Sorted = true;
	replay.m_Compared = capture.HasRecordedOutput();
	replay.m_OutputHash = 0xCBF29CE484222325ull;
	for (u32 place = 0; place < writtenCount; ++place)
	{
		u32 index = 0;
		if (!capture.ReplayedIndex(place, index))
			continue;
		++replay.m_WrittenCount;
		replay.m_OutputHash = CarryOn(replay.m_OutputHash, index);

		const u32 recorded = replay.m_Compared ? capture.RecordedIndex(place) : index;
		if (recorded == index)
			continue;
		if (replay.m_DifferenceCount++ == 0)
		{
			replay.m_FirstDifference = place;
			replay.m_ReplayedIndex = index;
			replay.m_RecordedIndex = recorded;
		}
	}
	return replay;
}
} // namespace Vexmoor
