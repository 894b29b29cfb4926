#pragma once

// The render-time particle sorter. Once per frame and draw call, a CTriangleSorter puts the particles of a page cache
// into drawing order and writes the index buffer that the GPU draws, in memory that the caller owns.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_containers_array.h"
#include "kr_memoryviews.h"

namespace Vexmoor
{
class CSortCapture;
class CSortFromC;
class CSortJobs;
class CSortValidation;

/// What is sorted: a key, ascending as an unsigned integer, the smallest drawn first, and what it stands for. Record
/// arrays start at multiples of 16 bytes and have room for an even number of records.
struct VX_API_INLINE SIndexAndDepth
{
	u32 m_Depth; ///< The key.
	u32 m_Index; ///< In a point sort a particle's first vertex, in a triangle sort a triangle's number.

	///@{
	/// By key alone.
	bool operator<(const SIndexAndDepth &other) const { return m_Depth < other.m_Depth; }
	bool operator==(const SIndexAndDepth &other) const { return m_Depth == other.m_Depth; }
	///@}
};
static_assert(sizeof(SIndexAndDepth) == 8, "two records fill a 16-byte access");

/// The radix sort's key of a record: its depth as it stands.
struct SSortKeyExtractor_TriangleIndexAndDepth
{
	typedef u32 SortKeyType;                            ///< Compared as unsigned.
	static constexpr bool kKeyIsFirstOfTwoWords = true; ///< A record's < compares keys.

	/// The record's depth.
	static SortKeyType ExtractKey(const SIndexAndDepth &record) { return record.m_Depth; }
};

/// The indices of one primitive.
template<typename _Index, u32 _Count>
struct VX_API_INLINE SPrimitive
{
	_Index m_IDs[_Count]; ///< In drawing order.
};

/// A host's way to run jobs, for sorts of many particles: a function of its job system, or of whatever else calls a
/// function on several threads.
struct SSortJobs
{
	/// One job. It touches what m_Run is given and nothing of its thread but up to 64 KiB of stack; floating-point
	/// modes are as before when it returns. It waits for no other job, and runs none.
	typedef void (*CbJob)(void *context, u32 jobIndex);

	/// Calls job(context, jobIndex) once for each jobIndex from 0 to jobCount - 1, in any order, on any threads, and
	/// returns when all calls have returned; what jobs have written can then be read on the calling thread. It is
	/// called on the thread that sorts alone, a few times in a sort, with 1 to m_MaxJobCount jobs.
	void (*m_Run)(void *userData, u32 jobCount, CbJob job, void *context);
	void *m_UserData;  ///< Handed to m_Run.
	u32 m_MaxJobCount; ///< Of one m_Run, 1 or more: as many as there are threads, or a few times as many.
};

/// Sorts one draw call. Describe the call with one Setup_OutputIndexBuffer, one Setup_InputPageCache and one
/// Setup_Geometry, in any order, then sort. A sorter keeps views into the caller's memory, which stays valid until
/// the sort returns, and a copy of the constant index pattern; it may be set up and used again, frame after frame.
///
/// The page cache. Particles lie in pages; every view given per page has one entry for each. A page's rendered count
/// says how many of its particles are drawn: all of them, its first ones (no enabled bytes), or those whose enabled
/// byte is not 0 (exactly as many as the count says). Rendered particles are numbered through all pages: rendered
/// particle r of constant geometry owns the vertices from r * primitiveVertexCount on.
///
/// Positions or values. Sorted by position, a page with disabled particles is keyed apart from a page without: all
/// particles of pages that have disabled ones are drawn before those of pages that have none. Where pages are mixed,
/// sort by values of 0 - squared distance instead: they give one back-to-front order over all pages. Positions are
/// the right choice, and the cheaper one, where either no page or every page has disabled particles. Values also sort
/// by whatever else orders a draw call; the lowest is drawn first.
///
/// Floats keep their order whatever they are: denormals count as they are, and NaNs sort beyond the infinities. No
/// compiler flag and no floating-point mode of the calling thread changes a bit of the result.
///
/// Threads. One sorter, one thread at a time; different sorters, and all static members, run side by side.
/// Reports. A broken rule is an assertion, after which the work goes on with what it has. A slow path with equal
/// output is a warning, once per call site. See vx_assert.h and kr_log_unique.h for the hooks.
class VX_GEOMETRICS_API CTriangleSorter
{
public:
	/// Set by Setup_OutputIndexBuffer.
	enum EIndexType : u32
	{
		IndexTypeUnknown = 0, ///< Nothing is set up.
		IndexTypeUint16 = 1,  ///< Indices of 16 bits.
		IndexTypeUint32 = 2   ///< Indices of 32 bits.
	};

