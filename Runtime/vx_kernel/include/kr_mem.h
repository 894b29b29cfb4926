#pragma once

// Scratch memory: aligned blocks from the host's allocator, or from the heap while the host has set none.

#include "vx_defs.h"

namespace Vexmoor
{
namespace Mem
{
	/// What a block is for, for hosts that keep pools.
	enum EAllocType : u32
	{
		AllocType_Generic = 0,  ///< Anything: all that the sorter asks for.
		AllocType_Particle = 1, ///< Particles.
		AllocType_Scratch = 2,  ///< Memory that is given back soon.
		AllocType_Debug = 3     ///< Memory that a shipped build does without.
	};

	/// By which means a block is asked for.
	enum EOrigin : u32
	{
		Origin_Alloc = 0,        ///< As bytes: all that the sorter asks for.
		Origin_New = 0x80000000u ///< As an object.
	};

	/// A host's allocator. Both functions may be called from any thread at any time.
	struct SAllocator
	{
		/// Returns at least size bytes at a multiple of alignment (a power of two), or null. A size of 0 asks for a
		/// block as well: null means failure.
		void *(*m_Alloc)(void *userData,
			u64 size,
			u32 alignment,
			EAllocType type,
			EOrigin origin,
			const char *module,
			const char *file,
			int line,
			const char *function);
		/// Takes back a block of m_Alloc. Never called with null.
		void (*m_Free)(void *userData,
			void *ptr,
			EAllocType type,
			EOrigin origin,
			const char *module,
			const char *file,
			int line,
			const char *function);
		void *m_UserData; ///< Handed to both functions.
	};

	/// Takes a copy of the host's allocator; null brings back the default, aligned heap memory. Call it at start-up:
	/// a block goes back to the allocator in force when it is freed.
	VX_API void SetAllocator(const SAllocator *allocator);

	/// A block of at least size bytes at a multiple of alignment, or null on failure. A size of 0 gets a block, too.
	/// module, file, line and function say who asks, for hosts that keep count.
	VX_API VX_COLD_CODE void *_RawAlloc(u64 size,
		u32 alignment,
		EAllocType type,
		EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function);

	/// Releases a block of _RawAlloc, under the same type, origin and module. Null is left alone.
	VX_API VX_COLD_CODE void _RawFree(void *ptr,
		EAllocType type,
		EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function);

	constexpr const char *kDefaultModule = "Kernel|Mem|Default"; ///< Who asks, in every call of the sorter.

	/// Releases a generic block of the default module. The location that a host sees is this helper's.
	inline void _FreeGeneric(void *ptr)
	{
		_RawFree(ptr, AllocType_Generic, Origin_Alloc, kDefaultModule, __FILE__, __LINE__, VX_FUNCTION);
	}
} // namespace Mem
} // namespace Vexmoor

/// A 16-byte aligned generic block of the default module, or null. The location that a host sees is the caller's.
#define VX_ALLOC_GENERIC(_size)                                                                               \
	::Vexmoor::Mem::_RawAlloc((_size), 0x10, ::Vexmoor::Mem::AllocType_Generic, ::Vexmoor::Mem::Origin_Alloc, \
		::Vexmoor::Mem::kDefaultModule, __FILE__, __LINE__, VX_FUNCTION)
