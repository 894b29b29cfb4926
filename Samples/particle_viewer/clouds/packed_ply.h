#pragma once

// Reads PLY files with packed splats. A chunk has 256 splats, each of four 32-bit words, whose numbers are fractions of
// the chunk's range.

#include "ply_header.h"
#include "point_cloud.h"

namespace Viewer
{
/// Whether the vertices are packed.
bool IsPackedPly(const SPlyHeader &header);
SPointCloud ReadPackedPly(std::string_view file, const SPlyHeader &header, const SCloudOptions &options);
} // namespace Viewer
