#pragma once

// The vocabulary of simd/lanes.h for processors without lanes: each register is four 32-bit words, in ordinary
// registers once everything is inlined. Narrower elements are worked on inside a word, several at a time.

#include "simd/exact_floats.h"
#include "simd/lanes_shared.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include <atomic>
#include <cstring>

namespace Vexmoor
{
/// Four lanes as four words.
struct SFourWords
{
	u32 m_0, m_1, m_2, m_3; ///< The lanes.
};

template<>
inline constexpr bool kLanesAreWords<struct SLanesScalar> = true;

/// One group of four.
struct SLanesScalar : TOneGroup<SLanesScalar>
{
	typedef SFourWords Register;
	/// Comparisons fill a lane with ones or with zeros, so a mask is a register like any other, and what chooses by it
	/// needs no branch.
	typedef Register Mask;
	/// Compilers may swap the operands of an addition, so sums are searched for NaNs.
	static constexpr bool kAddsInOrder = false;

	// Memory.

	static VX_INLINE Register Load(const void *p)
	{
		Register r;
		std::memcpy(&r, p, sizeof(r));
		return r;
	}
	static VX_INLINE void Store(void *p, Register r) { std::memcpy(p, &r, sizeof(r)); }

	///   byte   0    1    2    3
	///   p      00   01   00   80     gives 0b1010
	static VX_INLINE u32 BitsOfBytes(const u8 *p)
	{
		return u32(p[0] != 0) | u32(p[1] != 0) << 1 | u32(p[2] != 0) << 2 | u32(p[3] != 0) << 3;
	}
	using TOneGroup::StoreWhere;
	/// Every lane is stored, and the next one over it unless it is wanted: a count instead of branches.
	///
	///   bits 0b1010         word   0    1    2
	///   stores r0 at 0             r0
	///   r1 at 0, r0's bit is 0     r1
	///   r2 at 1, r1's bit is 1     r1   r2
	///   r3 at 1, r2's bit is 0     r1   r3          two lanes stored
	static VX_INLINE u32 StoreWhere(u8 *p, u32 bits, Register r)
	{
		const u32 count1 = bits & 1;
		const u32 count2 = count1 + (bits >> 1 & 1);
		const u32 count3 = count2 + (bits >> 2 & 1);
		std::memcpy(p, &r.m_0, sizeof(u32));
		std::memcpy(p + count1 * sizeof(u32), &r.m_1, sizeof(u32));
		std::memcpy(p + count2 * sizeof(u32), &r.m_2, sizeof(u32));
		std::memcpy(p + count3 * sizeof(u32), &r.m_3, sizeof(u32));
		return count3 + (bits >> 3 & 1);
	}

	/// Reads 8 bytes and none behind them.
	static VX_INLINE Register LoadTwo(const void *p)
	{
		Register r = {};
		std::memcpy(&r, p, 2 * sizeof(u32));
		return r;
	}
	/// Reads 12 bytes and none behind them, because memory may end there.
	static VX_INLINE Register LoadThree(const void *p)
	{
		Register r = {};
		std::memcpy(&r, p, 3 * sizeof(u32));
		return r;
	}
	static VX_INLINE Register LoadAligned(const void *p) { return Load(p); }
	static VX_INLINE void StoreAligned(void *p, Register r) { Store(p, r); }
	/// Four stores, in ascending order.
	static VX_INLINE void StoreInPlace(void *p, Register r)
	{
		typedef u32 VX_ANYWHERE CWord;
		volatile CWord *const words = static_cast<CWord *>(p);
		words[0] = r.m_0;
		words[1] = r.m_1;
		words[2] = r.m_2;
		words[3] = r.m_3;
	}
	/// No stores past the caches: streams are ordinary stores.
	static VX_INLINE void Stream(void *p, Register r) { StoreInPlace(p, r); }
	static VX_INLINE void Fence() { std::atomic_thread_fence(std::memory_order_release); }

	// Constants.

