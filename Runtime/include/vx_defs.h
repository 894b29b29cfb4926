#pragma once

// The names that every other header uses: the version, integer types, the null constant, a test of an address's
// alignment, the size of a cache line, and the invalid value of index types.

#include "vx_compiler.h"

#include <cstddef>
#include <cstdint>

///@{
/// The semantic version: a new major number may break a client, a minor one adds, and a patch mends. The build system
/// reads it here. VX_VERSION is one number, two digits for each part: 1.2.3 is 10203.
#define VX_VERSION_MAJOR 1
#define VX_VERSION_MINOR 0
#define VX_VERSION_PATCH 0
#define VX_VERSION (VX_VERSION_MAJOR * 10000 + VX_VERSION_MINOR * 100 + VX_VERSION_PATCH)
///@}

/// The namespace of the runtime, for macros whose text must name it from anywhere.
#define VX_NAMESPACE Vexmoor

/// The whole runtime.
namespace Vexmoor
{
///@{
/// Integers of a width.
typedef std::uint8_t u8;
typedef std::uint16_t u16;
typedef std::uint32_t u32;
typedef std::uint64_t u64;
typedef std::int32_t s32;
typedef std::int64_t s64;
///@}

///@{
/// Integers as wide as a pointer: byte offsets of memory accesses.
typedef std::uintptr_t ureg;
typedef std::intptr_t sreg;
///@}

/// A constant rather than a macro, so that the texts of conditions that name it stay as written.
constexpr std::nullptr_t null = nullptr;

/// A cache line of most processors. Elsewhere a prefetch may ask for a line twice, or for every second line.
constexpr u32 kCacheLineInBytes = 64;

/// An index type with one value that means "none".
template<typename _Type>
struct TGuid
{
	_Type m_Guid; ///< The index.

	static const TGuid INVALID; ///< None: all bits set.
};

/// None.
template<>
inline constexpr TGuid<u32> TGuid<u32>::INVALID = {0xFFFFFFFFu};

typedef TGuid<u32> CGuid; ///< The index type of containers.

namespace Mem
{
	/// True when the address's bits below _Alignment, a power of two, are all zero.
	template<ureg _Alignment>
	inline bool IsAligned(const volatile void *ptr)
	{
		static_assert(_Alignment != 0 && (_Alignment & (_Alignment - 1)) == 0, "alignments are powers of two");
		return (reinterpret_cast<ureg>(ptr) & (_Alignment - 1)) == 0;
	}
} // namespace Mem
} // namespace Vexmoor
