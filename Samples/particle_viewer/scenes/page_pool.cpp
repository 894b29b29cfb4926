// Slots of all pages lie in one array each; a page is a stretch of them.

#include "page_pool.h"

namespace Viewer
{
void CPagePool::Add(const CFloat3 &position, const SParticle &particle)
{
	if (m_Pages.empty() || m_Pages[m_OpenPage].m_UsedCount == m_ParticlesPerPage)
		m_OpenPage = OpenPage();
	SPage &page = m_Pages[m_OpenPage];
	const u32 slot = m_OpenPage * m_ParticlesPerPage + page.m_UsedCount;
	m_Positions[slot] = position;
	m_Enableds[slot] = 1;
	m_Particles[slot] = particle;
	++page.m_UsedCount;
	++page.m_AliveCount;
	++m_AliveCount;
}

void CPagePool::Age()
{
	for (u32 page = 0; page < m_Pages.size(); ++page)
	{
		SPage &counts = m_Pages[page];
		for (u32 i = page * m_ParticlesPerPage; i < page * m_ParticlesPerPage + counts.m_UsedCount; ++i)
			if (m_Enableds[i] != 0 && ++m_Particles[i].m_Age >= m_Particles[i].m_Lifetime)
			{
				m_Enableds[i] = 0;
				--counts.m_AliveCount;
				--m_AliveCount;
			}
		if (counts.m_AliveCount == 0 && counts.m_UsedCount == m_ParticlesPerPage)
			counts.m_UsedCount = 0;
	}
}

TStridedMemoryView<const CFloat3> CPagePool::Positions(u32 page) const
{
	return TMemoryView<const CFloat3>(&m_Positions[page * m_ParticlesPerPage], m_Pages[page].m_UsedCount);
}

TStridedMemoryView<const u8> CPagePool::Enableds(u32 page) const
{
	return TMemoryView<const u8>(&m_Enableds[page * m_ParticlesPerPage], m_Pages[page].m_UsedCount);
}

// An emptied page is not filled again at once: one always rests, as in an engine whose GPU may still read it.
u32 CPagePool::OpenPage()
{
	u32 emptyCount = 0;
	for (const SPage &page : m_Pages)
		emptyCount += page.m_UsedCount == 0 ? 1 : 0;
	while (emptyCount < 2)
	{
		m_Pages.emplace_back();
		++emptyCount;
	}
	m_Positions.resize(m_Pages.size() * m_ParticlesPerPage);
	m_Enableds.resize(m_Pages.size() * m_ParticlesPerPage);
	m_Particles.resize(m_Pages.size() * m_ParticlesPerPage);

	u32 page = 0;
	while (m_Pages[page].m_UsedCount != 0)
		++page;
	return page;
}
} // namespace Viewer
