#pragma once

// A sort as a file: everything that decides its result, so that a draw call that comes out wrong in one engine can be
// replayed, bit for bit, by somebody who has neither the engine nor the scene. Docs/capture-format.md has every byte.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "kr_write.h"

namespace Vexmoor
{
/// What a capture holds.
enum ESortCapture : u32
{
	SortCapture_Input = 0,         ///< What is sorted. May be written at any time after the set-up.
	SortCapture_InputAndOutput = 1 ///< The output as well, as it is now: after the sort, while its views are valid.
};

/// Writes the sort that the sorter is set up for. Only what a sort reads is written: no byte between the elements of a
/// strided view, and none of a page that renders nothing. Distances between the call's arrays are written too, so
/// arrays that overlap by mistake also overlap in the replay. Capture such a call before it sorts, because its sort
/// overwrites what it reads. The kind of output memory is not written, since the indices do not depend on it.
/// workingBuffer      what the sort gets, or has got; null if it allocates
/// workingBufferSize  its bytes; 0 with null
/// content            with the output, the output is read, which is slow in write-combined memory: sort once more into
///                    ordinary memory at the same address modulo 16
/// write              receives the file in pieces, front to back; WriteToFile takes a FILE *
/// Returns  true if all is written. False if write returned false, and, before anything is written, if a view cannot be
///          read: ValidateSort says which.
/// Cost     linear in what is written. Nothing is allocated.
/// Threads  as for a sort: one thread per sorter, different sorters side by side.
VX_GEOMETRICS_API bool WriteSortCapture(const CTriangleSorter &sorter,
	const void *workingBuffer,
	u64 workingBufferSize,
	ESortCapture content,
	CbWrite write,
	void *userData);

// For programs that read captures.

constexpr char kSortCaptureMagic[] = "VXSORT\r\n";             ///< The first 8 bytes; a transfer as text breaks them.
constexpr u32 kSortCaptureVersion = 2;                         ///< The second word.
constexpr u64 kSortCaptureChecksumStart = 0xCBF29CE484222325u; ///< The checksum of no words.

/// Carries a capture's checksum on over more of its 32-bit words: FNV-1a, a word at a time.
VX_GEOMETRICS_API u64 SortCaptureChecksum(u64 checksum, const void *words, u64 sizeInBytes);
} // namespace Vexmoor
