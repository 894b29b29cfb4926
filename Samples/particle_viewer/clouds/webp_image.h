#pragma once

// Reads lossless WebP images as tables of bytes.

#include "vx_defs.h"

#include <string>
#include <string_view>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SImage
{
	u32 m_Width = 0;
	u32 m_Height = 0;
	std::vector<u8> m_Rgba; ///< Four bytes a pixel, row after row from the top.

	u64 PixelCount() const { return u64(m_Width) * m_Height; }
	const u8 *Pixel(u64 pixel) const { return &m_Rgba[4 * pixel]; }
};

/// Unpacks an image. One that is damaged, has lost anything, or has fewer or more pixels than said, is a CFailure that
/// names it.
SImage ReadWebp(const std::string &name, std::string_view bytes, u64 minPixelCount, u64 maxPixelCount);
} // namespace Viewer
