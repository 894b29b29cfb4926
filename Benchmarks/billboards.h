#pragma once

// Billboards, sorted back to front and written as quads: the batch that every competitor draws, what it has to look
// like afterwards, and the competitors, one type each. All read the same positions and write the same six indices per
// particle with the same loop.

#include "bench_inputs.h"
#include "quads.h"
#include "sort_competitors.h"
#include <algorithm>
#include <cmath>
#include <vector>

namespace VexmoorBench
{
/// A contiguous range of a batch's particles. Its vertices count from 0.
struct SDrawCall
{
	const CFloat3 *m_Positions;
	u32 m_First; ///< In the batch.
	u32 m_Count;
};

/// The sorts that are timed together: different inputs of one size. More particles than 16-bit indices reach are drawn
/// in several calls, as a renderer has to.
struct SBatch
{
	SBatch(EShape shape, u32 count, u32 maxParticlesPerCall);

	const CFloat3 *m_Positions;
	u32 m_Count; ///< Of all particles.
	u32 m_InputCount;
	std::vector<SDrawCall> m_Calls;
};

template<typename _Index>
constexpr u32 kMaxParticlesPerCall = ~0u;
/// Fifteen pages of 1,024 quads: the most whole pages of which every index is below 0xFFFF.
template<>
inline constexpr u32 kMaxParticlesPerCall<u16> = 15 * 1024;

/// One page of particles, none disabled, and the sorter that is kept for it from frame to frame.
struct SOnePage
{
	SOnePage(const CFloat3 *positions, u32 count, u64 scratchSizeInBytes)
		: m_Count(count)
		, m_Page(positions, count, u32(sizeof(CFloat3)))
		, m_Indices(size_t(count) * kIndicesPerQuad)
		, m_Scratch(size_t(scratchSizeInBytes))
	{
	}

	void SetUp(const CFloat3 &camera)
	{
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<u32>(m_Indices.Data(), u32(m_Indices.Count())), m_Count * kVerticesPerQuad);
		m_Sorter.Setup_InputPageCache(TMemoryView<const TStridedMemoryView<const CFloat3>>(m_Page),
			TMemoryView<const TStridedMemoryView<const u8>>(m_NoEnableds), TMemoryView<const u32>(m_Count), m_Count,
			camera);
		m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, kIndicesPerQuad), kVerticesPerQuad);
	}
	void Sort() { m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data()); }

	SDrawCall Call() const { return {m_Page.Data(), 0, m_Count}; }

	u32 m_Count;
	TStridedMemoryView<const CFloat3> m_Page;
	TStridedMemoryView<const u8> m_NoEnableds;
	CBuffer<u32> m_Indices;
	CBuffer<u8> m_Scratch;
	u32 m_Pattern[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter m_Sorter;
};

/// The library. The caller's part is in the time as well: the three set-up calls, every time.
template<typename _Index, u32 _ParticlesPerPage>
class CVexmoorBillboards
{
public:
	static constexpr const char *kName = _ParticlesPerPage == 1024 ? "vexmoor_pages_of_1k" : "vexmoor_pages_of_64k";
	static constexpr bool kExact = true;

	void Prepare(const SBatch &batch)
	{
		u32 mostParticles = 0;
		for (const SDrawCall &call : batch.m_Calls)
		{
			m_FirstPages.push_back(u32(m_Positions.size()));
			mostParticles = std::max(mostParticles, call.m_Count);
			for (u32 first = 0; first < call.m_Count; first += _ParticlesPerPage)
			{
				const u32 count = std::min(_ParticlesPerPage, call.m_Count - first);
				m_Positions.emplace_back(call.m_Positions + first, count, u32(sizeof(CFloat3)));
				m_Enableds.emplace_back();
				m_RenderedCounts.push_back(count);
			}
		}
		m_FirstPages.push_back(u32(m_Positions.size()));
		m_Scratch = CScratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(mostParticles));
	}
	void Restore(const SBatch &) { m_Scratch.Move(); }

	void Draw(u32 callId, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		const u32 firstPage = m_FirstPages[callId];
		const u32 pageCount = m_FirstPages[callId + 1] - firstPage;
		m_Sorter.Setup_OutputIndexBuffer(
			TMemoryView<_Index>(out, call.m_Count * kIndicesPerQuad), call.m_Count * kVerticesPerQuad);
		m_Sorter.Setup_InputPageCache(Pages(m_Positions, firstPage, pageCount), Pages(m_Enableds, firstPage, pageCount),
			Pages(m_RenderedCounts, firstPage, pageCount), call.m_Count, camera);
		m_Sorter.Setup_Geometry(TMemoryView<u32>(m_Pattern, kIndicesPerQuad), kVerticesPerQuad);
		m_Sorter.SortPoints_AutogenIndices(m_Scratch.Data());
	}

