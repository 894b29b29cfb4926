/* The interface for C as a program in C99 sees it: sorts of both kinds, a refused call, the hooks and the versions. It
   exits with 0 if all is as it should be, and otherwise says what is not. */

#include "vexmoor.h"
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int s_FailureCount;

#define EXPECT(_condition)                                                                       \
	do                                                                                           \
	{                                                                                            \
		if (!(_condition))                                                                       \
		{                                                                                        \
			fprintf(stderr, "%s:%d: this does not hold: %s\n", __FILE__, __LINE__, #_condition); \
			++s_FailureCount;                                                                    \
		}                                                                                        \
	} while (0)

static const float s_Positions[3][3] = {
	{0, 0, 5},
    {0, 0, 9},
    {0, 0, 1}
};
static const uint32_t s_Quad[6] = {0, 1, 2, 0, 2, 3};

/* Three particles of one page, of which particle 1 is the farthest and particle 2 the nearest. */
static vexmoor_call CallOf(const vexmoor_view *page, uint32_t *indices, uint32_t capacity)
{
	vexmoor_call call = {0};
	call.struct_size = sizeof(call);
	call.indices = indices;
	call.index_capacity = capacity;
	call.positions = page;
	call.page_count = 1;
	return call;
}

static void SortPoints(void)
{
	static const uint32_t drawn[] = {4, 5, 6, 4, 6, 7, 0, 1, 2, 0, 2, 3, 8, 9, 10, 8, 10, 11};
	const vexmoor_view page = {s_Positions, 3, sizeof(s_Positions[0])};
	uint32_t indices[18] = {0};
	vexmoor_call call = CallOf(&page, indices, 18);
	size_t size = 0;
	void *workingBuffer;
	call.pattern = s_Quad;
	call.pattern_count = 6;
	EXPECT(vexmoor_working_buffer_size(&call, &size) == VEXMOOR_OK);
	EXPECT(size == 64);
	workingBuffer = malloc(size); /* at a multiple of 16 on 64-bit processors */
	call.working_buffer = workingBuffer;
	call.working_buffer_size = size;
	EXPECT(vexmoor_sort_points(&call) == VEXMOOR_OK);
	EXPECT(memcmp(indices, drawn, sizeof(drawn)) == 0);

	memset(indices, 0, sizeof(indices));
	call.output_memory = VEXMOOR_OUTPUT_CACHED;
	EXPECT(vexmoor_sort_points(&call) == VEXMOOR_OK);
	EXPECT(memcmp(indices, drawn, sizeof(drawn)) == 0);
	free(workingBuffer);
}

static void SortTriangles(void)
{
	const vexmoor_view page = {s_Positions, 3, sizeof(s_Positions[0])};
	const vexmoor_pattern pattern = {s_Quad, 3, 0};
	const uint32_t vertexCount = 3;
	static const uint32_t drawn[] = {3, 4, 5, 0, 1, 2, 6, 7, 8};
	uint32_t indices[9] = {0};
	vexmoor_call call = CallOf(&page, indices, 9);
	call.page_patterns = &pattern;
	call.page_vertex_counts = &vertexCount;
	EXPECT(vexmoor_sort_triangles(&call) == VEXMOOR_OK);
	EXPECT(memcmp(indices, drawn, sizeof(drawn)) == 0);
	EXPECT(vexmoor_sort_points(&call) == VEXMOOR_ERROR_GEOMETRY);
}

typedef struct SFindings
{
	int m_ViolationCount;
	char m_Last[256];
} SFindings;

static void VEXMOOR_CALL OnFinding(void *userData, vexmoor_finding_kind kind, const char *sentence)
{
	SFindings *findings = userData;
	if (kind != VEXMOOR_VIOLATION)
		return;
	++findings->m_ViolationCount;
	snprintf(findings->m_Last, sizeof(findings->m_Last), "%s", sentence);
}

static void RefuseWhatIsBroken(void)
{
	const vexmoor_view page = {s_Positions, 3, sizeof(s_Positions[0])};
	const uint32_t fourRendered = 4;
	uint32_t indices[3] = {7, 7, 7};
	SFindings findings = {0, ""};
	vexmoor_call call = CallOf(&page, indices, 3);
	EXPECT(vexmoor_sort_checked(&call, OnFinding, &findings) == VEXMOOR_OK);
	EXPECT(indices[0] == 1 && indices[1] == 0 && indices[2] == 2);

	call.rendered_counts = &fourRendered;
	indices[0] = 7;
	EXPECT(vexmoor_sort_checked(&call, OnFinding, &findings) == VEXMOOR_ERROR_VIOLATION);
	EXPECT(findings.m_ViolationCount == 1);
	EXPECT(strcmp(findings.m_Last, "Page 0 renders 4 particles, but has positions for 3.") == 0);
	EXPECT(indices[0] == 7);
	EXPECT(strcmp(vexmoor_result_text(VEXMOOR_ERROR_VIOLATION), "A rule is broken: the findings say which.") == 0);
}

static void *VEXMOOR_CALL Allocate(void *userData, uint64_t size, uint32_t alignment)
{
	static char s_Memory[256 + 16];
	const uintptr_t address = (uintptr_t)s_Memory;
	++*(int *)userData;
	EXPECT(size <= 256 && alignment == 16);
	return s_Memory + (16 - address % 16) % 16;
}

static void VEXMOOR_CALL Release(void *userData, void *block)
{
	EXPECT(block != NULL);
	--*(int *)userData;
}

static void VEXMOOR_CALL OnScope(void *userData, const vexmoor_scope *scope, int32_t entering)
{
	EXPECT(scope->struct_size == sizeof(*scope) && scope->name[0] != '\0');
	*(int *)userData += entering ? 1 : -1;
}

static void VEXMOOR_CALL OnWarning(void *userData, const char *site, const char *message)
{
	EXPECT(site[0] == '[' && message[0] != '\0');
	++*(int *)userData;
}

static vexmoor_decision VEXMOOR_CALL OnReport(void *userData, const vexmoor_report *report)
{
	EXPECT(report->struct_size == sizeof(*report) && report->condition[0] != '\0');
	++*(int *)userData;
	return VEXMOOR_CONTINUE;
}

static void PlugIn(void)
{
	const vexmoor_view page = {s_Positions, 2, 16}; /* a stride that is slow, and says so */
	uint32_t indices[3];
	int blockCount = 0, scopeCount = 0, warningCount = 0, reportCount = 0;
	vexmoor_allocator allocator = {sizeof(allocator), 0, Allocate, Release, NULL};
	vexmoor_call call = CallOf(&page, indices, 3);
	allocator.user_data = &blockCount;
	EXPECT(vexmoor_set_allocator(&allocator) == VEXMOOR_OK);
	vexmoor_set_scope_handler(OnScope, &scopeCount);
	vexmoor_set_warning_handler(OnWarning, &warningCount);
	vexmoor_set_report_handler(OnReport, &reportCount);
	EXPECT(vexmoor_sort_points(&call) == VEXMOOR_OK);
	EXPECT(blockCount == 0 && scopeCount == 0 && warningCount >= 1 && reportCount == 0);

	call.pattern = s_Quad; /* of no entry, which is a broken rule */
	EXPECT(vexmoor_sort_points(&call) == VEXMOOR_OK);
	EXPECT(reportCount <= 1); /* 0 in a library without assertions */

	EXPECT(vexmoor_set_allocator(NULL) == VEXMOOR_OK);
	vexmoor_set_scope_handler(NULL, NULL);
	vexmoor_set_warning_handler(NULL, NULL);
	vexmoor_set_report_handler(NULL, NULL);
}

int main(void)
{
	EXPECT(vexmoor_version() / 10000 == VEXMOOR_VERSION_MAJOR);
	SortPoints();
	SortTriangles();
	RefuseWhatIsBroken();
	PlugIn();
	return s_FailureCount != 0;
}
