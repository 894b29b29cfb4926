#pragma once

// Points and splats from files, as the renderer and the sorter take them: plain arrays, placed around the origin.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "failure.h"
#include <cmath>
#include <limits>
#include <string>
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

	/// Of spherical harmonics, with which splats have other colours from other sides: 1, 2 or 3, or 0 for none.
	u32 m_HarmonicDegree = 0;
	/// For red, green and blue, of each splat HarmonicWords(degree) words: two half floats each, the low one first. The
	/// first half is the colour that a splat has from all sides, the others are the coefficients that add to it.
	std::vector<u32> m_Harmonics[3];

	u64 m_LeftOutCount = 0;     ///< Points of the file that are not drawn: something was wrong with them.
	std::string m_FirstLeftOut; ///< The first of them: where it is, and what is wrong with it.
	bool m_YPointsDown = false; ///< In the file, as cameras that splats are trained from have it.
};

/// The coefficients that a degree has beyond the constant one, for each colour: 0, 3, 8 or 15.
constexpr u32 HarmonicCount(u32 degree)
{
	return (degree + 1) * (degree + 1) - 1;
}

/// What the colour and the coefficients of a degree take, in words of two half floats.
constexpr u32 HarmonicWords(u32 degree)
{
	return (HarmonicCount(degree) + 2) / 2;
}

constexpr u32 kMaxHarmonicDegree = 3;
/// The constant spherical harmonic, 1 / (2 sqrt(pi)).
constexpr double kHarmonic0 = 0.28209479177387814;

/// A point as a file has it.
struct SCloudPoint
{
	double m_Position[3] = {};
	double m_Colour[4] = {0.0, 0.0, 0.0, 1.0}; ///< From 0 to 1; what is beyond is cut off.
	double m_LogScales[3] = {};                ///< Of splats: natural logarithms, in the unit of the positions.
	double m_Rotation[4] = {};                 ///< Of splats: w, x, y, z, of any length but 0.
	double m_SortValue = 0.0;
	/// Of a cloud with spherical harmonics: HarmonicCount(degree) coefficients of red, as many of green, then of blue.
	const float *m_Harmonics = null;
};

/// Neither NaN nor beyond the largest float.
inline bool IsFiniteFloat(double number)
{
	return std::abs(number) <= double(std::numeric_limits<float>::max());
}

/// How a file is read.
struct SCloudOptions
{
	std::string m_SortBy;   ///< A number that every point has, to sort by instead of the distance; none is named by "".
	bool m_SkipBad = false; ///< Points with something wrong are left out, and counted; otherwise they refuse the file.
	u32 m_OutlierDistance = 0; ///< So many radii away a point is added, the last one; 0: none is.
};

/// Adds a point behind all others, above the cloud, which looks as the first one does. The cloud is placed.
void AddOutlier(SPointCloud &cloud, u32 distance);

/// Something is wrong with a single point.
class CBadPoint : public CFailure
{
public:
	using CFailure::CFailure;
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
		u32 m_HarmonicDegree = 0;
	};

	/// A count that memory or the sorter has no room for is a CFailure.
	CPointCloudBuilder(u64 pointCount, const SContents &contents, bool skipBad);

	/// What is wrong with the point, which then is not added; or null.
	const char *Add(const SCloudPoint &point);
	/// Places the cloud: its body, which FitCloud finds, within a distance of 1 of the origin.
	/// Leaves out the next point, or, where that was not asked for, throws the sentence. It says where the point is and
	/// what is wrong with it, as in "byte 64: splat 2 has no finite 'y'".
	void LeaveOut(const std::string &sentence);
	/// Places the cloud: all but a few stragglers within a distance of 1 of the origin. A cloud that most points were
	/// left out of is a CFailure.
	SPointCloud Finish();

private:
	const char *Complaint(const SCloudPoint &point, const SCloudPoint &first) const;
	void AddHarmonics(const SCloudPoint &point);
	void RequireMost() const;
	void Place();
	void ColourByHeight();

	SPointCloud m_Cloud;
	bool m_SkipBad;
	SContents m_Contents;
	SCloudPoint m_First;
};
} // namespace Viewer