private:
	template<typename _Element>
	static TMemoryView<const _Element> Pages(const std::vector<_Element> &pages, u32 first, u32 count)
	{
		return TMemoryView<const _Element>(pages.data() + first, count);
	}

	CTriangleSorter m_Sorter;
	std::vector<u32> m_FirstPages; // per call, and the end
	std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
	std::vector<TStridedMemoryView<const u8>> m_Enableds;
	std::vector<u32> m_RenderedCounts;
	u32 m_Pattern[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
	CScratch m_Scratch;
};

/// What is written when there is no library at hand: distances beside particle numbers, std::sort, a loop.
template<typename _Index>
class CUserBillboards
{
public:
	static constexpr const char *kName = "user";
	static constexpr bool kExact = true;

	void Prepare(const SBatch &batch) { m_Depths.resize(batch.m_Count); }
	void Restore(const SBatch &) {}

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		for (u32 i = 0; i < call.m_Count; ++i)
			m_Depths[i] = {SquaredDistance(call.m_Positions[i], camera), i};
		std::sort(m_Depths.begin(), m_Depths.begin() + call.m_Count,
			[](const SDepth &a, const SDepth &b) { return a.m_SquaredDistance > b.m_SquaredDistance; });
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, m_Depths[i].m_Particle * kVerticesPerQuad);
	}

private:
	struct SDepth
	{
		float m_SquaredDistance;
		u32 m_Particle;
	};
	std::vector<SDepth> m_Depths;
};

/// The same two loops around another sort of records: keys that ascend from the farthest, first vertices beside them.
template<typename _Index, typename _Sort>
class CBillboardsBySort
{
public:
	static constexpr const char *kName = _Sort::kName;
	static constexpr bool kExact = _Sort::kExact;

	void Prepare(const SBatch &batch)
	{
		m_In = CBuffer<typename _Sort::Element>(batch.m_Count);
		m_Out = CBuffer<typename _Sort::Element>(batch.m_Count);
		m_Sort.Prepare(batch.m_Count);
	}
	void Restore(const SBatch &) {}

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		for (u32 i = 0; i < call.m_Count; ++i)
		{
			const u32 key = ~FloatBits(SquaredDistance(call.m_Positions[i], camera));
			m_In[i] = _Sort::FromRecord({key, i * kVerticesPerQuad});
		}
		m_Sort.Run(m_In.Data(), call.m_Count, m_Out.Data());
		const typename _Sort::Element *const sorted = _Sort::kOutOfPlace ? m_Out.Data() : m_In.Data();
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, _Sort::ToRecord(sorted[i]).m_Index);
	}

private:
	_Sort m_Sort;
	CBuffer<typename _Sort::Element> m_In;
	CBuffer<typename _Sort::Element> m_Out;
};

/// A particle as a structure, small for one of its kind.
struct SBillboard
{
	CFloat3 m_Position;
	float m_Width;
	float m_Height;
	u32 m_Color;
	float m_SquaredDistance;
	u32 m_Number; ///< In its draw call.
};

inline std::vector<SBillboard> MakeBillboards(const SBatch &batch)
{
	std::vector<SBillboard> billboards;
	billboards.reserve(batch.m_Count);
	for (const SDrawCall &call : batch.m_Calls)
	{
		for (u32 i = 0; i < call.m_Count; ++i)
			billboards.push_back({call.m_Positions[i], 1.0f, 1.0f, ~0u, 0.0f, i});
	}
	return billboards;
}

/// As OGRE's billboard sets do: a list of pointers to billboards, its RadixSort by the negative squared distance as a
/// float, then the loop through the pointers. The list is in emission order before each sort; putting it there again is
/// not in the time.
template<typename _Index>
class COgreBillboards
{
public:
	static constexpr const char *kName = "ogre_way";
	static constexpr bool kExact = true;

	void Prepare(const SBatch &batch)
	{
		m_Billboards = MakeBillboards(batch);
		m_List.resize(m_Billboards.size());
	}
	void Restore(const SBatch &)
	{
		for (size_t i = 0; i < m_List.size(); ++i)
			m_List[i] = &m_Billboards[i];
	}

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		SBillboard **const list = m_List.data() + call.m_First;
		m_Sorter.sort(list, list + call.m_Count,
			[&camera](const SBillboard *billboard) { return -SquaredDistance(billboard->m_Position, camera); });
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, list[i]->m_Number * kVerticesPerQuad);
	}

private:
	std::vector<SBillboard> m_Billboards;
	std::vector<SBillboard *> m_List;
	Ogre::RadixSort<CPointerVector<SBillboard *>, SBillboard *, float> m_Sorter;
};

/// Common practice: whole particle structures are sorted by a distance stored in them. They are in emission order
/// before each sort; putting them there again is not in the time.
template<typename _Index>
class CStructureBillboards
{
public:
	static constexpr const char *kName = "sort_of_structures";
	static constexpr bool kExact = true;

