#pragma once

// What the fill stage does in registers: positions and values from memory into lanes, vertex bases from a sequence or a
// list, and keys and bases interleaved into records. Nothing here reports on its own; aligned accesses check
// themselves.

#include "ge_mesh_triangle_sorter.h"

#include "simd/sse/simd_vector.h"

#include "pv_depth_keys.h"

namespace Vexmoor
{
// Turns three loads of packed positions into their coordinates.
//
//   lane        0    1    2    3
//   a      in   x0   y0   z0   x1
//   b      in   y1   z1   x2   y2
//   c      in   z2   x3   y3   z3
//   x y z  out  position 0, 1, 2, 3
static VX_INLINE void Transpose4x3_Unpack(__m128 a, __m128 b, __m128 c, __m128 &x, __m128 &y, __m128 &z)
{
	const __m128 y0z0y1z1 = _mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 0, 2, 1));
	const __m128 x2y2x3y3 = _mm_shuffle_ps(b, c, _MM_SHUFFLE(2, 1, 3, 2));
	x = _mm_shuffle_ps(a, x2y2x3y3, _MM_SHUFFLE(2, 0, 3, 0));
	y = _mm_shuffle_ps(y0z0y1z1, x2y2x3y3, _MM_SHUFFLE(3, 1, 2, 0));
	z = _mm_shuffle_ps(y0z0y1z1, c, _MM_SHUFFLE(3, 0, 3, 1));
}

// The camera's coordinates, each splatted over four lanes, and as one vector for the positions that come alone.
struct SCamera
{
	__m128 xxxx, yyyy, zzzz, xyz0;

	explicit VX_INLINE SCamera(const CFloat3 &position)
		: xyz0(LoadFloat3(position.Data()))
	{
		xxxx = SplatLane<0>(xyz0);
		yyyy = SplatLane<1>(xyz0);
		zzzz = SplatLane<2>(xyz0);
	}

	VX_INLINE __m128 SquaredDistancesTo(__m128 x, __m128 y, __m128 z) const
	{
		return SquaredLength(Subtract(x, xxxx), Subtract(y, yyyy), Subtract(z, zzzz));
	}
	// In lane 0, to 12 bytes of a position.
	VX_INLINE __m128 SquaredDistanceTo(const void *position) const
	{
		return SquaredLengthOfOne(Subtract(LoadFloat3(position), xyz0));
	}
};

// Ways to bring the next four positions into lanes, and the next eight for processors that have them. None reads beyond
// the last one's 12th byte.
struct SPositions_PackedAligned
{
	static constexpr bool kPacked = true;
	static constexpr bool kHasEights = true;
	typedef struct SPositions8_Packed Eights;

	static VX_INLINE void Load4(const u8 *src, u32, __m128 &x, __m128 &y, __m128 &z)
	{
		Transpose4x3_Unpack(Float4::LoadAligned16(src, 0).Floats(), Float4::LoadAligned16(src, 16).Floats(),
			Float4::LoadAligned16(src, 32).Floats(), x, y, z);
	}
};

struct SPositions_PackedUnaligned
{
	static constexpr bool kPacked = true;
	static constexpr bool kHasEights = true;
	typedef struct SPositions8_Packed Eights;

	static VX_INLINE void Load4(const u8 *src, u32, __m128 &x, __m128 &y, __m128 &z)
	{
		Transpose4x3_Unpack(Float4::LoadUnaligned(src, 0).Floats(), Float4::LoadUnaligned(src, 16).Floats(),
			Float4::LoadUnaligned(src, 32).Floats(), x, y, z);
	}
};

// Four positions at any stride from 4 on. The first three loads read 4 bytes beyond their position, and end before the
// fourth position does. The fourth load starts 4 bytes before its position, because the memory may end after it.
struct SPositions_Gathered
{
	static constexpr u32 kMinStride = 4;
	static constexpr bool kPacked = false;
	static constexpr bool kHasEights = true;
	typedef struct SPositions8_Gathered Eights;

