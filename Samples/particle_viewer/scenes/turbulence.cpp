// The curl of a random vector potential (R. Bridson and others, "Curl-Noise for Procedural Fluid Flow", 2007), taken
// once on a lattice and interpolated.

#include "turbulence.h"

#include "deterministic.h"

namespace Viewer
{
namespace
{
	constexpr u32 kMask = CTurbulence::kPeriod - 1;
	static_assert((CTurbulence::kPeriod & kMask) == 0, "wrapped with a mask");

	float Difference(const std::vector<CFloat3> &field, u32 component, u32 axis, const u32 (&at)[3])
	{
		u32 low[3] = {at[0], at[1], at[2]};
		u32 high[3] = {at[0], at[1], at[2]};
		low[axis] = (at[axis] + kMask) & kMask;
		high[axis] = (at[axis] + 1) & kMask;
		const auto value = [&](const u32(&p)[3])
		{ return field[((p[2] * CTurbulence::kPeriod) + p[1]) * CTurbulence::kPeriod + p[0]][component]; };
		return value(high) - value(low);
	}

	float Mixed(float a, float b, float t)
	{
		return a + (b - a) * t;
	}
} // namespace

CTurbulence::CTurbulence(u64 seed)
{
	constexpr u32 kCount = kPeriod * kPeriod * kPeriod;
	CRandom random(seed);
	std::vector<CFloat3> potential(kCount);
	for (CFloat3 &value : potential)
		for (u32 component = 0; component < 3; ++component)
			value[component] = random.Between(-1.0f, 1.0f);

	m_Velocities.resize(kCount);
	for (u32 i = 0; i < kCount; ++i)
	{
		const u32 at[3] = {i & kMask, i / kPeriod & kMask, i / (kPeriod * kPeriod)};
		for (u32 axis = 0; axis < 3; ++axis)
		{
			const u32 next = (axis + 1) % 3;
			const u32 last = (axis + 2) % 3;
			m_Velocities[i][axis] = Difference(potential, last, next, at) - Difference(potential, next, last, at);
		}
	}
}

CFloat3 CTurbulence::Velocity(const CFloat3 &position) const
{
	u32 low[3];
	u32 high[3];
	float t[3];
	for (u32 axis = 0; axis < 3; ++axis)
	{
		const float shifted = position[axis] + 1024.0f * kPeriod; // positive, so that truncation rounds down
		const u32 cell = u32(shifted);
		low[axis] = cell & kMask;
		high[axis] = (cell + 1) & kMask;
		t[axis] = shifted - float(cell);
	}

	CFloat3 velocity;
	for (u32 axis = 0; axis < 3; ++axis)
	{
		const auto row = [&](u32 y, u32 z) { return Mixed(_At(low[0], y, z)[axis], _At(high[0], y, z)[axis], t[0]); };
		const float front = Mixed(row(low[1], low[2]), row(high[1], low[2]), t[1]);
		const float back = Mixed(row(low[1], high[2]), row(high[1], high[2]), t[1]);
		velocity[axis] = Mixed(front, back, t[2]);
	}
	return velocity;
}
} // namespace Viewer