	/// Set by Setup_InputPageCache.
	enum ESortType : u32
	{
		SortUnknown = 0,    ///< Nothing is set up.
		SortByPosition = 1, ///< By distance to the camera, the farthest first.
		SortByFloat = 2     ///< By the caller's values, the lowest first.
	};

	/// Set by Setup_Geometry.
	enum EGeometryType : u32
	{
		GeometryUnknown = 0,                            ///< Nothing is set up.
		GeometryConstant = 1,                           ///< One pattern, vertices in particle order.
		GeometryConstantAndIndexList = 2,               ///< One pattern, first vertices from a list.
		GeometryConstantAndIndexListAndQuadCenters = 3, ///< The same, quads inside a particle sorted too.
		GeometryPerPage = 4                             ///< A pattern per page, sorted triangle by triangle.
	};

	/// The indices that one particle draws, relative to its first vertex.
	typedef TArray<u32, TArrayStaticController<0, 8, 8, 0, 2>> CIndexPattern;

	///@{
	/// A view per page, or a number per page; the views themselves may lie at any stride.
	typedef TStridedMemoryView<const TStridedMemoryView<const CFloat3, -1>, -1> CPositionPages;
	typedef TStridedMemoryView<const TStridedMemoryView<const float, -1>, -1> CSortKeyPages;
	typedef TStridedMemoryView<const TStridedMemoryView<const u8, -1>, -1> CEnabledPages;
	typedef TStridedMemoryView<const u32, -1> CRenderedCounts;
	///@}

	/// Nothing is configured: a sort reports so and writes nothing.
	CTriangleSorter() = default;

	/// Where the indices go.
	/// outIndices   written front to back, each index once, never read: fit for mapped, write-combined memory. A
	///              start at a multiple of 16 bytes takes the fast paths; any start of whole indices is correct.
	/// vertexCount  vertices that the indices may address. A particle whose vertices lie beyond draws vertex 0's
	///              instead.
	void Setup_OutputIndexBuffer(const TMemoryView<u32> &outIndices, u32 vertexCount)
	{
		m_IndexType = IndexTypeUint32;
		m_OutIndices32 = outIndices;
		m_IndexCount = outIndices.Count();
		m_VertexCount = vertexCount;
	}
	/// The same for 16-bit indices, which are not checked: every index has to be below 0xFFFF.
	void Setup_OutputIndexBuffer(const TMemoryView<u16> &outIndices, u32 vertexCount)
	{
		m_IndexType = IndexTypeUint16;
		m_OutIndices16 = outIndices;
		m_IndexCount = outIndices.Count();
		m_VertexCount = vertexCount;
	}