	void Prepare(const SBatch &batch) { m_Source = MakeBillboards(batch); }
	void Restore(const SBatch &) { m_Billboards = m_Source; }

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		SBillboard *const billboards = m_Billboards.data() + call.m_First;
		for (u32 i = 0; i < call.m_Count; ++i)
			billboards[i].m_SquaredDistance = SquaredDistance(billboards[i].m_Position, camera);
		std::sort(billboards, billboards + call.m_Count,
			[](const SBillboard &a, const SBillboard &b) { return a.m_SquaredDistance > b.m_SquaredDistance; });
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, billboards[i].m_Number * kVerticesPerQuad);
	}

private:
	std::vector<SBillboard> m_Source;
	std::vector<SBillboard> m_Billboards;
};

/// Common practice: particle numbers are sorted, and each comparison computes two distances.
template<typename _Index>
class CComparatorBillboards
{
public:
	static constexpr const char *kName = "comparator_computes_depth";
	static constexpr bool kExact = true;

	void Prepare(const SBatch &batch) { m_Particles.resize(batch.m_Count); }
	void Restore(const SBatch &) {}

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		for (u32 i = 0; i < call.m_Count; ++i)
			m_Particles[i] = i;
		std::sort(m_Particles.begin(), m_Particles.begin() + call.m_Count,
			[&](u32 a, u32 b)
			{ return SquaredDistance(call.m_Positions[a], camera) > SquaredDistance(call.m_Positions[b], camera); });
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, m_Particles[i] * kVerticesPerQuad);
	}

private:
	std::vector<u32> m_Particles;
};

/// Common practice of splat viewers: distances in 65,536 equal steps between the nearest and the farthest, and one
/// counting sort. The order is approximate: inside a step particles stay as they came.
template<typename _Index>
class CCountingBillboards
{
public:
	static constexpr const char *kName = "counting_16bit";
	static constexpr bool kExact = false;
	static constexpr u32 kSteps = 1u << 16;

	void Prepare(const SBatch &batch)
	{
		m_Distances.resize(batch.m_Count);
		m_Order.resize(batch.m_Count);
		m_Positions.resize(kSteps);
	}
	void Restore(const SBatch &) {}

	void Draw(u32, const SDrawCall &call, const CFloat3 &camera, _Index *out)
	{
		float nearest = INFINITY;
		float farthest = 0.0f;
		for (u32 i = 0; i < call.m_Count; ++i)
		{
			const float distance = std::sqrt(SquaredDistance(call.m_Positions[i], camera));
			m_Distances[i] = distance;
			nearest = std::min(nearest, distance);
			farthest = std::max(farthest, distance);
		}
		const float stepsPerUnit = farthest > nearest ? float(kSteps - 1) / (farthest - nearest) : 0.0f;
		const auto step = [&](u32 i) { return u32((farthest - m_Distances[i]) * stepsPerUnit); };
		std::fill(m_Positions.begin(), m_Positions.end(), 0u);
		for (u32 i = 0; i < call.m_Count; ++i)
			++m_Positions[step(i)];
		u32 sum = 0;
		for (u32 &position : m_Positions)
		{
			const u32 stepCount = position;
			position = sum;
			sum += stepCount;
		}
		for (u32 i = 0; i < call.m_Count; ++i)
			m_Order[m_Positions[step(i)]++] = i;
		for (u32 i = 0; i < call.m_Count; ++i)
			WriteQuad(out + i * kIndicesPerQuad, m_Order[i] * kVerticesPerQuad);
	}

private:
	std::vector<float> m_Distances;
	std::vector<u32> m_Order;
	std::vector<u32> m_Positions;
};

/// Whether the indices draw every particle of the call once, whole and back to front.
template<typename _Index>
bool IsDrawnBackToFront(const SDrawCall &call, const CFloat3 &camera, const _Index *indices, bool exact)
{
	float nearest = INFINITY;
	float farthest = 0.0f;
	for (u32 i = 0; i < call.m_Count; ++i)
	{
		const float distance = std::sqrt(SquaredDistance(call.m_Positions[i], camera));
		nearest = std::min(nearest, distance);
		farthest = std::max(farthest, distance);
	}
	// A quantisation step, and a little for the rounding of roots.
	const float tolerance = exact ? 0.0f : (farthest - nearest) / 65536.0f * 1.1f;

	std::vector<bool> drawn(call.m_Count);
	float previous = INFINITY;
	for (u32 i = 0; i < call.m_Count; ++i)
	{
		const _Index *const quad = indices + size_t(i) * kIndicesPerQuad;
		const u32 firstVertex = quad[0];
		const u32 particle = firstVertex / kVerticesPerQuad;
		if (particle >= call.m_Count || drawn[particle])
			return false;
		drawn[particle] = true;
		for (u32 j = 0; j < kIndicesPerQuad; ++j)
		{
			if (quad[j] != _Index(particle * kVerticesPerQuad + kQuad[j]))
				return false;
		}
		const float squared = SquaredDistance(call.m_Positions[particle], camera);
		const float distance = exact ? squared : std::sqrt(squared);
		if (distance > previous + tolerance)
			return false;
		previous = distance;
	}
	return true;
}
} // namespace VexmoorBench
