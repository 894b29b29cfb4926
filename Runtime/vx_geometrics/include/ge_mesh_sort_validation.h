#pragma once

// Checks of every rule of a sort, before the sort runs: of a sorter as it is set up, its working buffer and its output.
// Each broken rule is told in a sentence that the author of the call understands. ValidateSort only checks, for debug
// builds of a host. The checked sorts check and then sort, for content that may break rules: of editors, tools and
// users.
//
// No check can see memory that is not there (a dangling pointer, a view that counts more elements than lie behind it, a
// working buffer smaller than the size given with it), nor memory that another thread changes meanwhile.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

namespace Vexmoor
{
/// Whether a finding is an error.
enum ESortFinding : u32
{
	SortFinding_Violation = 0, ///< A rule is broken: the sort may report, draw nonsense, or touch what it must not.
	SortFinding_Advice = 1     ///< Legal, but slow or seldom meant, or reported although the result is right.
};

/// One finding. It and its sentence are valid until the handler returns.
struct SSortFinding
{
	ESortFinding m_Kind;    ///< Whether a rule is broken.
	const char *m_Sentence; ///< Names the page, the rendered particle and the two numbers that disagree, if they apply.
};

/// Receives a finding.
typedef void (*CbSortFinding)(const SSortFinding &finding, void *userData);

/// Which sort follows.
enum ESortEntry : u32
{
	SortEntry_Points = 0,   ///< SortPoints_AutogenIndices: geometry that all particles share.
	SortEntry_Triangles = 1 ///< SortTriangles_AutogenIndices: geometry per page.
};

/// Checks the sort that entry names and returns the number of violations. Geometry of the other sort is a violation.
/// Each rule gives one finding, or one per page. If several particles of a page break a rule, the finding names the
/// first one, by its number among the rendered particles of all pages.
/// Only what the sort touches is checked: of a page that renders nothing, its vertex count; of the output, the part
/// that is written; of positions and values without enabled bytes, the elements that are read. The rest of these views
/// may be anything.
/// workingBuffer      what the sort will get; null if the sort is to allocate
/// workingBufferSize  its bytes; 0 with null
/// jobs               null for the sort without jobs; otherwise the sort with these jobs follows, and its buffer is
///                    what GetJobsWorkingBufferSize or GetJobsWorkingBufferSize_tri says
/// handler            receives each finding in turn, on the calling thread. Null: violations are still counted
/// Reads    what the sort would read, except positions, values and quad centres. The elements of a view are read only
///          if the view breaks no rule. Neither the output nor the working buffer is touched.
/// Cost     linear in the particles: one pass over the enabled bytes and one over the index list. If there are findings
///          about entries of the list, up to four more passes over it. Nothing is allocated.
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
/// of violations. A call with violations is refused: nothing is written or allocated, no job is run, and no assertion
/// or warning is given. Any other call is handed to SortPoints_AutogenIndices or SortTriangles_AutogenIndices, with the
/// jobs if there are any, and the contract of that function holds.
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
