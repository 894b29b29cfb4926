#pragma once

// A swirling velocity field without sources or sinks, which carries smoke and embers. It has the same bits on every
// machine.

#include "vx_maths_vector.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// Repeats every kPeriod units along every axis; velocities are about 1.
class CTurbulence
{
public:
	static constexpr u32 kPeriod = 32; // lattice points per axis, a unit apart

	explicit CTurbulence(u64 seed);

	CFloat3 Velocity(const CFloat3 &position) const;

private:
	const CFloat3 &_At(u32 x, u32 y, u32 z) const { return m_Velocities[((z * kPeriod) + y) * kPeriod + x]; }

	std::vector<CFloat3> m_Velocities;
};
} // namespace Viewer
