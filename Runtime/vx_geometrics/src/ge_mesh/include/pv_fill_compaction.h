#pragma once

// The compaction of enabled particles, for any target of simd/lanes.h, and with it the whole table of pv_fill.h. A file
// that includes this has said before what it is compiled for, and includes what is not lanes before that.

#include "simd/exact_floats.h"

#include "pv_depth_keys.h"
#include "pv_fill.h"
#include "pv_fill_kernels.h"
#include "pv_span_kernels.h"

namespace Vexmoor
{
// The sort values of a register of particles: values as they are, or 0.0f - the squared distance to the camera.

template<typename _Lanes>
struct TValues
{
	typedef typename _Lanes::Register Register;

	explicit VX_INLINE TValues(const float *) {}
	VX_INLINE Register At(const u8 *values, u32) const { return _Lanes::Load(values); }
};

// +0.0 at the camera, and a NaN as it is. A subtraction keeps NaNs where an addition does. Elsewhere the sign is set in
// integers, of everything above +0.0 and up to infinity:
//
//   len2         bits         bits - 1     sign
//   +0.0         0            0xFFFFFFFF   no
//   the lowest   1            0            yes
//   infinity     0x7F800000   0x7F7FFFFF   yes
//   a NaN        0x7F800001   0x7F800000   no
template<typename _Lanes, typename _Positions>
class TNegatedDistances
{
public:
	typedef typename _Lanes::Register Register;

	explicit VX_INLINE TNegatedDistances(const float *camera)
		: m_Distances(camera)
	{
	}
	VX_INLINE Register At(const u8 *positions, u32 strideInBytes) const
	{
		const Register len2 = m_Distances.At(positions, strideInBytes);
		if constexpr (_Lanes::kAddsInOrder)
		{
			const Register zero = m_Barrier.Pass(_Lanes::Splat(0)); // -ffast-math makes 0 - x a flip of the sign
			return _Lanes::SubtractFloats(zero, len2);
		}
		else
		{
			const Register bitsMinus1 = _Lanes::template Add<u32>(len2, _Lanes::Splat(~0u));
			const typename _Lanes::Mask isNegated = _Lanes::LessUnsigned(bitsMinus1, _Lanes::Splat(kInfinityBits));
			return _Lanes::Or(len2, _Lanes::Where(isNegated, _Lanes::Splat(kSignBit)));
		}
	}

private:
	TDistances<_Lanes, _Positions> m_Distances;
	TBarrier<_Lanes> m_Barrier;
};

// The loops. A register of particles is looked at, enabled or not, and the values of its enabled ones are stored behind
// those that are there already. The second of two registers of eight lanes, for example:
//
//   lane            0    1    2    3    4    5    6    7
//   values          v8   v9   v10  v11  v12  v13  v14  v15
//   enabled bytes   1    0    0    255  2    1    0    128
//   stored          v8   v11  v12  v13  v15  ?    ?    ?     behind the values of the first register
//
// The lanes marked with a question mark lie where the next values go. While room for a whole register of values is
// left, as many particles must follow as a register has, at least: nothing is read that one particle after the other
// would not read. With less room, a store ends where the values end, and registers are read as long as the page has
// particles.
//
// Particles that do not fill a register at the end of a page come with some before them, whose bits are cleared. Of 13
// particles in registers of eight:
//
//   lane              0   1   2   3   4   5   6   7
//   first register    0   1   2   3   4   5   6   7
//   second register   5   6   7   8   9   10  11  12
//   bits              0   0   0   e8  e9  e10 e11 e12   1 if the particle is enabled
template<typename _Lanes, typename _Values>
static VX_INLINE u32 CompactRegisters(const SCompaction &page, const float *camera)
{
	constexpr u32 kLanes = _Lanes::kLanes;
	const _Values valuesOfLanes(camera);
	const u32 stride = page.m_StrideInBytes;
	const u8 *source = page.m_Source;
	const u8 *enabled = page.m_Enabled;
	u32 particlesLeft = page.m_ParticleCount;
	u8 *values = page.m_Values;
	u32 room = page.m_ValueCount;

	// Whole registers of particles, and room for a whole register of values.
	while (particlesLeft >= kLanes && room >= kLanes)
	{
		const u32 bits = _Lanes::BitsOfBytes(enabled);
		const u32 count = _Lanes::StoreWhere(values, bits, valuesOfLanes.At(source, stride));
		values += ureg(count) * sizeof(float);
		room -= count;
		source += ureg(kLanes) * stride;
		enabled += kLanes;
		particlesLeft -= kLanes;
	}

	// The end of the values, the end of the particles, or both.
	while (particlesLeft != 0 && room != 0)
	{
		const u32 seenBefore = particlesLeft < kLanes ? kLanes - particlesLeft : 0;
		source -= ureg(seenBefore) * stride;
		enabled -= seenBefore;
		particlesLeft += seenBefore;
		const u32 bits = _Lanes::BitsOfBytes(enabled) & ~((1u << seenBefore) - 1);
		if (bits != 0) // with most particles disabled, most registers have none
		{
			const u32 roomInLanes = room < kLanes ? room : kLanes;
			const u32 count = _Lanes::StoreWhere(values, bits, valuesOfLanes.At(source, stride), roomInLanes);
			values += ureg(count) * sizeof(float);
			room -= count;
		}
		source += ureg(kLanes) * stride;
		enabled += kLanes;
		particlesLeft -= kLanes;
	}
	return page.m_ValueCount - room;
}

// The functions of the table. A page that comes here fills at least one of the widest registers, so no narrower ones
// are needed for what is left.

template<typename _Lanes>
static u32 CompactByDistanceInLanes(const SCompaction &page, const float *camera)
{
	typedef typename _Lanes::Gathering Gathering;
	static_assert(_Lanes::kLanes <= kMinCompactedInLanes);
	if (page.m_StrideInBytes == sizeof(CFloat3))
		return CompactRegisters<_Lanes, TNegatedDistances<_Lanes, SPositions_Packed>>(page, camera);
	return CompactRegisters<Gathering, TNegatedDistances<Gathering, SPositions_Gathered>>(page, camera);
}

template<typename _Lanes>
static u32 CompactByValueInLanes(const SCompaction &page)
{
	return CompactRegisters<_Lanes, TValues<_Lanes>>(page, nullptr);
}

template<typename _Widest, typename... _Narrower>
constexpr SFillKernels kFillKernelsInLanes = {
	kFillKernelsFor<CVertexBases_Sequence, _Widest, _Narrower...>,
	kFillKernelsFor<CVertexBases_List, _Widest, _Narrower...>,
	{&CompactByDistanceInLanes<_Widest>, &CompactByValueInLanes<_Widest>},
      kQuadKernelsFor<typename _Widest::Gathering>,
	&WidenSpanInLanes<typename _Widest::Gathering>
};
} // namespace Vexmoor
