#pragma once

// Reads a capture back: sets up the sort that it holds as it was, checks it against the rules, sorts it, and compares
// the output with the recorded one. WriteSortCapture (ge_mesh_sort_capture.h) writes captures. Docs/capture-format.md
// describes every byte of them.

#include "ge_mesh_sort_validation.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

namespace Vexmoor
{
struct SSortReplay;

/// A sort that was read from a capture: the same sorter, over memory of its own with the same elements, strides,
/// addresses modulo 16 and overlaps.
/// Memory   comes from the standard library's heap, not from Mem::SetAllocator.
/// Threads  one thread per object; different ones side by side.
class CCapturedSort
{
public:
	VX_GEOMETRICS_API CCapturedSort();
	VX_GEOMETRICS_API ~CCapturedSort();
	CCapturedSort(const CCapturedSort &) = delete;
	CCapturedSort &operator=(const CCapturedSort &) = delete;

	/// Reads a whole capture in place of what was read before. Everything in the file is checked before it is used, so
	/// the file may have any bytes.
	/// file         sizeInBytes bytes, which are not needed after the call
	/// memoryLimit  the most bytes that the sort may take, its working buffer included, since a small file can ask for
	///              a lot. A copy of the output, and as much memory as the file has, are not counted
	/// Returns  false if the file is refused: Refusal() says why. A file is also refused if memory runs out, and no
	///          exception leaves the call. If there is no memory for an index pattern, that is reported, and the
	///          pattern is empty, as in any sorter. A standard library without exceptions ends the process instead
	VX_GEOMETRICS_API bool Read(const void *file, u64 sizeInBytes, u64 memoryLimit);
	/// What is wrong with the file that was read last, and where, in one sentence; "" if nothing is.
	const char *Refusal() const { return m_Refusal; }

	// The following functions may be called after Read has returned true.

	/// A sorter, set up as the host's was.
	VX_GEOMETRICS_API const CTriangleSorter &Sorter() const;
	/// A working buffer at the same address modulo 16 as the host's; null if the sort allocates.
	VX_GEOMETRICS_API const void *WorkingBuffer() const;
	/// The size that the host gave for it. Bytes that the sort does not use have no memory here.
	VX_GEOMETRICS_API u64 WorkingBufferSize() const;

	/// Sorts as the host did. Call it only if ValidateSort finds no violation, since a sort that breaks a rule may
	/// access memory outside its buffers. ReplaySort checks first.
	VX_GEOMETRICS_API void Sort();

	/// Where the sort writes.
	VX_GEOMETRICS_API u8 *Output() const;
	/// Indices that the output has room for.
	VX_GEOMETRICS_API u32 OutputCount() const;
	/// Bytes of an index.
	u32 IndexSize() const { return IndexType() == CTriangleSorter::IndexTypeUint16 ? sizeof(u16) : sizeof(u32); }
	/// Bytes of the output.
	u64 OutputSize() const { return u64(OutputCount()) * IndexSize(); }
	/// Whether the capture has the host's output.
	VX_GEOMETRICS_API bool HasRecordedOutput() const;
	/// The host's output, as large as this one, with what lay there before where the sort wrote nothing.
	VX_GEOMETRICS_API const u8 *RecordedOutput() const;
	/// The index at a place of the host's output, which is below OutputCount(). There has to be a recorded output.
	VX_GEOMETRICS_API u32 RecordedIndex(u32 place) const;
	/// The index that the sort wrote at a place of the output. Call it after ReplaySort has sorted.
	/// Returns  false if the sort writes nothing there, or has not been replayed
	VX_GEOMETRICS_API bool ReplayedIndex(u32 place, u32 &index) const;

	/// The numbers of the call.
	///@{
	VX_GEOMETRICS_API CTriangleSorter::EIndexType IndexType() const;
	VX_GEOMETRICS_API CTriangleSorter::ESortType SortType() const;
	VX_GEOMETRICS_API CTriangleSorter::EGeometryType GeometryType() const;
	VX_GEOMETRICS_API u32 ParticleCount() const;
	VX_GEOMETRICS_API u32 VertexCount() const;
	VX_GEOMETRICS_API u32 PageCount() const;
	VX_GEOMETRICS_API u32 EmptyPageCount() const;
	VX_GEOMETRICS_API u32 PageCountWithEnableds() const;
	///@}

	/// What the call reads. Of every view all elements can be read, also if the call breaks rules: they lie in memory
	/// of this object. Elements lie at the host's addresses modulo 16, so copy one before it is used as its type. A
	/// view that the call does not have is empty, and a number that it does not have is 0.
	///@{
	VX_GEOMETRICS_API CFloat3 CameraPosition() const;
	VX_GEOMETRICS_API u32 RenderedCount(u32 pageId) const;
	VX_GEOMETRICS_API TStridedMemoryView<const CFloat3, -1> Positions(u32 pageId) const;
	VX_GEOMETRICS_API TStridedMemoryView<const float, -1> SortValues(u32 pageId) const;
	VX_GEOMETRICS_API TStridedMemoryView<const u8, -1> Enableds(u32 pageId) const;
	/// The page's own pattern, or the one that all pages share.
	VX_GEOMETRICS_API TMemoryView<const u32> IndexPattern(u32 pageId) const;
	/// The number of vertices per particle: the page's own, or that of all pages. With an index list and without quad
	/// centres, the call has no such number.
	VX_GEOMETRICS_API u32 VerticesPerParticle(u32 pageId) const;
	VX_GEOMETRICS_API TMemoryView<const u32> IndexList() const;
	VX_GEOMETRICS_API TMemoryView<const CFloat4> QuadCenters() const;
	///@}

private:
	class CContents;
	friend VX_GEOMETRICS_API SSortReplay ReplaySort(CCapturedSort &capture, CbSortFinding handler, void *userData);

	VX_LOCAL u8 *_SpareOutput() const; // as large as the output

	CContents *m_Contents = null;
	u32 m_WrittenEnd = 0; // of the last replay: behind it, the sort writes nothing
	char m_Refusal[256] = "";
};

/// The result of a captured sort on this machine.
struct SSortReplay
{
	u32 m_ViolationCount = 0; ///< Broken rules. If there are any, the sort is not run.

	bool m_Sorted = false;  ///< The sort was run.
	u32 m_WrittenCount = 0; ///< Indices that it wrote.
	u64 m_OutputHash = 0;   ///< FNV-1a over four bytes of every index written, the lowest first.

	bool m_Compared = false;   ///< There is a recorded output.
	u32 m_DifferenceCount = 0; ///< Written indices that are not as recorded.
	u32 m_FirstDifference = 0; ///< The position in the output of the first such index.
	u32 m_ReplayedIndex = 0;   ///< That index as written here.
	u32 m_RecordedIndex = 0;   ///< That index as recorded.

	/// True if the sort was run, and no index differs.
	bool Good() const { return m_Sorted && m_DifferenceCount == 0; }
};

/// Checks a captured sort with ValidateSort, sorts it if it breaks no rule, and compares the output with the recorded
/// one. It sorts twice, over different bytes, which shows the indices that the sort writes.
/// handler  receives what ValidateSort finds, on the calling thread; may be null
/// Reports  what the sort reports
VX_GEOMETRICS_API SSortReplay ReplaySort(CCapturedSort &capture, CbSortFinding handler, void *userData);
} // namespace Vexmoor
