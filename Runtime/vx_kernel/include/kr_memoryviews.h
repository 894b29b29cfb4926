#pragma once

// Memory views: a view says where a caller's elements lie and how many there are, and owns nothing. It is two or three
// words, and copies are shallow. An access outside is reported and then made all the same, so the caller has to keep
// the bounds. With assertions compiled out, an access is one address computation.

#include "vx_assert.h"
#include "vx_defs.h"

#include "kr_iterators.h"

#include <type_traits>

namespace Vexmoor
{
/// True if a view of one _Element, made of an _Argument, would view a temporary: an argument that is one, or a number
/// of another type, which is converted into one.
template<typename _Argument, typename _Element>
constexpr bool kIsOrBecomesTemporary =
	std::is_same_v<std::remove_cv_t<std::remove_reference_t<_Argument>>, std::remove_cv_t<_Element>>
		? !std::is_lvalue_reference_v<_Argument>
		: std::is_arithmetic_v<_Element> && (std::is_arithmetic_v<std::remove_reference_t<_Argument>> ||
												std::is_enum_v<std::remove_reference_t<_Argument>>);

/// Elements next to each other. Counts and byte sizes are 32-bit.
template<typename _Type>
class VX_API_INLINE TMemoryView
{
public:
	typedef TContiguousBaseIterator<_Type> Iterator; ///< A bare pointer, unchecked.

	/// An empty view.
	TMemoryView() = default;
	/// A view of one element.
	explicit TMemoryView(_Type &element)
		: m_Data(&element)
		, m_Count(1)
	{
	}
	/// A temporary is gone before the view is used. Give the element a name.
	template<typename _Other, typename = std::enable_if_t<kIsOrBecomesTemporary<_Other &&, _Type>>>
	explicit TMemoryView(_Other &&) = delete;
	/// The count elements from data on.
	TMemoryView(_Type *data, u32 count)
		: m_Data(data)
		, m_Count(count)
	{
	}
	/// A view of elements also views them as const.
	template<typename _Other, typename = std::enable_if_t<std::is_same_v<const _Other, _Type>>>
	TMemoryView(const TMemoryView<_Other> &other)
		: m_Data(other.Data())
		, m_Count(other.Count())
	{
	}

	bool Empty() const { return m_Data == null || m_Count == 0; }       ///< True without elements or without address.
	u32 Count() const { return m_Count; }                               ///< Elements.
	_Type *Data() const { return m_Data; }                              ///< Address of the first element.
	_Type *DataEnd() const { return m_Data + m_Count; }                 ///< Address past the last element.
	static constexpr u32 ElementSizeInBytes() { return sizeof(_Type); } ///< Size of one element.
	VX_WRAPS u32 CoveredBytes() const { return m_Count * ElementSizeInBytes(); } ///< Size of all elements, modulo 2^32.

	/// Address of an element, which need not be a multiple of what its type asks for. An element that lies outside is
	/// reported, and its address returned all the same.
	_Type *AddressOf(u32 index) const
	{
		_AssertAccessible(index);
		return m_Data + index;
	}
	///@{
	/// An element. One that lies outside is reported, and accessed all the same.
	_Type &operator[](u32 index) const { return *AddressOf(index); }
	_Type &First() const { return (*this)[0]; }
	VX_WRAPS _Type &Last() const { return (*this)[m_Count - 1]; }
	///@}

	///@{
	/// The range of all elements.
	Iterator Begin() const { return m_Data; }
	Iterator End() const { return DataEnd(); }
	///@}

	/// The elements [begin, begin + count). A range that lies outside is reported, and viewed all the same.
	VX_WRAPS TMemoryView Slice(u32 begin, u32 count) const
	{
		VX_ASSERT(begin + count <= m_Count);
		return TMemoryView(m_Data + begin, count);
	}
	/// The elements from begin on, which is at most the count.
	TMemoryView Slice(u32 begin) const { return Slice(begin, m_Count - begin); }
	/// Slice if possible: the slice of an empty view is empty, whatever the range.
	TMemoryView SliceIFP(u32 begin, u32 count) const { return Empty() ? TMemoryView() : Slice(begin, count); }

private:
	void _AssertAccessible([[maybe_unused]] u32 index) const
	{
		VX_ASSERT(m_Data != null);
		VX_ASSERT(index < m_Count);
	}

	_Type *m_Data = null;
	u32 m_Count = 0;
};

/// What every strided view stores.
struct SStridedMemoryViewRawStorage
{
	u8 *m_RawDataPtr = null; ///< Address of element 0.
	u32 m_Count = 0;         ///< Elements.
	u32 m_Stride = 0;        ///< Bytes from one element to the next; 0: all elements are the same one.
};

/// Gives every strided view the same members.
template<typename _Type>
class VX_API_INLINE TStridedMemoryViewBase
{
protected:
	SStridedMemoryViewRawStorage m_Storage; ///< All there is to a view.
};

/// Elements a fixed number of bytes apart, chosen at run time. A stride of 0 makes the view virtual: all its elements
/// are one and the same. The template's second argument, the footprint in bytes, is -1: not known to the compiler.
template<typename _Type, int _FootprintInBytes = -1>
class VX_API_INLINE TStridedMemoryView : public TStridedMemoryViewBase<_Type>
{
	static_assert(_FootprintInBytes == -1, "strides are chosen at run time");
	typedef TStridedMemoryViewBase<_Type> BaseType;
	using BaseType::m_Storage;

public:
	static constexpr u32 ValueFootprintInBytes = sizeof(_Type); ///< The stride of packed elements.
	typedef TStridedBaseIterator<_Type> Iterator;               ///< Checked; steps by the stride.

