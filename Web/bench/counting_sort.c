// The counting sort of javascript_sorts.mjs once more, in C for WebAssembly: by what the language alone changes.

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#define EXPORT(_name) __attribute__((export_name(#_name)))

enum
{
	kSteps = 1 << 16
};
static uint32_t s_Counters[kSteps];

extern unsigned char __heap_base; // the linker's: where memory is free

// Where the first array may lie. JavaScript places the others behind it and grows the memory.
EXPORT(heap_base) uintptr_t heap_base(void)
{
	return ((uintptr_t)&__heap_base + 63) & ~(uintptr_t)63;
}

// Writes the points' numbers in 65,536 steps of depth along the view axis, the farthest first.
EXPORT(sort)
void sort(const float *restrict positions,
	float *restrict depths,
	uint16_t *restrict steps,
	uint32_t *restrict indices,
	uint32_t count,
	float x,
	float y,
	float z)
{
	float lowest = __builtin_inff();
	float highest = -__builtin_inff();
	for (uint32_t i = 0; i < count; ++i)
	{
		const float depth = positions[3 * i] * x + positions[3 * i + 1] * y + positions[3 * i + 2] * z;
		depths[i] = depth;
		lowest = depth < lowest ? depth : lowest;
		highest = depth > highest ? depth : highest;
	}
	const float stepsPerUnit = 65535.0f / (highest - lowest);
	memset(s_Counters, 0, sizeof(s_Counters));
	for (uint32_t i = 0; i < count; ++i)
	{
		const uint16_t step = (uint16_t)(int32_t)((depths[i] - lowest) * stepsPerUnit);
		steps[i] = step;
		++s_Counters[step];
	}
	uint32_t sum = 0;
	for (uint32_t step = 0; step < kSteps; ++step)
	{
		const uint32_t stepCount = s_Counters[step];
		s_Counters[step] = sum;
		sum += stepCount;
	}
	for (uint32_t i = 0; i < count; ++i)
		indices[s_Counters[steps[i]]++] = i;
}
