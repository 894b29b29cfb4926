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
enum class EIndexStores : u32;

/// A record, which is what is sorted: a key, and the particle or triangle that it belongs to. Keys are compared as
/// unsigned integers, and the lowest is drawn first. Arrays of records start at multiples of 16 bytes and have room for
/// an even number of them.
struct VX_API_INLINE SIndexAndDepth
{
	u32 m_Depth; ///< The key.
	u32 m_Index; ///< In a point sort a particle's first vertex, in a triangle sort a triangle's number.

	///@{
	/// Compares the keys alone.
	bool operator<(const SIndexAndDepth &other) const { return m_Depth < other.m_Depth; }
	bool operator==(const SIndexAndDepth &other) const { return m_Depth == other.m_Depth; }
	///@}
};
static_assert(sizeof(SIndexAndDepth) == 8, "two records fill a 16-byte access");

/// Gives the sorts the key of a record: m_Depth, unchanged.
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

/// How a host runs jobs, for sorts of many particles: a function of its job system, or of anything else that calls a
/// function on several threads.
struct SSortJobs
{
	/// One job. It uses up to 64 KiB of its thread's stack, and leaves the thread's floating-point mode as it was. It
	/// does not wait for other jobs, and runs none.
	typedef void (*CbJob)(void *context, u32 jobIndex);

	/// Calls job(context, jobIndex) once for each jobIndex from 0 to jobCount - 1, in any order, on any threads, and
	/// returns when all calls have returned; what jobs have written can then be read on the calling thread. The sort
	/// calls it on the sorting thread only, several times, with 1 to m_MaxJobCount jobs.
	void (*m_Run)(void *userData, u32 jobCount, CbJob job, void *context);
	void *m_UserData;  ///< Handed to m_Run.
	u32 m_MaxJobCount; ///< The most jobs of one call, 1 or more: as many as there are threads, or a few times as many.
};

