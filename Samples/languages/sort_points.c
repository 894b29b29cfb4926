/* Billboards in C: four particles, of which the farthest is drawn first. */

#include "vexmoor.h"
#include <stdio.h>

int main(void)
{
	static const float positions[4][3] = {
		{0, 0, 3},
        {0, 0, 9},
        {0, 0, 1},
        {0, 0, 5}
    };
	static const uint32_t quad[6] = {0, 1, 2, 0, 2, 3};
	const vexmoor_view page = {positions, 4, sizeof(positions[0])};
	uint32_t indices[4 * 6];

	vexmoor_call call = {0};
	call.struct_size = sizeof(call);
	call.indices = indices;
	call.index_capacity = 4 * 6;
	call.positions = &page;
	call.page_count = 1;
	call.pattern = quad;
	call.pattern_count = 6;
	call.output_memory = VEXMOOR_OUTPUT_CACHED;               /* indices are an array, not a mapped buffer */
	const vexmoor_result result = vexmoor_sort_points(&call); /* the camera is at 0, 0, 0 */
	if (result != VEXMOOR_OK)
	{
		fprintf(stderr, "%s\n", vexmoor_result_text(result));
		return 1;
	}
	for (int i = 0; i < 4; ++i)
		printf("particle %u\n", (unsigned)indices[i * 6] / 4);
	return indices[0] / 4 == 1 ? 0 : 1;
}
