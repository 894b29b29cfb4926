#pragma once

// A sort read from a capture, set up again as it was: the same sorter, over memory of its own with the same elements,
// strides and addresses modulo 16. Docs/capture-format.md has every byte.

#include "ge_mesh_sort_capture.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

class CCapturedSort
{
public:
	/// Reads a whole capture. What is wrong with it is a CFailure: a sentence that says what and where.
	/// memoryLimit  bytes that the sort may take in all, its working buffer included; a small file can ask for a lot
	CCapturedSort(const std::vector<u8> &file, u64 memoryLimit);

	const CTriangleSorter &Sorter() const { return m_Sorter; }
	const void *WorkingBuffer() const { return m_WorkingBuffer; }
	u64 WorkingBufferSize() const { return m_WorkingBufferSize; }

	/// Sorts as the host did. Only of a sort that keeps the rules: whatever else ValidateSort has found, a broken one may
	/// touch what it must not.
	void Sort();

	u8 *Output() const { return m_Output; }
	u64 OutputSize() const { return u64(m_OutputCount) * IndexSize(); }
	u32 OutputCount() const { return m_OutputCount; }
	u32 IndexSize() const { return m_IndexType == CTriangleSorter::IndexTypeUint16 ? sizeof(u16) : sizeof(u32); }
	bool HasRecordedOutput() const { return m_HasRecordedOutput; }
	/// As large as the output; where the sort wrote nothing, what lay there before.
	const std::vector<u8> &RecordedOutput() const { return m_RecordedOutput; }

	CTriangleSorter::EIndexType IndexType() const { return m_IndexType; }
	CTriangleSorter::ESortType SortType() const { return m_SortType; }
	CTriangleSorter::EGeometryType GeometryType() const { return m_GeometryType; }
	u32 ParticleCount() const { return m_ParticleCount; }
	u32 VertexCount() const { return m_VertexCount; }
	u32 PageCount() const { return u32(m_RenderedCounts.size()); }
	u32 EmptyPageCount() const;
	u32 PageCountWithEnableds() const;

private:
	class CCursor;
	struct SFree
	{
		void operator()(u8 *block) const { std::free(block); }
	};
	template<typename _Element>
	using TView = TStridedMemoryView<const _Element, -1>;
	template<typename _Element>
	using TPages = std::vector<TView<_Element>>;

	void ReadNumbers(CCursor &cursor);
	void ReadPages(CCursor &cursor);
	template<typename _Element>
	void ReadPages(CCursor &cursor, const char *name, TPages<_Element> &pages);
	template<typename _Element>
	TView<_Element> ReadPage(CCursor &cursor, const char *name, u32 pageId);
	void ReadGeometry(CCursor &cursor);
	void ReadOutput(CCursor &cursor);
	void MakeWorkingBuffer(CCursor &cursor);
	void SetUp();

	u8 *Allocate(CCursor &cursor, u64 size, u32 addressMod16);

	u64 m_MemoryLeft;
	std::vector<std::unique_ptr<u8, SFree>> m_Memory;

	bool m_HasRecordedOutput = false;
	CTriangleSorter::EIndexType m_IndexType = CTriangleSorter::IndexTypeUnknown;
	u32 m_OutputCount = 0;
	u32 m_OutputAddressMod16 = 0;
	u8 *m_Output = null;
	std::vector<u8> m_RecordedOutput;
	u32 m_VertexCount = 0;

	CTriangleSorter::ESortType m_SortType = CTriangleSorter::SortUnknown;
	u32 m_ParticleCount = 0;
	CFloat3 m_Camera;
	std::vector<u32> m_RenderedCounts;
	TPages<u8> m_Enableds;
	TPages<CFloat3> m_Positions;
	TPages<float> m_Values;

	CTriangleSorter::EGeometryType m_GeometryType = CTriangleSorter::GeometryUnknown;
	u32 m_VerticesPerParticle = 0;
	u32 m_TriangleIndexCount = 0;
	std::vector<u32> m_Pattern;
	TMemoryView<const u32> m_IndexList;
	TMemoryView<const CFloat4> m_QuadCenters;
	std::vector<CTriangleSorter::CIndexPattern> m_PagePatterns;
	std::vector<u32> m_PageVertexCounts;

	bool m_HasWorkingBuffer = false;
	u32 m_WorkingBufferAddressMod16 = 0;
	u64 m_WorkingBufferSize = 0;
	u8 *m_WorkingBuffer = null;
	CTriangleSorter m_Sorter;
};
} // namespace Viewer