/// Sorts one draw call. Describe the call with one Setup_OutputIndexBuffer, one Setup_InputPageCache and one
/// Setup_Geometry, in any order, then sort. A sorter keeps views into the caller's memory, which has to stay valid
/// until the sort returns, and a copy of the constant index pattern. It may be set up and used again, frame after
/// frame.
///
/// The page cache. The particles of a draw call lie in pages, and every view given per page has one entry for each
/// page. A page's rendered count says how many of its particles are drawn: all of them; its first ones, if it has no
/// enabled bytes; or those whose enabled byte is not 0, which are exactly as many as the count says. Rendered particles
/// are numbered through all pages. In constant geometry, rendered particle r has the vertices from
/// r * primitiveVertexCount on.
///
/// Positions or values. If particles are sorted by position, pages with disabled particles have lower keys than pages
/// without: all particles of the former are drawn before those of the latter. If some pages have disabled particles and
/// some have none, sort by values of 0 - squared distance instead: they give one back-to-front order over all pages.
/// Otherwise positions are right, and cheaper. Values also sort by anything else; the lowest is drawn first.
///
/// Every float has its place in the order: denormals are not flushed, and NaNs sort beyond the infinities. No compiler
/// flag and no floating-point mode of the calling thread changes a bit of the result.
///
/// Threads. One thread at a time uses a sorter. Different sorters, and all static members, may run side by side.
/// Reports. A broken rule fails an assertion, and the sort goes on. A slow path, whose output is the same, warns once
/// per call site. The hooks are in vx_assert.h and kr_log_unique.h.
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
		GeometryConstantAndIndexListAndQuadCenters = 3, ///< The same, and quads are sorted inside each particle.
		GeometryPerPage = 4                             ///< A pattern per page, sorted triangle by triangle.
	};

	/// Set by Setup_OutputMemory.
	enum EOutputMemory : u32
	{
		OutputMemory_WriteCombined = 0, ///< Mapped memory that the GPU reads: whole blocks bypass the caches.
		OutputMemory_Cached = 1         ///< Ordinary memory that the CPU reads: every store goes through the caches.
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

	/// Nothing is set up. A sort reports that, and writes nothing.
	CTriangleSorter() = default;

	/// Sets up where the indices are written.
	/// outIndices   written front to back, each index once, and never read: fit for mapped, write-combined memory. At a
	///              multiple of 16 bytes the fast paths are taken; any address of a whole index is correct
	/// vertexCount  how many vertices the indices may address. A particle with vertices beyond is drawn at vertex 0
	void Setup_OutputIndexBuffer(const TMemoryView<u32> &outIndices, u32 vertexCount)
	{
		m_IndexType = IndexTypeUint32;
		m_OutIndices32 = outIndices;
		m_IndexCount = outIndices.Count();
		m_VertexCount = vertexCount;
	}
	/// The same for 16-bit indices. Every index has to be below 0xFFFF, which is not checked.
	void Setup_OutputIndexBuffer(const TMemoryView<u16> &outIndices, u32 vertexCount)
	{
		m_IndexType = IndexTypeUint16;
		m_OutIndices16 = outIndices;
		m_IndexCount = outIndices.Count();
		m_VertexCount = vertexCount;
	}

	/// Says which kind of memory the output is. It is optional, stays until it is called again, and leaves what the
	/// other calls set up; the output buffer may change without it. The kind changes neither an index nor a report.
	/// outputMemory  OutputMemory_WriteCombined, which is the default: streaming stores and a store fence.
	///               OutputMemory_Cached: ordinary stores without a fence, for an array that a copy uploads, or that
	///               the CPU reads next. A sort of few particles then takes a fraction of the time. In write-combined
	///               memory the indices are right, too, but other threads may see them later than what the sorting
	///               thread stores next. A value that is neither is taken for the default
	void Setup_OutputMemory(EOutputMemory outputMemory) { m_OutputMemory = outputMemory; }

	/// Sets up what is sorted, by distance to the camera.
	/// positions               one view per page, with at least as many positions as are read. Packed ones (a stride of
	///                         12) are fast, any other stride is correct, and a stride of 0 places all particles of a
	///                         page at one position
	/// enableds                one view per page, of contiguous bytes, one for each particle. The view of a page
	///                         without disabled particles may be empty, but it must not be missing, even if the views
	///                         of all pages are empty. A missing view is reported, and taken for an empty one
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
	/// Sets up what is sorted, by a value of each particle. Packed values (a stride of 4) are fast, and a stride of 0
	/// gives all particles of a page one value. The other arguments are those above.
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
	///                       and 12 are fast, any other width is correct. If there is no memory for the copy, that is
	///                       reported, the pattern is empty, and a sort writes nothing
	/// primitiveVertexCount  vertices per particle, not 0
	void Setup_Geometry(const TMemoryView<u32> &indexPattern, u32 primitiveVertexCount)
	{
		m_GeometryType = GeometryConstant;
		m_IndexPattern = indexPattern;
		m_PrimiteVertexCount = primitiveVertexCount;
	}
	/// The same, with the first vertex of each rendered particle from a list. A particle whose entry is the vertex
	/// count or more is drawn at vertex 0, and sorted like an infinitely far particle of its page.
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
	/// 268,435,455 particles; larger sizes do not fit in 32 bits.
	VX_WRAPS static u32 GetAutogenIndicesWorkingBufferSize(u32 elementCount)
	{
		return _AlignedRecordCount(elementCount) * u32(sizeof(SIndexAndDepth)) * 2;
	}
	/// Bytes of working buffer for a triangle sort: two arrays of records, one per triangle, and the unsorted indices.
	/// Exact up to 460,175,066 indices; larger sizes do not fit in 32 bits.
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
	/// Bytes of working buffer for a sort with up to maxJobCount jobs, of points or of triangles, in 64 bits. More
	/// particles, indices or jobs never need fewer bytes.
	static u64 GetJobsWorkingBufferSize(u32 particleCount, u32 maxJobCount);
	static u64 GetJobsWorkingBufferSize_tri(u32 indexCount, u32 maxJobCount);
	///@}

	///@{
	/// Record array 0 or 1 of a point sort's working buffer. Array 0 comes first and receives the sorted records.
	/// Another array, or one beyond 32 bits, is reported, and returned all the same.
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
	///                 afterwards. Or null: the sort takes a block eight times as large from Mem::_RawAlloc, and gives
	///                 it back. If there is no memory for the block, nothing is written.
	/// Writes          whole patterns from the first output index on. Particles of constant geometry whose vertices lie
	///                 beyond the vertex count are written as patterns of vertex 0, and sorted like a value of minus
	///                 infinity. If the output is too small, an even number of records with the lowest keys, the
	///                 farthest, is lost; if the shortfall is odd, the very nearest is lost as well.
	/// Equal keys      always have the same order for the same input: above 109 records that of the records, up to 109
	///                 the quick sort's own.
	/// Reports         assertions and warnings as the class says. An empty view of rendered counts ends the call, and a
	///                 block that the sort has taken is not given back.
	void SortPoints_AutogenIndices(void *__restrict _workingBuffer);

	/// Sorts the triangles of geometry that each page has of its own and writes them into the output.
	/// workingBuffer  16-byte aligned, GetAutogenIndicesWorkingBufferSize_tri(index count) bytes, contents unspecified
	///                afterwards. Or null: the sort takes a block from Mem::_RawAlloc, and gives it back. If there is
	///                no memory for the block, nothing is written.
	/// Writes         whole triangles from the first output index on, as many as the geometry has or the output holds.
	///                If the output is too small, the triangles with the lowest keys, the farthest, are lost. A page is
	///                cut where the vertex count ends. A page without room for a single particle is dropped, and so are
	///                all pages after it. Triangles lost in this way are written as degenerate ones of vertex 0.
	void SortTriangles_AutogenIndices(void *workingBuffer);

	///@{
	/// Sorts on a host's jobs, with the indices of the sort without jobs, whatever the number of jobs, their order and
	/// their threads. Few particles are sorted without jobs.
	/// workingBuffer      16-byte aligned; contents unspecified afterwards. Or null: the sort takes one block of the
	///                    size named below from Mem::_RawAlloc. If there is no memory for the block, nothing is written
	/// workingBufferSize  its bytes, as GetJobsWorkingBufferSize or GetJobsWorkingBufferSize_tri says for
	///                    jobs.m_MaxJobCount; 0 with null. Too small a buffer is reported, and nothing is written
	/// jobs               if m_Run is null or m_MaxJobCount is 0, that is reported, and the calling thread works alone
	/// Output             each job writes a stretch of its own from front to back
	/// Reports            assertions and warnings are those of the sort without jobs, on the calling thread, in the
	///                    same order, except those about a working buffer that it allocates. The hazard of a page is
	///                    counted for the thread that worked on the page's first particle
	/// Scopes             are those of the calling thread, around its calls of m_Run. The scope of the output also
	///                    contains the sort of the parts
	void SortPoints_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs);
	void SortTriangles_AutogenIndices(void *workingBuffer, u64 workingBufferSize, const SSortJobs &jobs);
	///@}

	/// Makes a record of each particle of a page: the key, and indexStart + k * indexIncrement for record k.
	/// outList    as many records as are made; 8-byte aligned. Whole groups of four records are stored in the order
	///            2, 3, 0, 1, which shows only in the order of equal keys.
	/// positions  at least as many as records. If there are more, exactly as many bytes of enableds are not 0 as there
	///            are records. Nothing is read beyond the last position's 12th byte.
	/// enableds   contiguous; read only if there are more positions than records
	/// Keys       ascending keys draw the farthest first: the inverted bits of the squared distance. If there are more
	///            positions than records, the key is that of the value 0 - squared distance, which is below every key
	///            of a distance.
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
	/// indexList    an entry per record, of any alignment. An entry that is maxVertexId or more gives its record vertex
	///              0 and the farthest key: that of an infinite distance, or of the value minus infinity if there are
	///              more positions than records
	/// The other arguments are those of the variant without list.
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
	/// it         primCount records, 16-byte aligned; their keys are not read
	/// dstPrims   primCount * width indices, written front to back and never read. Widths 1, 3, 6 and 12 are streamed
	///            at multiples of 16 bytes, 32-bit indices of width 12 at multiples of 8 as well. 16-bit indices of
	///            width 12 are never streamed.
	/// Pattern    a pattern of one entry has to be {0}. 16-bit indices have to stay below 0xFFFF, which is not checked.
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
	/// vpp           vertices per particle, not 0 if the pattern has a quad
	/// Reads         x, y and z of each quad's centre, unless a particle has only one quad
	/// Writes        with ordinary stores and no fence
	/// Reports       a log-once warning at every call: a sort without quad centres takes less time
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
	/// inoutList  primCount * trianglePerPrimitive records, of which the first primCount are filled; 16-byte aligned.
	///            An address 8 bytes off is reported, and the records come out right
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
	friend class CSortJobs;       // reads what is set up, and sorts it on a host's jobs
	friend class CSortValidation; // reads what is set up, see ge_mesh_sort_validation.h

	VX_WRAPS static u32 _AlignedRecordCount(u32 recordCount) { return (recordCount + 1) & ~1u; }

	// What the public functions with similar names return, in 64 bits.
	static u64 _PointWorkingBufferSize(u32 elementCount)
	{
		return ((u64(elementCount) + 1) & ~u64(1)) * sizeof(SIndexAndDepth) * 2;
	}
	static u64 _TriangleWorkingBufferSize(u32 indexCount)
	{
		return _PointWorkingBufferSize(indexCount / 3) + ((u64(indexCount) + 1) & ~u64(1)) * sizeof(u32);
	}

	// These five are not marked VX_LOCAL, because tests call them in a shared library, too.
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

	// How many particles of [start, start + count) have their vertices inside the vertex buffer.
	u32 _ValidParticleCount(u32 start, u32 count) const
	{
		const u32 firstVertex = m_PrimiteVertexCount * start;
		if (m_VertexCount <= firstVertex)
			return 0;
		const u32 roomFor = (m_VertexCount - firstVertex) / m_PrimiteVertexCount;
		return roomFor < count ? roomFor : count;
	}

	// An even number, so that the first record read stays 16-byte aligned; an odd shortfall then loses the last one.
	static u32 _FirstWrittenRecord(u32 recordCount, u32 writeCount) { return (recordCount - writeCount) & ~1u; }

	template<typename _Index, typename _Pages, typename... _Camera>
	VX_LOCAL u32 _FillTriangles(const _Pages &pages,
		const TMemoryView<SIndexAndDepth> &workingBufferSorter,
		const TMemoryView<_Index> &workingBufferIndex,
		const _Camera &...camera) const;
	template<typename _Index>
	VX_LOCAL void _SortTriangles_AutogenIndices(void *workingBuffer);

	// How a point sort's expansion stores the output. Loops that do not stream are the same for both kinds of memory.
	VX_LOCAL EIndexStores _StoresOfOutput() const;

	// The expansions without their scopes and their assertions.
	VX_LOCAL static void _ExpandByWidth(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u32 *__restrict dstPrims,
		u32 primCount,
		EIndexStores stores);
	VX_LOCAL static void _ExpandByWidth(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *__restrict it,
		volatile u16 *__restrict dstPrims,
		u32 primCount,
		EIndexStores stores);
	template<typename _Index>
	VX_LOCAL VX_HOT_CODE static void _ExpandWithStores(const TMemoryView<const u32> &indexPattern,
		const SIndexAndDepth *it,
		_Index *dstPrims,
		u32 primCount,
		EIndexStores stores);

	// Warnings alone: jobs do not warn.
	VX_LOCAL static void _WarnOfQuads(EIndexType indexType);
	VX_LOCAL void _WarnOfStride() const;

	// Output.
	EIndexType m_IndexType = IndexTypeUnknown;
	EOutputMemory m_OutputMemory = OutputMemory_WriteCombined;
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
