#pragma once

// A scene out of a file: the camera goes around points or splats that stay where they are.

#include "point_cloud.h"
#include "scene_list.h"
#include <string>

namespace Viewer
{
/// Reads a file of any format that there is a reader for. What is wrong with it is a CFailure that names it.
SSceneKind ReadFileScene(const std::string &path, const SCloudOptions &options);
} // namespace Viewer
