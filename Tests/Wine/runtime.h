#pragma once

// Included before everything else where clang compiles for Microsoft's ABI with LLVM's standard library and wine's
// headers of the C library: what the former expects of the latter and does not find.

#include <math.h>
#include <time.h>

struct timespec
{
	time_t tv_sec;
	long tv_nsec;
};

template<typename _Float>
inline bool isnan(_Float value)
{
	return __builtin_isnan(value);
}
template<typename _Float>
inline bool isinf(_Float value)
{
	return __builtin_isinf(value);
}
template<typename _Float>
inline bool isfinite(_Float value)
{
	return __builtin_isfinite(value);
}
