// One ramp of colours shows every kind of number.

#include "colour.h"

#include <algorithm>

namespace Viewer
{
namespace
{
	constexpr struct
	{
		const char *m_Name;
		EColour m_Colour;
	} kColours[] = {
		{"light",    EColour::Light   },
		{"order",    EColour::Order   },
		{"overdraw", EColour::Overdraw},
		{"error",    EColour::Error   },
	};
} // namespace

SRgb RampColour(float share)
{
	const float at = std::clamp(share, 0.0f, 1.0f) * float(kRampLength - 1);
	const u32 step = std::min(u32(at), kRampLength - 2);
	const SRgb &low = kRamp[step];
	const SRgb &high = kRamp[step + 1];
	const float t = at - float(step);
	return {low.m_Red + (high.m_Red - low.m_Red) * t, low.m_Green + (high.m_Green - low.m_Green) * t,
		low.m_Blue + (high.m_Blue - low.m_Blue) * t};
}

SLegend Legend(EColour colour, u32 mostLayers)
{
	switch (colour)
	{
	case EColour::Order:
		return {"first", "last drawn"};
	case EColour::Overdraw:
		return {"1", std::to_string(mostLayers) + " layers"};
	case EColour::Error:
		return {"1", std::to_string(kMostError) + " steps off"};
	default:
		return {};
	}
}

const char *ColourName(EColour colour)
{
	for (const auto &candidate : kColours)
		if (candidate.m_Colour == colour)
			return candidate.m_Name;
	return "";
}

std::optional<EColour> FindColour(const std::string &name)
{
	for (const auto &candidate : kColours)
		if (name == candidate.m_Name)
			return candidate.m_Colour;
	return std::nullopt;
}
} // namespace Viewer
