// The sorter for C. A call's structure is read, its defaults are filled in, and a sorter on the stack is set up with
// them. A page's view and pattern lie in memory as in C++, so nothing is copied per page, and the shared pattern is
// borrowed. Handlers in C are called by functions here, which C++ calls.

#include "vexmoor.h"

#include "ge_mesh_sort_validation.h"
#include "ge_mesh_triangle_sorter.h"

#include "vx_assert.h"
#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_containers_array.h"
#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_memoryviews.h"
#include "kr_profiler.h"

#include "ge_mesh/include/pv_mesh_triangle_sorter.h"
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>

namespace Vexmoor
{
// NOLINTNEXTLINE(misc-redundant-expression): two numbers, as long as one is not forgotten
static_assert(VEXMOOR_VERSION == VX_VERSION, "a library and its C header are of one version");

// Built programs depend on the places of fields. The place of a field is given as a number of 32-bit words and a number
// of pointers before it. No field needs padding, on 32-bit processors either, and none ends in the middle of a
// pointer's size.
#define VX_ASSERT_PLACE(_struct, _field, _words, _pointers)                               \
	static_assert(offsetof(_struct, _field) == (_words)*4 + (_pointers) * sizeof(void *), \
		#_struct "." #_field " lies where version 1.0 had it")

VX_ASSERT_PLACE(vexmoor_view, data, 0, 0);
VX_ASSERT_PLACE(vexmoor_view, count, 0, 1);
VX_ASSERT_PLACE(vexmoor_view, stride, 1, 1);
static_assert(sizeof(vexmoor_view) == 8 + sizeof(void *), "there is an array of them");

VX_ASSERT_PLACE(vexmoor_pattern, indices, 0, 0);
VX_ASSERT_PLACE(vexmoor_pattern, count, 0, 1);
VX_ASSERT_PLACE(vexmoor_pattern, reserved, 1, 1);
static_assert(sizeof(vexmoor_pattern) == 8 + sizeof(void *), "there is an array of them");

VX_ASSERT_PLACE(vexmoor_call, struct_size, 0, 0);
VX_ASSERT_PLACE(vexmoor_call, index_size, 1, 0);
VX_ASSERT_PLACE(vexmoor_call, indices, 2, 0);
VX_ASSERT_PLACE(vexmoor_call, index_capacity, 2, 1);
VX_ASSERT_PLACE(vexmoor_call, vertex_count, 3, 1);
VX_ASSERT_PLACE(vexmoor_call, positions, 4, 1);
VX_ASSERT_PLACE(vexmoor_call, values, 4, 2);
VX_ASSERT_PLACE(vexmoor_call, enabled, 4, 3);
VX_ASSERT_PLACE(vexmoor_call, rendered_counts, 4, 4);
VX_ASSERT_PLACE(vexmoor_call, page_count, 4, 5);
VX_ASSERT_PLACE(vexmoor_call, particle_count, 5, 5);
VX_ASSERT_PLACE(vexmoor_call, camera_position, 6, 5);
VX_ASSERT_PLACE(vexmoor_call, vertices_per_particle, 9, 5);
VX_ASSERT_PLACE(vexmoor_call, pattern, 10, 5);
VX_ASSERT_PLACE(vexmoor_call, index_list, 10, 6);
VX_ASSERT_PLACE(vexmoor_call, quad_centers, 10, 7);
VX_ASSERT_PLACE(vexmoor_call, pattern_count, 10, 8);
VX_ASSERT_PLACE(vexmoor_call, index_list_count, 11, 8);
VX_ASSERT_PLACE(vexmoor_call, quad_center_count, 12, 8);
VX_ASSERT_PLACE(vexmoor_call, triangle_index_count, 13, 8);
VX_ASSERT_PLACE(vexmoor_call, page_patterns, 14, 8);
VX_ASSERT_PLACE(vexmoor_call, page_vertex_counts, 14, 9);
VX_ASSERT_PLACE(vexmoor_call, working_buffer, 14, 10);
VX_ASSERT_PLACE(vexmoor_call, working_buffer_size, 14, 11);
VX_ASSERT_PLACE(vexmoor_call, jobs, 14, 12);
VX_ASSERT_PLACE(vexmoor_call, output_memory, 14, 13);
VX_ASSERT_PLACE(vexmoor_call, reserved, 15, 13);
static_assert(sizeof(vexmoor_call) == 16 * 4 + 13 * sizeof(void *), "no padding ends what a next version appends to");

VX_ASSERT_PLACE(vexmoor_jobs, max_job_count, 1, 0);
VX_ASSERT_PLACE(vexmoor_jobs, run, 2, 0);
VX_ASSERT_PLACE(vexmoor_jobs, user_data, 2, 1);
VX_ASSERT_PLACE(vexmoor_report, line, 1, 0);
VX_ASSERT_PLACE(vexmoor_report, file, 2, 0);
VX_ASSERT_PLACE(vexmoor_report, message, 2, 4);
VX_ASSERT_PLACE(vexmoor_scope, color_rgba8, 1, 0);
VX_ASSERT_PLACE(vexmoor_scope, file, 2, 1);
VX_ASSERT_PLACE(vexmoor_allocator, allocate, 2, 0);
VX_ASSERT_PLACE(vexmoor_allocator, release, 2, 1);
VX_ASSERT_PLACE(vexmoor_allocator, user_data, 2, 2);
#undef VX_ASSERT_PLACE

static_assert(VEXMOOR_OUTPUT_WRITE_COMBINED == int(CTriangleSorter::OutputMemory_WriteCombined) &&
				  VEXMOOR_OUTPUT_CACHED == int(CTriangleSorter::OutputMemory_Cached),
	"a kind of memory has one number in both languages");

// What the sorter reads in place. Members lie in the order of their declaration, since both are of standard layout.
typedef TStridedMemoryView<const CFloat3, -1> CPositionView;
typedef TStridedMemoryView<const float, -1> CValueView;
typedef TStridedMemoryView<const u8, -1> CEnabledView;
static_assert(sizeof(vexmoor_view) == sizeof(SStridedMemoryViewRawStorage) &&
				  offsetof(vexmoor_view, data) == offsetof(SStridedMemoryViewRawStorage, m_RawDataPtr) &&
				  offsetof(vexmoor_view, count) == offsetof(SStridedMemoryViewRawStorage, m_Count) &&
				  offsetof(vexmoor_view, stride) == offsetof(SStridedMemoryViewRawStorage, m_Stride),
	"a page's view is a strided view");
static_assert(sizeof(vexmoor_view) == sizeof(CPositionView) && std::is_standard_layout_v<CPositionView>,
	"a strided view has nothing but its storage");
static_assert(sizeof(vexmoor_pattern) == sizeof(CTriangleSorter::CIndexPattern) &&
				  std::is_standard_layout_v<CTriangleSorter::CIndexPattern>,
	"a page's pattern is an array: elements, their count, and what nobody asks of an array that only is read");

// Structures of any version.

constexpr u32 kMaxStructSize = 4096; // beyond, the size was never set

static bool IsZero(const u8 *begin, const u8 *end)
{
	return std::all_of(begin, end, [](u8 byte) { return byte == 0; });
}

// Copies a structure of any version, whose first field is its size; fields that it does not have become 0.
template<typename _Struct>
static vexmoor_result ReadStruct(const _Struct *given, _Struct &known)
{
	if (given == null)
		return VEXMOOR_ERROR_NULL;
	const u32 size = given->struct_size;
	if (VX_LIKELY(size == sizeof(known)))
	{
		known = *given;
		return VEXMOOR_OK;
	}
	// Versions differ by whole fields: a size that cuts a pointer in half is none of theirs.
	if (size == 0 || size % sizeof(void *) != 0 || size > kMaxStructSize)
		return VEXMOOR_ERROR_STRUCT_SIZE;
	const u8 *const bytes = reinterpret_cast<const u8 *>(given);
	if (size > sizeof(known) && !IsZero(bytes + sizeof(known), bytes + size))
		return VEXMOOR_ERROR_UNKNOWN_FIELD;
	known = {};
	std::memcpy(&known, bytes, std::min<std::size_t>(size, sizeof(known)));
	return VEXMOOR_OK;
}

// A call, read.

constexpr u32 kLargest32 = 0xFFFFFFFFu;
constexpr u32 kVerticesOf16Bits = 0xFFFF; // so that every index is below it
constexpr u32 kWorkingBufferAlignment = 16;
constexpr u32 kNumberPattern[] = {0}; // draws a particle as its number
constexpr CEnabledView kNoneDisabled;

// What lies some bytes behind an address. Nobody has checked yet where it lies, so it is read by LoadU32.
template<typename _Type>
static const _Type *PlaceIn(const void *address, u64 offset)
{
	return reinterpret_cast<const _Type *>(reinterpret_cast<ureg>(address) + ureg(offset));
}

static bool SortsTriangles(const vexmoor_call &call)
{
	return call.page_patterns != null;
}

static const vexmoor_view *SourcePages(const vexmoor_call &call)
{
	return call.positions != null ? call.positions : call.values;
}

// Where no counts are given, every page renders all elements of its view.
static CTriangleSorter::CRenderedCounts RenderedCounts(const vexmoor_call &call)
{
	if (call.rendered_counts != null)
		return {call.rendered_counts, call.page_count, sizeof(u32)};
	return {PlaceIn<u32>(SourcePages(call), offsetof(vexmoor_view, count)), call.page_count, sizeof(vexmoor_view)};
}

// The sum of function(page, its rendered count), each at most 2^32: 64 bits hold that of all pages.
template<typename _Function>
static u64 SumOverPages(const vexmoor_call &call, const _Function &function)
{
	const CTriangleSorter::CRenderedCounts counts = RenderedCounts(call);
	u64 sum = 0;
	for (u32 page = 0; page < call.page_count; ++page)
		sum += function(page, LoadU32(PlaceIn<u32>(counts.Data(), u64(page) * counts.Stride())));
	return sum;
}

static vexmoor_result CheckFields(const vexmoor_call &call)
{
	if (call.reserved != 0)
		return VEXMOOR_ERROR_UNKNOWN_FIELD;
	if (call.index_size != 0 && call.index_size != sizeof(u16) && call.index_size != sizeof(u32))
		return VEXMOOR_ERROR_INDEX_SIZE;
	if (call.page_count == 0)
		return VEXMOOR_ERROR_PAGES;
	if ((call.positions == null) == (call.values == null))
		return VEXMOOR_ERROR_KEYS;
	if (call.enabled != null && call.rendered_counts == null)
		return VEXMOOR_ERROR_RENDERED_COUNTS;
	const bool hasShared = call.pattern != null || call.index_list != null || call.quad_centers != null;
	const bool hasPaged = call.page_vertex_counts != null || call.triangle_index_count != 0;
	if (SortsTriangles(call) ? hasShared || call.page_vertex_counts == null : hasPaged)
		return VEXMOOR_ERROR_GEOMETRY;
	if ((call.pattern == null && call.pattern_count != 0) || (call.quad_centers != null && call.index_list == null))
		return VEXMOOR_ERROR_GEOMETRY;
	return VEXMOOR_OK;
}

static vexmoor_result FillInGeometry(vexmoor_call &call)
{
	if (SortsTriangles(call))
	{
		if (call.triangle_index_count != 0)
			return VEXMOOR_OK;
		const u64 indexCount = SumOverPages(call,
			[&call](u32 page, u32 renderedCount)
			{
				const u64 offset = u64(page) * sizeof(vexmoor_pattern) + offsetof(vexmoor_pattern, count);
				return std::min(u64(renderedCount) * LoadU32(PlaceIn<u32>(call.page_patterns, offset)), u64(1) << 32);
			});
		call.triangle_index_count = u32(indexCount);
		return indexCount <= kLargest32 ? VEXMOOR_OK : VEXMOOR_ERROR_TOO_LARGE;
	}
	if (call.pattern == null)
	{
		call.pattern = kNumberPattern;
		call.pattern_count = 1;
	}
	if (call.vertices_per_particle == 0)
	{
		u32 largest = 0;
		for (u32 i = 0; i < call.pattern_count; ++i)
			largest = std::max(largest, LoadU32(call.pattern + i));
		if (largest == kLargest32)
			return VEXMOOR_ERROR_TOO_LARGE;
		call.vertices_per_particle = largest + 1;
	}
	return VEXMOOR_OK;
}

static vexmoor_result ReadJobs(const vexmoor_jobs *given, SSortJobs &jobs)
{
	vexmoor_jobs known;
	if (const vexmoor_result result = ReadStruct(given, known); result != VEXMOOR_OK)
		return result;
	jobs = {known.run, known.user_data, known.max_job_count};
	return known.run != null && known.max_job_count != 0 ? VEXMOOR_OK : VEXMOOR_ERROR_JOBS;
}

// Reads a call of any version and puts what a 0 stands for in its place. Its jobs, if it has any, are read as well.
static vexmoor_result ReadCall(const vexmoor_call *given, vexmoor_call &call, SSortJobs &jobs)
{
	if (const vexmoor_result result = ReadStruct(given, call); result != VEXMOOR_OK)
		return result;
	if (const vexmoor_result result = CheckFields(call); result != VEXMOOR_OK)
		return result;
	if (const vexmoor_result result = call.jobs != null ? ReadJobs(call.jobs, jobs) : VEXMOOR_OK; result != VEXMOOR_OK)
		return result;
	if (call.index_size == 0)
		call.index_size = sizeof(u32);
	if (call.vertex_count == 0)
		call.vertex_count = call.index_size == sizeof(u16) ? kVerticesOf16Bits : kLargest32;
	if (call.particle_count == 0)
	{
		const u64 particleCount = SumOverPages(call, [](u32, u32 renderedCount) { return renderedCount; });
		if (particleCount > kLargest32)
			return VEXMOOR_ERROR_TOO_LARGE;
		call.particle_count = u32(particleCount);
	}
	return FillInGeometry(call);
}

// A call, sorted.

// A sorter that borrows the pattern, so it is never destroyed, and owns nothing that would have to be.
class CSortFromC
{
public:
	CSortFromC(const vexmoor_call &call, const SSortJobs &jobs)
		: m_Call(call)
		, m_Jobs(call.jobs != null ? &jobs : null)
	{
		new (&m_Sorter) CTriangleSorter; // as a member it would be filled with zeros first, which takes 11 ns
		VX_MEMORY_CHANGES_TYPES();
		_SetUpOutput();
		_SetUpInput();
		_SetUpGeometry();
	}
	~CSortFromC() { VX_MEMORY_CHANGES_TYPES(); }
	CSortFromC(const CSortFromC &) = delete;
	CSortFromC &operator=(const CSortFromC &) = delete;

	// False if it is more than a size can say: of 32 bits without jobs.
	static bool WorkingBufferSize(const vexmoor_call &call, const SSortJobs *jobs, size_t &size)
	{
		u64 needed;
		if (SortsTriangles(call))
			needed = jobs != null
			             ? CTriangleSorter::GetJobsWorkingBufferSize_tri(call.triangle_index_count, jobs->m_MaxJobCount)
			             : CTriangleSorter::_TriangleWorkingBufferSize(call.triangle_index_count);
		else
			needed = jobs != null ? CTriangleSorter::GetJobsWorkingBufferSize(call.particle_count, jobs->m_MaxJobCount)
			                      : CTriangleSorter::_PointWorkingBufferSize(call.particle_count);
		size = size_t(needed);
		return needed <= (jobs != null ? u64(~size_t(0)) : kLargest32);
	}

	vexmoor_result Sort();
	vexmoor_result Check(vexmoor_finding_handler handler, void *userData) const;

private:
	void _SetUpOutput();
	void _SetUpInput();
	void _SetUpGeometry();
	void _SortIn(void *workingBuffer, u64 size);

	const vexmoor_call &m_Call;
	const SSortJobs *const m_Jobs; // or null
	union
	{
		CTriangleSorter m_Sorter;
	};
};

void CSortFromC::_SetUpOutput()
{
	if (m_Call.index_size == sizeof(u16))
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<u16>(static_cast<u16 *>(m_Call.indices), m_Call.index_capacity), m_Call.vertex_count);
	else
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<u32>(static_cast<u32 *>(m_Call.indices), m_Call.index_capacity), m_Call.vertex_count);
	m_Sorter.Setup_OutputMemory(CTriangleSorter::EOutputMemory(m_Call.output_memory));
}

