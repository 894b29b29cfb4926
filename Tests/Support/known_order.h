#pragma once

// Calls of any size whose drawing order is known without sorting: what they have to write is computed an index at a
// time, so the check needs no memory of its own.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "guarded_memory.h"
#include "sort_call.h"
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Support
{
// A permutation of count numbers that jumps about: number i comes at rank (i * step + shift) modulo count, where step
// and count have no common divisor.
class CKnownOrder
{
public:
	explicit CKnownOrder(u32 count);

	u32 RankOf(u32 number) const { return u32((u64(number) * m_Step + m_Shift) % m_Count); }
	u32 NumberAt(u32 rank) const { return u32((u64(rank) + m_Count - m_Shift) % m_Count * m_InverseStep % m_Count); }

private:
	u64 m_Count, m_Step, m_InverseStep, m_Shift;
};

// What sets one call apart from the others.
struct SKnownCall
{
	ECallGeometry m_Geometry = Constant;
	bool m_ByPosition = false;
	bool m_16Bit = false;
	bool m_HasDisabled = false;     // every page has disabled particles between its rendered ones
	u32 m_TrianglesPerParticle = 1; // 1 or 2, of geometry per page
	std::vector<u32> m_PageCounts;  // rendered particles
	u32 m_RoomCount = 0xFFFFFFFFu;  // of particles in the output, where it has less room than there are

	std::string Name() const;
};

// Such a call, set up to take its working buffer from the allocator. With 16-bit indices the vertices end at 65,535:
// particles beyond are drawn first, as vertex 0, where the geometry numbers its vertices by itself. All keys differ.
class CKnownSort
{
public:
	explicit CKnownSort(const SKnownCall &call);
	CKnownSort(const CKnownSort &) = delete;
	CKnownSort &operator=(const CKnownSort &) = delete;

	const Vexmoor::CTriangleSorter &Sorter() const { return m_Sorter; }

	// Bytes that the sort asks the allocator for, computed in 64 bits.
	u64 AskedBytes() const;

	void Sort();

	testing::AssertionResult OutputIsInOrder() const;
	testing::AssertionResult OutputIsUntouched() const;

private:
	void _ChooseGeometry();
	void _FillPages();
	u32 _KeyBits(u32 particle) const;
	u32 _FirstVertex(u32 particle) const;
	template<typename _Index>
	testing::AssertionResult _IsInOrder() const;

	const SKnownCall m_Call;
	u32 m_ParticleCount = 0;
	u32 m_WrittenCount;
	u32 m_DrawnCount; // of particles whose vertices there are
	u32 m_VertexCount;
	u32 m_VerticesPerParticle = 4;
	std::vector<u32> m_Pattern;      // as set up
	std::vector<u32> m_DrawnPattern; // with its quads in order
	CKnownOrder m_Order{1};          // of the drawn particles

	std::vector<float> m_Values;
	std::vector<Vexmoor::CFloat3> m_Points;
	std::vector<u8> m_Bytes;
	std::vector<CPositionView> m_Positions;
	std::vector<CValueView> m_SortValues;
	std::vector<CEnabledView> m_Enableds;
	std::vector<u32> m_IndexList;
	std::vector<Vexmoor::CFloat4> m_QuadCenters;
	std::vector<CPattern> m_PagePatterns;
	std::vector<u32> m_PageVertexCounts;
	CGuardedMemory m_Output{0};
	Vexmoor::CTriangleSorter m_Sorter;
};

// An allocator that hands out one block, behind whose needed bytes the next one faults, or refuses; and keeps count.
class CScratchHost
{
public:
	enum EAnswer
	{
		HandsOut,
		Refuses
	};

	// Only the first of partCount equal parts of a block may be touched.
	CScratchHost(EAnswer answer, u32 partCount);
	~CScratchHost();
	CScratchHost(const CScratchHost &) = delete;
	CScratchHost &operator=(const CScratchHost &) = delete;

	// What was asked for, in order.
	const std::vector<u64> &Sizes() const { return m_Sizes; }
	u32 FreeCount() const { return m_FreeCount; }

private:
	void *_HandOut(u64 size);
	void _TakeBack(void *block);

	const EAnswer m_Answer;
	const u32 m_PartCount;
	std::vector<u64> m_Sizes;
	u32 m_FreeCount = 0;
	void *m_Block = nullptr;
	unsigned char *m_Pages = nullptr;
	u64 m_PagesSize = 0;
};

// Sorts the call with a working buffer from the allocator, and expects what such a sort asks for, says and writes.
void ExpectSortsAsKnown(const SKnownCall &call);
} // namespace Support
