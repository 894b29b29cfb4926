#pragma once

// An owning array that takes whole contents from a view. Its memory comes from the heap and not from the allocator
// hook, because an array may be filled before a host sets the hook, and freed after the host has removed it.

#include "vx_assert.h"
#include "vx_defs.h"

#include "kr_memoryviews.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

namespace Vexmoor
{
/// How an array allocates: with the heap's own alignment (an _Alignment of 0), and with capacities that start at
/// _InitialSize and grow in steps of _GrowConstant. _GrowMultiplier and _GrowDivider, which are for single insertions,
/// are not used, because contents are assigned whole.
template<u32 _Alignment, u32 _InitialSize, u32 _GrowConstant, u32 _GrowMultiplier, u32 _GrowDivider>
struct VX_API_INLINE TArrayStaticController
{
	static_assert(_Alignment == 0, "the heap's own alignment");

	/// The capacity that holds count elements: the count rounded up to a whole step, but no more than 32 bits can say.
	static constexpr u32 Capacity(u32 count)
	{
		constexpr u64 kMaxCapacity = 0xFFFFFFFFu;
		const u64 wholeSteps = (u64(count) + _GrowConstant - 1) / _GrowConstant * _GrowConstant;
		return count <= _InitialSize ? _InitialSize : u32(wholeSteps < kMaxCapacity ? wholeSteps : kMaxCapacity);
	}
};

/// Elements that can be copied as bytes, contiguous and owned. Assigning contents that fit keeps the memory. When there
/// is no memory for larger contents, that is reported, and the array is empty afterwards: a sort then has no pattern to
/// draw, rather than an earlier one that does not belong to its particles.
template<typename _Type, typename _Controller = TArrayStaticController<0, 8, 8, 0, 2>>
class VX_API_INLINE TArray
{
	static_assert(std::is_trivially_copyable_v<_Type>, "elements are copied as bytes");

public:
	TArray() = default;
	///@{
	/// Copies the elements; an array that is moved from gives its memory away.
	TArray(const TMemoryView<const _Type> &elements) { _Assign(elements.Data(), elements.Count()); }
	TArray(const TMemoryView<_Type> &elements) { _Assign(elements.Data(), elements.Count()); }
	TArray(const TArray &other) { _Assign(other.m_Data, other.m_Count); }
	TArray(TArray &&other) noexcept { _Swap(other); }
	///@}
	~TArray() { std::free(m_Data); }

	///@{
	/// Copies the elements, which may be this array's own; an array that is moved from swaps its memory with this one.
	// NOLINTBEGIN(misc-unconventional-assign-operator,bugprone-unhandled-self-assignment): _Assign returns *this, and
	// its source may be this array.
	TArray &operator=(const TMemoryView<const _Type> &elements) { return _Assign(elements.Data(), elements.Count()); }
	TArray &operator=(const TMemoryView<_Type> &elements) { return _Assign(elements.Data(), elements.Count()); }
	TArray &operator=(const TArray &other) { return _Assign(other.m_Data, other.m_Count); }
	// NOLINTEND(misc-unconventional-assign-operator,bugprone-unhandled-self-assignment)
	TArray &operator=(TArray &&other) noexcept
	{
		_Swap(other);
		return *this;
	}
	///@}

	/// Makes an array of the elements without a copy. Such an array may only be read or moved. It must not be assigned
	/// to or destroyed, since it would free memory that is not its own.
	static TArray Borrow(const TMemoryView<const _Type> &elements)
	{
		TArray array;
		array.m_Data = const_cast<_Type *>(elements.Data());
		array.m_Count = elements.Count();
		return array;
	}

	bool Empty() const { return m_Count == 0; }  ///< True without elements, with or without memory.
	u32 Count() const { return m_Count; }        ///< Elements.
	u32 MaxCount() const { return m_MaxCount; }  ///< Elements that the memory has room for.
	_Type *Data() { return m_Data; }             ///< Null while there is no memory.
	const _Type *Data() const { return m_Data; } ///< Null while there is no memory.

	///@{
	/// An element. An index outside is reported, and accessed all the same.
	_Type &operator[](u32 index)
	{
		VX_ASSERT(index < m_Count);
		return m_Data[index];
	}
	const _Type &operator[](u32 index) const
	{
		VX_ASSERT(index < m_Count);
		return m_Data[index];
	}
	///@}

	/// A view of the elements, valid until the next assignment.
	operator TMemoryView<const _Type>() const { return TMemoryView<const _Type>(m_Data, m_Count); }

private:
	// The source may lie inside this array.
	TArray &_Assign(const _Type *elements, u32 count)
	{
		if (VX_UNLIKELY(count > m_MaxCount))
		{
			const u32 capacity = _Controller::Capacity(count);
			_Type *const data = _Allocate(capacity);
			VX_ASSERT_MESSAGE(data != null, "There is no memory for an array of %u elements", count);
			if (data != null)
				std::memcpy(data, elements, std::size_t(count) * sizeof(_Type));
			std::free(m_Data);
			m_Data = data;
			m_Count = data != null ? count : 0;
			m_MaxCount = data != null ? capacity : 0;
			return *this;
		}
		// One by one, because patterns are short, and a call would lead to code that may have left the caches. In
		// ascending order, because the source may lie inside this array.
		for (u32 i = 0; i < count; ++i)
			m_Data[i] = elements[i];
		m_Count = count;
		return *this;
	}

	static _Type *_Allocate(u32 capacity)
	{
		const u64 sizeInBytes = u64(capacity) * sizeof(_Type);
		if (sizeInBytes > std::numeric_limits<std::size_t>::max())
			return null;
		return static_cast<_Type *>(std::malloc(std::size_t(sizeInBytes)));
	}

	void _Swap(TArray &other) noexcept
	{
		std::swap(m_Data, other.m_Data);
		std::swap(m_Count, other.m_Count);
		std::swap(m_MaxCount, other.m_MaxCount);
	}

	_Type *m_Data = null;
	u32 m_Count = 0;
	u32 m_MaxCount = 0;
};
} // namespace Vexmoor
