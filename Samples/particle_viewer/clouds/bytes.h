#pragma once

// Numbers out of the bytes of a file, the low byte first.

#include "vx_defs.h"

#include <cstring>

namespace Viewer
{
using namespace Vexmoor;

inline u32 LoadU16(const char *bytes)
{
	return u32(u8(bytes[0])) | u32(u8(bytes[1])) << 8;
}

inline u32 LoadU24(const char *bytes)
{
	return LoadU16(bytes) | u32(u8(bytes[2])) << 16;
}

inline u32 LoadU32(const char *bytes)
{
	return LoadU24(bytes) | u32(u8(bytes[3])) << 24;
}

inline float LoadFloat(const char *bytes)
{
	const u32 bits = LoadU32(bytes);
	float number;
	std::memcpy(&number, &bits, sizeof(number));
	return number;
}
} // namespace Viewer
