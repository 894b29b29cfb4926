#pragma once

// Whether a sorter as it is set up, its working buffer and its output keep every rule of a sort, before the sort runs.
// What is wrong comes as sentences for whoever wrote the call. ValidateSort only looks, for debug builds of a host; the
// checked sorts look and then sort, for content that nobody has looked at before: editors, tools, user-made effects.
//
// What no check can see: memory that is not there (a pointer that dangles, a view that counts more elements than lie
// behind it, a working buffer smaller than the size given), and memory that another thread changes meanwhile.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

namespace Vexmoor
{
/// How grave a finding is.
enum ESortFinding : u32
{
	SortFinding_Violation = 0, ///< A rule is broken: the sort may report, draw nonsense, or touch what it must not.
	SortFinding_Advice = 1     ///< Legal, but slow or seldom meant, or reported though it comes out right.
};

/// One thing found. It and its sentence live as long as the call that hands them over.
struct SSortFinding
{
	ESortFinding m_Kind;    ///< Whether a rule is broken.
	const char *m_Sentence; ///< Names the page, the rendered particle and the two numbers that disagree, as they apply.
};

/// Receives a finding.
typedef void (*CbSortFinding)(const SSortFinding &finding, void *userData);

/// Which sort follows.
enum ESortEntry : u32
{
	SortEntry_Points = 0,   ///< SortPoints_AutogenIndices: geometry that all particles share.
	SortEntry_Triangles = 1 ///< SortTriangles_AutogenIndices: geometry per page.
};

/// Checks the sort that entry names and returns the number of violations. Geometry that belongs to the other entry is a
/// violation. Every rule speaks once, or once per page. If several particles of a page break a rule, the first one is
/// named, by its number among the rendered particles of all pages.
/// Only what the sort touches is checked. Of a page that renders nothing, that is its vertex count. Of the output, it
/// is the part that is written; of positions and values without enabled bytes, the elements that are read. The rest of
/// these views may be anything.
/// workingBuffer      what the sort will get; null where it shall allocate
/// workingBufferSize  its bytes; 0 with null
/// jobs               null for the sort without jobs; otherwise the sort with these jobs follows, and its buffer is
///                    what GetJobsWorkingBufferSize or GetJobsWorkingBufferSize_tri says
/// handler            receives each finding in turn, on the calling thread; null: the violations are counted all the
///                    same
/// Reads    what the sort would read, but for positions, values and quad centres: views first, and their elements only
///          where the view is sound. Neither the output nor the working buffer is touched.
/// Cost     linear in the particles: one pass over the enabled bytes and one over the index list. A list with entries
///          to be spoken of is passed over up to four times more. Nothing is allocated.
/// Threads  as for a sort: one thread per sorter, different sorters side by side.
/// Reports  nothing but findings.
VX_GEOMETRICS_API u32 ValidateSort(const CTriangleSorter &sorter,
	ESortEntry entry,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs = null);
/// Checks the sort without jobs that the geometry calls for: of triangles if the geometry is set up per page, otherwise
/// of points.
VX_GEOMETRICS_API u32 ValidateSort(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData);

///@{
/// Checks a sort of points, or of triangles, as ValidateSort does, sorts if no rule is broken, and returns the number
/// of violations. A call with violations is refused: nothing is written or allocated, no job is run, and nothing
/// asserts or warns. A call without is handed to SortPoints_AutogenIndices or SortTriangles_AutogenIndices, with the
/// jobs if there are any, whose contract holds from there on.
/// workingBuffer  as the sort wants it; or null, with a size of 0: the sort takes a block from Mem::_RawAlloc and gives
///                it back. If there is no memory for the block, nothing is written, and 0 is returned.
/// The other arguments are those of ValidateSort.
VX_GEOMETRICS_API u32 SortPointsChecked(CTriangleSorter &sorter,
	void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs = null);
VX_GEOMETRICS_API u32 SortTrianglesChecked(CTriangleSorter &sorter,
	void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData,
	const SSortJobs *jobs = null);
///@}
} // namespace Vexmoor
