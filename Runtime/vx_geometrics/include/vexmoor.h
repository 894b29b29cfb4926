#pragma once

// The sorter for C, from C99 on, and for every language that calls C. One structure describes a draw call, and one
// function sorts it: as CTriangleSorter does (ge_mesh_triangle_sorter.h), to the same bytes, at the same speed. No
// exception and no type of C++ passes through here.
//
//     const vexmoor_view page = {positions, count, 3 * sizeof(float)};
//     const uint32_t quad[] = {0, 1, 2, 0, 2, 3};
//     vexmoor_call call = {0};
//     call.struct_size = sizeof(call);
//     call.indices = mappedIndices;
//     call.index_capacity = count * 6;
//     call.positions = &page;
//     call.page_count = 1;
//     call.camera_position[2] = 10.0f;
//     call.pattern = quad;
//     call.pattern_count = 6;
//     vexmoor_result result = vexmoor_sort_points(&call);
//     if (result != VEXMOOR_OK)
//         puts(vexmoor_result_text(result));
//
// A field that is 0 has its default, which stands beside it. Counts of elements, sizes and strides have no default: 0
// means 0.
//
// Programs in C need not know how the library was built: with or without assertions, shared or static.
//
// Versions. Later versions append fields to structures, and struct_size says how many bytes of a structure the caller
// knows. A library of a later version takes a smaller structure, and reads zeros for the rest. A library of an earlier
// version takes a larger one, and refuses it if any byte that it does not know is not 0. In a structure that the
// library fills for a handler, struct_size says how many bytes it has filled.
//
// Threads. All functions but the setters of hooks may run on several threads at once, on different output and working
// buffers; the particles may be shared. Nothing is kept between two calls.

#include "vx_compiler.h"

// NOLINTBEGIN(modernize-deprecated-headers): C has these.
#include <stddef.h>
#include <stdint.h>
// NOLINTEND(modernize-deprecated-headers)

///@{
/// The version of this header. As one number, two digits each: 1.2.3 is 10203.
#define VEXMOOR_VERSION_MAJOR 1
#define VEXMOOR_VERSION_MINOR 0
#define VEXMOOR_VERSION_PATCH 0
#define VEXMOOR_VERSION (VEXMOOR_VERSION_MAJOR * 10000 + VEXMOOR_VERSION_MINOR * 100 + VEXMOOR_VERSION_PATCH)
///@}

///@{
/// How functions are declared: that a shared library exports them, that they throw nothing, and their calling
/// convention, which handlers have as well.
#ifdef __cplusplus
	#define VEXMOOR_API extern "C" VX_GEOMETRICS_API
	#define VEXMOOR_NOEXCEPT noexcept
#else
	#define VEXMOOR_API VX_GEOMETRICS_API
	#define VEXMOOR_NOEXCEPT
#endif
#define VEXMOOR_CALL VX_CDECL
///@}

/// What a function returns: VEXMOOR_OK, or why it did nothing.
typedef int32_t vexmoor_result;
/// The results. Later versions add some; vexmoor_result_text has a sentence for each.
enum
{
	VEXMOOR_OK = 0,                    ///< Done.
	VEXMOOR_ERROR_NULL = 1,            ///< A pointer that has no default is null.
	VEXMOOR_ERROR_STRUCT_SIZE = 2,     ///< struct_size is not that of any version's structure.
	VEXMOOR_ERROR_UNKNOWN_FIELD = 3,   ///< A field that this version reserves or does not know is not 0.
	VEXMOOR_ERROR_INDEX_SIZE = 4,      ///< index_size is not 0, 2 or 4.
	VEXMOOR_ERROR_PAGES = 5,           ///< page_count is 0.
	VEXMOOR_ERROR_KEYS = 6,            ///< Neither positions nor values are given, or both.
	VEXMOOR_ERROR_RENDERED_COUNTS = 7, ///< There are enabled bytes, but no rendered counts.
	VEXMOOR_ERROR_GEOMETRY = 8,        ///< The geometry is not that of this sort, or of two sorts at once.
	VEXMOOR_ERROR_WORKING_BUFFER = 9,  ///< The working buffer is too small, starts at no multiple of 16, or is null.
	VEXMOOR_ERROR_TOO_LARGE = 10,      ///< A count or a size does not fit in 32 bits.
	VEXMOOR_ERROR_OUT_OF_MEMORY = 11,  ///< The allocator has no block for the working buffer.
	VEXMOOR_ERROR_VIOLATION = 12,      ///< A rule is broken; the findings say which.
	VEXMOOR_ERROR_JOBS = 13            ///< The jobs have no function that runs them, or max_job_count is 0.
};

