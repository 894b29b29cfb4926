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

/// Checks the sort that entry names and returns the number of violations. Geometry of the other entry is one.
/// Every rule speaks once, or once per page; of several particles of a page the first is named, counted as rendered
/// particles are, through all pages. Of a page that renders nothing only the vertex count matters, as in a sort, and of
/// a page that the vertex count leaves no room for nothing more than a sort looks at. Of the output counts what is
/// written, and of positions or values without enabled bytes what is read: the rest of their views may be anything.
/// workingBuffer      what the sort will get; null where it shall allocate
/// workingBufferSize  its bytes; 0 with null
/// handler            receives each finding in turn, on the calling thread; null: violations are only counted, and the
///                    number is the same
/// Reads    what the sort would read, but for positions, values and quad centres: views first, and their elements only
///          where the view is sound. Neither the output nor the working buffer is touched.
/// Cost     linear in the particles: one pass over enabled bytes, and one over the index list, or up to five where
///          entries of it are spoken of. Nothing is allocated.
/// Threads  as for a sort: one thread per sorter, different sorters side by side.
/// Reports  nothing but findings.
VX_API u32 ValidateSort(const CTriangleSorter &sorter,
	ESortEntry entry,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData);
/// The same for the sort that the sorter's geometry calls for: of triangles where it is set up per page, else of
/// points.
VX_API u32 ValidateSort(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData);

///@{
/// Sorts points, or triangles, unless a rule is broken: what ValidateSort says of the entry goes to the handler, and
/// the number of violations is returned. With any, the call is refused: nothing is written or allocated, and nothing
/// asserts or warns. With none, SortPoints_AutogenIndices or SortTriangles_AutogenIndices does the rest, with all that
/// its own contract says, and 0 is returned.
/// workingBuffer  as the sort wants it; null with a size of 0: a block is taken from Mem::_RawAlloc for the length of
///                the call. If there is none to be had, 0 is returned and nothing is written.
/// The rest as for ValidateSort.
VX_API u32 SortPointsChecked(
	CTriangleSorter &sorter, void *workingBuffer, u64 workingBufferSize, CbSortFinding handler, void *userData);
VX_API u32 SortTrianglesChecked(
	CTriangleSorter &sorter, void *workingBuffer, u64 workingBufferSize, CbSortFinding handler, void *userData);
///@}
} // namespace Vexmoor