	static VX_INLINE Register Splat(u32 value) { return {value, value, value, value}; }
	VX_WRAPS static VX_INLINE Register Multiples(u32 factor) { return {0, factor, 2 * factor, 3 * factor}; }

	// Integers.

	/// Narrow elements are added without their highest bits, so none carries into its neighbour. The highest bit of a
	/// sum is then that of a, of b and of the carry, added without a carry of its own. (H. Warren, "Hacker's Delight",
	/// on adding several bytes at once.) Two bytes:
	///
	///   x                     FF   01
	///   y                     01   80
	///   lower bits' sum       80   01        7F + 01, 01 + 00
	///   highest bits differ   80   80
	///   result                00   81
	template<typename _Element>
	VX_WRAPS static VX_INLINE Register Add(Register a, Register b)
	{
		if constexpr (sizeof(_Element) == 8)
		{
			const u64 low = _Joined(a.m_0, a.m_1) + _Joined(b.m_0, b.m_1);
			const u64 high = _Joined(a.m_2, a.m_3) + _Joined(b.m_2, b.m_3);
			return {u32(low), u32(low >> 32), u32(high), u32(high >> 32)};
		}
		else
		{
			constexpr u32 kHighest = kHighestBits<_Element>;
			return _Each(a, b, [](u32 x, u32 y) { return ((x & ~kHighest) + (y & ~kHighest)) ^ ((x ^ y) & kHighest); });
		}
	}
	/// Likewise: the highest bits of a are set first, so no element borrows from its neighbour.
	template<typename _Element>
	static VX_INLINE Register Subtract(Register a, Register b)
	{
		constexpr u32 kHighest = kHighestBits<_Element>;
		return _Each(a, b, [](u32 x, u32 y) { return ((x | kHighest) - (y & ~kHighest)) ^ ((x ^ ~y) & kHighest); });
	}
	static VX_INLINE Register And(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return x & y; });
	}
	static VX_INLINE Register Or(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return x | y; });
	}
	static VX_INLINE Register Xor(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return x ^ y; });
	}
	/// Where they differ and the mask says so, b's bits are inverted, which makes them a's.
	static VX_INLINE Register Select(Mask mask, Register a, Register b) { return Xor(b, And(mask, Xor(a, b))); }
	static VX_INLINE Register Where(Mask mask, Register a) { return And(mask, a); }
	static VX_INLINE bool Any(Mask mask) { return !AllZero(mask); }
	static VX_INLINE Mask GreaterSigned(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return _Filled(s32(x) > s32(y)); });
	}
	static VX_INLINE void SortTwo(Register &a, Register &b)
	{
		const Register lower = _Each(a, b, [](u32 x, u32 y) { return s32(y) < s32(x) ? y : x; });
		b = _Each(a, b, [](u32 x, u32 y) { return s32(y) < s32(x) ? x : y; });
		a = lower;
	}
	static VX_INLINE Mask LessUnsigned(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return _Filled(x < y); });
	}
	/// A byte of the difference plus 0x7F has its highest bit unless the byte is 0 or has that bit itself.
	///
	///   difference            00   01   80   FF
	///   without highest bit   00   01   00   7F
	///   plus 7F               7F   80   7F   FE
	///   or the difference     7F   81   FF   FF
	///   inverted, highest     80   00   00   00
	///   spread                FF   00   00   00
	static VX_INLINE Register EqualBytes(Register a, Register b)
	{
		return _Each(a, b,
			[](u32 x, u32 y)
			{
				constexpr u32 kHighest = kHighestBits<u8>;
				const u32 difference = x ^ y;
				const u32 unequal = ((difference & ~kHighest) + ~kHighest) | difference;
				return ((~unequal & kHighest) >> 7) * 0xFF;
			});
	}
	template<u32 _Count>
	VX_WRAPS static VX_INLINE Register ShiftLeft(Register r)
	{
		return {r.m_0 << _Count, r.m_1 << _Count, r.m_2 << _Count, r.m_3 << _Count};
	}
	template<u32 _Count>
	static VX_INLINE Register ShiftRightSigned(Register r)
	{
		return _Each(r, r, [](u32 x, u32) { return u32(s32(x) >> _Count); });
	}
	///   element   0    1    2    3    4    5    6    7
	///   result    a0   a1   a2   a3   b0   b1   b2   b3     each limited to [-0x8000, 0x7FFF]
	static VX_INLINE Register PackSigned(Register a, Register b)
	{
		return {_Packed(a.m_0, a.m_1), _Packed(a.m_2, a.m_3), _Packed(b.m_0, b.m_1), _Packed(b.m_2, b.m_3)};
	}

	// Order.

	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle(Register r)
	{
		return {_Word<_0>(r), _Word<_1>(r), _Word<_2>(r), _Word<_3>(r)};
	}
	///   lane     0       1       2       3
	///   result   a[_0]   a[_1]   b[_2]   b[_3]
	template<u32 _0, u32 _1, u32 _2, u32 _3>
	static VX_INLINE Register Shuffle2(Register a, Register b)
	{
		return {_Word<_0>(a), _Word<_1>(a), _Word<_2>(b), _Word<_3>(b)};
	}
	///   element   0       1       2       3       4       5       6       7
	///   result    e[_0]   e[_1]   e[_2]   e[_3]   e[_4]   e[_5]   e[_6]   e[_7]
	template<u32 _0, u32 _1, u32 _2, u32 _3, u32 _4, u32 _5, u32 _6, u32 _7>
	static VX_INLINE Register Shuffle16(Register r)
	{
		return {_Half<_0>(r) | _Half<_1>(r) << 16, _Half<_2>(r) | _Half<_3>(r) << 16, _Half<_4>(r) | _Half<_5>(r) << 16,
			_Half<_6>(r) | _Half<_7>(r) << 16};
	}
	///   lane             0    1    2    3
	///   InterleaveLow    a0   b0   a1   b1
	///   InterleaveHigh   a2   b2   a3   b3
	static VX_INLINE Register InterleaveLow(Register a, Register b) { return {a.m_0, b.m_0, a.m_1, b.m_1}; }
	static VX_INLINE Register InterleaveHigh(Register a, Register b) { return {a.m_2, b.m_2, a.m_3, b.m_3}; }
	///   lane             0    1    2    3
	///   r                r0   r1   r2   r3
	///   by four bytes    0    r0   r1   r2
	template<u32 _Count>
	static VX_INLINE Register ShiftBytesUp(Register r)
	{
		return {_Shifted<0, _Count>(r), _Shifted<1, _Count>(r), _Shifted<2, _Count>(r), _Shifted<3, _Count>(r)};
	}
	///   bytes     e15 in all 16
	///   u16       e7 in all 8
	///   u32       e3 in all 4
	template<typename _Element>
	static VX_INLINE Register SpreadLast(Register r)
	{
		if constexpr (sizeof(_Element) == 1)
			return Splat((r.m_3 >> 24) * 0x01010101u);
		else if constexpr (sizeof(_Element) == 2)
			return Splat((r.m_3 >> 16) * 0x00010001u);
		else
			return Splat(r.m_3);
	}

	// One number of all.

	static VX_INLINE u32 Lane0(Register r) { return r.m_0; }
	static VX_INLINE bool AllZero(Register r) { return (r.m_0 | r.m_1 | r.m_2 | r.m_3) == 0; }
	static VX_INLINE bool AllOnes(Register r) { return (r.m_0 & r.m_1 & r.m_2 & r.m_3) == ~0u; }
	/// Bytes are added in pairs, to sums of 16 bits, and these lane by lane: no sum is above 16 * 255.
	static VX_INLINE u32 SumBytes(Register r)
	{
		const Register pairs = _Each(r, r, [](u32 x, u32) { return (x & 0x00FF00FFu) + (x >> 8 & 0x00FF00FFu); });
		const u32 sums = pairs.m_0 + pairs.m_1 + pairs.m_2 + pairs.m_3;
		return (sums & 0xFFFF) + (sums >> 16);
	}

	// Floats. simd/exact_floats.h keeps compilers from fusing and reordering them.

