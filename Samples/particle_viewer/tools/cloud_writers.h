#pragma once

// Files of splats and points, one writer for each format that the viewer reads. Packed formats round to the nearest
// step.

#include "made_splats.h"
#include <string>

namespace Viewer
{
/// Splats as they come out of training.
std::string WriteSplatPly(const SMadeSplats &splats);
/// The splats in chunks of 256, in the order in which they lie.
std::string WritePackedPly(const SMadeSplats &splats);
/// 32 bytes a splat, without spherical harmonics.
std::string WriteSplat(const SMadeSplats &splats);
/// Versions 1, 2 and 3.
std::string WriteSpz(const SMadeSplats &splats, u32 version);
/// Up to 65,536 splats have spherical harmonics of their own, more of them share.
std::string WriteSog(const SMadeSplats &splats);

enum class EPointFormat
{
	Ascii,
	LittleEndian,
	BigEndian
};

/// Points of a PLY file: positions, colours, and a number "age".
std::string WritePoints(const SMadeSplats &splats, EPointFormat format);
} // namespace Viewer
