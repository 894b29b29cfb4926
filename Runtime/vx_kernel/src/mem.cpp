// The runtime allocator: the host's functions, or aligned heap memory.

#include "kr_mem.h"

#include <cstdlib>
#include <limits>
#if defined(_WIN32)
	#include <malloc.h>
#endif

namespace Vexmoor
{
namespace Mem
{
	static void *HeapAlloc(
		void *, u64 size, u32 alignment, EAllocType, EOrigin, const char *, const char *, int, const char *)
	{
		// The heap wants whole alignments and at least a pointer's; the last one is what makes a block of 0 bytes.
		const u64 granule = alignment < sizeof(void *) ? sizeof(void *) : alignment;
		if (size > std::numeric_limits<std::size_t>::max() - 2 * granule)
			return null;
		const u64 padded = size == 0 ? granule : (size + granule - 1) / granule * granule;
#if defined(_WIN32)
		return _aligned_malloc(std::size_t(padded), std::size_t(granule));
#else
		return std::aligned_alloc(std::size_t(granule), std::size_t(padded));
#endif
	}

	static void HeapFree(void *, void *ptr, EAllocType, EOrigin, const char *, const char *, int, const char *)
	{
#if defined(_WIN32)
		_aligned_free(ptr);
#else
		std::free(ptr);
#endif
	}

	static constexpr SAllocator kHeapAllocator = {&HeapAlloc, &HeapFree, null};
	static SAllocator s_Allocator = kHeapAllocator;

	void SetAllocator(const SAllocator *allocator)
	{
		s_Allocator = allocator != null ? *allocator : kHeapAllocator;
	}

	void *_RawAlloc(u64 size,
		u32 alignment,
		EAllocType type,
		EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function)
	{
		return s_Allocator.m_Alloc(s_Allocator.m_UserData, size, alignment, type, origin, module, file, line, function);
	}

	void _RawFree(void *ptr,
		EAllocType type,
		EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function)
	{
		if (ptr != null)
			s_Allocator.m_Free(s_Allocator.m_UserData, ptr, type, origin, module, file, line, function);
	}
} // namespace Mem
} // namespace Vexmoor
