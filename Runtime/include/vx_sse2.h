#pragma once

// The four-lane intrinsics: the compiler's own SSE2, or with VEXMOOR_SIMDE, SIMDe's of the same names, for processors
// that have none.

#if defined(VEXMOOR_SIMDE)
	#define SIMDE_ENABLE_NATIVE_ALIASES
	#include <simde/x86/sse2.h>
#else
	#include <emmintrin.h>
#endif
