#pragma once

// The exact answer: the order of a frame's primitives by distances in double precision, and how far an order that was
// drawn is from it, neighbour by neighbour.

#include "vx_defs.h"

#include "scene.h"
#include "sort_frame.h"
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What is wrong with a drawn order. Two primitives drawn one after the other are out of order when the second is
/// farther; each such pair has one cause.
struct SOrderFigures
{
	bool m_Complete = false;       ///< Every primitive was drawn, and none twice.
	double m_WorstBacktrack = 0.0; ///< How far a farther one is drawn over a nearer one, as a share of the depth range.
	u32 m_OutOfOrder = 0;

	u32 m_EqualKeys = 0;    ///< Distances that differ by less than a float shows.
	u32 m_Rounding = 0;     ///< Distances whose floats, rounded along the way, came out the other way round.
	u32 m_PageKinds = 0;    ///< By position: pages with disabled particles come before those without.
	u32 m_DrawCalls = 0;    ///< Each draw call is sorted by itself.
	u32 m_ParticleKeys = 0; ///< Triangles or quads that carry their particle's key.
	u32 m_Unexplained = 0;  ///< Anything else, and any pair whose keys are not in the order that the sorter promises.
};

class CExactOrder
{
public:
	explicit CExactOrder(const SFrame &frame);

	/// All indices as the particles lie in their pages.
	const std::vector<u32> &StorageIndices() const { return m_Indices; }
	/// All indices, the farthest primitive first.
	std::vector<u32> SortedIndices() const;

	/// The distances by which the sorter orders the primitives of some indices, as floats, in the order of the indices.
	std::vector<float> DistancesOf(const std::vector<u32> &drawnIndices) const;
	/// Judges the indices of draw calls that were sorted in some order, base vertices added.
	SOrderFigures Measure(
		EOrder order, const std::vector<SDrawCall> &drawCalls, const std::vector<u32> &drawnIndices) const;

private:
	/// What is ordered as one: a particle, or a triangle or quad where the scene has their middles.
	struct SOwner
	{
		double m_SquaredDistance; // to the camera; or, by a property, to the last value
		float m_Value;            // the sort value of its own position
		float m_ParticleValue;    // and of its particle's
		u32 m_Particle;
		u32 m_Page;
	};

	struct SParticlePlace
	{
		u32 m_Page;
		u32 m_Number;
		u32 m_FirstVertex;
		CFloat3 m_Position;
	};

	void AddParticle(const SFrame &frame, const SParticlePlace &particle);
	void SetSortValues(const SFrame &frame);
	CFloat3 PlaceOfPrimitive(const SFrame &frame, const SParticlePlace &particle, u32 primitive) const;
	bool IsMixedPage(const SFrame &frame, u32 page) const;
	bool IsComplete(const std::vector<u32> &drawnIndices) const;
	const SOwner &OwnerOf(const std::vector<u32> &indices, u32 primitive) const;
	void Judge(
		SOrderFigures &figures, EOrder order, bool sameDrawCall, const SOwner &first, const SOwner &second) const;

	u32 m_IndicesPerPrimitive;
	bool m_HasQuadKeys;
	std::vector<u32> m_Indices;
	std::vector<u32> m_OwnerOfVertex; // whose first vertex it is
	std::vector<SOwner> m_Owners;
	std::vector<bool> m_PageIsMixed;
};
} // namespace Viewer
