#pragma once

// The expansion of sorted records, by width of the pattern: each record's pattern of indices, plus its vertex base.
//
// A kernel holds a pattern in registers and writes a block of primitives at a time. kPrims is how many records a block
// reads and how many primitives it writes, kWidth the indices of a primitive. Write stores a block in ascending order
// and each index once. Where the name says "Stream", records and output lie at multiples of 16, the records check
// themselves, and the caller chooses the stores; other kernels read and write at any address.
//
// In lane tables b0 is the vertex base of a block's first record, p0 the pattern's first entry, and a sum is written
// b0+p0. Registers are stored in the order of the rows.

#include "ge_mesh_triangle_sorter.h"

#include "simd/lanes.h"
#include "simd/sse/simd_vector.h"

#include "pv_mesh_triangle_sorter.h"

#include <type_traits>

namespace Vexmoor
{
// How whole blocks are stored at a multiple of 16.
enum class EIndexStores : u32
{
	Streamed, // past the caches: an output that a GPU reads
	Cached    // through the caches: indices that the CPU reads again soon
};

inline EIndexStores CTriangleSorter::_StoresOfOutput() const
{
	return m_OutputMemory == OutputMemory_Cached ? EIndexStores::Cached : EIndexStores::Streamed;
}

// What the worker of a pattern's width takes: the pattern, sorted records to read, and an output of 32-bit or 16-bit
// indices to write.
typedef TMemoryView<const u32> CPattern;
typedef const SIndexAndDepth *__restrict CRecords;
typedef volatile u32 *__restrict CPrims32;
typedef volatile u16 *__restrict CPrims16;

namespace Expand
{
	typedef SLanesBase Lanes;
	typedef Lanes::Register Register;

	// Two records from a multiple of 16.
	//
	//   lane      0    1    2    3
	//   result    k0   b0   k1   b1      a record's key, then its base
	static VX_INLINE Register LoadRecords2(const SIndexAndDepth *records)
	{
		return Float4::LoadAligned16(records).Lanes();
	}

	// The bases of four records from a multiple of 16.
	//
	//   lane      0    1    2    3
	//   loaded    k0   b0   k1   b1
	//             k2   b2   k3   b3
	//   result    b0   b1   b2   b3
	static VX_INLINE Register LoadBases4(const SIndexAndDepth *records)
	{
		return Lanes::Shuffle2<1, 3, 1, 3>(LoadRecords2(records), LoadRecords2(records + kRecordsPerAccess));
	}

	// The bases of four records from any address. Kernels that do not stream take them: records off their alignment are
	// reported once, by who calls a worker, and not again for each block.
	static VX_INLINE Register LoadBases4Unaligned(const SIndexAndDepth *records)
	{
		return Lanes::Shuffle2<1, 3, 1, 3>(Lanes::Load(records), Lanes::Load(records + kRecordsPerAccess));
	}

	static VX_INLINE Register Add32(Register a, Register b)
	{
		return Lanes::Add<u32>(a, b);
	}

	static VX_INLINE void StoreInPlace(volatile void *p, Register r)
	{
		Lanes::StoreInPlace(const_cast<void *>(p), r);
	}

	// The stores of kernels with "Stream" in their names: a register at an offset in bytes from an aligned address.
	// Prepare comes before the stores of each block.
	struct SStreamingStores
	{
		template<u32 _BlockInBytes>
		static VX_INLINE void Prepare(volatile void *)
		{
		}
		static VX_INLINE void Put(volatile void *dst, sreg offset, Register r)
		{
			Float4(r).StreamAligned16(dst, offset);
		}
	};
	struct SCachedStores
	{
		// Fetches the lines of a later block, since the outputs of a frame are seldom in a cache. Blocks of a single
		// store are left to the processor: four of them would fetch the same line. Fetching a line behind the output
		// changes nothing there.
		template<u32 _BlockInBytes>
		static VX_INLINE void Prepare(volatile void *dst)
		{
			constexpr u32 kPrefetchDistanceInBytes = 1536;
			constexpr u32 kStoreInBytes = 16;
			if constexpr (_BlockInBytes > kStoreInBytes)
			{
				u8 *const ahead = static_cast<u8 *>(const_cast<void *>(dst)) + kPrefetchDistanceInBytes;
				for (u32 byte = 0; byte < _BlockInBytes; byte += kCacheLineInBytes)
					VX_PREFETCH_TO_WRITE(ahead + byte);
			}
		}
		static VX_INLINE void Put(volatile void *dst, sreg offset, Register r)
		{
			StoreInPlace(static_cast<volatile u8 *>(dst) + offset, r);
		}
	};

