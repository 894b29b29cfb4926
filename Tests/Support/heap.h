#pragma once

// The heap as the program's operator new and malloc serve it: tests count what a thread takes from it, let one
// allocation fail, or let it run dry.

#include "vx_defs.h"

/// 0: the library is compiled without exceptions, and leaves what operator new throws to the program.
#ifndef TEST_LIBRARY_CATCHES
	#define TEST_LIBRARY_CATCHES 1
#endif

namespace Support
{
/// Calls of operator new and malloc on this thread, failed ones too.
Vexmoor::u64 HeapAllocationCount();

/// Blocks of either that this thread has taken, less those that it has given back.
Vexmoor::s64 HeapBlockCount();

/// While one lives, operator new has nothing left for this thread: it throws std::bad_alloc or, asked not to throw,
/// returns null, as malloc does. Tests look at results afterwards, because a failing expectation allocates.
class CDryHeap
{
public:
	CDryHeap();
	~CDryHeap();
	CDryHeap(const CDryHeap &) = delete;
	CDryHeap &operator=(const CDryHeap &) = delete;
};

/// The same for a single allocation: the one that comes after as many others.
class CFailingAllocation
{
public:
	explicit CFailingAllocation(Vexmoor::u64 countBefore);
	~CFailingAllocation();
	CFailingAllocation(const CFailingAllocation &) = delete;
	CFailingAllocation &operator=(const CFailingAllocation &) = delete;

	/// False when there were not that many.
	bool HasFailed() const;

private:
	const Vexmoor::u64 m_Number;
};
} // namespace Support
