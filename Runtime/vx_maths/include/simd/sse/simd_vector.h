#pragma once

// The 128-bit value of four lanes, which hold floats or 32-bit integers, and its accesses to memory: aligned, unaligned
// and streaming ones, at a byte offset from a pointer.
// Arithmetic on registers is in simd/lanes.h.

#include "simd/lanes.h"
#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
/// Four 32-bit lanes. An aligned access that meets an unaligned address is reported, and performed all the same.
class VX_API_INLINE Float4
{
public:
	/// Lanes of any value.
	Float4() = default;
	///@{
	/// The register's lanes.
	VX_INLINE Float4(SLanesBase::Register lanes)
		: m_Lanes(lanes)
	{
	}
	VX_INLINE SLanesBase::Register Lanes() const { return m_Lanes; }
	///@}
#if VX_X86
	///@{
	/// The lanes in x86's types, which tell floats from integers.
	VX_INLINE Float4(__m128 lanes)
		: m_Lanes(_mm_castps_si128(lanes))
	{
	}
	VX_INLINE __m128 Floats() const
	{
		return _mm_castsi128_ps(m_Lanes);
	}
	VX_INLINE __m128i Integers() const
	{
		return m_Lanes;
	}
	///@}
#endif

	/// 16 bytes from any address.
	static VX_INLINE Float4 LoadUnaligned(const void *p, sreg offset = 0)
	{
		return SLanesBase::Load(_At(p, offset));
	}

	/// 16 bytes from a 16-byte aligned address.
	static VX_INLINE Float4 LoadAligned16(const void *p, sreg offset = 0)
	{
		const void *const _src = _At(p, offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_src)), "Unaligned memory! %p should be 16-bytes aligned.", _src);
		return SLanesBase::LoadAligned(_src);
	}

	/// Four pairs of 32-bit values from a 16-byte aligned address: evens takes their first values, odds their second.
	///
	///   lane      0    1    2    3
	///   pairs01   k0   n0   k1   n1
	///   pairs23   k2   n2   k3   n3
	///   evens     k0   k1   k2   k3
	///   odds      n0   n1   n2   n3
	static VX_INLINE void LoadAligned16_Transpose4x2_Unpack(Float4 &evens, Float4 &odds, const void *p, sreg offset = 0)
	{
		const SLanesBase::Register pairs01 = LoadAligned16(p, offset).Lanes();
		const SLanesBase::Register pairs23 = LoadAligned16(p, offset + 16).Lanes();
		evens = SLanesBase::Shuffle2<0, 2, 0, 2>(pairs01, pairs23);
		odds = SLanesBase::Shuffle2<1, 3, 1, 3>(pairs01, pairs23);
	}

	/// 16 bytes to any address.
	/// Offsets are in bytes, here and in all other functions. The address may be any: records of a page can start 8
	/// bytes off a multiple of 16.
	VX_INLINE void StoreUnaligned(void *p, sreg offset = 0) const
	{
		SLanesBase::Store(_At(p, offset), m_Lanes);
	}

	/// 16 bytes to a 16-byte aligned address.
	VX_INLINE void StoreAligned16(void *p, sreg offset = 0) const
	{
		void *const _dst = _At(p, offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_dst)), "Unaligned memory! %p should be 16-bytes aligned.", _dst);
		SLanesBase::StoreAligned(_dst, m_Lanes);
	}

	/// 16 bytes past the caches to a 16-byte aligned address, for write-combined memory. It counts as a volatile
	/// access, so compilers keep it in its place among others. The processor orders it weakly: call WriteBarrier before
	/// another thread or device relies on the bytes.
	VX_INLINE void StreamAligned16(volatile void *p, sreg offset = 0) const
	{
		void *const _dst = _At(const_cast<void *>(p), offset);
		VX_ASSERT_MESSAGE(
			VX_NAMESPACE::Mem::IsAligned<0x10>((_dst)), "Unaligned memory! %p should be 16-bytes aligned.", _dst);
		SLanesBase::Stream(_dst, m_Lanes);
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
		lanes[0] = SLanesBase::Lane0(m_Lanes);
		lanes[1] = SLanesBase::Lane0(SLanesBase::Shuffle<1, 1, 1, 1>(m_Lanes));
	}

	/// Orders all streamed bytes before every later store.
	static VX_INLINE void WriteBarrier()
	{
		SLanesBase::Fence();
	}

private:
	// The address of a byte that lies offset bytes from p. Offsets may be negative.
	static VX_INLINE const void *_At(const void *p, sreg offset)
	{
		return static_cast<const u8 *>(p) + offset;
	}
	static VX_INLINE void *_At(void *p, sreg offset)
	{
		return static_cast<u8 *>(p) + offset;
	}

	SLanesBase::Register m_Lanes;
};
} // namespace Vexmoor
