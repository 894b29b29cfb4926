#pragma once

// A sort read from a capture, set up again as it was: the same sorter, over memory of its own with the same elements,
// strides, addresses modulo 16 and overlaps. Docs/capture-format.md has every byte.

#include "ge_mesh_sort_capture.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "captured_memory.h"
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

	const CTriangleSorter &Sorter() const { return *m_Sorter; }
	const void *WorkingBuffer() const { return m_HasWorkingBuffer ? m_Memory.Data(m_WorkingBufferRegion) : null; }
	u64 WorkingBufferSize() const { return m_WorkingBufferSize; }

	/// Sorts as the host did. Only of a sort that keeps the rules: whatever else ValidateSort has found, a broken one may
	/// touch what it must not.
	void Sort();

	u8 *Output() const { return m_Memory.Data(m_OutputRegion); }
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
	template<typename _Element>
	using TView = TStridedMemoryView<const _Element, -1>;
	// Elements of the call, and the region that they lie in. Pages without elements have no region.
	struct SElements
	{
		u32 m_Count = 0;
		u32 m_Stride = 0;
		u32 m_Region = 0;
	};
	// A view for each page, the array that has the views, and, once there are addresses, the array's entries.
	template<typename _Element>
	struct TPages
	{
		SElements m_Array;
		std::vector<SElements> m_Pages;
		std::vector<TView<_Element>> m_Views;
	};
	// Ends the life of an object that lies in captured memory.
	struct SDestroy
	{
		template<typename _Object>
		void operator()(_Object *object) const
		{
			object->~_Object();
		}
	};

	void ReadNumbers(CCursor &cursor);
	void ReadPages(CCursor &cursor);
	template<typename _Element>
	void ReadPages(CCursor &cursor, const char *name, const char *viewsName, TPages<_Element> &pages);
	SElements ReadPage(CCursor &cursor, u32 elementSize);
	void ReadGeometry(CCursor &cursor);
	SElements ReadList(CCursor &cursor, u64 place, u32 elementSize, u32 alignment);
	void ReadOutput(CCursor &cursor);
	void AddWorkingBuffer();
	u32 AddRegion(const std::string &name, u64 place, u64 size);
	SElements AddElements(const CCursor &cursor, u64 place, u32 count, u32 stride, u32 size, u32 alignment);
	template<typename _Object>
	SElements AddObjects(CCursor &cursor, const char *name, u64 place, u32 count, u32 stride);

	void FillWithViews();
	template<typename _Element>
	void FillWithViews(TPages<_Element> &pages);
	void MakePatterns();
	void MakeSorter();
	void SetUp();
	template<typename _Element>
	TView<_Element> ViewOf(const SElements &elements) const;
	template<typename _Element>
	TMemoryView<_Element> ArrayOf(const SElements &elements) const;
	bool IsRendered(u64 pageId) const { return pageId < m_RenderedCounts.size() && m_RenderedCounts[pageId] != 0; }

	u32 m_Version = 0;
	CCapturedMemory m_Memory;

	bool m_HasRecordedOutput = false;
	CTriangleSorter::EIndexType m_IndexType = CTriangleSorter::IndexTypeUnknown;
	u32 m_OutputCount = 0;
	u64 m_OutputPlace = 0;
	u32 m_OutputRegion = 0;
	std::vector<u8> m_RecordedOutput;
	u32 m_VertexCount = 0;

	CTriangleSorter::ESortType m_SortType = CTriangleSorter::SortUnknown;
	u32 m_ParticleCount = 0;
	CFloat3 m_Camera;
	std::vector<u32> m_RenderedCounts;
	SElements m_RenderedCountArray;
	TPages<u8> m_Enableds;
	TPages<CFloat3> m_Positions;
	TPages<float> m_Values;

	CTriangleSorter::EGeometryType m_GeometryType = CTriangleSorter::GeometryUnknown;
	u32 m_VerticesPerParticle = 0;
	u32 m_TriangleIndexCount = 0;
	std::vector<u32> m_Pattern;
	SElements m_IndexList;
	SElements m_QuadCenters;
	SElements m_PagePatternArray;
	std::vector<std::vector<u32>> m_PagePatterns;
	SElements m_PageVertexCounts;

	bool m_HasWorkingBuffer = false;
	u64 m_WorkingBufferPlace = 0;
	u64 m_WorkingBufferSize = 0;
	u32 m_WorkingBufferRegion = 0;

	bool m_HasObjectsOfOtherSize = false;
	u32 m_SorterRegion = 0;
	std::vector<std::unique_ptr<CTriangleSorter::CIndexPattern, SDestroy>> m_PatternObjects;
	std::unique_ptr<CTriangleSorter, SDestroy> m_Sorter;
};
} // namespace Viewer