	/// An empty view.
	TStridedMemoryView() = default;
	/// A view of one element.
	explicit TStridedMemoryView(_Type &element)
		: TStridedMemoryView(&element, 1, ValueFootprintInBytes)
	{
	}
	/// A temporary is gone before the view is used. Give the element a name.
	template<typename _Other, typename = std::enable_if_t<kIsOrBecomesTemporary<_Other &&, _Type>>>
	explicit TStridedMemoryView(_Other &&) = delete;
	/// The count elements from data on, stride bytes apart. A stride is at least an element's size, or 0. Another one
	/// is reported, and used all the same.
	TStridedMemoryView(_Type *data, u32 count, u32 stride)
	{
		VX_ASSERT(stride >= ValueFootprintInBytes || stride == 0);
		m_Storage.m_RawDataPtr = reinterpret_cast<u8 *>(const_cast<std::remove_const_t<_Type> *>(data));
		m_Storage.m_Count = count;
		m_Storage.m_Stride = stride;
	}
	/// The elements of a contiguous view.
	TStridedMemoryView(const TMemoryView<_Type> &view)
		: TStridedMemoryView(view.Data(), view.Count(), ValueFootprintInBytes)
	{
	}
	/// A view of elements also views them as const, contiguous or strided.
	template<typename _Other, typename = std::enable_if_t<std::is_same_v<const _Other, _Type>>>
	TStridedMemoryView(const TMemoryView<_Other> &view)
		: TStridedMemoryView(view.Data(), view.Count(), ValueFootprintInBytes)
	{
	}
	/// The same.
	template<typename _Other, typename = std::enable_if_t<std::is_same_v<const _Other, _Type>>>
	TStridedMemoryView(const TStridedMemoryView<_Other, _FootprintInBytes> &other)
		: TStridedMemoryView(other.Data(), other.Count(), other.Stride())
	{
	}

	/// True without elements or without address.
	bool Empty() const { return m_Storage.m_RawDataPtr == null || m_Storage.m_Count == 0; }
	u32 Count() const { return m_Storage.m_Count; }          ///< Elements.
	u32 Stride() const { return m_Storage.m_Stride; }        ///< Bytes from one element to the next.
	bool Virtual() const { return m_Storage.m_Stride == 0; } ///< True when all elements are one.
	VX_WRAPS u32 CoveredBytes() const
	{
		return m_Storage.m_Stride * m_Storage.m_Count;
	}                                                      ///< Stride times count, modulo 2^32.
	_Type *Data() const { return _At(0); }                 ///< Address of the first element.
	_Type *DataEnd() const { return _At(CoveredBytes()); } ///< A stride past the last element.
	///@{
	/// True when elements lie next to each other.
	bool ContiguousFootprint() const { return m_Storage.m_Stride == ValueFootprintInBytes; }
	bool Contiguous() const { return ContiguousFootprint(); }
	///@}
	static constexpr u32 ElementFootprintInBytes() { return ValueFootprintInBytes; } ///< Size of one element.

	/// Address of an element, which need not be a multiple of what its type asks for. An element that lies outside is
	/// reported, and its address returned all the same.
	VX_WRAPS _Type *AddressOf(u32 index) const
	{
		_AssertAccessible(index);
		return _At(index * m_Storage.m_Stride);
	}
	/// An element. One that lies outside is reported, and accessed all the same.
	_Type &operator[](u32 index) const { return *AddressOf(index); }

	/// An iterator at the first element, which knows where the elements end.
	Iterator Begin() const { return Iterator(Data(), m_Storage.m_Stride, m_Storage.m_Count); }

	/// The elements [begin, begin + count), with the same stride. A range that lies outside is reported, and viewed all
	/// the same.
	VX_WRAPS TStridedMemoryView Slice(u32 begin, u32 count) const
	{
		VX_ASSERT(begin + count <= BaseType::m_Storage.m_Count);
		return TStridedMemoryView(_At(m_Storage.m_Stride * begin), count, m_Storage.m_Stride);
	}
	/// The elements from begin on, which is at most the count.
	TStridedMemoryView Slice(u32 begin) const { return Slice(begin, m_Storage.m_Count - begin); }
	/// Slice if possible: the slice of an empty view is empty, whatever the range.
	TStridedMemoryView SliceIFP(u32 begin, u32 count) const
	{
		return Empty() ? TStridedMemoryView() : Slice(begin, count);
	}

private:
	// The end of a strided view lies past its last element by more than an element, and the end of a page's memory may
	// come before it: addresses are computed as integers.
	_Type *_At(u32 offsetInBytes) const
	{
		return reinterpret_cast<_Type *>(reinterpret_cast<ureg>(m_Storage.m_RawDataPtr) + offsetInBytes);
	}

	void _AssertAccessible([[maybe_unused]] u32 index) const
	{
		VX_ASSERT(m_Storage.m_RawDataPtr != null);
		VX_ASSERT(index < m_Storage.m_Count);
	}
};
} // namespace Vexmoor
