#pragma once

// Particles of one emitter, in pages. Births fill the open page from its first slot on; a death clears its slot's
// enabled byte; a page whose particles are all dead is empty, and is filled again after a while.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_memoryviews.h"

#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SParticle
{
	u32 m_Age = 0; ///< In steps.
	u32 m_Lifetime = 0;
	u32 m_Random = 0; ///< Whatever makes the particle differ from others.
};

class CPagePool
{
public:
	explicit CPagePool(u32 particlesPerPage)
		: m_ParticlesPerPage(particlesPerPage)
	{
	}

	void Add(const CFloat3 &position, const SParticle &particle);
	/// Everything gets a step older; what has reached its lifetime dies.
	void Age();
	u32 AliveCount() const { return m_AliveCount; }

	/// Calls function(position, particle) for each particle alive, in storage order.
	template<typename _Function>
	void ForEachAlive(const _Function &function)
	{
		for (u32 page = 0; page < m_Pages.size(); ++page)
			for (u32 i = page * m_ParticlesPerPage; i < page * m_ParticlesPerPage + m_Pages[page].m_UsedCount; ++i)
				if (m_Enableds[i] != 0)
					function(m_Positions[i], m_Particles[i]);
	}

	u32 PageCount() const { return u32(m_Pages.size()); }
	TStridedMemoryView<const CFloat3> Positions(u32 page) const;
	TStridedMemoryView<const u8> Enableds(u32 page) const;
	u32 RenderedCount(u32 page) const { return m_Pages[page].m_AliveCount; }

private:
	struct SPage
	{
		u32 m_UsedCount = 0; // slots that have been filled since the page was last empty
		u32 m_AliveCount = 0;
	};

	u32 OpenPage();

	u32 m_ParticlesPerPage;
	u32 m_AliveCount = 0;
	u32 m_OpenPage = 0;
	std::vector<SPage> m_Pages;
	std::vector<CFloat3> m_Positions;
	std::vector<u8> m_Enableds;
	std::vector<SParticle> m_Particles;
};
} // namespace Viewer
