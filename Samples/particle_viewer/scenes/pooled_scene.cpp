// A frame views the pools' own memory: nothing is copied for the sorter.

#include "pooled_scene.h"

#include <algorithm>

namespace Viewer
{
CPooledScene::CPooledScene(u32 poolCount, u32 particlesPerPage, u32 warmUpStepCount)
	: m_Pools(poolCount, CPagePool(particlesPerPage))
	, m_WarmUpStepCount(warmUpStepCount)
{
}

void CPooledScene::Advance()
{
	for (CPagePool &pool : m_Pools)
		pool.Age();
	Simulate();
	++m_Step;
}

SFrame CPooledScene::Frame()
{
	ListPages();
	const u32 pageCount = u32(m_RenderedCounts.size());
	SFrame frame;
	frame.m_Camera = Camera();
	frame.m_Positions = TMemoryView<const TStridedMemoryView<const CFloat3>>(m_Positions.data(), pageCount);
	frame.m_Enableds = TMemoryView<const TStridedMemoryView<const u8>>(m_Enableds.data(), pageCount);
	frame.m_RenderedCounts = TMemoryView<const u32>(m_RenderedCounts.data(), pageCount);
	for (const CPagePool &pool : m_Pools)
		frame.m_ParticleCount += pool.AliveCount();
	Describe(frame);
	return frame;
}

u32 CPooledScene::BirthCount(u32 poolId, u32 targetCount, u32 meanLifetime, u32 refillSteps) const
{
	const u32 missing = targetCount - m_Pools[poolId].AliveCount();
	if (m_Step + refillSteps >= m_WarmUpStepCount)
		return missing;
	return std::min(missing, (targetCount + meanLifetime - 1) / meanLifetime);
}

void CPooledScene::ListPages()
{
	m_Positions.clear();
	m_Enableds.clear();
	m_RenderedCounts.clear();
	for (const CPagePool &pool : m_Pools)
		for (u32 page = 0; page < pool.PageCount(); ++page)
		{
			m_Positions.push_back(pool.Positions(page));
			m_Enableds.push_back(pool.Enableds(page));
			m_RenderedCounts.push_back(pool.RenderedCount(page));
		}
}

void SetBillboards(SFrame &frame, const std::vector<SBillboard> &billboards)
{
	static u32 quad[] = {0, 1, 2, 0, 2, 3};
	const u32 count = u32(billboards.size());
	frame.m_IndexPattern = TMemoryView<u32>(quad, 6);
	frame.m_VerticesPerParticle = 4;
	frame.m_VertexKind = EVertices::Billboards;
	frame.m_Billboards = TMemoryView<const SBillboard>(billboards.data(), count);
	frame.m_VertexCount = count * 4;
}
} // namespace Viewer