template<typename _View>
static TStridedMemoryView<const _View> PagesAs(const vexmoor_view *pages, u32 pageCount)
{
	return {reinterpret_cast<const _View *>(pages), pageCount, sizeof(vexmoor_view)};
}

void CSortFromC::_SetUpInput()
{
	const u32 pageCount = m_Call.page_count;
	const CTriangleSorter::CEnabledPages enableds = m_Call.enabled != null
	                                                    ? PagesAs<CEnabledView>(m_Call.enabled, pageCount)
	                                                    : CTriangleSorter::CEnabledPages(&kNoneDisabled, pageCount, 0);
	const float *const camera = m_Call.camera_position;
	const CFloat3 cameraPosition(camera[0], camera[1], camera[2]);
	if (m_Call.positions != null)
		m_Sorter.Setup_InputPageCache(PagesAs<CPositionView>(m_Call.positions, pageCount), enableds,
			RenderedCounts(m_Call), m_Call.particle_count, cameraPosition);
	else
		m_Sorter.Setup_InputPageCache(PagesAs<CValueView>(m_Call.values, pageCount), enableds, RenderedCounts(m_Call),
			m_Call.particle_count, cameraPosition);
}

void CSortFromC::_SetUpGeometry()
{
	if (SortsTriangles(m_Call))
	{
		typedef CTriangleSorter::CIndexPattern CIndexPattern;
		m_Sorter.Setup_Geometry(TMemoryView<const CIndexPattern>(
									reinterpret_cast<const CIndexPattern *>(m_Call.page_patterns), m_Call.page_count),
			TMemoryView<const u32>(m_Call.page_vertex_counts, m_Call.page_count), m_Call.triangle_index_count);
		return;
	}
	const TMemoryView<u32> none; // is copied without memory
	const TMemoryView<const u32> indexList(m_Call.index_list, m_Call.index_list_count);
	if (m_Call.quad_centers != null)
		m_Sorter.Setup_Geometry(none, indexList,
			TMemoryView<const CFloat4>(
				reinterpret_cast<const CFloat4 *>(m_Call.quad_centers), m_Call.quad_center_count),
			m_Call.vertices_per_particle);
	else if (m_Call.index_list != null)
		m_Sorter.Setup_Geometry(none, indexList);
	else
		m_Sorter.Setup_Geometry(none, m_Call.vertices_per_particle);
	m_Sorter.m_IndexPattern =
		CTriangleSorter::CIndexPattern::Borrow(TMemoryView<const u32>(m_Call.pattern, m_Call.pattern_count));
}

