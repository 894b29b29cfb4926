#pragma once

// Bands: strips of quads along a line that face the camera. Quad i of a band has the vertices 2 i to 2 i + 3, of
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

/// Writes a band's vertices, two for each of its points. The line comes from a position before the first point and goes
/// on to one after the last; those of the points themselves where it ends.
void WriteBand(
	SBandVertex *vertices, const CFloat3 &before, TMemoryView<const SBandPoint> points, const CFloat3 &after);

/// The index pattern of quadCount quads of a band.
std::vector<u32> BandPattern(u32 quadCount);
} // namespace Viewer
