#pragma once

// What a captured sort comes to here: whether it keeps the rules, what it writes, and whether that is what was recorded.

#include "ge_mesh_sort_validation.h"

#include "vx_defs.h"

#include "captured_sort.h"
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SReplay
{
	std::vector<std::string> m_Violations;
	std::vector<std::string> m_Advice;

	bool m_Sorted = false; ///< Only where no rule is broken; what follows is empty otherwise.
	u32 m_WrittenCount = 0;
	u64 m_OutputHash = 0; ///< FNV-1a over four bytes of every index written, the lowest first.

	bool m_Compared = false; ///< There is a recorded output.
	u32 m_DifferenceCount = 0;
	u32 m_FirstDifference = 0; ///< The index's place in the output, and what it is here and there.
	u32 m_ReplayedIndex = 0;
	u32 m_RecordedIndex = 0;

	/// Nothing wrong has come up.
	bool Good() const { return m_Sorted && m_DifferenceCount == 0; }
};

SReplay Replay(CCapturedSort &capture);
} // namespace Viewer
