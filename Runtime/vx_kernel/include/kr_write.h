#pragma once

// How the library writes a file: through a function of the caller, who owns the file, the socket or the memory.

#include "vx_defs.h"

#include <cstdio>

namespace Vexmoor
{
/// Receives the next bytes of a file, at least one. Returns false to end the writing.
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
