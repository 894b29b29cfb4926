#pragma once

// The expansion of records whose quads are put in order inside each particle. Nothing here reports but the views that
// it indexes.

#include "ge_mesh_triangle_sorter.h"

#include "kr_memoryviews.h"

#include "pv_camera.h"
#include "pv_depth_keys.h"
#include "pv_float_mode.h"

namespace Vexmoor
{
constexpr u32 kIndicesPerQuad = 6;
constexpr u32 kQuadSlotsPerParticle = 16; // a key carries its quad's number in 4 bits
constexpr u32 kQuadNumberMask = kQuadSlotsPerParticle - 1;

// One key per quad of a particle. More quads than slots are reported, and share slots: their order means nothing, but
// no memory outside is touched.
class CQuadKeys
{
public:
	u32 &operator[](u32 quadId)
	{
		static_cast<void>(TMemoryView<u32>(m_Keys, kQuadSlotsPerParticle)[quadId]);
		return m_Keys[quadId & kQuadNumberMask];
	}

private:
	u32 m_Keys[kQuadSlotsPerParticle];
};

// Ascending keys draw the farthest quad first; quads at equal distance keep their order, as their numbers do.
static void SortQuads(CQuadKeys &cameraDist, u32 quadCount)
{
	for (u32 quadId = 1; quadId < quadCount; ++quadId)
	{
		const u32 temp = cameraDist[quadId];
		u32 j = quadId;
		for (; j > 0 && cameraDist[j - 1] > temp; --j)
			cameraDist[j] = cameraDist[j - 1];
		cameraDist[j] = temp;
	}
}

template<typename _Index>
VX_WRAPS static void ExpandWithSortedQuads(const TMemoryView<const u32> &indexPattern,
	const TMemoryView<const CFloat4> &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile _Index *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	const CFloatModeScope floatMode;
	const CCamera camera(cameraPosition);
	const u32 patternWidth = indexPattern.Count();
	const u32 quadCount = patternWidth / kIndicesPerQuad;
	CQuadKeys cameraDist;
	for (; primCount != 0; --primCount)
	{
		const _Index id = _Index((it++)->m_Index);
		const u32 firstSlot = quadCount != 0 ? id / vpp * kQuadSlotsPerParticle : 0;
		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const CFloat4 &quadCenter = quadCenters[firstSlot + quadId];
			const u32 key = SDistanceKey::FromBits(camera.SquaredDistanceBits(quadCenter.Data()));
			cameraDist[quadId] = (key & ~kQuadNumberMask) | quadId;
		}
		SortQuads(cameraDist, quadCount);

		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const u32 sortedQuadId = cameraDist[quadId] & kQuadNumberMask;
			for (u32 vId = 0; vId < kIndicesPerQuad; ++vId)
				dstPrims[quadId * kIndicesPerQuad + vId] =
					_Index(indexPattern[sortedQuadId * kIndicesPerQuad + vId] + id);
		}
		dstPrims += patternWidth;
	}
}
} // namespace Vexmoor
