#pragma once

// What is read of every particle beside the sort: enabled bytes are counted and list entries compared 16 bytes at a
// time, since a checked sort may cost little more than the sort, and one with jobs nothing that they could not share.

#include "simd/lanes.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "pv_depth_keys.h"
#include "pv_mesh_triangle_sorter.h"

#include <algorithm>

namespace Vexmoor
{
// How many of the bytes are not 0. Sixteen are compared at a time, and each byte lane counts the zeros that it meets. A
// lane holds up to 255, and is emptied before it meets more.
//
//   byte lane       0     1     2     3    ...
//   bytes           1     0     7     0
//   equal           0     -1    0     -1          all bits set is -1
//   zerosPerLane    +0    +1    +0    +1
static inline u32 CountNonZero(const u8 *bytes, u32 count)
{
	constexpr u32 kLaneCount = 16;
	constexpr u32 kMaxGroups = 255;
	typedef SLanesBase::Register Register;
	const Register zero = SLanesBase::Splat(0);
	u32 zeroCount = 0;
	u32 left = count;
	while (left >= kLaneCount)
	{
		const u32 groupCount = std::min(left / kLaneCount, kMaxGroups);
		Register zerosPerLane = zero;
		for (u32 group = 0; group < groupCount; ++group)
		{
			const Register equal = SLanesBase::EqualBytes(SLanesBase::Load(bytes), zero); // all bits: -1
			zerosPerLane = SLanesBase::Subtract<u8>(zerosPerLane, equal);
			bytes += kLaneCount;
		}
		zeroCount += SLanesBase::SumBytes(zerosPerLane);
		left -= groupCount * kLaneCount;
	}
	for (; left != 0; --left)
		zeroCount += *bytes++ == 0;
	return count - zeroCount;
}

// Moves offset behind the next skippedCount bytes that are not 0. Returns false if there are fewer of them before end.
static inline bool SkipNonZero(const u8 *bytes, u32 end, u32 skippedCount, u32 &offset)
{
	constexpr u32 kBlock = 1024;
	u32 left = skippedCount;
	while (end - offset > kBlock)
	{
		const u32 countInBlock = CountNonZero(bytes + offset, kBlock);
		if (countInBlock >= left)
			break; // what is sought may lie inside
		left -= countInBlock;
		offset += kBlock;
	}
	for (; left != 0; ++offset)
	{
		if (offset == end)
			return false;
		left -= bytes[offset] != 0;
	}
	return true;
}

// Numbers from the first to the last, both included; none where the last is lower.
struct SNumberRange
{
	u32 m_First = 1;
	u32 m_Last = 0;

	bool Empty() const { return m_Last < m_First; }
	// One comparison for both ends: a number below the first wraps to a high one.
	VX_WRAPS bool Contains(u32 number) const { return !Empty() && number - m_First <= m_Last - m_First; }
	// The smallest range that contains this one and the other.
	SNumberRange With(const SNumberRange &other) const
	{
		if (Empty())
			return other;
		return other.Empty() ? *this : SNumberRange{std::min(m_First, other.m_First), std::max(m_Last, other.m_Last)};
	}
};

// Returns the index of the first number of [begin, end) that lies in the range, or end if none does. The numbers may
// lie at any address.
//
// A number is in the range if number - first <= last - first, as unsigned numbers. Lanes compare signed numbers, so
// both sides have their sign bit flipped. On the left side the subtraction flips it as well. For the range 10 to 12:
//
//   number              9             10            12            13
//   number - first      0xFFFFFFFF    0             2             3
//   flipped             0x7FFFFFFF    0x80000000    0x80000002    0x80000003
//   above 0x80000002    yes           no            no            yes
//
// Blocks of 16 numbers are passed over while all of their lanes are outside. The block that has a lane inside, or the
// rest, is searched number by number.
VX_WRAPS static inline u64 FindInRange(const u32 *numbers, u64 begin, u64 end, const SNumberRange &range)
{
	constexpr u64 kBlock = 16;
	if (range.Empty())
		return end;
	const u8 *const bytes = reinterpret_cast<const u8 *>(numbers);
	const auto lanesAt = [bytes](u64 place) { return SLanesBase::Load(bytes + place * sizeof(u32)); };
	const SLanesBase::Register turn = SLanesBase::Splat(kSignBit - range.m_First);
	const SLanesBase::Register last = SLanesBase::Splat((range.m_Last - range.m_First) ^ kSignBit);
	const auto outside = [lanesAt, turn, last](u64 place)
	{ return SLanesBase::GreaterSigned(SLanesBase::Add<u32>(lanesAt(place), turn), last); };

	u64 place = begin;
	for (; place + kBlock <= end; place += kBlock)
	{
		const SLanesBase::Register lower = SLanesBase::And(outside(place), outside(place + 4));
		const SLanesBase::Register upper = SLanesBase::And(outside(place + 8), outside(place + 12));
		if (!SLanesBase::AllOnes(SLanesBase::And(lower, upper)))
			break;
	}
	while (place < end && !range.Contains(LoadU32(bytes + place * sizeof(u32))))
		++place;
	return place;
}
} // namespace Vexmoor
