#pragma once

// The pages of a draw call as a range of structures: where a page's particles lie, which of them are drawn, and how
// many.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_memoryviews.h"
#include "kr_views.h"

#include <type_traits>

namespace Vexmoor
{
/// One page of particles, which are sorted by position (CFloat3) or by value (float).
template<typename _Element>
struct VX_API_INLINE TParticlePage
{
	TStridedMemoryView<const _Element> m_Elements; ///< A position, or a value, of every particle, drawn or not.
	TStridedMemoryView<const u8> m_Enableds; ///< A byte per particle, 0 if it is disabled. Empty: none is disabled.
	u32 m_RenderedCount = 0;                 ///< Particles drawn.

	/// No particles.
	TParticlePage() = default;
	/// Particles that are all drawn: any view of elements, such as ViewOf makes.
	template<typename _View,
		typename = std::enable_if_t<std::is_convertible_v<const _View &, TStridedMemoryView<const _Element>>>>
	TParticlePage(const _View &elements)
		: m_Elements(elements)
		, m_RenderedCount(m_Elements.Count())
	{
	}
	/// Particles of which those are drawn whose enabled byte is not 0: exactly as many as renderedCount says.
	TParticlePage(const TStridedMemoryView<const _Element> &elements,
		const TStridedMemoryView<const u8> &enableds,
		u32 renderedCount)
		: m_Elements(elements)
		, m_Enableds(enableds)
		, m_RenderedCount(renderedCount)
	{
	}
};

typedef TParticlePage<CFloat3> CPositionPage; ///< Sorted by distance to the camera.
typedef TParticlePage<float> CSortKeyPage;    ///< Sorted by value, the lowest drawn first.

/// The number of particles that all pages draw, from which the sizes of output and working buffer are computed. It is
/// 2^32 - 1 if there are more.
template<typename _Element>
u32 RenderedParticleCount(const TMemoryView<const TParticlePage<_Element>> &pages)
{
	u64 count = 0;
	for (u32 i = 0; i < pages.Count(); ++i)
		count += pages[i].m_RenderedCount;
	return u32(count < 0xFFFFFFFFu ? count : 0xFFFFFFFFu);
}

///@{
/// Calls CTriangleSorter::Setup_InputPageCache with a range of pages, which has to stay unchanged in its place until
/// the sort returns: SetupInputPages(sorter, ViewOf(pages), camera). Returns the number of particles drawn.
inline u32 SetupInputPages(
	CTriangleSorter &sorter, const TMemoryView<const CPositionPage> &pages, const CFloat3 &cameraPosition)
{
	const u32 particleCount = RenderedParticleCount(pages);
	sorter.Setup_InputPageCache(ViewOf(pages, &CPositionPage::m_Elements), ViewOf(pages, &CPositionPage::m_Enableds),
		ViewOf(pages, &CPositionPage::m_RenderedCount), particleCount, cameraPosition);
	return particleCount;
}
inline u32 SetupInputPages(CTriangleSorter &sorter, const TMemoryView<const CSortKeyPage> &pages)
{
	const u32 particleCount = RenderedParticleCount(pages);
	sorter.Setup_InputPageCache(ViewOf(pages, &CSortKeyPage::m_Elements), ViewOf(pages, &CSortKeyPage::m_Enableds),
		ViewOf(pages, &CSortKeyPage::m_RenderedCount), particleCount);
	return particleCount;
}
/// By value, with the camera that orders the quads inside a particle.
inline u32 SetupInputPages(
	CTriangleSorter &sorter, const TMemoryView<const CSortKeyPage> &pages, const CFloat3 &cameraPosition)
{
	const u32 particleCount = RenderedParticleCount(pages);
	sorter.Setup_InputPageCache(ViewOf(pages, &CSortKeyPage::m_Elements), ViewOf(pages, &CSortKeyPage::m_Enableds),
		ViewOf(pages, &CSortKeyPage::m_RenderedCount), particleCount, cameraPosition);
	return particleCount;
}
///@}
} // namespace Vexmoor
