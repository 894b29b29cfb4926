#include "heap.h"

#include <cstdlib>
#include <new>

static thread_local Vexmoor::u64 s_AllocationCount = 0;
static thread_local bool s_IsDry = false;

// None is inlined: a caller would allocate with one and free with the other of new and malloc, in the eyes of g++ and of
// valgrind.
[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
	++s_AllocationCount;
	return s_IsDry ? nullptr : std::malloc(size != 0 ? size : 1);
}
[[gnu::noinline]] void *operator new(std::size_t size)
{
	if (void *const block = operator new(size, std::nothrow))
		return block;
	throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *block) noexcept
{
	std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept
{
	std::free(block);
}

namespace Support
{
Vexmoor::u64 HeapAllocationCount()
{
	return s_AllocationCount;
}

CDryHeap::CDryHeap()
{
	s_IsDry = true;
}

CDryHeap::~CDryHeap()
{
	s_IsDry = false;
}
} // namespace Support
