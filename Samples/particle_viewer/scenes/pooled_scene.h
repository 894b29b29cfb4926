#pragma once

// What every scene that simulates particles has in common: pools of particles that age, and a frame that tells the
// sorter of the pools' pages. A scene itself says how its particles are born and move, and what they look like.

#include "vx_defs.h"

#include "page_pool.h"
#include "scene.h"
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

class CPooledScene : public IScene
{
public:
	CPooledScene(u32 poolCount, u32 particlesPerPage, u32 warmUpStepCount);

	u32 WarmUpStepCount() const final { return m_WarmUpStepCount; }
	void Advance() final;
	SFrame Frame() final;

protected:
	/// A step in which particles have aged and died already: births and motion.
	virtual void Simulate() = 0;
	virtual SCamera Camera() const = 0;
	/// Adds the geometry and the vertices of the particles alive, pool by pool in storage order, to a frame that has
	/// its pages and its camera.
	virtual void Describe(SFrame &frame) = 0;

	/// Births that make up for a pool's deaths. Until refillSteps before the end of the warm-up they are rationed,
	/// so that ages are spread evenly.
	u32 BirthCount(u32 poolId, u32 targetCount, u32 meanLifetime, u32 refillSteps) const;

	std::vector<CPagePool> m_Pools;
	u32 m_Step = 0;

private:
	void ListPages();

	u32 m_WarmUpStepCount;

	// The frame's pages, in the order of the pools.
	std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
	std::vector<TStridedMemoryView<const u8>> m_Enableds;
	std::vector<u32> m_RenderedCounts;
};

/// Six indices and four vertices for each billboard: two triangles.
void SetBillboards(SFrame &frame, const std::vector<SBillboard> &billboards);
} // namespace Viewer
