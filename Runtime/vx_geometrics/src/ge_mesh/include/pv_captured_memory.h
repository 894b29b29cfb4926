#pragma once

// The memory of a captured sort. Regions that share bytes where they were captured share the same bytes here; all
// others get memory of their own, so that whatever watches memory notices a stray access.

#include "vx_defs.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace Vexmoor
{
/// The first thing that is found wrong with a file, as a sentence in a buffer of somebody else's.
class CRefusal
{
public:
	CRefusal(char *sentence, std::size_t size)
		: m_Sentence(sentence)
		, m_Size(size)
	{
	}

	/// Keeps the first sentence; later sentences change nothing. Returns false, for callers that refuse the file in the
	/// same statement.
	bool Say(const char *format, ...) VX_PRINTF_LIKE(2, 3);
	bool IsSaid() const { return m_IsSaid; }

private:
	char *m_Sentence;
	std::size_t m_Size;
	bool m_IsSaid = false;
};

/// First every region is added. LayOut gives all of them addresses, and Write puts into them what they are filled with.
class CCapturedMemory
{
public:
	explicit CCapturedMemory(CRefusal &refusal)
		: m_Refusal(refusal)
	{
	}

	/// Size bytes at a place, which counts bytes from a point that all regions have in common, modulo 2^64. Returns the
	/// region's number.
	u32 Add(const std::string &name, u64 place, u64 size);
	/// A region that overlaps nothing: of its place, only the remainder modulo 16 is kept.
	u32 AddApart(const std::string &name, u64 place, u64 size);
	/// Fills a region from byte offset on with elements, stride bytes apart. The elements stay where they are until the
	/// last Check.
	void Fill(u32 region, u64 offset, const void *elements, u64 count, u64 elementSize, u64 stride);

	/// Gives every region an address. All bytes are 0. Regions that take more than limit bytes are refused, and false
	/// is returned.
	bool LayOut(u64 limit);
	u8 *Data(u32 region) const { return m_Regions[region].m_Data; }
	bool Overlap(u32 region, u32 other) const;

	/// Writes what the regions are filled with.
	void Write() const;
	/// Makes sure that each region has what it is filled with. One that does not, because a region that overlaps it is
	/// filled with something else, is named in a refusal, and false is returned.
	bool Check() const;

private:
	struct SRegion
	{
		std::string m_Name;
		bool m_IsApart;
		u64 m_Begin; // in the order of addresses
		u64 m_Size;
		u8 *m_Data;

		u64 End() const { return m_Begin + m_Size; }
	};
	struct SFill
	{
		u32 m_Region;
		u64 m_Offset;
		const u8 *m_Elements;
		u64 m_Count;
		u64 m_ElementSize;
		u64 m_Stride;
	};
	struct SFree
	{
		void operator()(u8 *block) const { std::free(block); }
	};

	template<typename _Action>
	bool _ForEachElement(const _Action &action) const;
	bool _LayOutBlock(SRegion *const *regions, size_t count, u64 end, u64 &bytesLeft);

	CRefusal &m_Refusal;
	std::vector<SRegion> m_Regions;
	std::vector<SFill> m_Fills;
	std::vector<std::unique_ptr<u8, SFree>> m_Blocks;
};
} // namespace Vexmoor