#if VX_HAS_ASM
	/// Makes compilers forget what they know of the value of some lanes. It is no instruction.
	static VX_INLINE void MakeOpaque(Register &r)
	{
		VX_OPAQUE_WORD(r.m_0);
		VX_OPAQUE_WORD(r.m_1);
		VX_OPAQUE_WORD(r.m_2);
		VX_OPAQUE_WORD(r.m_3);
	}
#endif
	static VX_INLINE Register SubtractFloats(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return _Bits(_Float(x) - _Float(y)); });
	}
	static VX_INLINE Register MultiplyFloats(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return _Bits(_Float(x) * _Float(y)); });
	}
	static VX_INLINE Register AddFloats(Register a, Register b)
	{
		return _Each(a, b, [](u32 x, u32 y) { return _Bits(_Float(x) + _Float(y)); });
	}

private:
	/// The highest bit of each element of a word.
	template<typename _Element>
	static constexpr u32 kHighestBits = sizeof(_Element) == 1   ? 0x80808080u
	                                    : sizeof(_Element) == 2 ? 0x80008000u
	                                                            : 0x80000000u;

	/// The function's result for each pair of words.
	template<typename _Function>
	static VX_INLINE Register _Each(Register a, Register b, const _Function &function)
	{
		return {function(a.m_0, b.m_0), function(a.m_1, b.m_1), function(a.m_2, b.m_2), function(a.m_3, b.m_3)};
	}
	/// A lane by its number. The number is a constant, so nothing is compared when the program runs.
	template<u32 _Lane>
	static VX_INLINE u32 _Word(Register r)
	{
		return _Lane == 0 ? r.m_0 : _Lane == 1 ? r.m_1 : _Lane == 2 ? r.m_2 : r.m_3;
	}
	/// A 16-bit element by its number: even ones are the lower halves of words.
	template<u32 _Element>
	static VX_INLINE u32 _Half(Register r)
	{
		return _Word<_Element / 2>(r) >> _Element % 2 * 16 & 0xFFFF;
	}
	/// A lane of all bytes moved up: the word that lies whole words below, and the rest of the one before it. Moved up
	/// by five bytes, lane 2 has
	///
	///   byte     3    2    1    0
	///   word 1   b2   b1   b0   .          moved up by one byte
	///   word 0   .    .    .    a3         the byte that leaves it at the top
	template<u32 _Lane, u32 _Bytes>
	VX_WRAPS static VX_INLINE u32 _Shifted(Register r)
	{
		constexpr u32 kWords = _Bytes / 4;
		constexpr u32 kBits = _Bytes % 4 * 8;
		u32 shifted = 0;
		if constexpr (_Lane >= kWords)
			shifted = _Word<_Lane - kWords>(r) << kBits;
		if constexpr (kBits != 0 && _Lane >= kWords + 1)
			shifted |= _Word<_Lane - kWords - 1>(r) >> (32 - kBits);
		return shifted;
	}
	static VX_INLINE u64 _Joined(u32 lower, u32 upper)
	{
		return u64(upper) << 32 | lower;
	}
	static VX_INLINE u32 _Filled(bool isTrue)
	{
		return isTrue ? ~0u : 0;
	}
	/// As signed 16 bits, with numbers beyond them at their ends.
	static VX_INLINE u32 _Limited(u32 x)
	{
		const s32 value = s32(x);
		return u32(value < -0x8000 ? -0x8000 : value > 0x7FFF ? 0x7FFF : value) & 0xFFFF;
	}
	static VX_INLINE u32 _Packed(u32 lower, u32 upper)
	{
		return _Limited(lower) | _Limited(upper) << 16;
	}
	/// Bits move between integers and floats by copies, which compilers turn into one instruction or none.
	static VX_INLINE float _Float(u32 bits)
	{
		float value;
		std::memcpy(&value, &bits, sizeof(value));
		return value;
	}
	static VX_INLINE u32 _Bits(float value)
	{
		u32 bits;
		std::memcpy(&bits, &value, sizeof(bits));
		return bits;
	}
};
} // namespace Vexmoor
