// At each point a band lies across the line and across the view. Where the line turns back, as seen from the eye, the
// band does not turn over with it: its edges would cross.

#include "band.h"

namespace Viewer
{
void WriteBand(SBandVertex *vertices,
	const CFloat3 &before,
	TMemoryView<const SBandPoint> points,
	const CFloat3 &after,
	const CFloat3 &eye)
{
	CFloat3 previousSide;
	for (u32 i = 0; i < points.Count(); ++i)
	{
		const SBandPoint &point = points[i];
		const CFloat3 &from = i == 0 ? before : points[i - 1].m_Position;
		const CFloat3 &to = i + 1 == points.Count() ? after : points[i + 1].m_Position;
		CFloat3 side = Normalized(Cross(Subtract(to, from), Subtract(eye, point.m_Position)));
		if (Dot(side, previousSide) < 0.0f)
			side = CFloat3(-side.x(), -side.y(), -side.z());
		previousSide = side;
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
