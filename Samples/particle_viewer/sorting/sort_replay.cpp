// Checks, sorts, compares. Two sorts over unlike bytes tell the indices that a sort writes from those that it leaves.

#include "sort_replay.h"

#include <cstring>

namespace Viewer
{
namespace
{
	void Validate(const CCapturedSort &capture, SReplay &replay)
	{
		const auto collect = [](const SSortFinding &finding, void *userData)
		{
			SReplay &found = *static_cast<SReplay *>(userData);
			(finding.m_Kind == SortFinding_Violation ? found.m_Violations : found.m_Advice)
				.emplace_back(finding.m_Sentence);
		};
		ValidateSort(capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), collect, &replay);
	}

	std::vector<u8> SortOver(u8 byte, CCapturedSort &capture)
	{
		if (capture.OutputSize() != 0)
			std::memset(capture.Output(), byte, capture.OutputSize());
		capture.Sort();
		return std::vector<u8>(capture.Output(), capture.Output() + capture.OutputSize());
	}

	u32 IndexAt(const std::vector<u8> &output, u32 place, u32 indexSize)
	{
		u32 index = 0;
		std::memcpy(&index, output.data() + u64(place) * indexSize, indexSize); // little-endian
		return index;
	}
} // namespace

SReplay Replay(CCapturedSort &capture)
{
	SReplay replay;
	Validate(capture, replay);
	if (!replay.m_Violations.empty())
		return replay;

	const std::vector<u8> overOnes = SortOver(0xFF, capture);
	const std::vector<u8> overZeros = SortOver(0x00, capture);
	replay.m_Sorted = true;
	replay.m_Compared = capture.HasRecordedOutput();
	replay.m_OutputHash = 0xCBF29CE484222325ull;
	for (u32 place = 0; place < capture.OutputCount(); ++place)
	{
		const u32 index = IndexAt(overZeros, place, capture.IndexSize());
		if (index != IndexAt(overOnes, place, capture.IndexSize()))
			continue;
		++replay.m_WrittenCount;
		for (u32 byte = 0; byte < 4; ++byte)
			replay.m_OutputHash = (replay.m_OutputHash ^ (index >> (8 * byte) & 0xFF)) * 0x100000001B3ull;

		const u32 recorded = replay.m_Compared ? IndexAt(capture.RecordedOutput(), place, capture.IndexSize()) : index;
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
} // namespace Viewer
