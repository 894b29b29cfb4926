// What a renderer does between the simulation and the picture.

#include "frame_drawer.h"

#include <algorithm>
#include <cstring>

namespace Viewer
{
namespace
{
	void Apply(const STrial &trial, SDrawCall &drawCall)
	{
		const u32 primitiveCount = drawCall.m_IndexCount / drawCall.m_IndicesPerPrimitive;
		const u32 keptCount = std::min(primitiveCount, u32(double(trial.m_OutputShare) * primitiveCount + 0.5));
		drawCall.m_IndexCount = keptCount * drawCall.m_IndicesPerPrimitive;
		if (trial.m_MisalignedOutput)
			drawCall.m_OffsetInBytes += BytesPerIndex(drawCall.m_IndexType);
	}
} // namespace

CFrameDrawer::CFrameDrawer(u32 width, u32 height, u32 indexBits)
	: m_Renderer(width, height)
{
	SetIndexBits(indexBits);
}

void CFrameDrawer::SetIndexBits(u32 indexBits)
{
	m_IndexType = indexBits == 16 ? CTriangleSorter::IndexTypeUint16 : CTriangleSorter::IndexTypeUint32;
}

void CFrameDrawer::SetFrame(const SFrame &frame)
{
	m_Frame = frame;
	m_Renderer.SetFrame(m_Frame);
}

SDrawn CFrameDrawer::DrawSorted(EOrder order, const STrial &trial)
{
	std::vector<SDrawCall> drawCalls =
		order == EOrder::ByTriangle ? PlanTriangleDrawCalls(m_Frame, m_IndexType) : PlanDrawCalls(m_Frame, m_IndexType);
	const u64 memorySize = IndexMemorySize(drawCalls) + sizeof(u32); // whatever is tried
	for (SDrawCall &drawCall : drawCalls)
		Apply(trial, drawCall);

	SFrame sorted = m_Frame;
	if (trial.m_SortCamera != null)
		sorted.m_Camera = *trial.m_SortCamera;
	m_Sorter.SetKeyBits(trial.m_KeyBits);
	m_Sorter.Sort(sorted, order, drawCalls, m_Renderer.MapIndices(memorySize));
	return m_Renderer.Draw(drawCalls);
}

SDrawn CFrameDrawer::DrawIndices(const std::vector<u32> &indices)
{
	const SDrawCall drawCall = PlanReadyDrawCall(m_Frame, u32(indices.size()));
	u8 *const mapped = m_Renderer.MapIndices(IndexMemorySize({drawCall}));
	if (!indices.empty())
		std::memcpy(mapped, indices.data(), indices.size() * sizeof(u32));
	return m_Renderer.Draw({drawCall});
}
} // namespace Viewer