	static VX_INLINE void Load4(const u8 *src, u32 stride, __m128 &x, __m128 &y, __m128 &z)
	{
		const __m128 p0 = Float4::LoadUnaligned(src).Floats();
		const __m128 p1 = Float4::LoadUnaligned(src, sreg(stride)).Floats();
		const __m128 p2 = Float4::LoadUnaligned(src, 2 * sreg(stride)).Floats();
		const __m128 _p3 = Float4::LoadUnaligned(src, 3 * sreg(stride) - 4).Floats(); // ? x3 y3 z3
		const __m128 x0x1y0y1 = _mm_unpacklo_ps(p0, p1);
		const __m128 z0z1____ = _mm_unpackhi_ps(p0, p1);
		const __m128 x2x2x3x3 = _mm_shuffle_ps(p2, _p3, _MM_SHUFFLE(1, 1, 0, 0));
		const __m128 y2y2y3y3 = _mm_shuffle_ps(p2, _p3, _MM_SHUFFLE(2, 2, 1, 1));
		const __m128 z2z2z3z3 = _mm_shuffle_ps(p2, _p3, _MM_SHUFFLE(3, 3, 2, 2));
		x = _mm_shuffle_ps(x0x1y0y1, x2x2x3x3, _MM_SHUFFLE(2, 0, 1, 0));
		y = _mm_shuffle_ps(x0x1y0y1, y2y2y3y3, _MM_SHUFFLE(2, 0, 3, 2));
		z = _mm_shuffle_ps(z0z1____, z2z2z3z3, _MM_SHUFFLE(2, 0, 1, 0));
	}
};

// Four positions at any stride, also at one so short that 16 bytes from a position on reach beyond the fourth.
struct SPositions_GatheredOneByOne
{
	static constexpr bool kPacked = false;
	static constexpr bool kHasEights = false;

	static VX_INLINE void Load4(const u8 *src, u32 stride, __m128 &x, __m128 &y, __m128 &z)
	{
		const __m128 p0 = LoadFloat3(src);
		const __m128 p1 = LoadFloat3(src + stride);
		const __m128 p2 = LoadFloat3(src + 2 * ureg(stride));
		const __m128 p3 = LoadFloat3(src + 3 * ureg(stride));
		const __m128 x0x1y0y1 = _mm_unpacklo_ps(p0, p1);
		const __m128 x2x3y2y3 = _mm_unpacklo_ps(p2, p3);
		x = _mm_movelh_ps(x0x1y0y1, x2x3y2y3);
		y = _mm_movehl_ps(x2x3y2y3, x0x1y0y1);
		z = _mm_movelh_ps(_mm_unpackhi_ps(p0, p1), _mm_unpackhi_ps(p2, p3));
	}
};

// A virtual view: one position for all.
struct SPositions_Repeated
{
	static constexpr bool kPacked = false;
	static constexpr bool kHasEights = false;

	static VX_INLINE void Load4(const u8 *src, u32, __m128 &x, __m128 &y, __m128 &z)
	{
		const __m128 xyz = LoadFloat3(src);
		x = SplatLane<0>(xyz);
		y = SplatLane<1>(xyz);
		z = SplatLane<2>(xyz);
	}
};

// Where vertex bases come from; the loops that ask for them are written once. Records ask one by one, by Next, or in
// groups of four: through Fours, which starts where Next would, and after which Skip catches up. Eights and Sixteens
// are for processors with wider registers. All count records, never particles.
//
// A sequence: record k has the base start + k * increment, modulo 2^32 as lanes count. A group of four is stored in the
// order 2, 3, 0, 1, which shows in the order of equal keys after a stable sort, and is kept for it.
class CVertexBases_Sequence
{
public:
	static constexpr bool kUpperPairFirst = true;

	VX_INLINE CVertexBases_Sequence(u32 start, u32 increment)
		: m_Next(start)
		, m_Increment(increment)
	{
	}

	VX_INLINE u32 Start() const { return m_Next; }
	VX_INLINE u32 Increment() const { return m_Increment; }

	VX_WRAPS VX_INLINE u32 Next()
	{
		const u32 base = m_Next;
		m_Next += m_Increment;
		return base;
	}
	template<typename _Key>
	VX_INLINE u32 Next(u32 &)
	{
		return Next();
	}
	VX_WRAPS VX_INLINE void Skip(u32 recordCount) { m_Next += recordCount * m_Increment; }

