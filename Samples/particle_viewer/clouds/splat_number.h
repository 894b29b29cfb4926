#pragma once

// The numbers of a splat that can be sorted by, for formats that have no names of their own for them.

#include "point_cloud.h"

namespace Viewer
{
/// A position 'x', 'y', 'z'; a logarithm 'scale_0' to 'scale_2' of a standard deviation; 'red', 'green', 'blue',
/// 'alpha', from 0 to 1; or 'rot_0' to 'rot_3', a quaternion w, x, y, z.
class CSplatNumber
{
public:
	/// A name that none of them has is a CFailure. "" is a number that is the same in all.
	explicit CSplatNumber(const std::string &name);

	double Of(const SCloudPoint &point) const;

private:
	u32 m_Index;
};
} // namespace Viewer
