#include "point_cloud.h"

#include "cloud_fit.h"
#include "failure.h"
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

CPointCloudBuilder::CPointCloudBuilder(u64 pointCount, const SContents &contents)
	: m_Contents(contents)
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
}

const char *CPointCloudBuilder::Add(const SCloudPoint &point)
{
	if (m_Cloud.m_Positions.empty())
		m_First = point;

	CFloat3 position;
	for (u32 axis = 0; axis < 3; ++axis)
		position[axis] = float(point.m_Position[axis] - m_First.m_Position[axis]);
	if (!std::isfinite(position.x()) || !std::isfinite(position.y()) || !std::isfinite(position.z()))
		return "is farther from the first one than a float can say";
	m_Cloud.m_Positions.push_back(position);
	m_Cloud.m_Colours.push_back(PackColour(point.m_Colour));

	if (m_Contents.m_Shapes)
	{
		double squared = 0.0;
		for (const double number : point.m_Rotation)
			squared += number * number;
		if (squared == 0.0)
			return "has a rotation of length 0";
		m_Cloud.m_Shapes.push_back(PackShape(point, std::sqrt(squared)));
	}
	if (m_Contents.m_SortValues)
		m_Cloud.m_SortValues.push_back(float(point.m_SortValue - m_First.m_SortValue));
	return null;
}

SPointCloud CPointCloudBuilder::Finish()
{
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
} // namespace Viewer
