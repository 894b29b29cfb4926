#pragma once

// A scene made of a file: points or splats that stay in place while the camera goes around them, or a captured draw
// call.

#include "point_cloud.h"
#include "scene_list.h"
#include <string>

namespace Viewer
{
/// Reads a file of any format that there is a reader for, which it is told by its content. Options are those of points
/// and splats. What is wrong with it is a CFailure that names it.
SSceneKind ReadFileScene(const std::string &path, const SCloudOptions &options);
} // namespace Viewer
