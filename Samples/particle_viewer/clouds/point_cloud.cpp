#include "point_cloud.h"

#include "cloud_fit.h"
#include "half.h"
#include "text.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u64 kMaxPointCount = 100000000;
	constexpr double kLogScaleRange = 32.0;
	constexpr double kLogScaleSteps = 65535.0 / (2.0 * kLogScaleRange);

	u32 PackColour(const double colour[4])
	{
		u32 packed = 0;
		for (u32 channel = 0; channel < 4; ++channel)
			packed |= u32(std::clamp(colour[channel], 0.0, 1.0) * 255.0 + 0.5) << (8 * channel);
		return packed;
	}

	u16 PackLogScale(double steps)
	{
		return u16(std::clamp(steps + 0.5, 0.0, 65535.0));
	}

	double Length(const double rotation[4])
	{
		double squared = 0.0;
		for (u32 i = 0; i < 4; ++i)
			squared += rotation[i] * rotation[i];
		return std::sqrt(squared);
	}

	SSplatShape PackShape(const SCloudPoint &point, double rotationLength)
	{
		SSplatShape shape = {};
		for (u32 i = 0; i < 4; ++i)
			shape.m_Rotation[i] = std::int16_t(std::lround(point.m_Rotation[i] / rotationLength * 32767.0));
		for (u32 i = 0; i < 3; ++i)
			shape.m_LogScales[i] = PackLogScale((point.m_LogScales[i] + kLogScaleRange) * kLogScaleSteps);
		return shape;
	}

	double Length(const CFloat3 &a, const double centre[3])
	{
		return std::hypot(double(a.x()) - centre[0], double(a.y()) - centre[1], double(a.z()) - centre[2]);
	}
} // namespace

CPointCloudBuilder::CPointCloudBuilder(u64 pointCount, const SContents &contents, bool skipBad)
	: m_SkipBad(skipBad)
	, m_Contents(contents)
{
	if (pointCount == 0)
		throw CFailure("there is no point in it.");
	if (pointCount > kMaxPointCount)
		throw CFailure("it has " + Grouped(pointCount) + " points, and " + Grouped(kMaxPointCount) +
					   " are the most that are drawn.");
	m_Cloud.m_Positions.reserve(pointCount);
	m_Cloud.m_Colours.reserve(pointCount);
	m_Cloud.m_Shapes.reserve(contents.m_Shapes ? pointCount : 0);
	m_Cloud.m_SortValues.reserve(contents.m_SortValues ? pointCount : 0);
	m_Cloud.m_HarmonicDegree = contents.m_HarmonicDegree;
	for (std::vector<u32> &harmonics : m_Cloud.m_Harmonics)
		harmonics.reserve(contents.m_HarmonicDegree != 0 ? pointCount * HarmonicWords(contents.m_HarmonicDegree) : 0);
}

const char *CPointCloudBuilder::Add(const SCloudPoint &point)
{
	const SCloudPoint first = m_Cloud.m_Positions.empty() ? point : m_First;
	const char *const complaint = Complaint(point, first);
	if (complaint != null)
		return complaint;

	m_First = first;
	CFloat3 position;
	for (u32 axis = 0; axis < 3; ++axis)
		position[axis] = float(point.m_Position[axis] - first.m_Position[axis]);
	m_Cloud.m_Positions.push_back(position);
	m_Cloud.m_Colours.push_back(PackColour(point.m_Colour));
	if (m_Contents.m_Shapes)
		m_Cloud.m_Shapes.push_back(PackShape(point, Length(point.m_Rotation)));
	if (m_Contents.m_SortValues)
		m_Cloud.m_SortValues.push_back(float(point.m_SortValue - m_First.m_SortValue));
	if (m_Contents.m_HarmonicDegree != 0)
		AddHarmonics(point);
	return null;
}

const char *CPointCloudBuilder::Complaint(const SCloudPoint &point, const SCloudPoint &first) const
{
	for (u32 axis = 0; axis < 3; ++axis)
		if (!IsFiniteFloat(point.m_Position[axis] - first.m_Position[axis]))
			return "is farther from the first one than a float can say";
	if (m_Contents.m_SortValues && !IsFiniteFloat(point.m_SortValue - first.m_SortValue))
		return "has a number to sort by that is farther from the first one's than a float can say";
	if (m_Contents.m_Shapes && Length(point.m_Rotation) == 0.0)
		return "has a rotation of length 0";
	return null;
}

