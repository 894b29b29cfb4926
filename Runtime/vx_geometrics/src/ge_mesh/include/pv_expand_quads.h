#pragma once

// The expansion of records whose quads are put in order inside each particle. Nothing here reports but the views that
// it indexes.
//
// Particles go in blocks: the centres of a block are located, the kernel sorts each particle's quads (pv_quads.h), and
// the quads are written, particle after particle. The next block is located before this one is sorted. Records in depth
// order name particles in no order of memory, so locating also fetches the cache lines of the centres:
//
//   block n      | locate | . . . . . . . . . | sort | write |
//   block n + 1           | locate | . . . . . . . . . . . . . . . . | sort | write |
//                            fetched meanwhile
//
// A particle whose first vertex is v has the centres [v / vpp * 16, + quadCount), where vpp is the number of vertices
// per particle. Its pattern is quadCount quads of six entries. A quad's key is the key of its centre's distance with
// the quad's number in the lowest four bits, so no two keys of a particle are equal, and a key says which entries to
// write.

#include "ge_mesh_triangle_sorter.h"

#include "simd/lanes.h"

#include "kr_memoryviews.h"

#include "pv_camera.h"
#include "pv_depth_keys.h"
#include "pv_fill_groups.h"
#include "pv_float_mode.h"
#include "pv_mesh_triangle_sorter.h"
#include "pv_quads.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Vexmoor
{
typedef TMemoryView<const CFloat4> CQuadCenters;

// Batcher's merge exchange (D. Knuth, "The Art of Computer Programming" 3, 5.2.2, algorithm M) of some quads. The pairs
// of four:
//
//   row 0   o-----o-----------
//   row 1   |  o--o-----o-----
//   row 2   o--|-----o--o-----
//   row 3      o-----o--------
//
// Each pair is a comparison, after which the smaller key is in the upper row. Which rows are compared does not depend
// on the keys, so lanes can sort as many particles at a time as they have room for.
constexpr SQuadNetwork MakeQuadNetwork(u32 quadCount)
{
	constexpr u32 kHalf = kQuadSlotsPerParticle / 2;
	SQuadNetwork network = {};
	network.m_QuadCount = quadCount;
	for (u32 step = kHalf; step != 0; step /= 2)
	{
		u32 phase = 0;
		u32 distance = step;
		for (u32 reach = kHalf;; reach /= 2)
		{
			for (u32 row = 0; row + distance < quadCount; ++row)
			{
				if ((row & step) == phase)
					network.m_Pairs[network.m_PairCount++] = {u8(row), u8(row + distance)};
			}
			if (reach == step)
				break;
			distance = reach - step;
			phase = step;
		}
	}
	return network;
}

// For each number of quads that a particle can have, made when the library is compiled.
struct SQuadNetworks
{
	SQuadNetwork m_OfCount[kQuadSlotsPerParticle + 1];
};
constexpr SQuadNetworks MakeQuadNetworks()
{
	SQuadNetworks networks = {};
	for (u32 quadCount = 0; quadCount <= kQuadSlotsPerParticle; ++quadCount)
		networks.m_OfCount[quadCount] = MakeQuadNetwork(quadCount);
	return networks;
}
static constexpr SQuadNetworks kQuadNetworks = MakeQuadNetworks();

// Up to kQuadBlockCount particles, in the order of their records: where each one's centres are, and its first vertex.
// With three quads per particle and five vertices (vpp 5), a block of two records, of the vertices 10 and 0:
//
//   slot                0    1    2    3 .. 15   16 .. 31     32   33   34   35 .. 47
//   centre of           0.0  0.1  0.2  -         particle 1   2.0  2.1  2.2  -
//   m_Centers           ^ [1]                                 ^ [0]
//   m_FirstVertices       [1] = 0                               [0] = 10
class CQuadBlock
{
public:
	// Looks up where the centres of each record's particle are. A report names each centre that lies outside the view.
	template<typename _Index>
	VX_WRAPS VX_INLINE void Locate(
		const SIndexAndDepth *records, u32 recordCount, const CQuadCenters quadCenters, u32 quadCount, u32 vpp)
	{
		m_Count = recordCount;
		for (u32 i = 0; i < recordCount; ++i)
		{
			const _Index id = _Index(records[i].m_Index);
			const u32 firstSlot = id / vpp * kQuadSlotsPerParticle;
			for (u32 quadId = 0; quadId < quadCount; ++quadId)
				static_cast<void>(quadCenters.AddressOf(firstSlot + quadId));
			const u8 *const centers = reinterpret_cast<const u8 *>(quadCenters.Data() + firstSlot);
			for (u32 byte = 0; byte < quadCount * kQuadCenterInBytes; byte += kCacheLineInBytes)
				VX_PREFETCH_TO_READ(centers + byte);
			m_FirstVertices[i] = id;
			m_Centers[i] = centers;
		}
		// The kernel reads whole groups: the rest of the last one reads the last particle again.
		for (u32 i = recordCount; i < kQuadBlockCount; ++i)
			m_Centers[i] = m_Centers[recordCount - 1];
	}

	u32 Count() const { return m_Count; }
	const u8 *const *Centers() const { return m_Centers; }
	u32 FirstVertex(u32 particle) const { return m_FirstVertices[particle]; }

private:
	u32 m_Count;
	u32 m_FirstVertices[kQuadBlockCount];
	const u8 *m_Centers[kQuadBlockCount];
};

// Writes one quad: each of its entries plus the particle's first vertex, in an ordinary store of its own. The sum wraps
// at the width of an index.
template<typename _Index>
VX_WRAPS static VX_INLINE void WriteQuad(volatile _Index *dst, const u32 *entries, u32 firstVertex)
{
	for (u32 i = 0; i < kIndicesPerQuad; ++i)
		dst[i] = _Index(entries[i] + firstVertex);
}

// One key per quad of a particle with more quads than slots. Quads beyond the slots are reported, and share slots:
// their order means nothing, but no memory outside is touched.
class CTooManyQuadKeys
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

// One particle after the other, with a check of every key that is accessed: for what it reports.
template<typename _Index>
VX_WRAPS static void ExpandWithTooManyQuads(const TMemoryView<const u32> &indexPattern,
	const CQuadCenters &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile _Index *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	const CCamera camera(cameraPosition);
	const u32 patternWidth = indexPattern.Count();
	const u32 quadCount = patternWidth / kIndicesPerQuad;
	CTooManyQuadKeys cameraDist;
	for (; primCount != 0; --primCount)
	{
		const _Index id = _Index((it++)->m_Index);
		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const CFloat4 &quadCenter = quadCenters[id / vpp * kQuadSlotsPerParticle + quadId];
			const u32 key = SDistanceKey::FromBits(camera.SquaredDistanceBits(quadCenter.Data()));
			cameraDist[quadId] = (key & ~kQuadNumberMask) | quadId;
		}
		// Insertion sort: with keys that share slots, a network would report other accesses.
		for (u32 quadId = 1; quadId < quadCount; ++quadId)
		{
			const u32 temp = cameraDist[quadId];
			u32 j = quadId;
			for (; j > 0 && cameraDist[j - 1] > temp; --j)
				cameraDist[j] = cameraDist[j - 1];
			cameraDist[j] = temp;
		}
		for (u32 quadId = 0; quadId < quadCount; ++quadId)
		{
			const u32 sortedQuadId = cameraDist[quadId] & kQuadNumberMask;
			for (u32 vId = 0; vId < kIndicesPerQuad; ++vId)
				*dstPrims++ = _Index(indexPattern[sortedQuadId * kIndicesPerQuad + vId] + id);
		}
		dstPrims += patternWidth % kIndicesPerQuad;
	}
}

