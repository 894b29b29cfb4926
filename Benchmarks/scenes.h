#pragma once

// Draw calls as renderers have them: particles in pages, at a stride, some of them disabled, by position or by value,
// with or without an index list. The library sorts them, and so does the loop that is written without it; both write
// quads.

#include "ge_mesh_triangle_sorter.h"

#include "bench_inputs.h"
#include "quads.h"
#include <algorithm>
#include <string>
#include <vector>

namespace VexmoorBench
{
/// What a scene is sorted by.
enum class ESceneKeys
{
	Positions,
	Distances,    ///< Values of 0 - squared distance.
	Ages,         ///< Values: a ring of particles, of which runs of 64 were emitted together.
	PagesValues,  ///< Values: one for each page, at a stride of 0.
	OneValue,     ///< Values: one for all.
	NearlySorted, ///< Values of 0 - squared distance, in last frame's order.
};

/// A kind of scene. It starts as a ball of packed particles in pages of 1,000, seen from outside.
struct SSceneKind
{
	std::string m_Name;
	ESceneKeys m_Keys = ESceneKeys::Positions;
	EShape m_Shape = EShape::Ball;
	float m_BallRadius = 10.0f;
	float m_CameraDistance = 25.0f; ///< From the ball's centre, around which the camera goes.
	u32 m_StrideInBytes = u32(sizeof(CFloat3));
	u32 m_FewestInPage = 1000;
	u32 m_MostInPage = 1000;
	u32 m_DisabledPercent = 0; ///< Drawn by lot, particle by particle; with 0 there are no enabled bytes.
	bool m_HasList = false;

	bool IsByValue() const { return m_Keys != ESceneKeys::Positions; }
	CFloat3 Camera(u32 frame) const;
};

template<typename _Element, typename _Visit>
void VisitVector(const std::vector<_Element> &elements, const _Visit &visit)
{
	visit(elements.data(), elements.size() * sizeof(_Element));
}

/// Draw calls of one kind. What a call reads and writes begins at multiples of 16 bytes.
class CScene
{
public:
	struct SPage
	{
		const u8 *m_Elements; ///< Positions or values.
		const u8 *m_Enableds; ///< Null where none is disabled.
		u32 m_Count;
		u32 m_RenderedCount;
	};
	struct SCall
	{
		u32 m_FirstPage;
		u32 m_PageCount;
		u32 m_RenderedCount;
		size_t m_FirstListEntry;
		size_t m_FirstIndex; ///< Among the indices of all calls.
	};

	/// A call for each count of particles, disabled ones included.
	CScene(const SSceneKind &kind, const std::vector<u32> &counts);

	const SSceneKind &Kind() const { return m_Kind; }
	u32 ParticleCount() const { return m_ParticleCount; } ///< Disabled ones included.
	u32 MostRendered() const { return m_MostRendered; }   ///< In one call.
	size_t IndexCount() const { return m_IndexCount; }
	const std::vector<SCall> &Calls() const { return m_Calls; }
	const std::vector<SPage> &Pages() const { return m_Pages; }
	u32 StrideInBytes() const { return m_Kind.m_Keys == ESceneKeys::PagesValues ? 0 : m_Kind.m_StrideInBytes; }
	const u32 *List(const SCall &call) const
	{
		return m_Kind.m_HasList ? m_List.data() + call.m_FirstListEntry : nullptr;
	}

	/// Calls visit(first byte, size) for all that sorts of the scene read.
	template<typename _Visit>
	void VisitMemory(const _Visit &visit) const
	{
		for (const CBuffer<u8> &memory : m_Memory)
			visit(memory.Data(), memory.Count());
		VisitVector(m_Calls, visit);
		VisitVector(m_Pages, visit);
		VisitVector(m_List, visit);
	}

	/// Whether the indices of a call draw every rendered particle once, whole and in order. The library sorts by
	/// position pages with disabled particles before pages without.
	bool IsDrawn(const SCall &call, const CFloat3 &camera, const u32 *indices, bool byLibrary) const;

private:
	void _AddCall(const std::vector<u32> &pageCounts, const CFloat3 *positions, const std::vector<float> &values);
	void _AddList();

