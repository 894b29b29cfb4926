#pragma once

// Reads files of points and splats. Nothing in a file is trusted: each size is compared with the bytes that are there
// before it is used, and the whole file is read before anything is drawn. So a file that was cut short or damaged is
// refused, and not drawn in part.

#include "point_cloud.h"
#include <string_view>

namespace Viewer
{
/// Reads a file of any of the formats below, which it is told by its content. What is wrong with a file, or what else
/// it is, is a CFailure whose sentence starts with the place in it.
SPointCloud ReadCloud(std::string_view file, const SCloudOptions &options);

// Of one format each.

/// Points with or without colours; splats as they come out of training; or splats packed in chunks of 256.
SPointCloud ReadPlyCloud(std::string_view file, const SCloudOptions &options);
/// 32 bytes a splat: position and scale, three floats each; red, green, blue, alpha; a rotation w, x, y, z of bytes.
SPointCloud ReadSplatCloud(std::string_view file, const SCloudOptions &options);
/// A gzip stream of a header and an array for each attribute of splats.
SPointCloud ReadSpzCloud(std::string_view file, const SCloudOptions &options);
/// A zip archive of meta.json and an image for each attribute of splats.
SPointCloud ReadSogCloud(std::string_view file, const SCloudOptions &options);
} // namespace Viewer