// Writes a pattern for each of primCount records, the quads of each in ascending order of their keys, front to back.
// Entries beyond the last whole quad are skipped, and their place in the output is left as it is.
//
// The kernel gives the keys in rows: in column p, the keys of particle p ascend from row to row. Their lowest four bits
// are the quads' numbers, so writing a particle is reading its column downwards:
//
//   rows            particle 0    particle 1    ..
//   m_Keys[0]       key | 2       key | 0             the first quad to write
//   m_Keys[1]       key | 0       key | 1
//   m_Keys[2]       key | 1       key | 2             the last one
//
//   written, with patterns of 18 entries:
//     entries [12, 18), [0, 6), [6, 12) of particle 0, then [0, 6), [6, 12), [12, 18) of particle 1
template<typename _Index>
static void ExpandWithSortedQuads(const TMemoryView<const u32> &indexPattern,
	const CQuadCenters &quadCenters,
	const CFloat3 &cameraPosition,
	const SIndexAndDepth *__restrict it,
	volatile _Index *__restrict dstPrims,
	u32 primCount,
	u32 vpp)
{
	const u32 patternWidth = indexPattern.Count();
	const u32 quadCount = patternWidth / kIndicesPerQuad;
	if (quadCount == 0)
		return; // vpp may be 0 then
	const CFloatModeScope floatMode;
	if (quadCount > kQuadSlotsPerParticle)
		return ExpandWithTooManyQuads(indexPattern, quadCenters, cameraPosition, it, dstPrims, primCount, vpp);

	const SQuadKernels &kernels = FillKernels().m_Quads;
	const SQuadNetwork &network = kQuadNetworks.m_OfCount[quadCount];
	const u32 *const pattern = &indexPattern[0];
	const CFloat3 camera = cameraPosition;

	// One quad needs no distance: its number, 0, is its key.
	const bool oneQuad = network.m_PairCount == 0;
	SQuadKeyRows rows;
	if (oneQuad)
		std::fill(std::begin(rows.m_Keys[0]), std::end(rows.m_Keys[0]), 0);

	// Two blocks take turns: while one is sorted and written, the centres of the other are on their way.
	CQuadBlock blocks[2];
	CQuadBlock *block = &blocks[0];
	CQuadBlock *nextBlock = &blocks[1];
	block->Locate<_Index>(it, std::min(primCount, kQuadBlockCount), quadCenters, quadCount, vpp);
	for (;;)
	{
		it += block->Count();
		primCount -= block->Count();
		if (primCount != 0)
			nextBlock->Locate<_Index>(it, std::min(primCount, kQuadBlockCount), quadCenters, quadCount, vpp);

		if (!oneQuad)
			kernels.m_Sort(block->Centers(), block->Count(), network, camera.Data(), rows);
		for (u32 particle = 0; particle < block->Count(); ++particle)
		{
			for (u32 i = 0; i < quadCount; ++i)
			{
				const u32 quadId = rows.m_Keys[i][particle] & kQuadNumberMask;
				WriteQuad(
					dstPrims + i * kIndicesPerQuad, pattern + quadId * kIndicesPerQuad, block->FirstVertex(particle));
			}
			dstPrims += patternWidth;
		}
		if (primCount == 0)
			return;
		std::swap(block, nextBlock);
	}
}
} // namespace Vexmoor
