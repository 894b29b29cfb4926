// What a renderer does between the simulation and the picture.

#include "frame_drawer.h"

#include <cstring>

namespace Viewer
{
CFrameDrawer::CFrameDrawer(u32 width, u32 height, u32 indexBits)
	: m_IndexType(indexBits == 16 ? CTriangleSorter::IndexTypeUint16 : CTriangleSorter::IndexTypeUint32)
	, m_Renderer(width, height)
{
}

void CFrameDrawer::SetFrame(const SFrame &frame)
{
	m_Frame = frame;
	m_Renderer.SetFrame(m_Frame);
}

SDrawn CFrameDrawer::DrawSorted(EOrder order)
{
	const std::vector<SDrawCall> drawCalls =
		order == EOrder::ByTriangle ? PlanTriangleDrawCalls(m_Frame, m_IndexType) : PlanDrawCalls(m_Frame, m_IndexType);
	m_Sorter.Sort(m_Frame, order, drawCalls, m_Renderer.MapIndices(IndexMemorySize(drawCalls)));
	return m_Renderer.Draw(drawCalls);
}

SDrawn CFrameDrawer::DrawIndices(const std::vector<u32> &indices)
{
	SDrawCall drawCall;
	drawCall.m_IndexCount = u32(indices.size());
	u8 *const mapped = m_Renderer.MapIndices(IndexMemorySize({drawCall}));
	std::memcpy(mapped, indices.data(), indices.size() * sizeof(u32));
	return m_Renderer.Draw({drawCall});
}
} // namespace Viewer
