#pragma once

// The heap as the program's operator new serves it: tests count what a thread takes from it, and let it run dry.

#include "vx_defs.h"

/// 0: the library is compiled without exceptions, and leaves what operator new throws to the program.
#ifndef TEST_LIBRARY_CATCHES
	#define TEST_LIBRARY_CATCHES 1
#endif

namespace Support
{
/// Calls of operator new on this thread, failed ones too.
Vexmoor::u64 HeapAllocationCount();

/// While one lives, operator new has nothing left for this thread: it throws std::bad_alloc or, asked not to throw,
/// returns null. Tests look at results afterwards, because a failing expectation allocates.
class CDryHeap
{
public:
	CDryHeap();
	~CDryHeap();
	CDryHeap(const CDryHeap &) = delete;
	CDryHeap &operator=(const CDryHeap &) = delete;
};
} // namespace Support
