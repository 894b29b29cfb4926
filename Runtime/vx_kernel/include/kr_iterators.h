#pragma once

// Iterators of the memory views: a bare element pointer, and a pointer that steps by a byte stride and knows its end.

#include "vx_assert.h"
#include "vx_defs.h"

#include <type_traits>

namespace Vexmoor
{
/// A bare pointer to contiguous elements. Converts from the pointer it wraps; distances are in elements.
template<typename _Type>
class VX_API_INLINE TContiguousBaseIterator
{
public:
	TContiguousBaseIterator() = default;
	///@{
	/// Does what the pointer does.
	TContiguousBaseIterator(_Type *ptr)
		: m_Ptr(ptr)
	{
	}

	_Type &operator*() const { return *m_Ptr; }
	_Type *operator->() const { return m_Ptr; }
	_Type &operator[](s32 index) const { return m_Ptr[index]; }

	TContiguousBaseIterator &operator++()
	{
		++m_Ptr;
		return *this;
	}
	TContiguousBaseIterator &operator--()
	{
		--m_Ptr;
		return *this;
	}
	TContiguousBaseIterator &operator+=(int offset)
	{
		m_Ptr += offset;
		return *this;
	}
	TContiguousBaseIterator operator+(int offset) const { return m_Ptr + offset; }
	TContiguousBaseIterator operator-(int offset) const { return m_Ptr - offset; }
	sreg operator-(const TContiguousBaseIterator &other) const { return m_Ptr - other.m_Ptr; }

	bool operator==(const TContiguousBaseIterator &other) const { return m_Ptr == other.m_Ptr; }
	bool operator!=(const TContiguousBaseIterator &other) const { return m_Ptr != other.m_Ptr; }
	bool operator<(const TContiguousBaseIterator &other) const { return m_Ptr < other.m_Ptr; }
	bool operator<=(const TContiguousBaseIterator &other) const { return m_Ptr <= other.m_Ptr; }
	bool operator>(const TContiguousBaseIterator &other) const { return m_Ptr > other.m_Ptr; }
	bool operator>=(const TContiguousBaseIterator &other) const { return m_Ptr >= other.m_Ptr; }
	///@}

private:
	_Type *m_Ptr = null;
};

/// Steps through elements that lie a fixed number of bytes apart. A stride of 0 stays on one element.
template<typename _Type>
class VX_API_INLINE TStridedBaseIterator
{
public:
	TStridedBaseIterator() = default;
	/// At the first of count elements.
	TStridedBaseIterator(_Type *ptr, u32 strideInBytes, u32 count)
		: m_Ptr(ptr)
		, m_StrideInBytes(strideInBytes)
		, m_Count(count)
	{
	}

	/// The element's address, which need not be aligned as its type asks. An address at the end or beyond is reported,
	/// and returned all the same.
	_Type *Ptr() const
	{
		VX_ASSERT(_CanAccess(0));
		return m_Ptr;
	}
	///@{
	/// The element, under the same check.
	_Type &operator*() const { return *Ptr(); }
	_Type *operator->() const { return Ptr(); }
	///@}

	/// Steps to the next element, or past the last one.
	TStridedBaseIterator &operator++()
	{
		// Through an integer: past the last element a pointer may not step, but an address may.
		m_Ptr = reinterpret_cast<_Type *>(reinterpret_cast<ureg>(m_Ptr) + m_StrideInBytes);
		++m_Position;
		return *this;
	}

	u32 Position() const { return m_Position; } ///< Steps taken so far.
	u32 Count() const { return m_Count; }       ///< Elements of the view.

	///@{
	/// Compares the positions alone, for iterators of the same view.
	bool operator==(const TStridedBaseIterator &other) const { return m_Position == other.m_Position; }
	bool operator!=(const TStridedBaseIterator &other) const { return m_Position != other.m_Position; }
	///@}

private:
	bool _CanAccess(u32 offset) const { return m_Position + offset < m_Count; }

	_Type *m_Ptr = null;
	u32 m_StrideInBytes = 0;
	u32 m_Count = 0;
	u32 m_Position = 0;
};
} // namespace Vexmoor