	SSceneKind m_Kind;
	u32 m_ParticleCount = 0;
	u32 m_MostRendered = 0;
	size_t m_IndexCount = 0;
	std::vector<SCall> m_Calls;
	std::vector<SPage> m_Pages;
	std::vector<u32> m_List;
	std::vector<CBuffer<u8>> m_Memory; // two buffers for each call: elements, enabled bytes
};

/// A scene's draw calls by the library, with a sorter for each that stays from frame to frame. The set-up calls are in
/// the time of a draw call.
class CSceneByLibrary
{
public:
	static constexpr bool kIsLibrary = true;

	/// Sorters are told the kind of memory once. All outputs here are ordinary memory, which the default does not know.
	explicit CSceneByLibrary(
		const CScene &scene, CTriangleSorter::EOutputMemory outputMemory = CTriangleSorter::OutputMemory_WriteCombined);
	void BeginFrame() { m_Scratch.Move(); }
	void Draw(u32 callId, const CFloat3 &camera, u32 *indices);
	/// Calls visit(first byte, size) for what draw calls need beside the scene and the indices.
	template<typename _Visit>
	void VisitMemory(const _Visit &visit) const
	{
		visit(this, sizeof(*this));
		visit(m_Scratch.Data(), m_Scratch.Count());
		VisitVector(m_Sorters, visit);
		VisitVector(m_Positions, visit);
		VisitVector(m_Values, visit);
		VisitVector(m_Enableds, visit);
		VisitVector(m_RenderedCounts, visit);
	}

private:
	const CScene &m_Scene;
	std::vector<CTriangleSorter> m_Sorters;
	std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
	std::vector<TStridedMemoryView<const float>> m_Values;
	std::vector<TStridedMemoryView<const u8>> m_Enableds;
	std::vector<u32> m_RenderedCounts;
	CScratch m_Scratch;
	u32 m_Pattern[kIndicesPerQuad] = {0, 1, 2, 0, 2, 3};
};

/// The kinds of output memory that the library is told of, and how the loop beside it is called then.
struct SOutputMemory
{
	CTriangleSorter::EOutputMemory m_Kind;
	const char *m_Who;
};
constexpr SOutputMemory kOutputMemories[] = {
	{CTriangleSorter::OutputMemory_WriteCombined, "user"                },
	{CTriangleSorter::OutputMemory_Cached,        "user_ordinary_memory"},
};

/// The same without the library: keys beside first vertices, std::sort, a loop. Memory stays from call to call.
class CSceneByUser
{
public:
	static constexpr bool kIsLibrary = false;

	explicit CSceneByUser(const CScene &scene);
	void BeginFrame() {}
	void Draw(u32 callId, const CFloat3 &camera, u32 *indices);
	/// As above.
	template<typename _Visit>
	void VisitMemory(const _Visit &visit) const
	{
		visit(this, sizeof(*this));
		VisitVector(m_Particles, visit);
	}

private:
	struct SParticle
	{
		float m_Key; // the highest is drawn first
		u32 m_FirstVertex;
	};
	template<typename _Key>
	void _FillPage(const CScene::SPage &page, const u32 *list, u32 &rendered, const _Key &key);

	const CScene &m_Scene;
	std::vector<SParticle> m_Particles;
};

/// All draw calls of a scene, by one side.
template<typename _Side>
class CFrames
{
public:
	template<typename... _Arguments>
	explicit CFrames(const CScene &scene, _Arguments... ofSide)
		: m_Scene(scene)
		, m_Side(scene, ofSide...)
		, m_Indices(scene.IndexCount())
	{
	}

	void Draw(const CFloat3 &camera)
	{
		m_Side.BeginFrame();
		for (u32 i = 0; i < m_Scene.Calls().size(); ++i)
			m_Side.Draw(i, camera, m_Indices.Data());
	}
	bool HasDrawn(const CFloat3 &camera) const
	{
		return std::all_of(m_Scene.Calls().begin(), m_Scene.Calls().end(),
			[&](const CScene::SCall &call)
			{ return m_Scene.IsDrawn(call, camera, m_Indices.Data() + call.m_FirstIndex, _Side::kIsLibrary); });
	}

private:
	const CScene &m_Scene;
	_Side m_Side;
	CBuffer<u32> m_Indices;
};
} // namespace VexmoorBench
