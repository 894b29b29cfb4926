// Scenes are made once, from positions that other benchmarks sort as well; sorting them is what is timed.

#include "scenes.h"

#include "bench_random.h"
#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace VexmoorBench
{
namespace
{
	constexpr float kPoolBallRadius = 10.0f; // of Positions()
	constexpr u32 kParticlesPerEmission = 64;
	constexpr float kFrameSeconds = 1.0f / 60.0f;
	constexpr size_t kPageAlignment = 16;

	// The sizes of a call's pages.
	std::vector<u32> PageCounts(const SSceneKind &kind, u32 count, CRandom &random)
	{
		std::vector<u32> pageCounts;
		for (u32 left = count; left != 0; left -= pageCounts.back())
			pageCounts.push_back(std::min(left, random.NextBetween(kind.m_FewestInPage, kind.m_MostInPage)));
		return pageCounts;
	}

	// As many positions as the calls have, each call's one after the other: those of a batch of the first call's size,
	// or the first ones of a large pool.
	std::vector<CFloat3> ScenePositions(const SSceneKind &kind, u32 firstCount, u32 total)
	{
		const CBuffer<CFloat3> &batch = Positions(kind.m_Shape, firstCount);
		const CBuffer<CFloat3> &pool = batch.Count() >= total ? batch : Positions(kind.m_Shape, 1000000);
		if (pool.Count() < total)
			throw std::length_error("a scene has more positions than there are");
		const float scale = kind.m_BallRadius / kPoolBallRadius;
		std::vector<CFloat3> positions(total);
		std::transform(pool.Data(), pool.Data() + total, positions.begin(),
			[scale](const CFloat3 &p) { return CFloat3(p.x() * scale, p.y() * scale, p.z() * scale); });
		return positions;
	}

	// The values of call callId.
	std::vector<float> SceneValues(const SSceneKind &kind, const CFloat3 *positions, u32 count, u32 callId)
	{
		std::vector<float> values(count);
		const SIndexAndDepth *const records =
			kind.m_Keys == ESceneKeys::NearlySorted
				? Records(EKeys::NearlySorted, count).Data() + size_t(callId % PoolInputCount(count)) * count
				: nullptr;
		const u32 oldest = count / 3; // where the ring of particles begins
		for (u32 i = 0; i < count; ++i)
		{
			switch (kind.m_Keys)
			{
			case ESceneKeys::Ages:
				values[i] = kFrameSeconds * float((i + count - oldest) % count / kParticlesPerEmission);
				break;
			case ESceneKeys::OneValue:
				values[i] = -1.0f;
				break;
			case ESceneKeys::NearlySorted:
				values[i] = 0.0f - FloatFromBits(~records[i].m_Depth);
				break;
			default:
				values[i] = 0.0f - SquaredDistance(positions[i], kind.Camera(0));
			}
		}
		return values;
	}

	constexpr size_t AlignedSize(size_t sizeInBytes)
	{
		return (sizeInBytes + kPageAlignment - 1) & ~(kPageAlignment - 1);
	}

	template<typename _Type>
	_Type ElementAt(const CScene::SPage &page, u32 strideInBytes, u32 i)
	{
		_Type element;
		std::memcpy(static_cast<void *>(&element), page.m_Elements + size_t(i) * strideInBytes, sizeof(element));
		return element;
	}

	template<typename _Element>
	TStridedMemoryView<const _Element> ElementView(const CScene::SPage &page, u32 strideInBytes)
	{
		return {reinterpret_cast<const _Element *>(page.m_Elements), page.m_Count, strideInBytes};
	}

	template<typename _Element>
	TMemoryView<const _Element> CallView(const std::vector<_Element> &pages, const CScene::SCall &call)
	{
		return {pages.data() + call.m_FirstPage, call.m_PageCount};
	}
} // namespace

CFloat3 SSceneKind::Camera(u32 frame) const
{
	const CFloat3 camera = CameraOfFrame(frame);
	const float scale = m_CameraDistance / std::sqrt(SquaredDistance(camera, CFloat3()));
	return CFloat3(camera.x() * scale, camera.y() * scale, camera.z() * scale);
}

CScene::CScene(const SSceneKind &kind, const std::vector<u32> &counts)
	: m_Kind(kind)
{
	for (const u32 count : counts)
		m_ParticleCount += count;
	const std::vector<CFloat3> positions = ScenePositions(kind, counts.front(), m_ParticleCount);
	CRandom random(m_ParticleCount);
	u32 first = 0;
	for (u32 i = 0; i < counts.size(); ++i)
	{
		const CFloat3 *const callPositions = positions.data() + first;
		std::vector<float> values;
		if (kind.IsByValue())
			values = SceneValues(kind, callPositions, counts[i], i);
		_AddCall(PageCounts(kind, counts[i], random), callPositions, values);
		first += counts[i];
	}
	if (kind.m_HasList)
		_AddList();
}

void CScene::_AddCall(const std::vector<u32> &pageCounts, const CFloat3 *positions, const std::vector<float> &values)
{
	const u32 stride = StrideInBytes();
	size_t elementBytes = 0;
	size_t enabledBytes = 0;
	for (const u32 count : pageCounts)
	{
		elementBytes += AlignedSize(std::max(size_t(count) * stride, sizeof(CFloat3)));
		enabledBytes += AlignedSize(count);
	}
	m_Memory.emplace_back(elementBytes);
	u8 *elements = m_Memory.back().Data();
	m_Memory.emplace_back(m_Kind.m_DisabledPercent != 0 ? enabledBytes : 0);
	u8 *enableds = m_Kind.m_DisabledPercent != 0 ? m_Memory.back().Data() : nullptr;

	CRandom random(m_Calls.size() + elementBytes);
	SCall call = {u32(m_Pages.size()), u32(pageCounts.size()), 0, 0, m_IndexCount};
	u32 particle = 0;
	for (const u32 count : pageCounts)
	{
		SPage page = {elements, enableds, count, 0};
		for (u32 i = 0; i < count; ++i, ++particle)
		{
			const void *const element = m_Kind.IsByValue() ? static_cast<const void *>(&values[particle])
			                                               : static_cast<const void *>(&positions[particle]);
			if (i == 0 || stride != 0)
				std::memcpy(
					elements + size_t(i) * stride, element, m_Kind.IsByValue() ? sizeof(float) : sizeof(CFloat3));
			const bool enabled = random.NextBetween(0, 99) >= m_Kind.m_DisabledPercent;
			if (enableds != nullptr)
				enableds[i] = enabled;
			page.m_RenderedCount += enabled;
		}
		elements += AlignedSize(std::max(size_t(count) * stride, sizeof(CFloat3)));
		enableds += enableds != nullptr ? AlignedSize(count) : 0;
		call.m_RenderedCount += page.m_RenderedCount;
		m_Pages.push_back(page);
	}
	m_MostRendered = std::max(m_MostRendered, call.m_RenderedCount);
	m_IndexCount += AlignedSize(size_t(call.m_RenderedCount) * kIndicesPerQuad * sizeof(u32)) / sizeof(u32);
	m_Calls.push_back(call);
}

// Vertices lie in a ring, whose first particle is not the page cache's.
void CScene::_AddList()
{
	for (SCall &call : m_Calls)
	{
		call.m_FirstListEntry = m_List.size();
		for (u32 i = 0; i < call.m_RenderedCount; ++i)
			m_List.push_back((i + call.m_RenderedCount / 3) % call.m_RenderedCount * kVerticesPerQuad);
	}
}

bool CScene::IsDrawn(const SCall &call, const CFloat3 &camera, const u32 *indices, bool byLibrary) const
{
	// Of each rendered particle, by the number of its vertices: whether its page is sorted after those that have
	// disabled particles, and its value.
	std::vector<std::pair<bool, float>> keys(call.m_RenderedCount);
	std::vector<bool> drawn(call.m_RenderedCount);
	const u32 *const list = List(call);
	u32 rendered = 0;
	for (u32 pageId = call.m_FirstPage; pageId < call.m_FirstPage + call.m_PageCount; ++pageId)
	{
		const SPage &page = m_Pages[pageId];
		for (u32 i = 0; i < page.m_Count; ++i)
		{
			if (page.m_Enableds != nullptr && page.m_Enableds[i] == 0)
				continue;
			const bool later = byLibrary && !m_Kind.IsByValue() && page.m_RenderedCount == page.m_Count;
			const float value = m_Kind.IsByValue()
			                        ? ElementAt<float>(page, StrideInBytes(), i)
			                        : 0.0f - SquaredDistance(ElementAt<CFloat3>(page, StrideInBytes(), i), camera);
			keys[list != nullptr ? list[rendered] / kVerticesPerQuad : rendered] = {later, value};
			++rendered;
		}
	}

	const std::pair<bool, float> *previous = nullptr;
	for (u32 i = 0; i < call.m_RenderedCount; ++i)
	{
		const u32 *const quad = indices + size_t(i) * kIndicesPerQuad;
		const u32 particle = quad[0] / kVerticesPerQuad;
		if (particle >= call.m_RenderedCount || drawn[particle] || (previous != nullptr && keys[particle] < *previous))
			return false;
		for (u32 k = 0; k < kIndicesPerQuad; ++k)
		{
			if (quad[k] != particle * kVerticesPerQuad + kQuad[k])
				return false;
		}
		drawn[particle] = true;
		previous = &keys[particle];
	}
	return true;
}

CSceneByLibrary::CSceneByLibrary(const CScene &scene, CTriangleSorter::EOutputMemory outputMemory)
	: m_Scene(scene)
	, m_Sorters(scene.Calls().size())
	, m_Scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(scene.MostRendered()))
{
	for (CTriangleSorter &sorter : m_Sorters)
		sorter.Setup_OutputMemory(outputMemory);
	for (const CScene::SPage &page : scene.Pages())
	{
		if (scene.Kind().IsByValue())
			m_Values.push_back(ElementView<float>(page, scene.StrideInBytes()));
		else
			m_Positions.push_back(ElementView<CFloat3>(page, scene.StrideInBytes()));
		m_Enableds.emplace_back(page.m_Enableds, page.m_Enableds != nullptr ? page.m_Count : 0, 1);
		m_RenderedCounts.push_back(page.m_RenderedCount);
	}
}

