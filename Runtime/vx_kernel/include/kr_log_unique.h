#pragma once

// Log-once warnings: every call site has a key. The first touch of a key records its message and shows it, by default
// as a line on stderr. Later touches are counted.

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

/// One entry per key. All members may be called from any thread. A collection sets entries aside for the library's own
/// warnings, which then allocate nothing. If these entries are used up and the heap has no room, a new key is not
/// recorded, and its next touch is its first one. Known keys always count.
class VX_API CLogUniqueCollection
{
public:
	/// A key and its touches.
	struct SEntry
	{
		std::string m_Key;     ///< The call site.
		std::string m_Message; ///< The message of the first touch.
		u32 m_TouchCount = 0;  ///< The first touch included.
	};

	/// Receives an entry at its first touch, on the thread that touched it, while the collection is not locked.
	typedef void (*CbFirstTouch)(const SEntry &entry, void *userData);

	/// An empty collection, with entries set aside.
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
		Storage_SetAside, // a new key takes an entry that was set aside; from the heap only if there is none
		Storage_Heap      // entries are set aside anew in place of those that a new key takes
	};
	VX_LOCAL bool _Touch(std::string_view key, std::string_view message, u32 touchCount, EStorage storage);
	VX_LOCAL std::size_t _UsedCount() const;
	VX_LOCAL void _SetAside(std::size_t count);

	mutable std::mutex m_Lock;
	std::vector<SEntry> m_Entries; // in order of first touch; behind them, those that are set aside
	CbFirstTouch m_FirstTouchHandler = null;
	void *m_FirstTouchUserData = null;
};

/// The process-wide collection of performance warnings.
class VX_API CPerfHotspotsRegistry
{
public:
	/// Never null, from static initialisation on.
	static CLogUniqueCollection *Registry();

	static CLogUniqueCollection *m_Registry; ///< What Registry returns; a host may put a collection of its own here.
};

/// Counts a performance hazard for the thread, and touches the key in the process-wide collection.
VX_API void WarnOnce(const char *key, const char *message);

/// Warns like WarnOnce, for the library's own sites, and allocates nothing while entries are set aside.
/// siteKey  a literal, told apart from others by its address; cut after 288 characters
/// message  copied, and cut after 127 characters
VX_API void WarnAtSite(const char *siteKey, const char *message);

/// Adds up the touches that WarnAtSite makes on this thread, for loops over many pages, and tells the process-wide
/// collection when the batch ends. A key that the collection does not know yet reaches it at once, and hazards are
/// counted at once. Batches nest: they end on the thread that began them, the last one first.
class VX_API CWarningBatch
{
public:
	/// What becomes of the thread's warnings.
	enum EMode
	{
		Mode_Told,  ///< They are counted.
		Mode_Silent ///< They are dropped, those of nested batches too: the thread that shares out the work gives them.
	};

	/// Begins a batch on this thread.
	explicit CWarningBatch(EMode mode = Mode_Told);
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
	static constexpr u32 kMaxSites = 8; // that warn in one sort: its filler's, and those of its patterns' widths

	VX_LOCAL bool _Count(const char *siteKey);
	VX_LOCAL void _Add(const char *siteKey, const char *message);
	VX_LOCAL void _PassOn() const;

	CWarningBatch *m_Outer;
	bool m_IsSilent;
	Profiler::CHazards *m_Hazards = null; // the thread's; set with the first site
	u32 m_SiteCount = 0;
	SSite m_Sites[kMaxSites];
};
} // namespace Vexmoor

/// A call site's key: a number such as "[l.248]" and the source path. The number is the site's name for hosts that
/// filter, and stays when the line moves.
#define VX_SITE_KEY(_site) _site " @ " __FILE__

/// Issues a performance warning at a call site.
#define VX_WARN_ONCE(_site, _message) ::Vexmoor::WarnOnce(VX_SITE_KEY(_site), _message)

/// Issues a performance warning at a call site of the library, without an allocation.
#define VX_WARN_AT_SITE(_site, _message) ::Vexmoor::WarnAtSite(VX_SITE_KEY(_site), _message)