	class Fours
	{
	public:
		explicit VX_WRAPS VX_INLINE Fours(const CVertexBases_Sequence &bases)
		{
			const u32 start = bases.m_Next;
			const u32 increment = bases.m_Increment;
			// cppcheck-suppress useInitializationList ; two constants come first
			m_Counters = _mm_setr_epi32(
				s32(start), s32(start + increment), s32(start + 2 * increment), s32(start + 3 * increment));
			m_Step = Splat(kRecordsPerGroup * increment);
		}

		VX_INLINE __m128i Next()
		{
			const __m128i bases = m_Counters;
			m_Counters = _mm_add_epi32(m_Counters, m_Step);
			return bases;
		}
		template<typename _Key>
		VX_INLINE __m128i Next(__m128i &)
		{
			return Next();
		}

	private:
		__m128i m_Counters;
		__m128i m_Step;
	};
	typedef class CVertexBases8_Sequence Eights;
	typedef class CVertexBases16_Sequence Sixteens;

private:
	u32 m_Next;
	u32 m_Increment;
};

// A list: record k has entry k as its base. An entry at or beyond maxVertexId gives the record base 0 and the far key.
class CVertexBases_List
{
public:
	static constexpr bool kUpperPairFirst = false;

	VX_INLINE CVertexBases_List(const u32 *entries, u32 maxVertexId)
		: m_Entries(entries)
		, m_MaxVertexId(maxVertexId)
	{
	}

	VX_INLINE const u32 *Entries() const { return m_Entries; }
	VX_INLINE u32 MaxVertexId() const { return m_MaxVertexId; }

	template<typename _Key>
	VX_INLINE u32 Next(u32 &key)
	{
		const u32 entry = LoadU32(m_Entries++);
		const bool valid = entry < m_MaxVertexId;
		key = valid ? key : _Key::kFar;
		return valid ? entry : 0;
	}
	VX_INLINE void Skip(u32 recordCount) { m_Entries += recordCount; }

	class Fours
	{
	public:
		explicit VX_INLINE Fours(const CVertexBases_List &bases)
			: m_Entries(bases.m_Entries)
			, m_MaxVertexIdFlipped(Splat(bases.m_MaxVertexId ^ kSignBit))
		{
		}

		// Lanes compare as signed; flipping the sign bits of both sides makes that the unsigned order.
		template<typename _Key>
		VX_INLINE __m128i Next(__m128i &keys)
		{
			const __m128i entries = Float4::LoadUnaligned(m_Entries).Integers();
			m_Entries += kRecordsPerGroup;
			const __m128i valid = _mm_cmpgt_epi32(m_MaxVertexIdFlipped, _mm_xor_si128(entries, Splat(kSignBit)));
			const __m128i invalid = _mm_xor_si128(valid, _mm_set1_epi32(-1));
			keys = _mm_or_si128(_mm_and_si128(keys, valid), _Key::FarWhere(invalid));
			return _mm_and_si128(entries, valid);
		}

	private:
		const u32 *m_Entries;
		__m128i m_MaxVertexIdFlipped;
	};
	typedef class CVertexBases8_List Eights;
	typedef class CVertexBases16_List Sixteens;

private:
	const u32 *m_Entries;
	u32 m_MaxVertexId;
};

// Four keys and four bases, interleaved into records.
//
//   lane        0    1    2    3
//   keys   in   k0   k1   k2   k3
//   bases  in   n0   n1   n2   n3
//   lo     out  k0   n0   k1   n1     records 0, 1
//   hi     out  k2   n2   k3   n3     records 2, 3
template<bool _UpperPairFirst, bool _Aligned>
static VX_INLINE void StoreGroup(SIndexAndDepth *records, __m128i keys, __m128i bases)
{
	const Float4 lo = _mm_unpacklo_epi32(keys, bases);
	const Float4 hi = _mm_unpackhi_epi32(keys, bases);
	const Float4 &first = _UpperPairFirst ? hi : lo;
	const Float4 &second = _UpperPairFirst ? lo : hi;
	if constexpr (_Aligned)
	{
		first.StoreAligned16(records, 0);
		second.StoreAligned16(records, 16);
	}
	else
	{
		first.StoreUnaligned(records, 0);
		second.StoreUnaligned(records, 16);
	}
}
} // namespace Vexmoor