	/// What is sorted, by distance to the camera.
	/// positions               per page, at least as many as are read; packed (a stride of 12) is fast, any other
	///                         stride correct, and 0 places all particles of a page at one position
	/// enableds                one view per page, of contiguous bytes, one for each particle. The view of a page
	///                         without disabled particles may be empty, but it has to be there, also if the views of
	///                         all pages are empty. A missing one is reported, and taken for an empty one
	/// renderedParticleCounts  per page the number of particles drawn
	/// particleCount           the sum of renderedParticleCounts
	/// cameraPosition          in the space of the positions
	void Setup_InputPageCache(const CPositionPages &positions,
		const CEnabledPages &enableds,
		const CRenderedCounts &renderedParticleCounts,
		u32 particleCount,
		const CFloat3 &cameraPosition)
	{
		m_SortType = SortByPosition;
		m_InPositions = positions;
		m_InEnableds = enableds;
		m_InRenderedParticleCounts = renderedParticleCounts;
		m_ParticleCount = particleCount;
		m_CameraPosition = cameraPosition;
	}
	/// What is sorted, by a value of each particle: packed (a stride of 4) is fast, 0 gives all particles of a page one
	/// value. The rest as above.
	void Setup_InputPageCache(const CSortKeyPages &sortKeys,
		const CEnabledPages &enableds,
		const CRenderedCounts &renderedParticleCounts,
		u32 particleCount)
	{
		m_SortType = SortByFloat;
		m_InSortKeys = sortKeys;
		m_InEnableds = enableds;
		m_InRenderedParticleCounts = renderedParticleCounts;
		m_ParticleCount = particleCount;
	}
	/// The same with the camera that orders the quads inside a particle.
	void Setup_InputPageCache(const CSortKeyPages &sortKeys,
		const CEnabledPages &enableds,
		const CRenderedCounts &renderedParticleCounts,
		u32 particleCount,
		const CFloat3 &cameraPosition)
	{
		Setup_InputPageCache(sortKeys, enableds, renderedParticleCounts, particleCount);
		m_CameraPosition = cameraPosition;
	}

	/// Every particle draws the same pattern.
	/// indexPattern          copied; indices relative to the particle's first vertex. Widths 1 (with index 0), 3, 6
	///                       and 12 are fast, any other width correct. Without memory for a copy, which is reported,
	///                       there is no pattern, and a sort writes nothing
	/// primitiveVertexCount  vertices per particle, not 0
	void Setup_Geometry(const TMemoryView<u32> &indexPattern, u32 primitiveVertexCount)
	{
		m_GeometryType = GeometryConstant;
		m_IndexPattern = indexPattern;
		m_PrimiteVertexCount = primitiveVertexCount;
	}
	/// The same, with the first vertex of each rendered particle from a list. An entry at or beyond the vertex count
	/// draws at vertex 0, as an infinitely far particle of its page would.
	void Setup_Geometry(const TMemoryView<u32> &indexPattern, const TMemoryView<const u32> &indexList)
	{
		m_GeometryType = GeometryConstantAndIndexList;
		m_IndexPattern = indexPattern;
		m_IndexList = indexList;
	}
	/// The same for tubes: quads of six indices each, at most 15, put in order inside every particle.
	/// quadCenters           16 slots per particle: quad q of the particle whose first vertex is v has its centre in
	///                       slot v / primitiveVertexCount * 16 + q
	/// primitiveVertexCount  vertices per particle, not 0
	void Setup_Geometry(const TMemoryView<u32> &indexPattern,
		const TMemoryView<const u32> &indexList,
		const TMemoryView<const CFloat4> &quadCenters,
		u32 primitiveVertexCount)
	{
		m_GeometryType = GeometryConstantAndIndexListAndQuadCenters;
		m_IndexPattern = indexPattern;
		m_IndexList = indexList;
		m_QuadCenters = quadCenters;
		m_PrimiteVertexCount = primitiveVertexCount;
	}
	/// Every page has a triangle pattern of its own, and triangles are sorted one by one under their particle's key.
	/// indexPatterns          per page; whole triangles, at least one
	/// primitiveVertexCounts  per page, vertices per particle, not 0
	/// indexCount             indices of all rendered particles, a multiple of 3: the sum over all pages of rendered
	///                        count times pattern width
	void Setup_Geometry(
		TMemoryView<const CIndexPattern> indexPatterns, TMemoryView<const u32> primitiveVertexCounts, u32 indexCount)
	{
		m_GeometryType = GeometryPerPage;
		m_IndexPatternCollection = indexPatterns;
		m_PrimiteVertexCountCollection = primitiveVertexCounts;
		m_IndexCount_fromBB = indexCount;
	}

