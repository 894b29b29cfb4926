#pragma once

// The four-lane 128-bit value, and the only ways in which lanes meet memory: aligned, unaligned and streaming accesses
// at a byte offset from a pointer. Lanes hold floats or 32-bit integers; arithmetic is done on the registers
// themselves.

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"
#include "vx_sse2.h"

namespace Vexmoor
{
/// Four 32-bit lanes. An aligned access that meets an unaligned address is reported, and performed all the same.
class VX_API Float4
{
public:
	/// Lanes of any value.
	Float4() = default;
	///@{
	/// The register's lanes.
	VX_INLINE Float4(__m128 lanes)
		: m_Lanes(lanes)
	{
	}
	VX_INLINE Float4(__m128i lanes)
		: m_Lanes(_mm_castsi128_ps(lanes))
	{
	}

	VX_INLINE __m128 Floats() const { return m_Lanes; }
	VX_INLINE __m128i Integers() const { return _mm_castps_si128(m_Lanes); }
	///@}

	/// 16 bytes from any address.
	static VX_INLINE Float4 LoadUnaligned(const void *p, sreg offset = 0)
	{
		return _mm_loadu_ps(static_cast<const float *>(_At(p, offset)));
	}

	/// 16 bytes from a 16-byte aligned address.
	static VX_INLINE Float4 LoadAligned16(const void *p, sreg offset = 0)
	{
		const void *const _src = _At(p, offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_src)), "Unaligned memory! %p should be 16-bytes aligned.", _src);
		return _mm_load_ps(static_cast<const float *>(_src));
	}

	/// Four pairs of 32-bit values from a 16-byte aligned address: evens takes their first values, odds their second.
	static VX_INLINE void LoadAligned16_Transpose4x2_Unpack(Float4 &evens, Float4 &odds, const void *p, sreg offset = 0)
	{
		const __m128 pairs01 = LoadAligned16(p, offset).Floats();
		const __m128 pairs23 = LoadAligned16(p, offset + 16).Floats();
		evens = _mm_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(2, 0, 2, 0));
		odds = _mm_shuffle_ps(pairs01, pairs23, _MM_SHUFFLE(3, 1, 3, 1));
	}

	/// 16 bytes to any address.
	VX_INLINE void StoreUnaligned(void *p, sreg offset = 0) const
	{
		_mm_storeu_ps(static_cast<float *>(_At(p, offset)), m_Lanes);
	}

	/// 16 bytes to a 16-byte aligned address.
	VX_INLINE void StoreAligned16(void *p, sreg offset = 0) const
	{
		void *const _dst = _At(p, offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_dst)), "Unaligned memory! %p should be 16-bytes aligned.", _dst);
		_mm_store_ps(static_cast<float *>(_dst), m_Lanes);
	}

	/// 16 bytes past the caches to a 16-byte aligned address, for write-combined memory. Compilers leave it in its
	/// place among volatile accesses, as which it counts. The processor orders it weakly: a WriteBarrier comes before
	/// anybody else may rely on the bytes.
	VX_INLINE void StreamAligned16(volatile void *p, sreg offset = 0) const
	{
		void *const _dst = _At(const_cast<void *>(p), offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_dst)), "Unaligned memory! %p should be 16-bytes aligned.", _dst);
		__m128 lanes = m_Lanes;
		VX_BEFORE_STORE_IN_PLACE(lanes);
		_mm_stream_ps(static_cast<float *>(_dst), lanes);
		VX_BEHIND_STORE_IN_PLACE(*static_cast<u8(*)[16]>(_dst));
	}

	/// The two low lanes to a 4-byte aligned address, as two ordinary stores: the ends of a buffer whose middle is
	/// streamed.
	VX_INLINE void StreamFloat2(volatile void *p, sreg offset = 0) const
	{
		void *const _dst = _At(const_cast<void *>(p), offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x04>((_dst)), "Unaligned memory! %p should be 4-bytes aligned.", _dst);
		typedef u32 VX_ANYWHERE CLane;
		volatile CLane *const lanes = static_cast<CLane *>(_dst);
		lanes[0] = u32(_mm_cvtsi128_si32(Integers()));
		lanes[1] = u32(_mm_cvtsi128_si32(_mm_shuffle_epi32(Integers(), _MM_SHUFFLE(1, 1, 1, 1))));
	}

	/// Orders all streamed bytes before every later store.
	static VX_INLINE void WriteBarrier() { _mm_sfence(); }

private:
	static VX_INLINE const void *_At(const void *p, sreg offset) { return static_cast<const u8 *>(p) + offset; }
	static VX_INLINE void *_At(void *p, sreg offset) { return static_cast<u8 *>(p) + offset; }

	__m128 m_Lanes;
};
} // namespace Vexmoor
