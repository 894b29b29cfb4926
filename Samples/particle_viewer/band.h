#pragma once

// Bands: strips of quads along a line, turned towards the camera. Quad i of a band has the vertices 2 i to 2 i + 3, of
// which it shares two with each neighbour.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "scene.h"
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What a band looks like where it passes a point of its line.
struct SBandPoint
{
	CFloat3 m_Position;
	float m_HalfWidth;
	CFloat4 m_Colour; ///< Premultiplied.
};

/// Writes a band's vertices, two for each of its points, as a camera at the eye sees it.
void WriteBand(SBandVertex *vertices, TMemoryView<const SBandPoint> points, const CFloat3 &eye);

/// The index pattern of so many quads of a band.
std::vector<u32> BandPattern(u32 quadCount);
} // namespace Viewer