/// The elements of a page, of any alignment, which stay valid until the function returns. They are read and not
/// written.
typedef struct vexmoor_view
{
	const void *data; ///< The first element.
	uint32_t count;   ///< Elements.
	uint32_t stride;  ///< Bytes from one element to the next; packed ones have their size. 0: all are the first one.
} vexmoor_view;

/// The indices that each particle of a page draws, relative to its first vertex.
typedef struct vexmoor_pattern
{
	const uint32_t *indices; ///< Whole triangles; aligned like a uint32_t.
	uint32_t count;          ///< Indices, a multiple of 3 above 0.
	uint32_t reserved;       ///< 0.
} vexmoor_pattern;

/// One job of a sort. It uses up to 64 KiB of its thread's stack, and does not wait for other jobs.
typedef void(VEXMOOR_CALL *vexmoor_job)(void *context, uint32_t job_index);

/// The kinds of memory that an output lies in.
enum
{
	VEXMOOR_OUTPUT_WRITE_COMBINED = 0, ///< Mapped memory that the GPU reads: whole blocks bypass the caches.
	VEXMOOR_OUTPUT_CACHED = 1          ///< Ordinary memory that the CPU reads: every store goes through the caches.
};

/// How a host runs jobs, for one draw call of many particles on many cores.
typedef struct vexmoor_jobs
{
	uint32_t struct_size;   ///< sizeof(vexmoor_jobs).
	uint32_t max_job_count; ///< Jobs that run may be asked for at once, 1 or more: as many as there are threads.
	/// Calls job(context, job_index) once for each index below job_count, in any order, on any threads, and returns
	/// when all calls have returned. The sort calls it on the sorting thread only, several times.
	void(VEXMOOR_CALL *run)(void *user_data, uint32_t job_count, vexmoor_job job, void *context);
	void *user_data; ///< Handed to run.
} vexmoor_jobs;

/// One draw call. It and all that it points to have to stay valid until the function returns. The function writes the
/// output and the working buffer, which overlap nothing else, and only reads the rest. Arrays with an entry per page
/// are aligned like their elements.
typedef struct vexmoor_call
{
	uint32_t struct_size; ///< sizeof(vexmoor_call).

	/// Bytes of an index: 4 or 2. With 2, every index has to be below 0xFFFF. 0 means 4.
	uint32_t index_size;
	/// The output. Whole patterns, or triangles, are written from the first index on, front to back, each index once,
	/// and never read: fit for mapped, write-combined memory. Aligned like its indices; a multiple of 16 bytes is fast.
	void *indices;
	/// Indices that the output has room for. With too few, the farthest particles or triangles are not drawn.
	uint32_t index_capacity;
	/// Vertices that the indices may address. A particle whose vertices lie beyond draws vertex 0's instead; in a sort
	/// of triangles it is not drawn. 0: as many as indices can address, 4,294,967,295 or 65,535.
	uint32_t vertex_count;

	/// Exactly one of positions and values is given, with a view per page. By position (x, y and z, three floats) the
	/// particle farthest from the camera is drawn first; by value (a float) the one with the lowest value. Packed
	/// positions (a stride of 12) and values (4) are fast. By position, pages with disabled particles are drawn before
	/// all pages without: if there are both, sort by values of 0 - squared distance.
	const vexmoor_view *positions;
	const vexmoor_view *values; ///< See positions.
	/// A view per page of bytes (a stride of 1), one for each particle, 0 for a disabled one, which is not drawn. The
	/// view of a page without disabled particles may be empty. Null: no particle of any page is disabled.
	const vexmoor_view *enabled;
	/// Per page, how many particles are drawn: with enabled bytes, as many as are not 0; without, all or the first
	/// ones. Null, which calls with enabled bytes may not have: all elements of the page's view.
	const uint32_t *rendered_counts;
	/// Pages; at least 1.
	uint32_t page_count;
	/// Particles drawn on all pages together. 0: the sum over the pages.
	uint32_t particle_count;
	/// In the space of the positions and the quad centres.
	float camera_position[3];

	// Geometry that all particles share: vexmoor_sort_points. Particles are numbered as they lie in the pages, without
	// those that are not drawn; particle i has the vertices from i * vertices_per_particle on.

	/// Vertices of a particle. 0: the pattern's largest index, plus 1.
	uint32_t vertices_per_particle;
	/// The indices that each particle draws, relative to its first vertex; aligned like a uint32_t. 1 (with the index
	/// 0), 3, 6 and 12 of them are fast. Null: one index, 0, so the output is a sorted list of particles' numbers.
	const uint32_t *pattern;
	/// Per particle its first vertex, in place of i * vertices_per_particle; an entry at or beyond vertex_count draws
	/// at vertex 0. Of any alignment. Null: vertices lie in the particles' order.
	const uint32_t *index_list;
	/// With an index list, for particles of several quads (six indices each, at most 15 of them): has the quads inside
	/// each particle drawn back to front, too. Quad q of the particle whose first vertex is v has its centre, four
	/// floats of which the last is not read, in slot v / vertices_per_particle * 16 + q. Aligned like floats. Null:
	/// quads stay in the pattern's order.
	const float *quad_centers;
	uint32_t pattern_count;     ///< Indices of the pattern; with a null pattern 0.
	uint32_t index_list_count;  ///< Entries of the index list, one per particle or more.
	uint32_t quad_center_count; ///< Slots of quad centres, 16 per particle.

	// Geometry that each page has of its own: vexmoor_sort_triangles.

	/// Indices that the particles of all pages draw, a multiple of 3. 0: the sum over the pages of rendered count times
	/// pattern width.
	uint32_t triangle_index_count;
	/// A pattern per page. Null: all particles share the geometry above.
	const vexmoor_pattern *page_patterns;
	/// Per page the vertices of a particle, not 0. There is no default.
	const uint32_t *page_vertex_counts;

	/// Ordinary memory, 16-byte aligned, whose contents mean nothing afterwards. Null, with a size of 0: a block is
	/// taken from the allocator and given back.
	void *working_buffer;
	/// Bytes of the working buffer, at least as many as vexmoor_working_buffer_size says.
	size_t working_buffer_size;

	/// Jobs that sort the call together, to the same indices; few particles are sorted without them. Null: the calling
	/// thread sorts.
	const vexmoor_jobs *jobs;

	/// Which kind of memory the output is; the indices are the same. VEXMOOR_OUTPUT_CACHED is for an array that a copy
	/// uploads, or that the CPU reads next: sorts of few particles then take a fraction of the time. 0: memory that may
	/// be write-combined. A sort that is not checked takes any other number for 0.
	uint32_t output_memory;
	uint32_t reserved; ///< 0.
} vexmoor_call;

