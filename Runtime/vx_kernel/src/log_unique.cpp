// The log-once collection. It holds a few dozen entries at most, so a walk over them beats a map. A site's first touch
// is in the middle of a sort, which allocates nothing: entries with room for it are made beforehand and lie behind
// those that are used. Touches of a known key can be added many at once.

#include "kr_log_unique.h"
#include "kr_profiler.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

namespace Vexmoor
{
constexpr std::size_t kMaxKeyLength = 288; // "[l.1234] @ " and a source path
constexpr std::size_t kMaxMessageLength = CShortString::kMaxLength;

// The library has 15 sites. Each takes two entries: one stays, the other one is shown to the first-touch handler.
constexpr std::size_t kEntriesSetAside = 32;

typedef CLogUniqueCollection::SEntry SEntry;

static std::string_view Cut(const char *text, std::size_t maxLength)
{
	return {text, std::min(std::strlen(text), maxLength)};
}

// An entry that is set aside has a key that nobody can touch, since keys end at their first null. Its strings keep the
// memory that they have.
static void MarkAsSetAside(SEntry &entry)
{
	entry.m_Key.assign(1, '\0');
}

static bool IsSetAside(const SEntry &entry)
{
	return entry.m_Key.size() == 1 && entry.m_Key[0] == '\0';
}

static void Fill(SEntry &entry, std::string_view key, std::string_view message, u32 touchCount)
{
	entry.m_Message = message;
	entry.m_Key = key;
	entry.m_TouchCount = touchCount;
}

CLogUniqueCollection::CLogUniqueCollection()
{
	_SetAside(kEntriesSetAside);
}

std::size_t CLogUniqueCollection::_UsedCount() const
{
	return std::size_t(std::find_if(m_Entries.begin(), m_Entries.end(), IsSetAside) - m_Entries.begin());
}

// Makes entries until there are count of them, used ones included, or the heap has no room.
void CLogUniqueCollection::_SetAside(std::size_t count)
{
	VX_TRY
	{
		while (m_Entries.size() < count)
		{
			SEntry entry;
			entry.m_Key.reserve(kMaxKeyLength);
			entry.m_Message.reserve(kMaxMessageLength);
			MarkAsSetAside(entry);
			m_Entries.push_back(std::move(entry));
		}
	}
	VX_CATCH {}
}

// Returns whether the key was known.
bool CLogUniqueCollection::_Touch(std::string_view key, std::string_view message, u32 touchCount, EStorage storage)
{
	SEntry shown;
	CbFirstTouch handler;
	void *userData;
	{
		const std::lock_guard<std::mutex> lock(m_Lock);
		std::size_t usedCount = 0;
		for (; usedCount < m_Entries.size() && !IsSetAside(m_Entries[usedCount]); ++usedCount)
		{
			if (m_Entries[usedCount].m_Key == key)
			{
				m_Entries[usedCount].m_TouchCount += touchCount;
				return true;
			}
		}

		handler = m_FirstTouchHandler;
		userData = m_FirstTouchUserData;
		const std::size_t stopCount = usedCount + (handler != null ? 2 : 1);
		_SetAside(storage == Storage_Heap ? stopCount + kEntriesSetAside : stopCount);
		if (m_Entries.size() < stopCount)
			return false;

		SEntry &entry = m_Entries[usedCount];
		VX_TRY
		{
			if (handler != null)
			{
				shown = std::move(m_Entries.back());
				m_Entries.pop_back();
				Fill(shown, key, message, touchCount);
			}
			Fill(entry, key, message, touchCount);
		}
		VX_CATCH // longer than what is set aside, and the heap has no room
		{
			MarkAsSetAside(entry);
			return false;
		}
	}

	if (handler != null)
		handler(shown, userData);
	else
		std::fprintf(stderr, "warning: %.*s\n", int(message.size()), message.data());
	return false;
}

void CLogUniqueCollection::Touch(const char *key, const char *message)
{
	_Touch(key, message, 1, Storage_Heap);
}

std::vector<SEntry> CLogUniqueCollection::Snapshot() const
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	return std::vector<SEntry>(m_Entries.begin(), m_Entries.begin() + std::ptrdiff_t(_UsedCount()));
}