void CSceneByLibrary::Draw(u32 callId, const CFloat3 &camera, u32 *indices)
{
	const CScene::SCall &call = m_Scene.Calls()[callId];
	const u32 count = call.m_RenderedCount;
	CTriangleSorter &sorter = m_Sorters[callId];
	sorter.Setup_OutputIndexBuffer(
		TMemoryView<u32>(indices + call.m_FirstIndex, count * kIndicesPerQuad), count * kVerticesPerQuad);
	if (m_Scene.Kind().IsByValue())
		sorter.Setup_InputPageCache(
			CallView(m_Values, call), CallView(m_Enableds, call), CallView(m_RenderedCounts, call), count);
	else
		sorter.Setup_InputPageCache(
			CallView(m_Positions, call), CallView(m_Enableds, call), CallView(m_RenderedCounts, call), count, camera);
	const TMemoryView<u32> pattern(m_Pattern, kIndicesPerQuad);
	if (const u32 *const list = m_Scene.List(call))
		sorter.Setup_Geometry(pattern, TMemoryView<const u32>(list, count));
	else
		sorter.Setup_Geometry(pattern, kVerticesPerQuad);
	sorter.SortPoints_AutogenIndices(m_Scratch.Data());
}

CSceneByUser::CSceneByUser(const CScene &scene)
	: m_Scene(scene)
	, m_Particles(scene.MostRendered())
{
}

