// The log-once collection. It holds a few dozen entries at most, so a walk over them beats a map, and a touch of a known
// key allocates nothing.

#include "kr_log_unique.h"
#include "kr_profiler.h"

#include <cstdio>

namespace Vexmoor
{
void CLogUniqueCollection::Touch(const char *key, const char *message)
{
	SEntry firstTouched;
	CbFirstTouch handler;
	void *userData;
	{
		const std::lock_guard<std::mutex> lock(m_Lock);
		for (SEntry &entry : m_Entries)
		{
			if (entry.m_Key == key)
			{
				++entry.m_TouchCount;
				return;
			}
		}
		firstTouched = {key, message, 1};
		m_Entries.push_back(firstTouched);
		handler = m_FirstTouchHandler;
		userData = m_FirstTouchUserData;
	}

	if (handler != null)
		handler(firstTouched, userData);
	else
		std::fprintf(stderr, "warning: %s\n", message);
}

std::vector<CLogUniqueCollection::SEntry> CLogUniqueCollection::Snapshot() const
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	return m_Entries;
}

void CLogUniqueCollection::Clear()
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	m_Entries.clear();
}

void CLogUniqueCollection::SetFirstTouchHandler(CbFirstTouch handler, void *userData)
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	m_FirstTouchHandler = handler;
	m_FirstTouchUserData = userData;
}

static CLogUniqueCollection *PerformanceWarnings()
{
	// Never destroyed: a static object's destructor may still have something to say.
	static CLogUniqueCollection *const s_Collection = new CLogUniqueCollection;
	return s_Collection;
}

CLogUniqueCollection *CPerfHotspotsRegistry::m_Registry = PerformanceWarnings();

// A sort during static initialisation may come before m_Registry is set.
CLogUniqueCollection *CPerfHotspotsRegistry::Registry()
{
	return m_Registry != null ? m_Registry : PerformanceWarnings();
}

void WarnOnce(const char *key, const char *message)
{
	++Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	CPerfHotspotsRegistry::Registry()->Touch(key, message);
}
} // namespace Vexmoor
