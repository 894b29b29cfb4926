#pragma once

// What the colours of a picture mean, and the ramp of colours for those that show a number.

#include "vx_defs.h"

#include <optional>
#include <string>

namespace Viewer
{
using namespace Vexmoor;

enum class EColour
{
	Light,    ///< What the scene looks like.
	Order,    ///< When a primitive was drawn, from the first to the last.
	Overdraw, ///< How many primitives were drawn over a pixel.
	Error     ///< How far a pixel is from the exact answer.
};

/// Where the ramp of errors ends. That of layers ends where a picture's layers do; both start at 1 and are logarithmic.
constexpr u32 kMostError = 255;

struct SRgb
{
	float m_Red;
	float m_Green;
	float m_Blue;
};

/// From the least to the most, each lighter than the one before: the order shows without colours too.
constexpr u32 kRampLength = 6;
constexpr SRgb kRamp[kRampLength] = {
	{0.10f, 0.10f, 0.34f},
	{0.12f, 0.34f, 0.70f},
	{0.08f, 0.60f, 0.62f},
	{0.50f, 0.74f, 0.30f},
	{0.98f, 0.74f, 0.20f},
	{1.00f, 0.97f, 0.82f},
};

/// The colour of a share from 0 to 1.
SRgb RampColour(float share);

/// The texts at the ends of the ramp; none for light.
struct SLegend
{
	std::string m_Least;
	std::string m_Most;
};
SLegend Legend(EColour colour, u32 mostLayers);

const char *ColourName(EColour colour);
/// Nothing where no colours have this name.
std::optional<EColour> FindColour(const std::string &name);
} // namespace Viewer
