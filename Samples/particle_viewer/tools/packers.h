#pragma once

// Containers of packed clouds: a gzip stream, a zip archive, an image.

#include "vx_defs.h"

#include <map>
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

std::string Gzip(const std::string &bytes);
/// The files of these names, not compressed.
std::string Zip(const std::map<std::string, std::string> &files);
/// Four bytes a pixel, row after row. Without loss, all of them come back, also the colours under an alpha of 0.
std::string Webp(const std::vector<u8> &rgba, u32 width, bool lossless = true);
} // namespace Viewer