void CSortFromC::_SortIn(void *workingBuffer, u64 size)
{
	if (SortsTriangles(m_Call) && m_Jobs != null)
		m_Sorter.SortTriangles_AutogenIndices(workingBuffer, size, *m_Jobs);
	else if (SortsTriangles(m_Call))
		m_Sorter.SortTriangles_AutogenIndices(workingBuffer);
	else if (m_Jobs != null)
		m_Sorter.SortPoints_AutogenIndices(workingBuffer, size, *m_Jobs);
	else
		m_Sorter.SortPoints_AutogenIndices(workingBuffer);
}

vexmoor_result CSortFromC::Sort()
{
	size_t needed;
	if (!WorkingBufferSize(m_Call, m_Jobs, needed))
		return VEXMOOR_ERROR_TOO_LARGE;
	void *const given = m_Call.working_buffer;
	if (given != null ? m_Call.working_buffer_size < needed || !Mem::IsAligned<kWorkingBufferAlignment>(given)
					  : m_Call.working_buffer_size != 0)
		return VEXMOOR_ERROR_WORKING_BUFFER;
	if (needed == 0)
		return VEXMOOR_OK; // nothing to draw

	if (given != null)
	{
		_SortIn(given, m_Call.working_buffer_size);
		return VEXMOOR_OK;
	}
	void *const taken = VX_ALLOC_GENERIC(needed);
	if (taken == null)
		return VEXMOOR_ERROR_OUT_OF_MEMORY;
	_SortIn(taken, needed);
	Mem::_FreeGeneric(taken);
	return VEXMOOR_OK;
}

