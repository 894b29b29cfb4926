#pragma once

// Log-once warnings: every call site has a key, the first touch of a key records and shows its message, later ones
// count. The default is one line on stderr at a key's first touch.

#include "vx_defs.h"

#include <mutex>
#include <string>
#include <vector>

namespace Vexmoor
{
/// One entry per key. All members may be called from any thread.
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

	/// Records the message under a new key, or counts another touch of a known one, whose message stays.
	void Touch(const char *key, const char *message);

	/// A copy of all entries, in order of first touch.
	std::vector<SEntry> Snapshot() const;

	/// Forgets all entries: the next touch of each key is its first again.
	void Clear();

	/// Replaces the line on stderr; null brings it back, and a handler that does nothing silences it.
	void SetFirstTouchHandler(CbFirstTouch handler, void *userData);

private:
	mutable std::mutex m_Lock;
	std::vector<SEntry> m_Entries;
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
} // namespace Vexmoor

/// A call site's key: a number such as "[l.248]" and the source path. The number is the site's name for hosts that
/// filter, and stays when the line moves.
#define VX_SITE_KEY(_site) _site " @ " __FILE__

/// Issues a performance warning at a call site.
#define VX_WARN_ONCE(_site, _message) ::Vexmoor::WarnOnce(VX_SITE_KEY(_site), _message)
