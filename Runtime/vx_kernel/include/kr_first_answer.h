#pragma once

// An answer that is found out at the first question, unless somebody has set it before.

#include "vx_compiler.h"
#include "vx_defs.h"

#include <atomic>

namespace Vexmoor
{
/// A number other than 0xFFFFFFFF. Any thread may ask and set. A number that is set is never replaced by what a
/// question finds out, not even by one that began before.
class CFirstAnswer
{
public:
	/// Returns the number, which costs one relaxed load once it is known. Before that, find is called, which returns
	/// it. If several threads ask at the same time, each may call find, and all get the number that was stored first.
	template<typename _Find>
	VX_INLINE u32 Get(const _Find &find)
	{
		u32 answer = m_Answer.load(std::memory_order_relaxed);
		if (VX_UNLIKELY(answer == kUnknown))
		{
			const u32 found = find();
			if (m_Answer.compare_exchange_strong(answer, found, std::memory_order_relaxed))
				answer = found;
		}
		return answer;
	}

	/// Sets the number.
	void Set(u32 answer) { m_Answer.store(answer, std::memory_order_relaxed); }

private:
	static constexpr u32 kUnknown = 0xFFFFFFFFu;

	std::atomic<u32> m_Answer{kUnknown};
};
} // namespace Vexmoor