void CLogUniqueCollection::Clear()
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	m_Entries.erase(m_Entries.begin() + std::ptrdiff_t(std::min(m_Entries.size(), kEntriesSetAside)), m_Entries.end());
	std::for_each(m_Entries.begin(), m_Entries.end(), MarkAsSetAside);
	_SetAside(kEntriesSetAside);
}

void CLogUniqueCollection::SetFirstTouchHandler(CbFirstTouch handler, void *userData)
{
	const std::lock_guard<std::mutex> lock(m_Lock);
	m_FirstTouchHandler = handler;
	m_FirstTouchUserData = userData;
	_SetAside(_UsedCount() + kEntriesSetAside);
}

static CLogUniqueCollection *PerformanceWarnings()
{
	// Never destroyed: a static object's destructor may still have something to say.
	alignas(CLogUniqueCollection) static unsigned char s_Memory[sizeof(CLogUniqueCollection)];
	static CLogUniqueCollection *const s_Collection = new (s_Memory) CLogUniqueCollection;
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

// The thread's innermost batch, or null.
static thread_local CWarningBatch *s_Batch = null;

// A first touch calls a handler, which may clear or replace the collection. So a batch counts a key by itself only from
// the second touch on, when the collection has known the key.
void WarnAtSite(const char *siteKey, const char *message)
{
	CWarningBatch *const batch = s_Batch;
	if (batch != null && batch->_Count(siteKey))
		return;
	++Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards;
	const std::string_view key = Cut(siteKey, kMaxKeyLength);
	const bool wasKnown = CPerfHotspotsRegistry::Registry()->_Touch(
		key, Cut(message, kMaxMessageLength), 1, CLogUniqueCollection::Storage_SetAside);
	if (batch != null && wasKnown)
		batch->_Add(siteKey, message);
}

// cppcheck-suppress uninitMemberVar ; sites are written before they count
CWarningBatch::CWarningBatch(EMode mode)
	: m_Outer(s_Batch)
	, m_IsSilent(mode == Mode_Silent || (m_Outer != null && m_Outer->m_IsSilent))
{
	s_Batch = this;
}

CWarningBatch::~CWarningBatch()
{
	s_Batch = m_Outer;
	if (VX_UNLIKELY(m_SiteCount != 0))
		_PassOn();
}

// Passes what was added up on to the collection. It is not inlined, because most batches have no warnings.
VX_COLD_CODE void CWarningBatch::_PassOn() const
{
	for (u32 i = 0; i < m_SiteCount; ++i)
	{
		const SSite &site = m_Sites[i];
		if (site.m_TouchCount != 0)
			CPerfHotspotsRegistry::Registry()->_Touch(Cut(site.m_Key, kMaxKeyLength), site.m_Message, site.m_TouchCount,
				CLogUniqueCollection::Storage_SetAside);
	}
}

// Returns false where the collection has to be told. Literals are told apart by their addresses.
bool CWarningBatch::_Count(const char *siteKey)
{
	if (m_IsSilent)
		return true;
	for (u32 i = 0; i < m_SiteCount; ++i)
	{
		if (m_Sites[i].m_Key == siteKey)
		{
			++m_Sites[i].m_TouchCount;
			++m_Hazards->m_PerformanceHazards;
			return true;
		}
	}
	return false;
}

// The message is kept in case the key is no longer known when the batch ends.
void CWarningBatch::_Add(const char *siteKey, const char *message)
{
	if (m_SiteCount == kMaxSites)
		return;
	m_Hazards = &Profiler::CHazards::CurrentThreadHazards();
	SSite &site = m_Sites[m_SiteCount++];
	const std::string_view cutMessage = Cut(message, kMaxMessageLength);
	site.m_Key = siteKey;
	site.m_TouchCount = 0;
	site.m_Message[cutMessage.copy(site.m_Message, cutMessage.size())] = '\0';
}
} // namespace Vexmoor
