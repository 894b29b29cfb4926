#pragma once

// An answer that is found out when somebody first asks, and that somebody else may set at any time.

#include "vx_defs.h"

#include <atomic>

namespace Vexmoor
{
// A number other than 0. Any thread may ask and set. What is set stands, even against a first question that began
// before it and ends after it.
class CFirstAnswer
{
public:
	// The number, for one relaxed load where it is known. The first question calls find, which returns the number; when
	// several threads ask first, each may call it, and all get the number that was there first.
	template<typename _Find>
	u32 Get(const _Find &find)
	{
		u32 answer = m_Answer.load(std::memory_order_relaxed);
		if (answer == kUnknown)
		{
			const u32 found = find();
			if (m_Answer.compare_exchange_strong(answer, found, std::memory_order_relaxed))
				answer = found;
		}
		return answer;
	}

	void Set(u32 answer) { m_Answer.store(answer, std::memory_order_relaxed); }

private:
	static constexpr u32 kUnknown = 0;

	std::atomic<u32> m_Answer{kUnknown};
};
} // namespace Vexmoor
