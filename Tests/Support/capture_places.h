#pragma once

// Where a capture says that the memory of its call lies, read straight from the file.

#include "vx_defs.h"

#include <vector>

namespace Support
{
/// The offsets in a whole capture of version 2 of all of its places: 8 bytes each, which differ from one run of a
/// process to the next.
std::vector<Vexmoor::u64> PlaceOffsets(const std::vector<Vexmoor::u8> &capture);

/// The place at an offset.
Vexmoor::u64 PlaceAt(const std::vector<Vexmoor::u8> &capture, Vexmoor::u64 offset);

/// The capture with the remainder modulo 16 of each place, which is the same in every run, in its place, and a checksum
/// of 0.
std::vector<Vexmoor::u8> WithoutPlaces(std::vector<Vexmoor::u8> capture);
} // namespace Support