	/// Bytes of working buffer for a point sort: two arrays of records, each padded to an even count. Exact below
	/// 268,435,455 particles, where 32 bits end.
	VX_WRAPS static u32 GetAutogenIndicesWorkingBufferSize(u32 elementCount)
	{
		return _AlignedRecordCount(elementCount) * u32(sizeof(SIndexAndDepth)) * 2;
	}
	/// Bytes of working buffer for a triangle sort: two arrays of records, one per triangle, and the unsorted indices.
	/// Exact up to 460,175,066 indices, where 32 bits end.
	VX_WRAPS static u32 GetAutogenIndicesWorkingBufferSize_tri(u32 indexCount)
	{
		return 2 * GetSortedTrisWorkingBufferSize(indexCount) + GetTriIndicesWorkingBufferSize(indexCount);
	}
	/// Bytes of one array of triangle records.
	VX_WRAPS static u32 GetSortedTrisWorkingBufferSize(u32 indexCount)
	{
		return _AlignedRecordCount(indexCount / 3) * u32(sizeof(SIndexAndDepth));
	}
	/// Bytes of the unsorted indices: 4 per index, whatever their type.
	VX_WRAPS static u32 GetTriIndicesWorkingBufferSize(u32 indexCount)
	{
		return ((indexCount + 1) & ~1u) * u32(sizeof(u32));
	}

	///@{
	/// Bytes of working buffer for a sort with up to maxJobCount jobs, of points or of triangles. They never fall as
	/// particles, indices or jobs grow, and have no end at 32 bits.
	static u64 GetJobsWorkingBufferSize(u32 particleCount, u32 maxJobCount);
	static u64 GetJobsWorkingBufferSize_tri(u32 indexCount, u32 maxJobCount);
	///@}

	///@{
	/// Record array 0 or 1 of a point sort's working buffer. Array 0 comes first and receives the sorted records. An
	/// array beyond the buffer is reported, and returned all the same.
	static TMemoryView<SIndexAndDepth> WorkingBuffer_SortedPoints(void *wb, u32 elementCount, u32 bufferIndex);
	static TMemoryView<const SIndexAndDepth> WorkingBuffer_SortedPoints(
		const void *wb, u32 elementCount, u32 bufferIndex);
	///@}

	///@{
	/// Record array 0 or 1 of a triangle sort's working buffer. Another array is reported, and returned all the same.
	static TMemoryView<SIndexAndDepth> WorkingBuffer_SortedTris(void *wb, u32 indexCount, u32 bufferIndex);
	static TMemoryView<const SIndexAndDepth> WorkingBuffer_SortedTris(const void *wb, u32 indexCount, u32 bufferIndex);
	///@}

	///@{
	/// The unsorted indices of a triangle sort's working buffer, as u32 or u16.
	template<typename _Index>
	static TMemoryView<_Index> WorkingBuffer_TriangleIndices(void *wb, u32 indexCount);
	template<typename _Index>
	static TMemoryView<const _Index> WorkingBuffer_TriangleIndices(const void *wb, u32 indexCount);
	///@}

	/// Sorts the particles of geometry that all of them share and writes the index pattern of each into the output.
	/// _workingBuffer  16-byte aligned, GetAutogenIndicesWorkingBufferSize(particle count) bytes, contents unspecified
	///                 afterwards; or null: a block is taken from Mem::_RawAlloc, eight times as large, and a failure
	///                 there ends the call.
	/// Writes          whole patterns from the first output index on. Particles of constant geometry beyond the vertex
	///                 count are written as patterns of vertex 0, where a value of minus infinity sorts. Too small an
	///                 output loses an even number of records at the low-key end, the farthest, and the very nearest as
	///                 well when the shortfall is odd.
	/// Equal keys      one order for one input: that of the records for more than 109 of them, the quick sort's own up
	///                 to that.
	/// Reports         assertions and warnings as the class says. An empty rendered-count view ends the call; a block
	///                 taken for it is then not given back.
	void SortPoints_AutogenIndices(void *__restrict _workingBuffer);

