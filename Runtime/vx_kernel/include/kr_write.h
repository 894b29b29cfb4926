#pragma once

// Where the library writes files: to a function of the caller's, which owns the file, the socket or the memory.

#include "vx_defs.h"

#include <cstdio>

namespace Vexmoor
{
/// Takes the next size bytes, at least one; false ends the writing.
typedef bool (*CbWrite)(const void *bytes, u64 size, void *userData);

/// A CbWrite for the standard library's files: userData is a FILE *, open for writing in binary mode. The bytes are
/// flushed, so that true means that the operating system has taken them, and a full disk is noticed here and not at
/// fclose. Pieces have kilobytes, so a flush after each costs little. A file system that writes later, such as a
/// network's, may still fail: then fclose says so.
inline bool WriteToFile(const void *bytes, u64 size, void *userData)
{
	std::FILE *const file = static_cast<std::FILE *>(userData);
	return std::fwrite(bytes, 1, size, file) == size && std::fflush(file) == 0;
}
} // namespace Vexmoor
