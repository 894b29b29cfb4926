// Regions in the order of their places form runs in which each overlaps one before it. Each run is a block of memory.

#include "include/pv_captured_memory.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Vexmoor
{
constexpr u64 kLineSize = 16; // blocks start at multiples of it, and places keep their remainder

bool CRefusal::Say(const char *format, ...)
{
	if (m_IsSaid)
		return false;
	va_list arguments;
	va_start(arguments, format);
	std::vsnprintf(m_Sentence, m_Size, format, arguments);
	va_end(arguments);
	m_IsSaid = true;
	return false;
}

u32 CCapturedMemory::Add(const std::string &name, u64 place, u64 size)
{
	// Places are signed distances. With the sign bit flipped, they are in the order of addresses as unsigned numbers.
	const u64 begin = place ^ (u64(1) << 63);
	if (size > ~u64(0) - begin)
		m_Refusal.Say("The file is damaged: %s pass the end of all addresses.", name.c_str());
	m_Regions.push_back({name, size == 0, begin, size, null});
	return u32(m_Regions.size() - 1);
}

u32 CCapturedMemory::AddApart(const std::string &name, u64 place, u64 size)
{
	m_Regions.push_back({name, true, place % kLineSize, size, null});
	return u32(m_Regions.size() - 1);
}

void CCapturedMemory::Fill(u32 region, u64 offset, const void *elements, u64 count, u64 elementSize, u64 stride)
{
	const u8 *const bytes = static_cast<const u8 *>(elements);
	if (count == 0)
		return;
	if (stride == elementSize)
		m_Fills.push_back({region, offset, bytes, 1, count * elementSize, 0});
	else
		m_Fills.push_back({region, offset, bytes, count, elementSize, stride});
}

bool CCapturedMemory::LayOut(u64 limit)
{
	std::vector<SRegion *> ordered;
	for (SRegion &region : m_Regions)
	{
		SRegion *const apart = &region;
		if (!region.m_IsApart)
			ordered.push_back(&region);
		else if (!_LayOutBlock(&apart, 1, region.End(), limit))
			return false;
	}
	std::sort(ordered.begin(), ordered.end(),
		[](const SRegion *left, const SRegion *right) { return left->m_Begin < right->m_Begin; });

	for (size_t first = 0; first != ordered.size();)
	{
		u64 end = ordered[first]->End();
		size_t last = first + 1;
		for (; last != ordered.size() && ordered[last]->m_Begin < end; ++last)
			end = std::max(end, ordered[last]->End());
		if (!_LayOutBlock(&ordered[first], last - first, end, limit))
			return false;
		first = last;
	}
	return true;
}

// Zeros, which the system hands out without touching them: a page's memory may be far larger than what is read of it.
bool CCapturedMemory::_LayOutBlock(SRegion *const *regions, size_t count, u64 end, u64 &bytesLeft)
{
	const u64 size = end - regions[0]->m_Begin;
	if (size > bytesLeft)
		return m_Refusal.Say("The capture takes too much memory: %llu bytes for %s%s, where %llu are left.",
			static_cast<unsigned long long>(size), regions[0]->m_Name.c_str(),
			count > 1 ? " and what overlaps them" : "", static_cast<unsigned long long>(bytesLeft));
	bytesLeft -= size;

	const u64 blockBegin = regions[0]->m_Begin / kLineSize * kLineSize;
	std::unique_ptr<u8, SFree> block(static_cast<u8 *>(std::calloc(1, std::max<u64>(end - blockBegin, 1))));
	if (block == null)
		return m_Refusal.Say("The memory ran out: there are no %llu bytes for %s.",
			static_cast<unsigned long long>(size), regions[0]->m_Name.c_str());
	m_Blocks.push_back(std::move(block));
	for (size_t i = 0; i < count; ++i)
		regions[i]->m_Data = m_Blocks.back().get() + (regions[i]->m_Begin - blockBegin);
	return true;
}

bool CCapturedMemory::Overlap(u32 region, u32 other) const
{
	const SRegion &left = m_Regions[region], &right = m_Regions[other];
	return !left.m_IsApart && !right.m_IsApart && left.m_Begin < right.End() && right.m_Begin < left.End();
}

// Until action returns false; whether it never does.
template<typename _Action>
bool CCapturedMemory::_ForEachElement(const _Action &action) const
{
	for (const SFill &fill : m_Fills)
	{
		for (u64 i = 0; i < fill.m_Count; ++i)
		{
			if (!action(m_Regions[fill.m_Region], m_Regions[fill.m_Region].m_Data + fill.m_Offset + i * fill.m_Stride,
					fill.m_Elements + i * fill.m_ElementSize, fill.m_ElementSize))
				return false;
		}
	}
	return true;
}

void CCapturedMemory::Write() const
{
	_ForEachElement(
		[](const SRegion &, u8 *to, const u8 *element, u64 size)
		{
			std::memcpy(to, element, size);
			return true;
		});
}

bool CCapturedMemory::Check() const
{
	return _ForEachElement(
		[this](const SRegion &region, const u8 *to, const u8 *element, u64 size)
		{
			return std::memcmp(to, element, size) == 0 ||
		           m_Refusal.Say(
					   "The file is damaged: %s and what overlaps them do not agree on the bytes that they share.",
					   region.m_Name.c_str());
		});
}
} // namespace Vexmoor
