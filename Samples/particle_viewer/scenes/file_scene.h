#pragma once

// A scene out of a file: the camera goes around points or splats that stay where they are.

#include "scene_list.h"
#include <string>

namespace Viewer
{
enum class EFileFormat
{
	Ply,
	Splat
};

/// Reads the file. What is wrong with it is a CFailure that names it. A property to sort by, instead of the distance, is
/// a number per vertex; none is named by "".
SSceneKind ReadFileScene(const std::string &path, EFileFormat format, const std::string &sortBy);
} // namespace Viewer
