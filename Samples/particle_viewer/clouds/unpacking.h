#pragma once

// Limits how much may be unpacked from a compressed file. Compression can turn a thousand zeros into one byte, so a
// small file can ask for more memory than there is.

#include "vx_defs.h"

#include <string>

namespace Viewer
{
using namespace Vexmoor;

/// How many times the size of its file a cloud may have. Splats differ in every attribute, and files of them are packed
/// to a half or a third.
constexpr u64 kMaxExpansion = 100;

/// A cloud of more than kMaxExpansion times its file's size, in bytes, is a CFailure. `what` claims the size.
void RequirePlausibleSize(const std::string &what, u64 unpackedSize, u64 fileSize);
} // namespace Viewer