// Findings.

struct SFindingHandler
{
	vexmoor_finding_handler m_Handler;
	void *m_UserData;

	void _Advice(const char *format, ...) const VX_PRINTF_LIKE(2, 3);
};

void SFindingHandler::_Advice(const char *format, ...) const
{
	char sentence[128];
	va_list arguments;
	va_start(arguments, format);
	std::vsnprintf(sentence, sizeof(sentence), format, arguments);
	va_end(arguments);
	m_Handler(m_UserData, VEXMOOR_ADVICE, sentence);
}

static void TellFinding(const SSortFinding &finding, void *handler)
{
	const SFindingHandler &told = *static_cast<const SFindingHandler *>(handler);
	const bool isViolation = finding.m_Kind == SortFinding_Violation;
	told.m_Handler(told.m_UserData, isViolation ? VEXMOOR_VIOLATION : VEXMOOR_ADVICE, finding.m_Sentence);
}

// A stride of 0 is legal, and what a field has that somebody forgot. Only the first page with one is named.
static void AdviseOfStride(const vexmoor_call &call, const SFindingHandler &handler)
{
	const vexmoor_view *const pages = SourcePages(call);
	const vexmoor_view *const end = pages + call.page_count;
	const vexmoor_view *const found =
		std::find_if(pages, end, [](const vexmoor_view &view) { return view.stride == 0 && view.count > 1; });
	const bool byPosition = call.positions != null;
	if (found != end)
		handler._Advice("Page %u has a stride of 0, so all its %s are the first one: packed ones have %u.",
			u32(found - pages), byPosition ? "positions" : "sort values", byPosition ? 12 : 4);
}

