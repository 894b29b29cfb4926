#pragma once

// A frame's way to its picture: plan the draw calls, sort straight into mapped index memory, draw.

#include "vx_defs.h"

#include "renderer.h"
#include "scene.h"
#include "sort_frame.h"
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What can be done to a sort to see what comes of it.
struct STrial
{
	const SCamera *m_SortCamera = null; ///< Sorted for this camera instead of the one that is drawn with.
	float m_OutputShare = 1.0f;         ///< The share of its primitives that a draw call's output has room for.
	u32 m_KeyBits = 32;                 ///< Of the keys that are sorted by: see CFrameSorter::SetKeyBits.
	bool m_MisalignedOutput = false;    ///< The output starts an index late, off every vector's boundary.
};

class CFrameDrawer
{
public:
	/// Needs the current context that CRenderer needs.
	CFrameDrawer(u32 width, u32 height, u32 indexBits);

	CRenderer &Renderer() { return m_Renderer; }
	CFrameSorter &Sorter() { return m_Sorter; }
	void SetIndexBits(u32 indexBits);
	/// The frame of the draws to come. What it views has to stay as it is until the last of them.
	void SetFrame(const SFrame &frame);
	const SFrame &Frame() const { return m_Frame; }

	/// Draws in an order that the sorter makes: any but Storage.
	SDrawn DrawSorted(EOrder order, const STrial &trial = {});
	/// Draws with indices that are ready, in one draw call.
	SDrawn DrawIndices(const std::vector<u32> &indices);

private:
	CTriangleSorter::EIndexType m_IndexType;
	CRenderer m_Renderer;
	CFrameSorter m_Sorter;
	SFrame m_Frame;
};
} // namespace Viewer
