#pragma once

// Memory that ends where memory ends: a block between two inaccessible pages. An access beyond the block faults at the
// page, and what alignment leaves between block and page is filled with a pattern and checked.

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Support
{
/// A block of size bytes whose address is alignmentOffset modulo 16, as close to one of its guard pages as that
/// allows. The contents start as 0xCD bytes.
class CGuardedMemory
{
public:
	enum EFlush
	{
		FlushEnd,  ///< Catches accesses past the end.
		FlushStart ///< Catches accesses before the start.
	};

	explicit CGuardedMemory(std::size_t size, std::size_t alignmentOffset = 0, EFlush flush = FlushEnd);
	~CGuardedMemory();
	CGuardedMemory(CGuardedMemory &&other) noexcept;
	CGuardedMemory &operator=(CGuardedMemory &&other) noexcept;
	CGuardedMemory(const CGuardedMemory &) = delete;
	CGuardedMemory &operator=(const CGuardedMemory &) = delete;

	unsigned char *Data() const { return m_Data; }
	template<typename _Type>
	_Type *As() const
	{
		return reinterpret_cast<_Type *>(m_Data);
	}
	std::size_t Size() const { return m_Size; }

	/// True while no byte of the accessible pages outside the block has changed.
	bool SurroundingsIntact() const;

	/// Makes the block read-only: a write into it faults from now on.
	void Protect();

	static constexpr unsigned char kInitialByte = 0xCD;
	static constexpr unsigned char kSurroundingByte = 0xA5;

private:
	unsigned char *m_Pages = nullptr; // the accessible ones; a guard page lies on either side
	std::size_t m_PagesSize = 0;
	unsigned char *m_Data = nullptr;
	std::size_t m_Size = 0;
};

/// A copy that nobody can write to, whose address is alignmentOffset modulo 16.
template<typename _Type>
CGuardedMemory ReadOnly(const std::vector<_Type> &elements, std::size_t alignmentOffset)
{
	CGuardedMemory memory(elements.size() * sizeof(_Type), alignmentOffset);
	std::copy(elements.begin(), elements.end(), memory.As<_Type>());
	memory.Protect();
	return memory;
}
} // namespace Support