/// The version of the library that runs, as a number like VEXMOOR_VERSION.
VEXMOOR_API uint32_t VEXMOOR_CALL vexmoor_version(void) VEXMOOR_NOEXCEPT;

/// A sentence in English that explains a result. A number that is no result has a sentence, too. Never null; valid as
/// long as the library is loaded.
VEXMOOR_API const char *VEXMOOR_CALL vexmoor_result_text(vexmoor_result result) VEXMOOR_NOEXCEPT;

/// The bytes of working buffer that the sort of this call needs, of triangles if it has page_patterns, of points
/// otherwise. Output and working buffer need not be there yet: neither is looked at.
/// size  receives the bytes; 0 with every result but VEXMOOR_OK
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_working_buffer_size(
	const vexmoor_call *call, size_t *size) VEXMOOR_NOEXCEPT;

/// Sorts the particles of geometry that all of them share, and writes the pattern of each into the output.
/// Returns  VEXMOOR_OK; or an error, and nothing is written. A call without particles is no error
/// Trusts   the call: memory outside the caller's is read or written if a pointer or a count is wrong
/// Memory   allocates nothing but the working buffer, if none is given; takes 22,016 bytes of stack above 109 particles
/// Reports  broken rules to the report handler, in libraries with assertions, and slow paths to the warning handler
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_sort_points(const vexmoor_call *call) VEXMOOR_NOEXCEPT;

/// Sorts the triangles of geometry that each page has of its own, under their particle's key, and writes them into the
/// output. What vexmoor_sort_points says of returns, trust, memory and reports holds here, too.
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_sort_triangles(const vexmoor_call *call) VEXMOOR_NOEXCEPT;

/// Whether a finding is an error.
typedef int32_t vexmoor_finding_kind;
/// The kinds.
enum
{
	VEXMOOR_VIOLATION = 0, ///< A rule is broken.
	VEXMOOR_ADVICE = 1     ///< Legal, but slow or seldom meant.
};

/// Receives a finding, on the calling thread. The sentence names the page, the particle and the numbers that disagree,
/// and lives until the handler returns.
typedef void(VEXMOOR_CALL *vexmoor_finding_handler)(void *user_data, vexmoor_finding_kind kind, const char *sentence);

