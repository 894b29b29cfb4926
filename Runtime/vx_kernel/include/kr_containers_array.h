#pragma once

// An owning array that takes whole contents from a view. Its memory comes from the runtime allocator.

#include "vx_assert.h"
#include "vx_defs.h"

#include "kr_mem.h"
#include "kr_memoryviews.h"

#include <cstring>
#include <type_traits>

namespace Vexmoor
{
/// How an array allocates and grows: from _InitialSize elements on, by capacity * _GrowMultiplier (0: none) +
/// capacity / _GrowDivider (0: none) + _GrowConstant. An _Alignment of 0 is the allocator's own.
template<u32 _Alignment, u32 _InitialSize, u32 _GrowConstant, u32 _GrowMultiplier, u32 _GrowDivider>
struct TArrayStaticController
{
	static constexpr u32 kAlignment = _Alignment != 0 ? _Alignment : 0x10;

	/// The capacity that holds wanted elements, coming from the current one.
	static u32 Capacity(u32 current, u32 wanted)
	{
		if (wanted <= _InitialSize)
			return _InitialSize;
		u32 grown = current * _GrowMultiplier + _GrowConstant;
		if constexpr (_GrowDivider != 0)
			grown += current + current / _GrowDivider;
		return wanted > grown ? wanted : grown;
	}
};

/// Elements that can be copied as bytes, contiguous and owned. Assigning contents that fit keeps the memory; when a
/// larger block cannot be had, the array is empty afterwards.
template<typename _Type, typename _Controller = TArrayStaticController<0, 8, 8, 0, 2>>
class TArray
{
	static_assert(std::is_trivially_copyable_v<_Type>, "elements are copied as bytes");

	static constexpr const char *kModule = "Kernel|Containers|Array";

public:
	TArray() = default;
	TArray(const TMemoryView<const _Type> &elements) { _Assign(elements.Data(), elements.Count()); }
	TArray(const TMemoryView<_Type> &elements) { _Assign(elements.Data(), elements.Count()); }
	TArray(const TArray &other) { _Assign(other.m_Data, other.m_Count); }
	TArray(TArray &&other) noexcept { _Swap(other); }
	~TArray() { _Free(m_Data); }

	TArray &operator=(const TMemoryView<const _Type> &elements) { return _Assign(elements.Data(), elements.Count()); }
	TArray &operator=(const TMemoryView<_Type> &elements) { return _Assign(elements.Data(), elements.Count()); }
	TArray &operator=(const TArray &other) { return _Assign(other.m_Data, other.m_Count); }
	TArray &operator=(TArray &&other) noexcept
	{
		_Swap(other);
		return *this;
	}

	bool Empty() const { return m_Count == 0; }
	u32 Count() const { return m_Count; }
	u32 MaxCount() const { return m_MaxCount; }
	_Type *Data() { return m_Data; }
	const _Type *Data() const { return m_Data; }

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

	operator TMemoryView<const _Type>() const { return TMemoryView<const _Type>(m_Data, m_Count); }

private:
	// The source may lie inside this array.
	TArray &_Assign(const _Type *elements, u32 count)
	{
		if (count <= m_MaxCount)
		{
			if (count != 0)
				std::memmove(m_Data, elements, u64(count) * sizeof(_Type));
			m_Count = count;
			return *this;
		}

		const u32 capacity = _Controller::Capacity(m_MaxCount, count);
		_Type *const data = static_cast<_Type *>(Mem::_RawAlloc(u64(capacity) * sizeof(_Type), _Controller::kAlignment,
			Mem::AllocType_Generic, Mem::Origin_Alloc, kModule, __FILE__, __LINE__, VX_FUNCTION));
		if (data != null)
			std::memcpy(data, elements, u64(count) * sizeof(_Type));
		_Free(m_Data);
		m_Data = data;
		m_Count = data != null ? count : 0;
		m_MaxCount = data != null ? capacity : 0;
		return *this;
	}

	static void _Free(_Type *data)
	{
		Mem::_RawFree(data, Mem::AllocType_Generic, Mem::Origin_Alloc, kModule, __FILE__, __LINE__, VX_FUNCTION);
	}

	void _Swap(TArray &other) noexcept
	{
		_Type *const data = m_Data;
		const u32 count = m_Count;
		const u32 maxCount = m_MaxCount;
		m_Data = other.m_Data;
		m_Count = other.m_Count;
		m_MaxCount = other.m_MaxCount;
		other.m_Data = data;
		other.m_Count = count;
		other.m_MaxCount = maxCount;
	}

	_Type *m_Data = null;
	u32 m_Count = 0;
	u32 m_MaxCount = 0;
};
} // namespace Vexmoor
