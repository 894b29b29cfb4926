#pragma once

// Where the library writes files: to a function of the caller's, which owns the file, the socket or the memory.

#include "vx_defs.h"

#include <cstdio>

namespace Vexmoor
{
/// Takes the next size bytes, at least one; false ends the writing.
typedef bool (*CbWrite)(const void *bytes, u64 size, void *userData);

/// A CbWrite for the standard library's files: userData is a FILE *, open for writing in binary mode.
inline bool WriteToFile(const void *bytes, u64 size, void *userData)
{
	return std::fwrite(bytes, 1, size, static_cast<std::FILE *>(userData)) == size;
}
} // namespace Vexmoor
