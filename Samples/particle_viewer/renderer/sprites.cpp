// A puff is a soft disc whose edge is frayed by value noise; a glow is a small core in a wide halo, a
// drop fills its disc.

#include "sprites.h"

#include "deterministic.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	float LatticeValue(int x, int y, u32 layer)
	{
		return float(Mix(u64(layer) << 40 | u64(x & 0xFFFFF) << 20 | u64(y & 0xFFFFF)) >> 40) / 16777216.0f;
	}

	float Smooth(float t)
	{
		return t * t * (3.0f - 2.0f * t);
	}

	float Noise(float x, float y, u32 layer)
	{
		const int x0 = int(std::floor(x));
		const int y0 = int(std::floor(y));
		const float tx = Smooth(x - float(x0));
		const float ty = Smooth(y - float(y0));
		const float low = LatticeValue(x0, y0, layer) * (1.0f - tx) + LatticeValue(x0 + 1, y0, layer) * tx;
		const float high = LatticeValue(x0, y0 + 1, layer) * (1.0f - tx) + LatticeValue(x0 + 1, y0 + 1, layer) * tx;
		return low * (1.0f - ty) + high * ty;
	}

	float LayeredNoise(float x, float y, u32 layer)
	{
		float sum = 0.0f;
		float weight = 0.5f;
		for (u32 octave = 0; octave < 4; ++octave)
		{
			sum += weight * Noise(x, y, layer * 8 + octave);
			x *= 2.0f;
			y *= 2.0f;
			weight *= 0.5f;
		}
		return sum;
	}

	float Puff(float x, float y, u32 layer)
	{
		const float radius = std::sqrt(x * x + y * y);
		const float inside = std::max(1.0f - radius, 0.0f);
		const float frayed = 1.35f * inside + 1.7f * (LayeredNoise(x * 2.0f + 8.0f, y * 2.0f + 8.0f, layer) - 0.5f);
		return Smooth(std::clamp(frayed, 0.0f, 1.0f)) * Smooth(std::min(inside * 1.7f, 1.0f));
	}

	float Glow(float x, float y)
	{
		const float squared = x * x + y * y;
		const float edge = std::max(1.0f - squared, 0.0f);
		return (0.90f * std::exp(-squared * 38.0f) + 0.10f * std::exp(-squared * 5.0f)) * edge;
	}
	float Drop(float x, float y)
	{
		return Smooth(std::max(1.0f - (x * x + y * y), 0.0f));
	}

	float Sprite(float x, float y, u32 layer)
	{
		return layer == kGlowSprite ? Glow(x, y) : layer == kDropSprite ? Drop(x, y) : Puff(x, y, layer);
	}
} // namespace

std::vector<u8> PaintSprites()
{
	std::vector<u8> texels(kSpriteCount * kSpriteSide * kSpriteSide);
	u8 *texel = texels.data();
	for (u32 layer = 0; layer < kSpriteCount; ++layer)
		for (u32 row = 0; row < kSpriteSide; ++row)
			for (u32 column = 0; column < kSpriteSide; ++column)
			{
				const float x = (float(column) + 0.5f) * (2.0f / kSpriteSide) - 1.0f;
				const float y = (float(row) + 0.5f) * (2.0f / kSpriteSide) - 1.0f;
				const float value = Sprite(x, y, layer);
				*texel++ = u8(std::clamp(value, 0.0f, 1.0f) * 255.0f + 0.5f);
			}
	return texels;
}
} // namespace Viewer