vexmoor_result CSortFromC::Check(vexmoor_finding_handler handler, void *userData) const
{
	SFindingHandler told = {handler, userData};
	const u32 violationCount = ValidateSort(m_Sorter, SortsTriangles(m_Call) ? SortEntry_Triangles : SortEntry_Points,
		m_Call.working_buffer, m_Call.working_buffer_size, handler != null ? &TellFinding : null, &told, m_Jobs);
	if (violationCount != 0)
		return VEXMOOR_ERROR_VIOLATION;
	if (handler != null)
		AdviseOfStride(m_Call, told);
	return VEXMOOR_OK;
}

// Hooks.

// What C has set: a handler and what is handed to it. Set at start-up, like the hooks themselves.
template<typename _Handler>
struct THook
{
	std::atomic<_Handler> m_Handler;
	std::atomic<void *> m_UserData;

	void Set(_Handler handler, void *userData)
	{
		m_UserData.store(userData, std::memory_order_relaxed);
		m_Handler.store(handler, std::memory_order_release);
	}
	_Handler Handler() const { return m_Handler.load(std::memory_order_acquire); }
	void *UserData() const { return m_UserData.load(std::memory_order_relaxed); }
};

static THook<vexmoor_report_handler> s_ReportHook;
static THook<vexmoor_warning_handler> s_WarningHook;
static THook<vexmoor_scope_handler> s_ScopeHook;

