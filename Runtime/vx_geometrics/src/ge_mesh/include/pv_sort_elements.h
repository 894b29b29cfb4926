#pragma once

// Elements that a caller points to, as a check of a sort sees them: where they lie, how many of them the sort touches,
// whether they can lie there, and what a sentence calls them. All in 64 bits.

#include "vx_defs.h"

#include "kr_memoryviews.h"

#include <algorithm>
#include <cstdio>

namespace Vexmoor
{
constexpr u64 kLargestSize = 0xFFFFFFFFu; // counts and sizes are 32-bit
constexpr u32 kNoPage = TGuid<u32>::INVALID.m_Guid;

// The elements of one view, or of one pointer with a count:
//
//   address                  the first element
//   count                    those that the sort touches, of viewCount in the view
//   stride                   from one to the next, at least the size of an element, or 0 if all are the same one
//   span                     up to the last byte of the last touched element
struct SElements
{
	const char *m_Name;
	u32 m_Page; // or kNoPage
	ureg m_Address;
	u32 m_ViewCount; // of the whole view
	u32 m_Count;     // of those that the sort touches, from the first one on
	u32 m_Stride;
	u32 m_ElementSize;
	u32 m_Alignment; // of elements that are read through references, a power of two; 1 where bytes or lanes are loaded

	SElements(const char *name, u32 page, const void *data, u32 count, u32 stride, u32 elementSize, u32 alignment)
		: m_Name(name)
		, m_Page(page)
		, m_Address(reinterpret_cast<ureg>(data))
		, m_ViewCount(count)
		, m_Count(count)
		, m_Stride(stride)
		, m_ElementSize(elementSize)
		, m_Alignment(alignment)
	{
	}
	// The elements of a strided view.
	template<typename _Type>
	SElements(const char *name, u32 page, const TStridedMemoryView<_Type, -1> &view, u32 alignment)
		: SElements(name, page, view.Data(), view.Count(), view.Stride(), sizeof(_Type), alignment)
	{
	}
	// The elements of a packed view.
	template<typename _Type>
	SElements(const char *name, u32 page, const TMemoryView<_Type> &view, u32 alignment)
		: SElements(name, page, view.Data(), view.Count(), sizeof(_Type), sizeof(_Type), alignment)
	{
	}

	// Returns the same elements, of which no more than count are touched.
	SElements First(u64 count) const
	{
		SElements first = *this;
		first.m_Count = u32(std::min<u64>(m_Count, count));
		return first;
	}

	// What 32-bit arithmetic on this view may reach: the views of the library multiply a count by a stride.
	u64 CoveredBytes() const { return u64(m_Count) * m_Stride; }
	// From the first byte of the first element to the last byte of the last one.
	u64 Span() const { return m_Count == 0 ? 0 : u64(m_Count - 1) * m_Stride + m_ElementSize; }
	// How far an address or a stride is from a multiple of the alignment. 0 where any address will do.
	u64 Misalignment(u64 addressOrStride) const { return addressOrStride & (m_Alignment - 1); }
	// From an address that is not null to the end of all addresses.
	u64 AddressableBytes() const { return u64(~ureg(0) - m_Address) + 1; }
};

// What is wrong with a view. A view is tried for these in this order, and the first one is told.
enum EViewFault
{
	ViewFault_None,
	// There are elements, but no address.
	ViewFault_Null,
	// Elements overlap: the stride is below an element's size, and not 0.
	ViewFault_Stride,
	// The stride is no multiple of the alignment.
	ViewFault_StrideAlignment,
	// Count times stride passes 32 bits.
	ViewFault_Size,
	// The last element would lie behind the end of all addresses.
	ViewFault_AddressSpace,
	// The address is no multiple of the alignment.
	ViewFault_Alignment
};

// Returns what is wrong with the elements, ViewFault_None for sound ones. If no element is touched, a view is sound
// whatever else it says.
static inline EViewFault FaultOf(const SElements &elements)
{
	if (elements.m_Count == 0)
		return ViewFault_None;
	if (elements.m_Address == 0)
		return ViewFault_Null;
	if (elements.m_Stride != 0 && elements.m_Stride < elements.m_ElementSize)
		return ViewFault_Stride;
	if (elements.Misalignment(elements.m_Stride) != 0)
		return ViewFault_StrideAlignment;
	if (elements.CoveredBytes() > kLargestSize)
		return ViewFault_Size;
	if (elements.Span() > elements.AddressableBytes())
		return ViewFault_AddressSpace;
	if (elements.Misalignment(elements.m_Address) != 0)
		return ViewFault_Alignment;
	return ViewFault_None;
}

// How many elements can be read: all, or none.
static inline u32 ReadableCount(const SElements &elements)
{
	return FaultOf(elements) == ViewFault_None ? elements.m_Count : 0;
}

// Returns how many bytes two sound ranges of elements have in common. Gaps between elements count as theirs.
//
//   a        |-----------|
//   b              |-----------|
//   shared         |-----|           from the higher begin to the lower end
//
// An end might be 2^64, which is no number here. So each range's share behind the higher begin is taken, and the
// smaller share is what both have.
static inline u64 SharedBytes(const SElements &a, const SElements &b)
{
	const u64 begin = std::max(a.m_Address, b.m_Address);
	const u64 bytesOfA = a.Span() - std::min(a.Span(), begin - a.m_Address);
	const u64 bytesOfB = b.Span() - std::min(b.Span(), begin - b.m_Address);
	return std::min(bytesOfA, bytesOfB);
}

// "the positions of page 3"
struct SNameText
{
	char m_Text[64];

	explicit SNameText(const SElements &elements)
	{
		if (elements.m_Page == kNoPage)
			std::snprintf(m_Text, sizeof(m_Text), "the %s", elements.m_Name);
		else
			std::snprintf(m_Text, sizeof(m_Text), "the %s of page %u", elements.m_Name, elements.m_Page);
	}
};
} // namespace Vexmoor
