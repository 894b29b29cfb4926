#pragma once

// The sorter in a renderer: sorts a frame's particles straight into mapped index memory, as an engine would.

#include "ge_mesh_sort_validation.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "scene.h"
#include "thread_pool.h"
#include <memory>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What a draw call reads of the index memory.
struct SDrawCall
{
	CTriangleSorter::EIndexType m_IndexType = CTriangleSorter::IndexTypeUint32;
	u64 m_OffsetInBytes = 0; ///< From the start of the mapped memory.
	u32 m_IndexCount = 0;
	u32 m_BaseVertex = 0; ///< Added to every index.

	// The part of the frame that it draws.
	u32 m_FirstPage = 0;
	u32 m_PageCount = 0;
	u32 m_ParticleCount = 0;
	u32 m_VertexCount = 0;
	u32 m_IndicesPerPrimitive = 0;
	u32 m_GeometryIndexCount = 0; ///< Less fit into the output where that is too small.
};

u32 BytesPerIndex(CTriangleSorter::EIndexType indexType);

/// The draw calls of a frame: one, or as many as it takes for 16-bit indices to reach every vertex. A draw call has
/// whole pages; one page that is too large by itself is a CFailure. So is an index list that needs more than one.
std::vector<SDrawCall> PlanDrawCalls(const SFrame &frame, CTriangleSorter::EIndexType indexType);
/// The same for a frame drawn by its triangles: one draw call.
std::vector<SDrawCall> PlanTriangleDrawCalls(const SFrame &frame, CTriangleSorter::EIndexType indexType);
/// One draw call with indices that are ready, all of a frame's or some.
SDrawCall PlanReadyDrawCall(const SFrame &frame, u32 indexCount);
/// The index memory that planned draw calls need.
u64 IndexMemorySize(const std::vector<SDrawCall> &drawCalls);

/// Primitives of a frame, and those that the outputs have room for.
struct SPrimitiveCounts
{
	u32 m_All = 0;
	u32 m_Drawn = 0;
};
SPrimitiveCounts CountPrimitives(const std::vector<SDrawCall> &drawCalls);

/// 0 - squared distance of each position, in the order of operations that the sorter's own distance keys have.
void ComputeSortValues(
	TMemoryView<float> values, const TStridedMemoryView<const CFloat3> &positions, const CFloat3 &eye);

/// Keeps what a sort needs from frame to frame: once it has grown, a sort allocates nothing.
class CFrameSorter
{
public:
	/// Every call is checked before it sorts, and the handler hears what is wrong with it; null: no call is checked,
	/// which is linear in the particles. By default builds with assertions tell of violations on standard error.
	void SetFindingHandler(CbSortFinding handler, void *userData);

	/// The threads that share a large draw call, the calling one among them: 1 unless set. The indices are the same.
	void SetThreadCount(u32 threadCount);

	/// How many bits a key has. With 32, distances are sorted by all bits of their floats. With fewer, they are sorted
	/// by the numbers of equal steps between the nearest and the farthest particle of the frame.
	void SetKeyBits(u32 keyBits) { m_KeyBits = keyBits; }

	/// The next call to be sorted is appended as a capture, output and all.
	void CaptureNext(std::vector<u8> *capture) { m_Capture = capture; }

	/// Writes the indices of the draw calls into the mapped memory, each draw call's particles in the order asked for:
	/// any but Storage.
	void Sort(const SFrame &frame, EOrder order, const std::vector<SDrawCall> &drawCalls, u8 *mappedIndices);

private:
	void SortPages(const SFrame &frame, EOrder order, const SDrawCall &drawCall, u8 *mappedIndices);
	void SortTriangleCentres(const SFrame &frame, const SDrawCall &drawCall, u8 *mappedIndices);

	void Run(ESortEntry entry, const SDrawCall &drawCall, u8 *mappedIndices);
	void RunSort(ESortEntry entry, u8 *scratch);
	void RunSortInJobs(ESortEntry entry, u8 *scratch, u64 scratchSize, const SSortJobs &jobs);
	void Capture(ESortEntry entry, const SDrawCall &drawCall, u8 *mappedIndices);

	void SetGeometry(const SFrame &frame, EOrder order);
	void SetOutput(const SDrawCall &drawCall, u8 *start);
	void SetPages(const SFrame &frame, EOrder order, const SDrawCall &drawCall);
	void UpdateSortValues(const SFrame &frame);
	void ShortenSortValues(const SFrame &frame);
	u8 *Scratch(u64 sizeInBytes);

	static CbSortFinding DefaultFindingHandler();

	CTriangleSorter m_Sorter;
	CbSortFinding m_OnFinding = DefaultFindingHandler();
	void *m_FindingUserData = null;
	std::vector<u8> *m_Capture = null;
	u32 m_KeyBits = 32;
	u32 m_ThreadCount = 1;
	std::unique_ptr<CThreadPool> m_Threads; // kept while sorts go without: threads take long to start
	std::vector<u8> m_Scratch;
	std::vector<float> m_Values;
	std::vector<TStridedMemoryView<const float>> m_ValuePages;
};
} // namespace Viewer