	// The pattern of a 16-bit output, packed: word k has entry 2k in its lower bits and entry 2k + 1 in its upper ones.
	//
	//   bits      0-15       16-31
	//   word 0    entry 0    entry 1
	//   word 1    entry 2    entry 3
	//
	// Entries are cut to 16 bits, so that one does not spill into its neighbour.
	template<u32 _Width>
	struct TPackedPattern
	{
		u32 m_Words[_Width / 2];

		VX_WRAPS explicit VX_INLINE TPackedPattern(const u32 *pattern)
		{
			for (u32 word = 0; word < _Width / 2; ++word)
				m_Words[word] = (LoadU32(pattern + 2 * word) & 0xFFFF) | LoadU32(pattern + 2 * word + 1) << 16;
		}
	};

	// A base in both halves of a word, to be added to two 16-bit entries at once. Callers of 16-bit outputs keep bases
	// below 0x10000: a bit above that would get into the upper half.
	VX_WRAPS static VX_INLINE u32 Twice16(u32 base)
	{
		return base | base << 16;
	}
	static VX_INLINE Register Twice16(Register bases)
	{
		return Lanes::Or(bases, Lanes::ShiftLeft<16>(bases));
	}

	// Width 1, of which the entry is 0: the bases themselves.

	//   lane          0    1    2    3
	//   stored        b0   b1   b2   b3
	struct SStreamU32_x1
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 4;

