// Finds out once what the processor has.

#include "kr_cpu.h"

#include <algorithm>
#include <atomic>

namespace Vexmoor
{
namespace Cpu
{
	static std::atomic<u32> s_LaneCount{0}; // 0: nobody has asked yet

	static u32 LaneCountOfProcessor()
	{
#if defined(__x86_64__) || defined(__i386__)
		const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
		                    __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
		return avx512 ? 16 : __builtin_cpu_supports("avx2") ? 8 : 4;
#else
		return 4;
#endif
	}

	// Threads that ask at the same time get, and leave, the same answer.
	u32 LaneCount()
	{
		u32 laneCount = s_LaneCount.load(std::memory_order_relaxed);
		if (laneCount == 0)
		{
			laneCount = LaneCountOfProcessor();
			s_LaneCount.store(laneCount, std::memory_order_relaxed);
		}
		return laneCount;
	}

	void SetMaxLaneCount(u32 laneCount)
	{
		s_LaneCount.store(std::max(4u, std::min(laneCount, LaneCountOfProcessor())), std::memory_order_relaxed);
	}
} // namespace Cpu
} // namespace Vexmoor