/// Checks a call by every rule of its sort, of triangles if it has page_patterns, of points otherwise, and sorts it if
/// none is broken: for calls whose numbers may be wrong. With VEXMOOR_ERROR_VIOLATION, as with every error, nothing is
/// written.
/// handler    receives each finding in turn. Null: nobody receives them
/// user_data  handed to it
/// Limits     cannot see memory that is not there: a dangling pointer, or a count of more elements than there are
/// Cost       one pass over the enabled bytes and the index list; nothing is allocated for it
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_sort_checked(
	const vexmoor_call *call, vexmoor_finding_handler handler, void *user_data) VEXMOOR_NOEXCEPT;

/// Checks a call like vexmoor_sort_checked, and does not sort.
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_check(
	const vexmoor_call *call, vexmoor_finding_handler handler, void *user_data) VEXMOOR_NOEXCEPT;

// Hooks: one of each for the whole process, shared with hosts in C++. Set them at start-up, while nothing sorts. They
// are called on the sorting thread, throw nothing and leave by no jump. user_data is handed to them.

/// What a report handler answers.
typedef int32_t vexmoor_decision;
/// The answers.
enum
{
	VEXMOOR_BREAK = 0,   ///< Trap into the debugger, then carry on.
	VEXMOOR_IGNORE = 1,  ///< Carry on, and never report from this place again.
	VEXMOOR_CONTINUE = 2 ///< Carry on.
};

/// A broken rule. The texts live until the handler returns.
typedef struct vexmoor_report
{
	uint32_t struct_size;           ///< How much is filled.
	int32_t line;                   ///< Where in the library's source.
	const char *file;               ///< Which source.
	const char *function;           ///< Which function, with its signature.
	const char *condition;          ///< The condition that is broken.
	const char *expanded_condition; ///< The condition after macro expansion.
	const char *message;            ///< The condition again, or a message about it.
} vexmoor_report;

/// Receives a broken rule.
typedef vexmoor_decision(VEXMOOR_CALL *vexmoor_report_handler)(void *user_data, const vexmoor_report *report);

/// Sets the handler of broken rules. Null: a line on stderr, once for each place. Libraries without assertions report
/// nothing.
VEXMOOR_API void VEXMOOR_CALL vexmoor_set_report_handler(
	vexmoor_report_handler handler, void *user_data) VEXMOOR_NOEXCEPT;

/// Receives a slow path when it is taken for the first time. Both texts live until the handler returns.
typedef void(VEXMOOR_CALL *vexmoor_warning_handler)(void *user_data, const char *site, const char *message);

/// Sets the handler of slow paths. Null: a line on stderr.
VEXMOOR_API void VEXMOOR_CALL vexmoor_set_warning_handler(
	vexmoor_warning_handler handler, void *user_data) VEXMOOR_NOEXCEPT;

/// A stage of a sort.
typedef struct vexmoor_scope
{
	uint32_t struct_size; ///< How much is filled.
	uint32_t color_rgba8; ///< Red in the lowest byte.
	const char *name;     ///< Lives as long as the library.
	const char *file;     ///< Lives as long as the library.
} vexmoor_scope;

/// Receives a stage when it begins (entering is 1) and when it ends (0), on one thread; stages nest. The address of the
/// structure does not identify a stage; its name does.
typedef void(VEXMOOR_CALL *vexmoor_scope_handler)(void *user_data, const vexmoor_scope *scope, int32_t entering);

/// Sets the handler of stages, for a profiler. Null: stages are not told, which costs one test per stage.
VEXMOOR_API void VEXMOOR_CALL vexmoor_set_scope_handler(
	vexmoor_scope_handler handler, void *user_data) VEXMOOR_NOEXCEPT;

/// A host's allocator. Both functions may be called from any thread.
typedef struct vexmoor_allocator
{
	uint32_t struct_size; ///< sizeof(vexmoor_allocator).
	uint32_t reserved;    ///< 0.
	/// Returns at least size bytes at a multiple of alignment, a power of two; or null.
	void *(VEXMOOR_CALL *allocate)(void *user_data, uint64_t size, uint32_t alignment);
	/// Takes back a block of allocate, never null.
	void(VEXMOOR_CALL *release)(void *user_data, void *block);
	void *user_data; ///< Handed to both.
} vexmoor_allocator;

/// Sets the allocator from which a call takes the working buffer that it is not given. The structure is copied. Null:
/// the heap.
VEXMOOR_API vexmoor_result VEXMOOR_CALL vexmoor_set_allocator(const vexmoor_allocator *allocator) VEXMOOR_NOEXCEPT;