static int TellReport(const Assert::SReport &report, void *)
{
	const vexmoor_report told = {sizeof(vexmoor_report), report.m_Line, report.m_File, report.m_Function,
		report.m_ConditionText, report.m_ExpandedConditionText, report.m_Message};
	return s_ReportHook.Handler()(s_ReportHook.UserData(), &told);
}

static void TellWarning(const CLogUniqueCollection::SEntry &entry, void *)
{
	s_WarningHook.Handler()(s_WarningHook.UserData(), entry.m_Key.c_str(), entry.m_Message.c_str());
}

static void TellScope(const Profiler::SNodeDescriptor &node, bool entering, void *)
{
	const vexmoor_scope told = {sizeof(vexmoor_scope), node.m_ColorRGBA8, node.m_Name, node.m_FileAndFunction};
	s_ScopeHook.Handler()(s_ScopeHook.UserData(), &told, entering);
}

static vexmoor_allocator s_Allocator;

static void *AllocFromHost(
	void *, u64 size, u32 alignment, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
{
	return s_Allocator.allocate(s_Allocator.user_data, size, alignment);
}

static void FreeToHost(
	void *, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
{
	s_Allocator.release(s_Allocator.user_data, block);
}

static const char *ResultText(vexmoor_result result)
{
	switch (result)
	{
	case VEXMOOR_OK:
		return "Done.";
	case VEXMOOR_ERROR_NULL:
		return "A pointer that has no default is null.";
	case VEXMOOR_ERROR_STRUCT_SIZE:
		return "The structure's struct_size is not that of any version: set it to sizeof the structure.";
	case VEXMOOR_ERROR_UNKNOWN_FIELD:
		return "A field that this version of the library reserves or does not know is not 0.";
	case VEXMOOR_ERROR_INDEX_SIZE:
		return "The index_size is not 2 or 4, nor 0, which stands for 4.";
	case VEXMOOR_ERROR_PAGES:
		return "The page_count is 0, but a call has at least one page.";
	case VEXMOOR_ERROR_KEYS:
		return "A call has either positions or values, not both and not neither.";
	case VEXMOOR_ERROR_RENDERED_COUNTS:
		return "A call with enabled bytes has rendered_counts, too: how many of each page's bytes are not 0.";
	case VEXMOOR_ERROR_GEOMETRY:
		return "The geometry is not that of this sort: points share a pattern, triangles have page_patterns and "
			   "page_vertex_counts, and quad_centers come with an index_list.";
	case VEXMOOR_ERROR_WORKING_BUFFER:
		return "The working buffer has fewer bytes than vexmoor_working_buffer_size says, starts at no multiple of 16, "
			   "or is null, but has a size.";
	case VEXMOOR_ERROR_TOO_LARGE:
		return "The call has more particles or indices than a size of 32 bits has room for: split it.";
	case VEXMOOR_ERROR_OUT_OF_MEMORY:
		return "The allocator has no block for the working buffer.";
	case VEXMOOR_ERROR_VIOLATION:
		return "A rule is broken: the findings say which.";
	case VEXMOOR_ERROR_JOBS:
		return "The jobs have no function that runs them, or their max_job_count is 0.";
	default:
		return "This number is no result of this version of the library.";
	}
}
} // namespace Vexmoor

// Entry points.

using namespace Vexmoor;

static vexmoor_result SortCall(const vexmoor_call *call, bool sortsTriangles)
{
	vexmoor_call known;
	SSortJobs jobs;
	if (const vexmoor_result result = ReadCall(call, known, jobs); result != VEXMOOR_OK)
		return result;
	if (SortsTriangles(known) != sortsTriangles)
		return VEXMOOR_ERROR_GEOMETRY;
	return CSortFromC(known, jobs).Sort();
}

uint32_t vexmoor_version(void) noexcept
{
	return VX_VERSION;
}

const char *vexmoor_result_text(vexmoor_result result) noexcept
{
	return ResultText(result);
}

vexmoor_result vexmoor_working_buffer_size(const vexmoor_call *call, size_t *size) noexcept
{
	if (size == null)
		return VEXMOOR_ERROR_NULL;
	*size = 0;
	vexmoor_call known;
	SSortJobs jobs;
	if (const vexmoor_result result = ReadCall(call, known, jobs); result != VEXMOOR_OK)
		return result;
	size_t needed;
	if (!CSortFromC::WorkingBufferSize(known, known.jobs != null ? &jobs : null, needed))
		return VEXMOOR_ERROR_TOO_LARGE;
	*size = needed;
	return VEXMOOR_OK;
}

vexmoor_result vexmoor_sort_points(const vexmoor_call *call) noexcept
{
	return SortCall(call, false);
}

vexmoor_result vexmoor_sort_triangles(const vexmoor_call *call) noexcept
{
	return SortCall(call, true);
}

vexmoor_result vexmoor_check(const vexmoor_call *call, vexmoor_finding_handler handler, void *user_data) noexcept
{
	vexmoor_call known;
	SSortJobs jobs;
	if (const vexmoor_result result = ReadCall(call, known, jobs); result != VEXMOOR_OK)
		return result;
	return CSortFromC(known, jobs).Check(handler, user_data);
}

vexmoor_result vexmoor_sort_checked(const vexmoor_call *call, vexmoor_finding_handler handler, void *user_data) noexcept
{
	vexmoor_call known;
	SSortJobs jobs;
	if (const vexmoor_result result = ReadCall(call, known, jobs); result != VEXMOOR_OK)
		return result;
	CSortFromC sort(known, jobs);
	const vexmoor_result result = sort.Check(handler, user_data);
	return result == VEXMOOR_OK ? sort.Sort() : result;
}

void vexmoor_set_report_handler(vexmoor_report_handler handler, void *user_data) noexcept
{
	s_ReportHook.Set(handler, user_data);
	Assert::SetReportHandler(handler != null ? &TellReport : null, null);
}

void vexmoor_set_warning_handler(vexmoor_warning_handler handler, void *user_data) noexcept
{
	s_WarningHook.Set(handler, user_data);
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(handler != null ? &TellWarning : null, null);
}

void vexmoor_set_scope_handler(vexmoor_scope_handler handler, void *user_data) noexcept
{
	s_ScopeHook.Set(handler, user_data);
	Profiler::MainEngineProfiler()->SetScopeHandler(handler != null ? &TellScope : null, null);
}

vexmoor_result vexmoor_set_allocator(const vexmoor_allocator *allocator) noexcept
{
	if (allocator == null)
	{
		Mem::SetAllocator(null);
		return VEXMOOR_OK;
	}
	vexmoor_allocator known;
	if (const vexmoor_result result = ReadStruct(allocator, known); result != VEXMOOR_OK)
		return result;
	if (known.allocate == null || known.release == null)
		return VEXMOOR_ERROR_NULL;
	if (known.reserved != 0)
		return VEXMOOR_ERROR_UNKNOWN_FIELD;
	s_Allocator = known;
	const Mem::SAllocator host = {&AllocFromHost, &FreeToHost, null};
	Mem::SetAllocator(&host);
	return VEXMOOR_OK;
}
