#pragma once

// PLY files whose splats are packed: 256 in a chunk, four words of 32 bits each, in fractions of what the chunk spans.

#include "ply_header.h"
#include "point_cloud.h"

namespace Viewer
{
/// Whether the vertices are packed.
bool IsPackedPly(const SPlyHeader &header);
SPointCloud ReadPackedPly(std::string_view file, const SPlyHeader &header, const SCloudOptions &options);
} // namespace Viewer
