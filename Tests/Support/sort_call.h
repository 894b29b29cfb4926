#pragma once

// A call of the sorter in all its parts, each of which a test may break. All that the call points to lies in guarded
// memory.

#include "ge_mesh_sort_validation.h"

#include "guarded_memory.h"
#include <deque>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace Support
{
using Vexmoor::u16;
using Vexmoor::u32;
using Vexmoor::u64;
using Vexmoor::u8;
using Vexmoor::ureg;

typedef Vexmoor::TStridedMemoryView<const Vexmoor::CFloat3, -1> CPositionView;
typedef Vexmoor::TStridedMemoryView<const float, -1> CValueView;
typedef Vexmoor::TStridedMemoryView<const u8, -1> CEnabledView;
typedef Vexmoor::CTriangleSorter::CIndexPattern CPattern;

enum ECallGeometry
{
	Constant,
	List,
	Quads,
	Triangles
};

constexpr ECallGeometry kCallGeometries[] = {Constant, List, Quads, Triangles};

// What a host hands over for one sort that keeps every rule and gives no cause for advice. Four pages: 4 particles,
// none disabled; one that renders nothing and has no memory; 3 enabled ones of 5; 2 particles, none disabled.
class CCall
{
public:
	explicit CCall(ECallGeometry geometry);
	~CCall();
	CCall(const CCall &) = delete;
	CCall &operator=(const CCall &) = delete;

	void SetUp();
	u32 Validate(Vexmoor::CbSortFinding handler, void *userData) const;
	u32 SortChecked(Vexmoor::CbSortFinding handler, void *userData);
	// Every finding, in order, advice marked as such.
	std::vector<std::string> Findings();
	void Sort();
	bool SurroundingsIntact() const;
	// Every byte of the memory that the call points to.
	std::vector<unsigned char> Contents() const;

	// Sorted by distance, with the same pages.
	void SortByPosition() { m_ByPosition = true; }
	void Output16();

	static constexpr u32 kPageCount = 4;
	static constexpr u32 kParticleCount = 9;

	const ECallGeometry m_Geometry;
	Vexmoor::ESortEntry m_Entry; // the one that sorts this geometry
	bool m_HasOutput = true, m_HasInput = true, m_HasGeometry = true;

	bool m_16Bit = false;
	void *m_Output;
	u32 m_OutputCount;
	u32 m_VertexCount;

	bool m_ByPosition = false;
	CPositionView *m_Positions;
	CValueView *m_Values;
	CEnabledView *m_Enableds;
	u8 *m_EnabledBytes; // of page 2
	u32 *m_Counts;
	Vexmoor::CTriangleSorter::CPositionPages m_PositionPages;
	Vexmoor::CTriangleSorter::CSortKeyPages m_ValuePages;
	Vexmoor::CTriangleSorter::CEnabledPages m_EnabledPages;
	Vexmoor::CTriangleSorter::CRenderedCounts m_RenderedCounts;
	u32 m_ParticleCount = kParticleCount;
	Vexmoor::CFloat3 m_Camera;

	std::vector<u32> m_Pattern;
	u32 m_VerticesPerParticle = 4;
	u32 *m_Entries;
	Vexmoor::TMemoryView<const u32> m_IndexList;
	Vexmoor::TMemoryView<const Vexmoor::CFloat4> m_QuadCenters;
	CPattern *m_Patterns;
	u32 *m_VertexCounts;
	Vexmoor::TMemoryView<const CPattern> m_PatternPages;
	Vexmoor::TMemoryView<const u32> m_VertexCountPages;
	u32 m_IndexCount = 36;

	void *m_WorkingBuffer;
	u64 m_WorkingBufferSize;
	Vexmoor::CTriangleSorter m_Sorter;

private:
	unsigned char *_Add(std::size_t size);
	template<typename _Type>
	_Type *_Add(const std::vector<_Type> &elements);

	std::deque<CGuardedMemory> m_Memory;
};

// What a validation has said, in order, advice marked as such: hand Collect and one of these over.
struct SFindings
{
	std::vector<std::string> m_Sentences;
	u32 m_ViolationCount = 0;
};
void Collect(const Vexmoor::SSortFinding &finding, void *findings);

// That the checked sort refuses a call as it is set up: with the findings of ValidateSort, with and without a handler,
// and with nothing written, reported, warned of or allocated.
testing::AssertionResult IsRefused(CCall &call);

// That the checked sort refuses a call as it is set up, as above, or sorts it within its memory and to the same bytes
// as the bare sort, which reports what advice has foretold and nothing else. Only for calls whose memory is there.
testing::AssertionResult IsRefusedOrSorts(CCall &call);

// A row of a table of broken calls: how a good call is changed, and the sentences that follow from it.
struct SBrokenCall
{
	const char *m_Name;
	ECallGeometry m_Geometry;
	std::vector<std::string> m_Findings;
	void (*m_Break)(CCall &call);

	SBrokenCall(
		const char *name, ECallGeometry geometry, std::vector<std::string> findings, void (*breakCall)(CCall &call))
		: m_Name(name)
		, m_Geometry(geometry)
		, m_Findings(std::move(findings))
		, m_Break(breakCall)
	{
	}
};
void PrintTo(const SBrokenCall &broken, std::ostream *stream);
std::string NameOf(const testing::TestParamInfo<SBrokenCall> &broken);
void ExpectFindings(const SBrokenCall &broken);

void SetPattern(CPattern &pattern, std::vector<u32> entries);

// The last bytes of the address space, where nothing is mapped.
template<typename _Type>
_Type *BytesBeforeTheEnd(ureg byteCount)
{
	return reinterpret_cast<_Type *>(~ureg(0) - byteCount + 1);
}

template<typename _Type>
_Type *BytesPast(void *address, ureg byteCount)
{
	return reinterpret_cast<_Type *>(reinterpret_cast<ureg>(address) + byteCount);
}
} // namespace Support
