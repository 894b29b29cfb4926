#pragma once

// Points and splats from files, as the renderer and the sorter take them: plain arrays, placed around the origin.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include <string>
#include <string_view>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// The extent of a splat: a Gaussian with a standard deviation along each of three axes, turned. As in the shader.
struct SSplatShape
{
	std::int16_t m_Rotation[4]; ///< A unit quaternion w, x, y, z; 32767 is 1.
	u16 m_LogScales[3];         ///< Natural logarithms; 0 is -32, 65535 is 32.
	u16 m_Padding;
};
static_assert(sizeof(SSplatShape) == 16, "a vector of the shader's layout");

/// An entry of each array per point, but for those that are empty.
struct SPointCloud
{
	std::vector<CFloat3> m_Positions;
	std::vector<u32> m_Colours;        ///< Red in the lowest byte, then green, blue, alpha; as a screen has them.
	std::vector<SSplatShape> m_Shapes; ///< Empty: points, round and all of one size.
	std::vector<float> m_SortValues;   ///< Empty unless a property to sort by was named. The lowest is drawn first.
	u64 m_FarCount = 0;                ///< Points that float so far from the rest that a picture need not show them.
};

/// A point as a file has it.
struct SCloudPoint
{
	double m_Position[3] = {};
	double m_Colour[4] = {0.0, 0.0, 0.0, 1.0}; ///< From 0 to 1; what is beyond is cut off.
	double m_LogScales[3] = {};                ///< Of splats: natural logarithms, in the unit of the positions.
	double m_Rotation[4] = {};                 ///< Of splats: w, x, y, z, of any length but 0.
	double m_SortValue = 0.0;
};

/// Collects points, relative to the first: a float has room for a cloud's details where it has none for the distance to
/// a far origin.
class CPointCloudBuilder
{
public:
	struct SContents
	{
		bool m_Colours = false;
		bool m_Shapes = false;
		bool m_SortValues = false;
	};

	/// A count that memory or the sorter has no room for is a CFailure.
	CPointCloudBuilder(u64 pointCount, const SContents &contents);

	/// What is wrong with the point, or null.
	const char *Add(const SCloudPoint &point);
	/// Places the cloud: its body, which FitCloud finds, within a distance of 1 of the origin.
	SPointCloud Finish();

private:
	void Place();
	void ColourByHeight();

	SPointCloud m_Cloud;
	SContents m_Contents;
	SCloudPoint m_First;
};

/// What is wrong with a file is a CFailure whose sentence starts with the place in it. A property to sort by is a number
/// per vertex; none is named by "".
SPointCloud ReadPlyCloud(std::string_view file, const std::string &sortBy);
/// 32 bytes a splat: position and scale, three floats each; red, green, blue, alpha; a rotation w, x, y, z of bytes.
SPointCloud ReadSplatCloud(std::string_view file, const std::string &sortBy);
} // namespace Viewer
