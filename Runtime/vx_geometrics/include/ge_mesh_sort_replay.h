#pragma once

// A capture read back: the sort that it holds is set up again as it was, checked against the rules, sorted, and
// compared with what was recorded. WriteSortCapture (ge_mesh_sort_capture.h) writes captures. Every byte of them is in
// Docs/capture-format.md.

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

	/// Reads a whole capture in place of what was read before. Nothing in the file is believed before it is checked, so
	/// any bytes may be given.
	/// file         sizeInBytes bytes; not looked at again after the call
	/// memoryLimit  bytes that the sort may take in all, its working buffer included; a small file can ask for a lot. A
	///              copy of the output and what the file has come on top.
	/// Returns  false if the file is refused: Refusal() says why. No exception leaves it: if memory runs out, the file
	///          is refused as well, but for an index pattern, which is empty and reported then, as in any sorter. A
	///          standard library without exceptions ends the process instead.
	VX_GEOMETRICS_API bool Read(const void *file, u64 sizeInBytes, u64 memoryLimit);
	/// What is wrong with the file that was read last, and where, in one sentence; "" if nothing is.
	const char *Refusal() const { return m_Refusal; }

	// What follows is there once Read has returned true.

	/// Set up as the host's sorter was.
	VX_GEOMETRICS_API const CTriangleSorter &Sorter() const;
	/// As given at the host, at the same address modulo 16; null where the sort allocates.
	VX_GEOMETRICS_API const void *WorkingBuffer() const;
	/// What the host said of its bytes. Those that the sort does not use have no memory here.
	VX_GEOMETRICS_API u64 WorkingBufferSize() const;

	/// Sorts as the host did. Call it only if the sort keeps the rules, as ValidateSort says: a broken sort may touch
	/// what it must not. ReplaySort looks first.
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
	/// The host's output, as large as this one; where the sort wrote nothing, what lay there before.
	VX_GEOMETRICS_API const u8 *RecordedOutput() const;

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

private:
	class CContents;
	friend SSortReplay ReplaySort(CCapturedSort &capture, CbSortFinding handler, void *userData);

	VX_LOCAL u8 *_SpareOutput(); // as large as the output

	CContents *m_Contents = null;
	char m_Refusal[256] = "";
};

/// What a captured sort comes to on this machine.
struct SSortReplay
{
	u32 m_ViolationCount = 0; ///< Broken rules. With any, the sort is not run, and what follows stays as it is.

	bool m_Sorted = false;  ///< The sort was run.
	u32 m_WrittenCount = 0; ///< Indices that it wrote.
	u64 m_OutputHash = 0;   ///< FNV-1a over four bytes of every index written, the lowest first.

	bool m_Compared = false;   ///< There is a recorded output.
	u32 m_DifferenceCount = 0; ///< Written indices that are not as recorded.
	u32 m_FirstDifference = 0; ///< The place of the first one in the output,
	u32 m_ReplayedIndex = 0;   ///< what it is here,
	u32 m_RecordedIndex = 0;   ///< and what it is in the capture.

	/// Whether nothing wrong has come up.
	bool Good() const { return m_Sorted && m_DifferenceCount == 0; }
};

/// Checks a captured sort with ValidateSort, sorts it twice if it keeps the rules, and compares the output with the
/// recorded one. Two sorts over unlike bytes tell the indices that a sort writes from those that it leaves.
/// handler  receives what ValidateSort finds, on the calling thread; may be null
/// Reports  whatever the sort reports.
VX_GEOMETRICS_API SSortReplay ReplaySort(CCapturedSort &capture, CbSortFinding handler, void *userData);
} // namespace Vexmoor