void CPointCloudBuilder::AddHarmonics(const SCloudPoint &point)
{
	const auto half = [](double number)
	{ return u32(ToHalf(float(std::clamp(number, -double(kLargestHalf), double(kLargestHalf))))); };
	const u32 count = HarmonicCount(m_Contents.m_HarmonicDegree);
	for (u32 channel = 0; channel < 3; ++channel)
	{
		const float *const coefficients = point.m_Harmonics + channel * count;
		m_Cloud.m_Harmonics[channel].push_back(half(point.m_Colour[channel]) | half(double(coefficients[0])) << 16);
		for (u32 i = 1; i < count; i += 2)
		{
			const double last = i + 1 < count ? double(coefficients[i + 1]) : 0.0;
			m_Cloud.m_Harmonics[channel].push_back(half(double(coefficients[i])) | half(last) << 16);
		}
	}
}

void CPointCloudBuilder::LeaveOut(const std::string &sentence)
{
	if (!m_SkipBad)
		throw CBadPoint(sentence + ".");
	if (m_Cloud.m_LeftOutCount++ == 0)
		m_Cloud.m_FirstLeftOut = sentence;
}

// A file of which little can be drawn is damaged as a whole, or is something else.
void CPointCloudBuilder::RequireMost() const
{
	const u64 count = m_Cloud.m_Positions.size() + m_Cloud.m_LeftOutCount;
	if (m_Cloud.m_LeftOutCount > count / 2)
		throw CFailure("something is wrong with " + Grouped(m_Cloud.m_LeftOutCount) + " of its " + Grouped(count) +
					   " points, the first being at " + m_Cloud.m_FirstLeftOut + ".");
}

SPointCloud CPointCloudBuilder::Finish()
{
	RequireMost();
	Place();
	if (!m_Contents.m_Colours)
		ColourByHeight();
	return std::move(m_Cloud);
}

void CPointCloudBuilder::Place()
{
	constexpr double kFarthest = 1000000.0; // so far at most: squares of distances stay finite, and precise

	const SCloudFit fit = FitCloud(m_Cloud.m_Positions);
	const double(&centre)[3] = fit.m_Centre;
	m_Cloud.m_FarCount = fit.m_FarCount;
	double farthest = 0.0;
	for (const CFloat3 &position : m_Cloud.m_Positions)
		farthest = std::max(farthest, Length(position, centre));
	if (farthest == 0.0 && m_Cloud.m_Positions.size() > 1)
		throw CFailure("all " + Grouped(m_Cloud.m_Positions.size()) + " points lie at one and the same position.");

	const double unit = std::max(fit.m_Radius, farthest / kFarthest);
	const double scale = unit > 0.0 ? 1.0 / unit : 1.0;
	for (CFloat3 &position : m_Cloud.m_Positions)
		for (u32 axis = 0; axis < 3; ++axis)
			position[axis] = float((double(position[axis]) - centre[axis]) * scale);
	const double shift = std::log(scale) * kLogScaleSteps;
	for (SSplatShape &shape : m_Cloud.m_Shapes)
		for (u16 &logScale : shape.m_LogScales)
			logScale = PackLogScale(double(logScale) + shift);
}

// From deep blue up to a warm white.
void CPointCloudBuilder::ColourByHeight()
{
	constexpr double kRamp[][3] = {
		{0.07, 0.13, 0.42},
        {0.05, 0.50, 0.62},
        {0.42, 0.78, 0.45},
        {1.00, 0.93, 0.75}
    };
	constexpr u32 kLast = 2; // segment

	for (size_t i = 0; i < m_Cloud.m_Positions.size(); ++i)
	{
		const double height = std::clamp((double(m_Cloud.m_Positions[i].y()) + 0.7) / 1.4, 0.0, 1.0) * (kLast + 1);
		const u32 segment = std::min(u32(height), kLast);
		const double along = height - segment;
		double colour[4] = {0.0, 0.0, 0.0, double(m_Cloud.m_Colours[i] >> 24) / 255.0};
		for (u32 channel = 0; channel < 3; ++channel)
			colour[channel] = kRamp[segment][channel] * (1.0 - along) + kRamp[segment + 1][channel] * along;
		m_Cloud.m_Colours[i] = PackColour(colour);
	}
}

void AddOutlier(SPointCloud &cloud, u32 distance)
{
	const auto repeatFirst = [](auto &elements, u32 count)
	{
		for (u32 i = 0; i < count && !elements.empty(); ++i)
			elements.push_back(elements[i]);
	};
	const float up = cloud.m_YPointsDown ? -1.0f : 1.0f;
	cloud.m_Positions.push_back(CFloat3(0.0f, up * float(distance), 0.0f));
	repeatFirst(cloud.m_Colours, 1);
	repeatFirst(cloud.m_Shapes, 1);
	repeatFirst(cloud.m_SortValues, 1);
	for (std::vector<u32> &harmonics : cloud.m_Harmonics)
		repeatFirst(harmonics, HarmonicWords(cloud.m_HarmonicDegree));
}
} // namespace Viewer
