// The profiler service: the thread's hazard counter, and the one profiler that hands scopes on.

#include "kr_profiler.h"

namespace Vexmoor
{
namespace Profiler
{
	CHazards &CHazards::CurrentThreadHazards()
	{
		static thread_local CHazards s_Hazards;
		return s_Hazards;
	}

	void CProfiler::SetScopeHandler(CbScope handler, void *userData)
	{
		m_UserData.store(userData, std::memory_order_relaxed);
		m_Handler.store(handler, std::memory_order_release);
	}

	CProfiler s_MainEngineProfiler;

	CProfiler *MainEngineProfiler()
	{
		return &s_MainEngineProfiler;
	}
} // namespace Profiler
} // namespace Vexmoor