		template<typename _Stores>
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			_Stores::Put(dst, 0, LoadBases4(records));
		}
	};

	// The one to three bases that are left, or all of them at an unaligned output.
	struct SU32_x1
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 1;

		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const { *dst = records->m_Index; }
	};

	//   lane          0    1    2    3    4    5    6    7
	//   stored        b0   b1   b2   b3   b4   b5   b6   b7
	//
	// Eight bases packed to 16 bits with signed saturation, which keeps 0x8000 to 0xFFFF once they are made negative.
	// Exact up to 0xFFFF; beyond, 0x8000 where the lower 16 bits are below that.
	struct SStreamU16_x1
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 8;

		template<typename _Stores>
		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			const Register lower = MakeNegative(LoadBases4(records));
			const Register upper = MakeNegative(LoadBases4(records + 4));
			_Stores::Put(dst, 0, Lanes::PackSigned(lower, upper));
		}

	private:
		//   base             0x7FFF    0x8000        0xFFFF        0x12345
		//   made negative    0x7FFF    0xFFFF8000    0xFFFFFFFF    0xFFFF2345
		//   packed           0x7FFF    0x8000        0xFFFF        0x8000        the last one is saturated
		static VX_INLINE Register MakeNegative(Register bases)
		{
			const Register upperBits = Lanes::Splat(0xFFFF0000u);
			return Lanes::Or(bases, Lanes::Where(Lanes::GreaterSigned(bases, Lanes::Splat(0x7FFF)), upperBits));
		}
	};

	// Eight bases from and to any address, cut to their lower 16 bits as single stores would cut them. Packing
	// saturates, so each base is first made the signed number that its lower 16 bits are.
	struct SU16_x1_Eight
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 8;

		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			StoreInPlace(dst, Lanes::PackSigned(SignedLow16(LoadBases4Unaligned(records)),
								  SignedLow16(LoadBases4Unaligned(records + 4))));
		}

	private:
		//   base             0x7FFF        0x8000        0xFFFF        0x12345
		//   shifted up       0x7FFF0000    0x80000000    0xFFFF0000    0x23450000
		//   and down         0x7FFF        0xFFFF8000    0xFFFFFFFF    0x2345
		//   packed           0x7FFF        0x8000        0xFFFF        0x2345        none is saturated
		static VX_INLINE Register SignedLow16(Register bases)
		{
			return Lanes::ShiftRightSigned<16>(Lanes::ShiftLeft<16>(bases));
		}
	};

	// Two bases as one store of 32 bits, the first one at the lower address.
	struct SU16_x1_Two
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 2;

		VX_WRAPS VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			StoreU32(dst, (records[0].m_Index & 0xFFFF) | records[1].m_Index << 16);
		}
	};

	// The last one of an odd number.
	struct SU16_x1
	{
		static constexpr u32 kWidth = 1;
		static constexpr u32 kPrims = 1;

		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const { *dst = u16(records->m_Index); }
	};

	// Width 3.

	// Three entries, repeated over three registers. Nothing is read beyond the third.
	//
	//   lane          0    1    2    3
	//   p0p1p2p0      p0   p1   p2   p0
	//   p1p2p0p1      p1   p2   p0   p1
	//   p2p0p1p2      p2   p0   p1   p2
	struct SPattern3
	{
		Register p0p1p2p0, p1p2p0p1, p2p0p1p2;

		explicit VX_INLINE SPattern3(const u32 *pattern)
		{
			const Register p0p1p2__ = Lanes::LoadThree(pattern);
			p0p1p2p0 = Lanes::Shuffle<0, 1, 2, 0>(p0p1p2__);
			p1p2p0p1 = Lanes::Shuffle<1, 2, 0, 1>(p0p1p2__);
			p2p0p1p2 = Lanes::Shuffle<2, 0, 1, 2>(p0p1p2__);
		}
	};

	// Four bases, three times each, over three registers.
	//
	//   lane          0    1    2    3
	//   b0b0b0b1      b0   b0   b0   b1
	//   b1b1b2b2      b1   b1   b2   b2
	//   b2b3b3b3      b2   b3   b3   b3
	struct SOffsets3
	{
		Register b0b0b0b1, b1b1b2b2, b2b3b3b3;

		explicit VX_INLINE SOffsets3(Register b0b1b2b3)
			: b0b0b0b1(Lanes::Shuffle<0, 0, 0, 1>(b0b1b2b3))
			, b1b1b2b2(Lanes::Shuffle<1, 1, 2, 2>(b0b1b2b3))
			, b2b3b3b3(Lanes::Shuffle<2, 3, 3, 3>(b0b1b2b3))
		{
		}
	};

	//   lane          0       1       2       3
	//   stored        b0+p0   b0+p1   b0+p2   b1+p0
	//                 b1+p1   b1+p2   b2+p0   b2+p1
	//                 b2+p2   b3+p0   b3+p1   b3+p2
	struct SStreamU32_x3
	{
		static constexpr u32 kWidth = 3;
		static constexpr u32 kPrims = 4;

		SPattern3 m_Pattern;

		explicit VX_INLINE SStreamU32_x3(const u32 *pattern)
			: m_Pattern(pattern)
		{
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			const SOffsets3 offsets(LoadBases4(records));
			_Stores::Put(dst, 0, Add32(offsets.b0b0b0b1, m_Pattern.p0p1p2p0));
			_Stores::Put(dst, 16, Add32(offsets.b1b1b2b2, m_Pattern.p1p2p0p1));
			_Stores::Put(dst, 32, Add32(offsets.b2b3b3b3, m_Pattern.p2p0p1p2));
		}
	};

	// The three entries repeat over three registers of 16-bit lanes, and each base over three lanes:
	//
	//   lane          0       1       2       3       4       5       6       7
	//   stored        b0+p0   b0+p1   b0+p2   b1+p0   b1+p1   b1+p2   b2+p0   b2+p1
	//                 b2+p2   b3+p0   b3+p1   b3+p2   b4+p0   b4+p1   b4+p2   b5+p0
	//                 b5+p1   b5+p2   b6+p0   b6+p1   b6+p2   b7+p0   b7+p1   b7+p2
	struct SStreamU16_x3
	{
		static constexpr u32 kWidth = 3;
		static constexpr u32 kPrims = 8;

		Register p01201201, p20120120, p12012012;

		// A 32-bit lane holds two entries. Five lanes in a row repeat after three, so two rotations by lanes give the
		// rest:
		//
		//   lane          0       1       2       3
		//   p01201201     p0 p1   p2 p0   p1 p2   p0 p1
		//   p20120120     p2 p0   p1 p2   p0 p1   p2 p0     lanes 1, 2, 0, 1 of the first register
		//   p12012012     p1 p2   p0 p1   p2 p0   p1 p2     lanes 2, 0, 1, 2
		explicit VX_INLINE SStreamU16_x3(const u32 *pattern)
		{
			const u16 p0 = u16(pattern[0]), p1 = u16(pattern[1]), p2 = u16(pattern[2]);
			const u16 entries[8] = {p0, p1, p2, p0, p1, p2, p0, p1};
			p01201201 = Lanes::Load(entries);
			p20120120 = Lanes::Shuffle<1, 2, 0, 1>(p01201201);
			p12012012 = Lanes::Shuffle<2, 0, 1, 2>(p01201201);
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			const SOffsets3 lower(LoadBases4(records));
			const SOffsets3 upper(LoadBases4(records + 4));
			const Register off00011122 = PackOffsets(lower.b0b0b0b1, lower.b1b1b2b2);
			const Register off23334445 = PackOffsets(lower.b2b3b3b3, upper.b0b0b0b1);
			const Register off55667777 = PackOffsets(upper.b1b1b2b2, upper.b2b3b3b3);
			_Stores::Put(dst, 0, Lanes::Add<u16>(off00011122, p01201201));
			_Stores::Put(dst, 16, Lanes::Add<u16>(off23334445, p20120120));
			_Stores::Put(dst, 32, Lanes::Add<u16>(off55667777, p12012012));
		}

	private:
		// Eight 32-bit offsets into eight 16-bit elements. An offset of 0x10000 or more spills into its neighbour, and
		// callers of 16-bit outputs keep every index below that.
		//
		//   lane            0       1       2       3
		//   even            o0      o2      o4      o6
		//   odd << 16       o1      o3      o5      o7      in the upper half of the lane
		//   result          o0 o1   o2 o3   o4 o5   o6 o7
		static VX_INLINE Register PackOffsets(Register lanes0123, Register lanes4567)
		{
			const Register even = Lanes::Shuffle2<0, 2, 0, 2>(lanes0123, lanes4567);
			const Register odd = Lanes::Shuffle2<1, 3, 1, 3>(lanes0123, lanes4567);
			return Lanes::Or(even, Lanes::ShiftLeft<16>(odd));
		}
	};

	// A primitive at a time, with entries cut to the output's own width.
	template<typename _Index>
	struct TExpand_x3
	{
		static constexpr u32 kWidth = 3;
		static constexpr u32 kPrims = 1;

		_Index p0, p1, p2;

		explicit VX_INLINE TExpand_x3(const u32 *pattern)
			: p0(_Index(pattern[0]))
			, p1(_Index(pattern[1]))
			, p2(_Index(pattern[2]))
		{
		}
		VX_WRAPS VX_INLINE void Write(volatile _Index *dst, const SIndexAndDepth *records) const
		{
			const u32 id = records->m_Index;
			dst[0] = _Index(p0 + id);
			dst[1] = _Index(p1 + id);
			dst[2] = _Index(p2 + id);
		}
	};

	// Width 6.

	// Six entries, repeated over three registers. The second load starts at entry 2, so that nothing is read behind the
	// last entry.
	//
	//   lane          0    1    2    3
	//   i0i1i2i3      p0   p1   p2   p3
	//   i4i5i0i1      p4   p5   p0   p1
	//   i2i3i4i5      p2   p3   p4   p5
	struct SPattern6
	{
		Register i0i1i2i3, i4i5i0i1, i2i3i4i5;

		explicit VX_INLINE SPattern6(const u32 *pattern)
			: i0i1i2i3(Lanes::Load(pattern))
			, i2i3i4i5(Lanes::Load(pattern + 2))
		{
			i4i5i0i1 = Lanes::Shuffle2<2, 3, 0, 1>(i2i3i4i5, i0i1i2i3);
		}
	};

	// Two bases, six times each, over three registers.
	//
	//   lane          0    1    2    3
	//   k0b0k1b1      k0   b0   k1   b1      two records, as loaded
	//   b0b0b0b0      b0   b0   b0   b0
	//   b0b0b1b1      b0   b0   b1   b1
	//   b1b1b1b1      b1   b1   b1   b1
	struct SOffsets6
	{
		Register b0b0b0b0, b0b0b1b1, b1b1b1b1;

		explicit VX_INLINE SOffsets6(Register k0b0k1b1)
			: b0b0b0b0(Lanes::Shuffle<1, 1, 1, 1>(k0b0k1b1))
			, b0b0b1b1(Lanes::Shuffle<1, 1, 3, 3>(k0b0k1b1))
			, b1b1b1b1(Lanes::Shuffle<3, 3, 3, 3>(k0b0k1b1))
		{
		}
	};

	//   lane          0       1       2       3
	//   stored        b0+p0   b0+p1   b0+p2   b0+p3
	//                 b0+p4   b0+p5   b1+p0   b1+p1
	//                 b1+p2   b1+p3   b1+p4   b1+p5
	struct SStreamU32_x6
	{
		static constexpr u32 kWidth = 6;
		static constexpr u32 kPrims = 2;

		SPattern6 m_Pattern;

		explicit VX_INLINE SStreamU32_x6(const u32 *pattern)
			: m_Pattern(pattern)
		{
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			const SOffsets6 offsets(LoadRecords2(records));
			_Stores::Put(dst, 0, Add32(offsets.b0b0b0b0, m_Pattern.i0i1i2i3));
			_Stores::Put(dst, 16, Add32(offsets.b0b0b1b1, m_Pattern.i4i5i0i1));
			_Stores::Put(dst, 32, Add32(offsets.b1b1b1b1, m_Pattern.i2i3i4i5));
		}
	};

	// Six entries in 16-bit lanes, lowered so that the largest of them is 0x7FFF. Bases raised by as much then pack
	// into 16 bits with signed saturation, and the bias cancels in the sum: exact while base + largest entry is below
	// 0xFFFF. At 0xFFFF the base saturates, and the record comes out one lower: kept on purpose.
	//
	//   lane          0       1       2       3       4       5       6       7
	//   stored        b0+p0   b0+p1   b0+p2   b0+p3   b0+p4   b0+p5   b1+p0   b1+p1
	//                 b1+p2   b1+p3   b1+p4   b1+p5   b2+p0   b2+p1   b2+p2   b2+p3
	//                 b2+p4   b2+p5   b3+p0   b3+p1   b3+p2   b3+p3   b3+p4   b3+p5
	//
	// The bias, signedOffsetter, is the largest entry - 0x7FFF. For the pattern 0 1 2 0 2 3 and the base 0x9000:
	//
	//   bias             3 - 0x7FFF = -0x7FFC
	//   entry - bias     0x7FFC to 0x7FFF      within 16 bits, as signed numbers
	//   base + bias      0x1004                within 16 bits while base + 3 is below 0xFFFF
	//   sum              0x9000 + entry        modulo 2^16
	struct SStreamU16_x6
	{
		static constexpr u32 kWidth = 6;
		static constexpr u32 kPrims = 4;

		Register p01234501, p23450123, p45012345;
		Register signedOffsetter;

		VX_WRAPS explicit VX_INLINE SStreamU16_x6(const u32 *pattern)
		{
			s32 largestIndexInPattern = s32(LoadU32(pattern));
			for (u32 i = 1; i < kWidth; ++i)
			{
				const s32 entry = s32(LoadU32(pattern + i));
				largestIndexInPattern = entry > largestIndexInPattern ? entry : largestIndexInPattern;
			}
			signedOffsetter = Lanes::Splat(u32(largestIndexInPattern) - 0x7FFFu);

			const SPattern6 lanes(pattern);
			const Register i0i1i2i3 = Lanes::Subtract<u32>(lanes.i0i1i2i3, signedOffsetter);
			const Register i2i3i4i5 = Lanes::Subtract<u32>(lanes.i2i3i4i5, signedOffsetter);
			const Register i4i5i0i1 = Lanes::Subtract<u32>(lanes.i4i5i0i1, signedOffsetter);
			p01234501 = Lanes::PackSigned(i0i1i2i3, i4i5i0i1);
			p23450123 = Lanes::PackSigned(i2i3i4i5, i0i1i2i3);
			p45012345 = Lanes::PackSigned(i4i5i0i1, i2i3i4i5);
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			// Elements do not leave their half of a register, so the four biased bases are put into both halves.
			//
			//   element        0   1   2   3   4   5   6   7
			//   off01230123    o0  o1  o2  o3  o0  o1  o2  o3
			//   off00000011    o0  o0  o0  o0  o0  o0  o1  o1
			//   off11112222    o1  o1  o1  o1  o2  o2  o2  o2
			//   off22333333    o2  o2  o3  o3  o3  o3  o3  o3
			const Register off0123 = Add32(LoadBases4(records), signedOffsetter);
			const Register off01230123 = Lanes::PackSigned(off0123, off0123);
			const Register off00000011 = Lanes::Shuffle16<0, 0, 0, 0, 4, 4, 5, 5>(off01230123);
			const Register off11112222 = Lanes::Shuffle16<1, 1, 1, 1, 6, 6, 6, 6>(off01230123);
			const Register off22333333 = Lanes::Shuffle16<2, 2, 3, 3, 7, 7, 7, 7>(off01230123);
			_Stores::Put(dst, 0, Lanes::Add<u16>(off00000011, p01234501));
			_Stores::Put(dst, 16, Lanes::Add<u16>(off11112222, p23450123));
			_Stores::Put(dst, 32, Lanes::Add<u16>(off22333333, p45012345));
		}
	};

	// Four primitives from and to any address. A 32-bit lane holds a word, which is two entries, and one addition
	// serves both. Nothing is carried between them while indices fit 16 bits.
	//
	//   lane          0       1       2       3
	//   stored        b0+w0   b0+w1   b0+w2   b1+w0      w0 is p0 p1, w1 is p2 p3, w2 is p4 p5
	//                 b1+w1   b1+w2   b2+w0   b2+w1
	//                 b2+w2   b3+w0   b3+w1   b3+w2
	struct SU16_x6_Four
	{
		static constexpr u32 kWidth = 6;
		static constexpr u32 kPrims = 4;

		SPattern3 m_Pattern;

		explicit VX_INLINE SU16_x6_Four(const u32 *pattern)
			: m_Pattern(TPackedPattern<kWidth>(pattern).m_Words)
		{
		}
		VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			const SOffsets3 offsets(Twice16(LoadBases4Unaligned(records)));
			StoreInPlace(dst, Add32(offsets.b0b0b0b1, m_Pattern.p0p1p2p0));
			StoreInPlace(dst + 8, Add32(offsets.b1b1b2b2, m_Pattern.p1p2p0p1));
			StoreInPlace(dst + 16, Add32(offsets.b2b3b3b3, m_Pattern.p2p0p1p2));
		}
	};

	// One primitive as three stores of a word each.
	struct SU16_x6
	{
		static constexpr u32 kWidth = 6;
		static constexpr u32 kPrims = 1;

		TPackedPattern<kWidth> m_Pattern;

		explicit VX_INLINE SU16_x6(const u32 *pattern)
			: m_Pattern(pattern)
		{
		}
		VX_WRAPS VX_INLINE void Write(volatile u16 *dst, const SIndexAndDepth *records) const
		{
			const u32 idid = Twice16(records->m_Index);
			for (u32 word = 0; word < kWidth / 2; ++word)
				StoreU32(dst + 2 * word, m_Pattern.m_Words[word] + idid);
		}
	};

	// Width 6 of 32 bits and width 12 of 16 bits are three words of 64 bits. One addition serves a word; nothing is
	// carried inside it while indices fit their type. Two primitives are three stores of two words:
	//
	//   word          0       1
	//   stored        b0+w0   b0+w1
	//                 b0+w2   b1+w0
	//                 b1+w1   b1+w2
	template<typename _Index>
	struct TThreeWords_Two
	{
		static constexpr u32 kWidth = 24 / sizeof(_Index);
		static constexpr u32 kPrims = 2;

		SPattern6 m_Words;

		explicit VX_INLINE TThreeWords_Two(const u32 *words)
			: m_Words(words)
		{
		}
		VX_INLINE void Write(volatile _Index *dst, const SIndexAndDepth *records) const
		{
			const Register two = Lanes::Load(records);
			const SOffsets6 offsets(sizeof(_Index) == sizeof(u16) ? Twice16(two) : two);
			volatile u8 *const bytes = reinterpret_cast<volatile u8 *>(dst);
			StoreInPlace(bytes, Lanes::Add<u64>(offsets.b0b0b0b0, m_Words.i0i1i2i3));
			StoreInPlace(bytes + 16, Lanes::Add<u64>(offsets.b0b0b1b1, m_Words.i4i5i0i1));
			StoreInPlace(bytes + 32, Lanes::Add<u64>(offsets.b1b1b1b1, m_Words.i2i3i4i5));
		}
	};

	// One primitive as three stores of 64 bits.
	template<typename _Index>
	struct TThreeWords
	{
		static constexpr u32 kWidth = 24 / sizeof(_Index);
		static constexpr u32 kPrims = 1;

		const u32 *m_Words;

		explicit VX_INLINE TThreeWords(const u32 *words)
			: m_Words(words)
		{
		}
		VX_WRAPS VX_INLINE void Write(volatile _Index *dst, const SIndexAndDepth *records) const
		{
			const u32 id = records->m_Index;
			const u32 lane = sizeof(_Index) == sizeof(u16) ? Twice16(id) : id;
			const u64 lanes = u64(lane) | u64(lane) << 32;
			for (u32 word = 0; word < 3; ++word)
				StoreU64(dst + word * (kWidth / 3), LoadU64(m_Words + 2 * word) + lanes);
		}
	};

	// Width 12 of 32 bits.

	//   lane          0       1       2       3
	//   stored        b0+p0   b0+p1   b0+p2   b0+p3
	//                 b0+p4   b0+p5   b0+p6   b0+p7
	//                 b0+p8   b0+p9   b0+pA   b0+pB
	struct SStreamU32_x12
	{
		static constexpr u32 kWidth = 12;
		static constexpr u32 kPrims = 1;

		Register i0i1i2i3, i4i5i6i7, i8i9iAiB;

		explicit VX_INLINE SStreamU32_x12(const u32 *pattern)
			: i0i1i2i3(Lanes::Load(pattern))
			, i4i5i6i7(Lanes::Load(pattern + 4))
			, i8i9iAiB(Lanes::Load(pattern + 8))
		{
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			Stream<_Stores>(dst, Lanes::Splat(records->m_Index));
		}
		template<typename _Stores>
		VX_INLINE void Stream(volatile u32 *dst, Register base) const
		{
			_Stores::Put(dst, 0, Add32(base, i0i1i2i3));
			_Stores::Put(dst, 16, Add32(base, i4i5i6i7));
			_Stores::Put(dst, 32, Add32(base, i8i9iAiB));
		}
	};

	// Two records by one load. Their bases lie in lanes 1 and 3.
	struct SStreamU32_x12_Two
	{
		static constexpr u32 kWidth = 12;
		static constexpr u32 kPrims = 2;

		SStreamU32_x12 m_One;

		explicit VX_INLINE SStreamU32_x12_Two(const u32 *pattern)
			: m_One(pattern)
		{
		}
		template<typename _Stores>
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			const Register two = LoadRecords2(records);
			m_One.Stream<_Stores>(dst, Lanes::Shuffle<1, 1, 1, 1>(two));
			m_One.Stream<_Stores>(dst + kWidth, Lanes::Shuffle<3, 3, 3, 3>(two));
		}
	};

	// An output at 8 modulo 16 stays there from record to record, because twelve indices are 48 bytes. Each record's
	// last two indices wait in a register for the next one's first two, and leave with them as one aligned store.
	//
	//   address mod 16   8      0                 0                 0      8
	//   record 0         0 1  | 2  3  4  5      | 6  7  8  9      | A B
	//   record 1                                                  |     0 1 | 2 ...
	//
	// First writes the first record up to index 9. Rest writes the indices that wait and a record up to index 9, again
	// and again, then what waits in the end, and fences. Both return the address behind what they have written.
	class CStreamU32_x12_Carried
	{
	public:
		explicit VX_INLINE CStreamU32_x12_Carried(const u32 *pattern)
			: i0i1i2i3(Lanes::Load(pattern))
			, i2i3i4i5(Lanes::Load(pattern + 2))
			, i6i7i8i9(Lanes::Load(pattern + 6))
			, i8i9iAiB(Lanes::Load(pattern + 8))
		{
		}

		// dst is at 8 modulo 16. Indices 0 and 1 are two ordinary stores, 2 to 9 two streams. Of 8 to B, which are
		// kept, 8 and 9 have been stored, and A and B wait.
		VX_INLINE volatile u32 *First(volatile u32 *dst, u32 id)
		{
			const Register base = Lanes::Splat(id);
			Float4(Add32(base, i0i1i2i3)).StreamFloat2(dst);
			Float4(Add32(base, i2i3i4i5)).StreamAligned16(dst + 2, 0);
			Float4(Add32(base, i6i7i8i9)).StreamAligned16(dst + 2, 16);
			v89AB = Add32(base, i8i9iAiB);
			return dst + 10;
		}
		VX_INLINE volatile u32 *Rest(volatile u32 *dst, const SIndexAndDepth *records, u32 recordCount)
		{
			for (u32 record = 0; record < recordCount; ++record)
			{
				const Register base = Lanes::Splat(records[record].m_Index);
				// A and B of the record before, then 0 and 1 of this one.
				const Register v0123 = Add32(base, i0i1i2i3);
				Float4(Lanes::Shuffle2<2, 3, 0, 1>(v89AB, v0123)).StreamAligned16(dst, 0);
				Float4(Add32(base, i2i3i4i5)).StreamAligned16(dst, 16);
				Float4(Add32(base, i6i7i8i9)).StreamAligned16(dst, 32);
				v89AB = Add32(base, i8i9iAiB);
				dst += 12;
			}
			Float4(Lanes::Shuffle<2, 3, 2, 3>(v89AB)).StreamFloat2(dst);
			Float4::WriteBarrier();
			return dst + 2;
		}

	private:
		const Register i0i1i2i3, i2i3i4i5, i6i7i8i9, i8i9iAiB;
		Register v89AB; // of the record before
	};

	// A primitive at any address, in stores of four indices. One addition serves two indices; nothing is carried
	// between them while they fit 32 bits.
	struct SU32_x12
	{
		static constexpr u32 kWidth = 12;
		static constexpr u32 kPrims = 1;

		SStreamU32_x12 m_Pattern;

		explicit VX_INLINE SU32_x12(const u32 *pattern)
			: m_Pattern(pattern)
		{
		}
		VX_INLINE void Write(volatile u32 *dst, const SIndexAndDepth *records) const
		{
			const Register base = Lanes::Splat(records->m_Index);
			StoreInPlace(dst, Lanes::Add<u64>(base, m_Pattern.i0i1i2i3));
			StoreInPlace(dst + 4, Lanes::Add<u64>(base, m_Pattern.i4i5i6i7));
			StoreInPlace(dst + 8, Lanes::Add<u64>(base, m_Pattern.i8i9iAiB));
		}
	};

	// Any width, record by record. Nothing is written if the number of indices is 0 modulo 2^32: kept on purpose.
	template<typename _Index>
	VX_WRAPS static void WriteAnyWidth(
		const CPattern &pattern, const SIndexAndDepth *records, volatile _Index *dst, u32 primCount)
	{
		const u32 width = pattern.Count();
		if (primCount * width == 0)
			return;
		for (; primCount != 0; --primCount)
		{
			const u32 id = (records++)->m_Index;
			for (u32 j = 0; j < width; ++j)
				dst[j] = _Index(pattern[j] + id);
			dst += width;
		}
	}

	// Where a worker has got to in its records and its output.
	template<typename _Index>
	class TOutput
	{
	public:
		VX_INLINE TOutput(const SIndexAndDepth *it,
			volatile _Index *dstPrims,
			u32 primCount,
			EIndexStores stores = EIndexStores::Streamed)
			: m_Records(it)
			, m_Prims(dstPrims)
			, m_PrimsLeft(primCount)
			, m_Stores(stores)
		{
		}

		// Writes as many whole blocks as are left: those of the first kernel, then those of the next. The pattern is
		// what kernels are made of. A kernel that has no block to write is not made.
		template<typename... _Kernels, typename... _Pattern>
		VX_INLINE void Write(const _Pattern &...pattern)
		{
			const auto write = [](const auto &kernel, auto *prims, auto *records) { kernel.Write(prims, records); };
			(_WriteBlocks<_Kernels>(write, pattern...), ...);
		}
		// Does the same by kernels that can stream. Streaming stores are ordered before all later ones. Writes nothing
		// and returns false if the output is not aligned.
		template<typename... _Kernels, typename... _Pattern>
		VX_INLINE bool Stream(const _Pattern &...pattern)
		{
			if (VX_UNLIKELY(!Mem::IsAligned<0x10>(m_Prims)))
				return false;
			if (m_Stores == EIndexStores::Cached)
			{
				WriteCached<_Kernels...>(pattern...);
				return true;
			}
			_WriteWith<SStreamingStores, _Kernels...>(pattern...);
			Float4::WriteBarrier();
			return true;
		}
		// Does the same through the caches, to any address.
		template<typename... _Kernels, typename... _Pattern>
		VX_INLINE void WriteCached(const _Pattern &...pattern)
		{
			_WriteWith<SCachedStores, _Kernels...>(pattern...);
		}

	private:
		template<typename _Stores, typename... _Kernels, typename... _Pattern>
		VX_INLINE void _WriteWith(const _Pattern &...pattern)
		{
			const auto write = [](const auto &kernel, auto *prims, auto *records)
			{
				typedef std::decay_t<decltype(kernel)> CKernel;
				_Stores::template Prepare<CKernel::kPrims * CKernel::kWidth * sizeof(_Index)>(prims);
				kernel.template Write<_Stores>(prims, records);
			};
			(_WriteBlocks<_Kernels>(write, pattern...), ...);
		}

		template<typename _Kernel, typename _Write, typename... _Pattern>
		VX_INLINE void _WriteBlocks(const _Write &write, const _Pattern &...pattern)
		{
			if (m_PrimsLeft < _Kernel::kPrims)
				return;
			const _Kernel kernel(pattern...);
			const SIndexAndDepth *const end = m_Records + m_PrimsLeft / _Kernel::kPrims * _Kernel::kPrims;
			do
			{
				write(kernel, m_Prims, m_Records);
				m_Records += _Kernel::kPrims;
				m_Prims += _Kernel::kPrims * _Kernel::kWidth;
			} while (m_Records != end);
			m_PrimsLeft %= _Kernel::kPrims;
		}

		const SIndexAndDepth *m_Records;
		volatile _Index *m_Prims;
		u32 m_PrimsLeft;
		const EIndexStores m_Stores;
	};
} // namespace Expand
} // namespace Vexmoor
