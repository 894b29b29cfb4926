#pragma once

// The sprites of billboards: soft puffs of smoke, a glow and a drop, as layers of one texture, painted when the program
// starts.

#include "vx_defs.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

constexpr u32 kSpriteSide = 64;
constexpr u32 kPuffCount = 7; // layers 0 to 6
constexpr u32 kGlowSprite = kPuffCount;
constexpr u32 kDropSprite = kPuffCount + 1;
constexpr u32 kSpriteCount = kPuffCount + 2;

/// One byte a texel, layer after layer.
std::vector<u8> PaintSprites();
} // namespace Viewer
