#pragma once

// How light reaches smoke: the smoke's density on a coarse grid, and what is left of the light behind it.

#include "vx_maths_vector.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

class CSmokeLight
{
public:
	CSmokeLight();

	void Clear();
	/// Smoke that takes an opacity's share of the light that passes an area.
	void AddSmoke(const CFloat3 &position, float opacityTimesArea);
	/// Once all smoke is there.
	void Spread();

	/// The share of the key light that arrives, from 0 to 1.
	float KeyAt(const CFloat3 &position) const { return Sample(m_Key, position); }
	/// The share of the sky's light, from above.
	float SkyAt(const CFloat3 &position) const { return Sample(m_Sky, position); }

private:
	static constexpr u32 kWidth = 88;
	static constexpr u32 kHeight = 64;
	static constexpr u32 kDepth = 64;

	static u32 Cell(u32 x, u32 y, u32 z) { return (y * kDepth + z) * kWidth + x; }
	void Blur();
	void Descend(std::vector<float> &light, float shiftX, float shiftZ, float absorption) const;
	float Sample(const std::vector<float> &grid, const CFloat3 &position) const;

	std::vector<float> m_Density;
	std::vector<float> m_Key;
	std::vector<float> m_Sky;
};
} // namespace Viewer
