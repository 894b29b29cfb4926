// Finds out once what the processor has.

#include "kr_cpu.h"

#include "include/pv_first_answer.h"

#include <algorithm>

namespace Vexmoor
{
namespace Cpu
{
	static CFirstAnswer s_LaneCount;

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

	u32 LaneCount()
	{
		return s_LaneCount.Get(LaneCountOfProcessor);
	}

	void SetMaxLaneCount(u32 laneCount)
	{
		const u32 widest = laneCount >= 16 ? 16 : laneCount >= 8 ? 8 : 4;
		s_LaneCount.Set(std::min(widest, LaneCountOfProcessor()));
	}
} // namespace Cpu
} // namespace Vexmoor
