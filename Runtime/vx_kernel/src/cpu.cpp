// Finds out once what the processor has.

#include "kr_cpu.h"

#include <atomic>

namespace Vexmoor
{
namespace Cpu
{
	enum EAnswer
	{
		Answer_Unknown,
		Answer_No,
		Answer_Yes
	};

	static std::atomic<EAnswer> s_UsesAvx2{Answer_Unknown};

	static EAnswer AskProcessor()
	{
#if defined(__x86_64__) || defined(__i386__)
		return __builtin_cpu_supports("avx2") ? Answer_Yes : Answer_No;
#else
		return Answer_No;
#endif
	}

	// Threads that ask at the same time get, and leave, the same answer.
	bool UsesAvx2()
	{
		EAnswer answer = s_UsesAvx2.load(std::memory_order_relaxed);
		if (answer == Answer_Unknown)
		{
			answer = AskProcessor();
			s_UsesAvx2.store(answer, std::memory_order_relaxed);
		}
		return answer == Answer_Yes;
	}

	void AllowAvx2(bool allowed)
	{
		s_UsesAvx2.store(allowed ? AskProcessor() : Answer_No, std::memory_order_relaxed);
	}
} // namespace Cpu
} // namespace Vexmoor
