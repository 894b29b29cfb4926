#pragma once

// A check for debug builds of a host: whether a sorter as it is set up, its working buffer and its output keep every
// rule of a sort, before the sort runs. What is wrong comes as sentences for whoever wrote the call.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

namespace Vexmoor
{
/// How grave a finding is.
enum ESortFinding : u32
{
	SortFinding_Violation = 0, ///< A rule is broken: the sort may report, draw nonsense, or touch what it must not.
	SortFinding_Advice = 1     ///< Legal, but slow or seldom meant.
};

/// One thing found. It and its sentence live as long as the call that hands them over.
struct SSortFinding
{
	ESortFinding m_Kind;    ///< Whether a rule is broken.
	const char *m_Sentence; ///< Names the page, the rendered particle and the two numbers that disagree, as they apply.
};

/// Receives a finding.
typedef void (*CbSortFinding)(const SSortFinding &finding, void *userData);

/// Checks the sort that the sorter's geometry calls for, of points or of triangles, and returns the number of violations.
/// Every rule speaks once, or once per page; of several particles of a page the first is named, counted as rendered
/// particles are, through all pages. Of a page that renders nothing only the vertex count matters, as in a sort.
/// workingBuffer      what the sort will get; null where it shall allocate
/// workingBufferSize  its bytes; 0 with null
/// handler            receives each finding in turn, on the calling thread; null: violations are only counted
/// Reads    what the sort would read, but for positions, values and quad centres: views first, and their elements only
///          where the view is sound. Neither the output nor the working buffer is touched.
/// Cost     linear in the particles: one pass over enabled bytes, up to four over the index list. Nothing is allocated.
/// Threads  as for a sort: one thread per sorter, different sorters side by side.
/// Reports  nothing but findings.
VX_API u32 ValidateSort(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	CbSortFinding handler,
	void *userData);
} // namespace Vexmoor
