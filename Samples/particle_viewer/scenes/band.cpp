// The shader does the rest: it knows where the camera is.

#include "band.h"

namespace Viewer
{
void WriteBand(SBandVertex *vertices, const CFloat3 &before, TMemoryView<const SBandPoint> points, const CFloat3 &after)
{
	for (u32 i = 0; i < points.Count(); ++i)
	{
		const SBandPoint &point = points[i];
		const CFloat3 &from = i == 0 ? before : points[i - 1].m_Position;
		const CFloat3 &to = i + 1 == points.Count() ? after : points[i + 1].m_Position;
		for (const float across : {-1.0f, 1.0f})
			*vertices++ = {point.m_Position, across, Subtract(to, from), point.m_HalfWidth, point.m_Colour};
	}
}

std::vector<u32> BandPattern(u32 quadCount)
{
	std::vector<u32> pattern;
	for (u32 quad = 0; quad < quadCount; ++quad)
		for (const u32 corner : {0u, 1u, 3u, 0u, 3u, 2u})
			pattern.push_back(2 * quad + corner);
	return pattern;
}
} // namespace Viewer
