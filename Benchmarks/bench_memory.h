#pragma once

// Memory that benchmarks sort in: cache-line aligned, touched before any clock starts, and deliberately misaligned
// where a case asks for it. Every competitor gets its buffers from here, so page size and placement are the same for
// all.

#include "vx_defs.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace VexmoorBench
{
using namespace Vexmoor;

constexpr size_t kCacheLineInBytes = 64;

/// An owned array of elements that can be copied as bytes, all zero at first, at offsetInBytes from a cache line.
template<typename _Type>
class CBuffer
{
	static_assert(std::is_trivially_copyable_v<_Type>, "elements are copied as bytes");

public:
	CBuffer() = default;
	explicit CBuffer(size_t count, size_t offsetInBytes = 0)
		: m_Count(count)
	{
		// A line more than asked for, for the offset and for 16-byte loads at the last 12-byte position, and one to
		// align in: blocks of aligned_alloc are hardly used again, and what repetitions free would add up to gigabytes.
		const size_t sizeInBytes = (count * sizeof(_Type) / kCacheLineInBytes + 2) * kCacheLineInBytes;
		size_t blockSizeInBytes = sizeInBytes + kCacheLineInBytes;
		m_Block = std::malloc(blockSizeInBytes);
		if (m_Block == nullptr)
			throw std::bad_alloc();
		std::memset(m_Block, 0, blockSizeInBytes);
		void *firstLine = m_Block;
		std::align(kCacheLineInBytes, sizeInBytes, firstLine, blockSizeInBytes);
		m_Data = reinterpret_cast<_Type *>(static_cast<u8 *>(firstLine) + offsetInBytes);
	}
	CBuffer(CBuffer &&other) noexcept { *this = static_cast<CBuffer &&>(other); }
	CBuffer &operator=(CBuffer &&other) noexcept
	{
		std::swap(m_Block, other.m_Block);
		std::swap(m_Data, other.m_Data);
		std::swap(m_Count, other.m_Count);
		return *this;
	}
	~CBuffer() { std::free(m_Block); }

	_Type *Data() { return m_Data; }
	const _Type *Data() const { return m_Data; }
	size_t Count() const { return m_Count; }
	_Type &operator[](size_t index) { return m_Data[index]; }
	const _Type &operator[](size_t index) const { return m_Data[index]; }

private:
	void *m_Block = nullptr;
	_Type *m_Data = nullptr;
	size_t m_Count = 0;
};

/// A working buffer, of which small ones move to another place in memory when they are told to. On some processors a
/// sort of a thousand particles takes twice as long where pages of memory happen to lie so that loads are taken for
/// depending on stores (tried.md). A buffer that stayed in its place would be lucky or unlucky in every repetition.
class CScratch
{
public:
	CScratch() = default;
	explicit CScratch(size_t sizeInBytes)
		: m_SizeInBytes((sizeInBytes + kPageInBytes - 1) / kPageInBytes * kPageInBytes)
		, m_PlaceCount(sizeInBytes <= kMostMovedInBytes ? kPlaces : 1)
		, m_Memory(m_SizeInBytes * m_PlaceCount)
	{
	}

	u8 *Data() { return m_Memory.Data() + m_Place * m_SizeInBytes; }
	const u8 *Data() const { return m_Memory.Data() + m_Place * m_SizeInBytes; }
	size_t Count() const { return m_SizeInBytes; }
	void Move() { m_Place = (m_Place + 1) % m_PlaceCount; }

private:
	static constexpr size_t kPageInBytes = 4096;
	static constexpr size_t kMostMovedInBytes = 1u << 16;
	static constexpr size_t kPlaces = 16;

	size_t m_SizeInBytes = 0;
	size_t m_PlaceCount = 0;
	size_t m_Place = 0;
	CBuffer<u8> m_Memory;
};
} // namespace VexmoorBench
