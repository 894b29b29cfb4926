// Light goes down the grid slice by slice: what enters a cell is what left the cell above, towards the light.

#include "smoke_light.h"

#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr float kCellSize = 0.1f;
	const CFloat3 kOrigin(-3.6f, -0.3f, -3.2f);

	// The key light stands high on the left, before the smoke: per slice down, light moves this many cells.
	constexpr float kKeyShiftX = 0.80f;
	constexpr float kKeyShiftZ = 0.30f;
	constexpr float kKeyAbsorption = 1.10f;
	constexpr float kSkyAbsorption = 0.45f;
} // namespace

CSmokeLight::CSmokeLight()
	: m_Density(kWidth * kHeight * kDepth)
	, m_Key(m_Density.size())
	, m_Sky(m_Density.size())
{
}

void CSmokeLight::Clear()
{
	std::fill(m_Density.begin(), m_Density.end(), 0.0f);
}

void CSmokeLight::AddSmoke(const CFloat3 &position, float opacityTimesArea)
{
	const int x = int((position.x() - kOrigin.x()) / kCellSize);
	const int y = int((position.y() - kOrigin.y()) / kCellSize);
	const int z = int((position.z() - kOrigin.z()) / kCellSize);
	if (x < 1 || y < 1 || z < 1 || x > int(kWidth) - 2 || y > int(kHeight) - 2 || z > int(kDepth) - 2)
		return;
	m_Density[Cell(u32(x), u32(y), u32(z))] += opacityTimesArea / (kCellSize * kCellSize);
}

void CSmokeLight::Spread()
{
	Blur();
	Descend(m_Key, kKeyShiftX, kKeyShiftZ, kKeyAbsorption);
	Descend(m_Sky, 0.0f, 0.0f, kSkyAbsorption);
}

// A puff is larger than a cell: what it holds is shared with the neighbours, one axis after the other.
void CSmokeLight::Blur()
{
	for (const u32 step : {1u, kWidth, kWidth * kDepth})
		for (u32 pass = 0; pass < 2; ++pass)
		{
			float before = 0.0f;
			for (u32 i = step; i + step < m_Density.size(); ++i)
			{
				before = m_Density[i - step];
				m_Key[i] = 0.25f * before + 0.5f * m_Density[i] + 0.25f * m_Density[i + step];
			}
			m_Density.swap(m_Key);
		}
}

void CSmokeLight::Descend(std::vector<float> &light, float shiftX, float shiftZ, float absorption) const
{
	std::fill(light.begin(), light.end(), 1.0f);
	const auto fromLeft = [&](u32 x, u32 y, u32 z)
	{ return (1.0f - shiftX) * light[Cell(x, y, z)] + shiftX * light[Cell(x - 1, y, z)]; };
	for (u32 above = kHeight - 1; above > 0; --above)
		for (u32 z = 0; z + 1 < kDepth; ++z)
			for (u32 x = 1; x < kWidth; ++x)
			{
				const u32 y = above - 1;
				const float entering = (1.0f - shiftZ) * fromLeft(x, above, z) + shiftZ * fromLeft(x, above, z + 1);
				light[Cell(x, y, z)] = entering / (1.0f + absorption * m_Density[Cell(x, y, z)]);
			}
}

float CSmokeLight::Sample(const std::vector<float> &grid, const CFloat3 &position) const
{
	const u32 size[3] = {kWidth, kHeight, kDepth};
	u32 cell[3];
	float t[3];
	for (u32 axis = 0; axis < 3; ++axis)
	{
		const float at = (position[axis] - kOrigin[axis]) / kCellSize - 0.5f;
		const float clamped = std::clamp(at, 0.0f, float(size[axis] - 2));
		cell[axis] = std::min(u32(clamped), size[axis] - 2);
		t[axis] = clamped - float(cell[axis]);
	}
	const auto row = [&](u32 y, u32 z)
	{
		const float *const pair = &grid[Cell(cell[0], y, z)];
		return pair[0] + (pair[1] - pair[0]) * t[0];
	};
	const auto slice = [&](u32 z)
	{
		const float low = row(cell[1], z);
		return low + (row(cell[1] + 1, z) - low) * t[1];
	};
	const float front = slice(cell[2]);
	return front + (slice(cell[2] + 1) - front) * t[2];
}
} // namespace Viewer
