// At each point a band lies across the line and across the view.

#include "band.h"

#include <algorithm>

namespace Viewer
{
void WriteBand(SBandVertex *vertices, TMemoryView<const SBandPoint> points, const CFloat3 &eye)
{
	for (u32 i = 0; i < points.Count(); ++i)
	{
		const SBandPoint &point = points[i];
		const CFloat3 &before = points[i == 0 ? 0 : i - 1].m_Position;
		const CFloat3 &after = points[std::min(i + 1, points.Count() - 1)].m_Position;
		const CFloat3 side = Normalized(Cross(Subtract(after, before), Subtract(eye, point.m_Position)));
		for (const float across : {-1.0f, 1.0f})
		{
			const float offset = across * point.m_HalfWidth;
			vertices->m_Position = CFloat3(point.m_Position.x() + side.x() * offset,
				point.m_Position.y() + side.y() * offset, point.m_Position.z() + side.z() * offset);
			vertices->m_Across = across;
			vertices->m_Colour = point.m_Colour;
			++vertices;
		}
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
