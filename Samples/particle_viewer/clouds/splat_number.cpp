#include "splat_number.h"

#include "text.h"
#include <algorithm>
#include <iterator>

namespace Viewer
{
namespace
{
	constexpr const char *kNames[] = {"x", "y", "z", "scale_0", "scale_1", "scale_2", "red", "green", "blue", "alpha",
		"rot_0", "rot_1", "rot_2", "rot_3"};
} // namespace

CSplatNumber::CSplatNumber(const std::string &name)
	: m_Index(u32(std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames)))
{
	if (m_Index != std::size(kNames) || name.empty())
		return;
	std::string names;
	for (const char *known : kNames)
		names += (names.empty() ? "" : ", ") + Quoted(known);
	throw CFailure("there is no property " + Quoted(name) + " to sort by; its splats have " + names + ".");
}

double CSplatNumber::Of(const SCloudPoint &point) const
{
	if (m_Index < 3)
		return point.m_Position[m_Index];
	if (m_Index < 6)
		return point.m_LogScales[m_Index - 3];
	if (m_Index < 10)
		return point.m_Colour[m_Index - 6];
	return m_Index < 14 ? point.m_Rotation[m_Index - 10] : 0.0;
}
} // namespace Viewer
