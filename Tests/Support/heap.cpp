#include "heap.h"

#include <cstdlib>
#include <cstring>
#include <new>

using Vexmoor::s64;
using Vexmoor::u64;

constexpr u64 kNone = ~u64(0);

static thread_local u64 s_AllocationCount = 0;
static thread_local s64 s_BlockCount = 0;
static thread_local bool s_IsDry = false;
static thread_local u64 s_FailingNumber = kNone;

// A compiler that sees the whole program knows that malloc neither reads nor writes these variables. Code that sets or
// reads them calls this function, so that the compiler forgets it.
static void ExpectUseByMalloc()
{
	__asm__ volatile("" : : : "memory");
}

// What the linker calls the C library's own while --wrap puts ours in their place.
extern "C" void *__real_malloc(std::size_t size);
extern "C" void __real_free(void *block);

static void *Allocate(std::size_t size)
{
	const bool fails = s_IsDry || s_AllocationCount == s_FailingNumber;
	++s_AllocationCount;
	void *const block = fails ? nullptr : __real_malloc(size != 0 ? size : 1);
	s_BlockCount += block != nullptr ? 1 : 0;
	return block;
}

extern "C" void *__wrap_malloc(std::size_t size)
{
	return Allocate(size);
}
extern "C" void *__wrap_calloc(std::size_t count, std::size_t size)
{
	void *const block = Allocate(count * size);
	if (block != nullptr)
		std::memset(block, 0, count * size);
	return block;
}
extern "C" void __wrap_free(void *block)
{
	s_BlockCount -= block != nullptr ? 1 : 0;
	__real_free(block);
}

// None is inlined: a caller would allocate with one and free with the other of new and malloc, in the eyes of g++ and
// of valgrind.
[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
	return Allocate(size);
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
u64 HeapAllocationCount()
{
	ExpectUseByMalloc();
	return s_AllocationCount;
}

s64 HeapBlockCount()
{
	ExpectUseByMalloc();
	return s_BlockCount;
}

CDryHeap::CDryHeap()
{
	s_IsDry = true;
	ExpectUseByMalloc();
}

CDryHeap::~CDryHeap()
{
	ExpectUseByMalloc();
	s_IsDry = false;
}

CFailingAllocation::CFailingAllocation(u64 countBefore)
	: m_Number(HeapAllocationCount() + countBefore)
{
	s_FailingNumber = m_Number;
	ExpectUseByMalloc();
}

CFailingAllocation::~CFailingAllocation()
{
	ExpectUseByMalloc();
	s_FailingNumber = kNone;
}

bool CFailingAllocation::HasFailed() const
{
	return HeapAllocationCount() > m_Number;
}
} // namespace Support