	/// Sorts the triangles of geometry that each page has of its own and writes them into the output.
	/// workingBuffer  16-byte aligned, GetAutogenIndicesWorkingBufferSize_tri(index count) bytes, contents unspecified
	///                afterwards; or null: a block is taken from Mem::_RawAlloc, and a failure there ends the call.
	/// Writes         whole triangles from the first output index on, as many as the geometry has or the output holds;
	///                too small an output loses the lowest keys, the farthest. A page is cut where the vertex count
	///                ends, and the pages after one that has no room for a single particle are dropped; triangles so
	///                lost are written as degenerate ones of vertex 0.
	void SortTriangles_AutogenIndices(void *workingBuffer);

	///@{
	/// Sorts on a host's jobs, with the indices of the sort without jobs, whatever the number of jobs, their order and
	/// their threads. Few particles are sorted without jobs.
	/// workingBuffer      16-byte aligned; contents unspecified afterwards. Or null: one block of the size that is
	///                    named for jobs.m_MaxJobCount is taken from Mem::_RawAlloc, and a failure there ends the call
	/// workingBufferSize  its bytes, GetJobsWorkingBufferSize or GetJobsWorkingBufferSize_tri; 0 with null. Too small a
	///                    buffer is reported, and nothing is written
	/// jobs               without m_Run, or with no jobs at all, which is reported, the calling thread does the work
	/// Output             each job writes a stretch of its own from front to back
	/// Reports            those of the sort without jobs, on the calling thread, in the same order, but for what
	///                    allocates its working buffer. Warnings too; the hazard of a page is counted for the thread
	///                    that has worked on its first particle. Scopes are those of the calling thread, around its
	///                    runs of jobs: the scopes of the output contain the sort of parts as well
	void SortPoints_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs);
	void SortTriangles_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs);
	///@}

	/// Makes a record of each particle of a page: the key, and indexStart + k * indexIncrement for record k.
	/// outList    receives all of its records; 8-byte aligned. Runs of four from packed or gathered sources lie in the
	///            order 2, 3, 0, 1, which shows where equal keys are sorted in record order.
	/// positions  as many particles as there are records, or more, of which enableds has exactly as many bytes that
	///            are not 0. Nothing is read beyond the last position's 12th byte.
	/// enableds   read only when there are more particles than records; contiguous
	/// Keys       ascending keys draw the farthest first: the inverted bits of the squared distance. Where particles
	///            are disabled the key is that of the value 0 - squared distance, below every key of the other kind.
	static void FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
		const TStridedMemoryView<const CFloat3> &positions,
		const CFloat3 &cameraPosition,
		const TStridedMemoryView<const u8> &enableds,
		u32 indexStart,
		u32 indexIncrement);
	/// The same for values: ascending keys draw the lowest value first.
	static void FillSortingIndirectionsListPoint_NoIndices(const TMemoryView<SIndexAndDepth> &outList,
		const TStridedMemoryView<const float> &sortValues,
		const TStridedMemoryView<const u8> &enableds,
		u32 indexStart,
		u32 indexIncrement);

	/// Makes a record of each particle of a page, with its first vertex from a list.
	/// outList      as above, but the records lie in particle order
	/// indexList    an entry per record, of any alignment; one at or beyond maxVertexId gives its record vertex 0 and
	///              the farthest key: that of an infinite distance, or of minus infinity where particles are disabled
	/// The rest as in the variant without list.
	static void FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
		const TStridedMemoryView<const CFloat3> &positions,
		const CFloat3 &cameraPosition,
		const TStridedMemoryView<const u8> &enableds,
		const u32 *indexList,
		u32 maxVertexId);
	/// The same for values; an invalid entry gives the key of minus infinity.
	static void FillSortingIndirectionsListPoint_Indices(const TMemoryView<SIndexAndDepth> &outList,
		const TStridedMemoryView<const float> &sortValues,
		const TStridedMemoryView<const u8> &enableds,
		const u32 *indexList,
		u32 maxVertexId);

	///@{
	/// Writes the index pattern of each record, every entry plus the record's m_Index.
	/// it         primCount records, 16-byte aligned; depths are ignored
	/// dstPrims   primCount * width indices, written front to back and never read. Widths 1, 3, 6 and 12 are streamed
	///            at multiples of 16 bytes (12 at multiples of 8), but 12 of 16-bit indices never.
	/// Pattern    a pattern of one entry has to be {0}. 16-bit sums are not checked: indices stay below 0xFFFF.
	static void ExpandIndices(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u32 *__restrict dstPrims,
		u32 primCount);
	static void ExpandIndices(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u16 *__restrict dstPrims,
		u32 primCount);
	///@}

	///@{
	/// Writes the index pattern of each record with its quads in back-to-front order.
	/// indexPattern  quads of six entries; at most 15. Entries beyond the last whole quad are skipped, and their
	///               place in the output is left as it is.
	/// quadCenters   16 slots per particle, the particle's number being m_Index / vpp
	/// dstPrims      primCount * width indices
	/// vpp           vertices per particle, not 0 where there is a quad
	/// Reads          x, y and z of each quad's centre, unless there is one quad alone, and sorts the quads of many
	///                particles at once. Ordinary stores, no fence.
	/// Reports        a log-once warning at every call: without quad centres a sort takes less.
	static void ExpandAndSortIndices(const TMemoryView<const u32> &indexPattern,
		const TMemoryView<const CFloat4> &quadCenters,
		const CFloat3 &cameraPosition,
		const SIndexAndDepth *__restrict it,
		volatile u16 *__restrict dstPrims,
		u32 primCount,
		u32 vpp);
	static void ExpandAndSortIndices(const TMemoryView<const u32> &indexPattern,
		const TMemoryView<const CFloat4> &quadCenters,
		const CFloat3 &cameraPosition,
		const SIndexAndDepth *__restrict it,
		volatile u32 *__restrict dstPrims,
		u32 primCount,
		u32 vpp);
	///@}

	/// Widens primCount particle records in place into a record per triangle, under the particle's key: block t of
	/// primCount records holds triangle t of every particle, numbered primOffset + particle * trianglePerPrimitive + t.
	/// inoutList  primCount * trianglePerPrimitive records, the first primCount filled; 16-byte aligned, and correct
	///            at 8 bytes off as well, which is reported
	static void ExpandSortingIndirectionsListPoints_Triangles(
		const TMemoryView<SIndexAndDepth> &inoutList, u32 primCount, u32 trianglePerPrimitive, u32 primOffset);

	///@{
	/// Gathers triCount triangles in the order of the records: output triangle i is source triangle inList[i].m_Index.
	/// dstIndices  3 * triCount indices, apart from the source
	static void ApplySortingIndirectionsListTriangles(const TMemoryView<SIndexAndDepth> &inList,
		const TMemoryView<const u32> &srcIndices,
		u32 *dstIndices,
		u32 triCount);
	static void ApplySortingIndirectionsListTriangles(const TMemoryView<SIndexAndDepth> &inList,
		const TMemoryView<const u16> &srcIndices,
		u16 *dstIndices,
		u32 triCount);
	///@}

