#pragma once

// Captures in tests: read when they are made, and replayed with their findings collected.

#include "ge_mesh_sort_replay.h"

#include "vx_defs.h"

#include "guarded_memory.h"
#include <string>
#include <vector>

namespace Support
{
using namespace Vexmoor;

// The file ends where memory ends, and is gone once it is read.
class CReadCapture : public CCapturedSort
{
public:
	CReadCapture(const std::vector<u8> &file, u64 memoryLimit)
		: m_IsRead(Read(ReadOnly(file, (0 - file.size()) % 16).Data(), file.size(), memoryLimit))
	{
	}

	bool IsRead() const { return m_IsRead; }

private:
	bool m_IsRead;
};

struct SReplay : SSortReplay
{
	std::vector<std::string> m_Violations;
	std::vector<std::string> m_Advice;
};

inline SReplay Replay(CCapturedSort &capture)
{
	const auto collect = [](const SSortFinding &finding, void *replay)
	{
		SReplay &found = *static_cast<SReplay *>(replay);
		(finding.m_Kind == SortFinding_Violation ? found.m_Violations : found.m_Advice)
			.emplace_back(finding.m_Sentence);
	};
	SReplay replay;
	static_cast<SSortReplay &>(replay) = ReplaySort(capture, collect, &replay);
	return replay;
}
} // namespace Support
