#pragma once

// Log-once warnings: every call site has a key, the first touch of a key records and shows its message, later ones
// count. The default is one line on stderr at a key's first touch.

#include "vx_defs.h"

#include "kr_string.h"

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Vexmoor
{
namespace Profiler
{
	class CHazards;
}

/// One entry per key. All members may be called from any thread. Entries for all that the library itself says are set
/// aside beforehand, so that its warnings find room without allocating; when neither they nor the heap have room, a
/// first touch is left out, and the next touch of its key is the first one.
class VX_API CLogUniqueCollection
{
public:
	/// What is known of one key.
	struct SEntry
	{
		std::string m_Key;     ///< The call site.
		std::string m_Message; ///< The first one that came with the key.
		u32 m_TouchCount = 0;  ///< The first touch included.
	};

	/// Receives an entry at its first touch, on the thread that touched it, outside the collection's lock.
	typedef void (*CbFirstTouch)(const SEntry &entry, void *userData);

	/// No entries, and some set aside.
	CLogUniqueCollection();

	/// Records the message under a new key, or counts another touch of a known one, whose message stays. A new key
	/// allocates.
	void Touch(const char *key, const char *message);

	/// A copy of all entries, in order of first touch.
	std::vector<SEntry> Snapshot() const;

	/// Forgets all entries: the next touch of each key is its first again.
	void Clear();

	/// Replaces the line on stderr; null brings it back, and a handler that does nothing silences it.
	void SetFirstTouchHandler(CbFirstTouch handler, void *userData);

private:
	friend class CWarningBatch;
	friend VX_API void WarnAtSite(const char *siteKey, const char *message);

	enum EStorage
	{
		Storage_SetAside, // entries that were set aside, and the heap only where they have run out
		Storage_Heap      // as many entries are set aside as before
	};
	VX_LOCAL bool _Touch(std::string_view key, std::string_view message, u32 touchCount, EStorage storage);
	VX_LOCAL std::size_t _UsedCount() const;
	VX_LOCAL void _SetAside(std::size_t count);

	mutable std::mutex m_Lock;
	std::vector<SEntry> m_Entries; // in order of first touch; behind them, those that are set aside
	CbFirstTouch m_FirstTouchHandler = null;
	void *m_FirstTouchUserData = null;
};

/// Gives the process-wide collection of performance warnings.
class VX_API CPerfHotspotsRegistry
{
public:
	/// Never null, from static initialisation on.
	static CLogUniqueCollection *Registry();

	static CLogUniqueCollection *m_Registry; ///< What Registry returns; a host may put a collection of its own here.
};

/// Counts a performance hazard for the thread, and touches the key in the process-wide collection.
VX_API void WarnOnce(const char *key, const char *message);

/// The same for the library's own sites: allocates nothing. siteKey is a literal, and message may change or go once
/// this returns. Characters of a key beyond the 288th, and of a message beyond the 127th, are cut.
VX_API void WarnAtSite(const char *siteKey, const char *message);

/// Takes together what WarnAtSite counts on a thread, for loops over many pages. A site's first touch reaches the
/// process-wide collection at once; later ones are added up and reach it as one when the batch ends. Hazards count at
/// once. Batches nest; a batch ends on its own thread, the one begun last first.
class VX_API CWarningBatch
{
public:
	CWarningBatch();
	~CWarningBatch();
	CWarningBatch(const CWarningBatch &) = delete;
	CWarningBatch &operator=(const CWarningBatch &) = delete;

private:
	friend VX_API void WarnAtSite(const char *siteKey, const char *message);

	struct SSite
	{
		const char *m_Key;
		u32 m_TouchCount; // since the collection was last told
		char m_Message[CShortString::kMaxLength + 1];
	};
	static constexpr u32 kMaxSites = 8; // of one sort: a filler's, and one per pattern width and index type

	VX_LOCAL bool _Count(const char *siteKey);
	VX_LOCAL void _Add(const char *siteKey, const char *message);

	CWarningBatch *m_Outer;
	Profiler::CHazards *m_Hazards; // the thread's
	u32 m_SiteCount = 0;
	SSite m_Sites[kMaxSites];
};
} // namespace Vexmoor

/// A call site's key: a number such as "[l.248]" and the source path. The number is the site's name for hosts that
/// filter, and stays when the line moves.
#define VX_SITE_KEY(_site) _site " @ " __FILE__

/// Issues a performance warning at a call site.
#define VX_WARN_ONCE(_site, _message) ::Vexmoor::WarnOnce(VX_SITE_KEY(_site), _message)

/// Issues one of the library's own.
#define VX_WARN_AT_SITE(_site, _message) ::Vexmoor::WarnAtSite(VX_SITE_KEY(_site), _message)