private:
	friend class CSortCapture;    // reads what is set up, see ge_mesh_sort_capture.h
	friend class CSortFromC;      // borrows the pattern, see vexmoor.h
	friend class CSortJobs;       // sorts it
	friend class CSortValidation; // the same, see ge_mesh_sort_validation.h

	VX_WRAPS static u32 _AlignedRecordCount(u32 recordCount) { return (recordCount + 1) & ~1u; }

	// What the public functions of like names return, without their end at 32 bits.
	static u64 _PointWorkingBufferSize(u32 elementCount)
	{
		return ((u64(elementCount) + 1) & ~u64(1)) * sizeof(SIndexAndDepth) * 2;
	}
	static u64 _TriangleWorkingBufferSize(u32 indexCount)
	{
		return _PointWorkingBufferSize(indexCount / 3) + ((u64(indexCount) + 1) & ~u64(1)) * sizeof(u32);
	}

	// These five are no VX_LOCAL: tests ask a shared library for them too.
	void _GetParticleIdxInPageCache(
		u32 renderedParticleId, u32 &pageId, u32 &offsetInPage, u32 &offsetInRenderedBuffer) const;

	void _FillSource_SortByPosition_GeomConst(u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const;
	void _FillSource_SortByValues_GeomConst(u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const;
	void _FillSource_SortByPosition_GeomConstAndIndexList(
		u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const;
	void _FillSource_SortByValues_GeomConstAndIndexList(
		u32 start, u32 count, const TMemoryView<SIndexAndDepth> &out) const;

	// What bounds a page walk; it shows in the text of its report.
	enum EPageBound
	{
		PageBound_RenderedCounts,
		PageBound_TotalPageCount
	};
	template<EPageBound _PageBound, typename _Element, typename _FillPage>
	VX_LOCAL u32 _WalkPages(const TStridedMemoryView<const TStridedMemoryView<const _Element, -1>, -1> &pages,
		u32 start,
		u32 count,
		const TMemoryView<SIndexAndDepth> &out,
		const _FillPage &fillPage) const;
	VX_LOCAL u32 _ValidParticleCount(u32 start, u32 count) const;

	// An even number, so that the first record read stays 16-byte aligned; an odd shortfall then loses the last one.
	static u32 _FirstWrittenRecord(u32 recordCount, u32 writeCount) { return (recordCount - writeCount) & ~1u; }

	template<typename _Index, typename _Pages, typename... _Camera>
	VX_LOCAL u32 _FillTriangles(const _Pages &pages,
		const TMemoryView<SIndexAndDepth> &workingBufferSorter,
		const TMemoryView<_Index> &workingBufferIndex,
		const _Camera &...camera) const;
	template<typename _Index>
	VX_LOCAL void _SortTriangles_AutogenIndices(void *workingBuffer);

	// What jobs need of the sort without jobs: the expansions without their scopes, and warnings.
	VX_LOCAL static void _ExpandByWidth(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u32 *__restrict dstPrims,
		u32 primCount);
	VX_LOCAL static void _ExpandByWidth(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u16 *__restrict dstPrims,
		u32 primCount);
	template<typename _Index>
	VX_LOCAL static void _WarnOfQuads();
	VX_LOCAL void _WarnOfStride() const;

	// Output.
	EIndexType m_IndexType = IndexTypeUnknown;
	TMemoryView<u32> m_OutIndices32;
	TMemoryView<u16> m_OutIndices16;
	u32 m_IndexCount = 0;
	u32 m_VertexCount = 0;

	// Input.
	ESortType m_SortType = SortUnknown;
	CFloat3 m_CameraPosition;
	CPositionPages m_InPositions;
	CSortKeyPages m_InSortKeys;
	CEnabledPages m_InEnableds;
	CRenderedCounts m_InRenderedParticleCounts;
	u32 m_ParticleCount = 0;

	// Geometry.
	EGeometryType m_GeometryType = GeometryUnknown;
	CIndexPattern m_IndexPattern;
	u32 m_PrimiteVertexCount = 0; // spelled like this in conditions that hosts filter by: kept on purpose
	TMemoryView<const CIndexPattern> m_IndexPatternCollection;
	TMemoryView<const u32> m_PrimiteVertexCountCollection;
	TMemoryView<const u32> m_IndexList;
	TMemoryView<const CFloat4> m_QuadCenters;
	u32 m_IndexCount_fromBB = 0; // of all pages' geometry, from the call that sets it up; in conditions, too
};
} // namespace Vexmoor