// Pages without disabled particles have a loop that does not ask for each.
template<typename _Key>
void CSceneByUser::_FillPage(const CScene::SPage &page, const u32 *list, u32 &rendered, const _Key &key)
{
	const auto add = [&](u32 i)
	{
		m_Particles[rendered] = {key(i), list != nullptr ? list[rendered] : rendered * kVerticesPerQuad};
		++rendered;
	};
	if (page.m_RenderedCount == page.m_Count)
	{
		for (u32 i = 0; i < page.m_Count; ++i)
			add(i);
		return;
	}
	for (u32 i = 0; i < page.m_Count; ++i)
	{
		if (page.m_Enableds[i] != 0)
			add(i);
	}
}

void CSceneByUser::Draw(u32 callId, const CFloat3 &camera, u32 *indices)
{
	const CScene::SCall &call = m_Scene.Calls()[callId];
	const u32 *const list = m_Scene.List(call);
	const u32 stride = m_Scene.StrideInBytes();
	u32 rendered = 0;
	for (u32 pageId = call.m_FirstPage; pageId < call.m_FirstPage + call.m_PageCount; ++pageId)
	{
		const CScene::SPage &page = m_Scene.Pages()[pageId];
		if (m_Scene.Kind().IsByValue())
			_FillPage(page, list, rendered, [&](u32 i) { return -ElementAt<float>(page, stride, i); });
		else
			_FillPage(page, list, rendered,
				[&](u32 i) { return SquaredDistance(ElementAt<CFloat3>(page, stride, i), camera); });
	}
	std::sort(m_Particles.begin(), m_Particles.begin() + rendered,
		[](const SParticle &a, const SParticle &b) { return a.m_Key > b.m_Key; });
	for (u32 i = 0; i < rendered; ++i)
		WriteQuad(indices + call.m_FirstIndex + size_t(i) * kIndicesPerQuad, m_Particles[i].m_FirstVertex);
}
} // namespace VexmoorBench
