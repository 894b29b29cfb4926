#pragma once

// A frame drawn in two ways: one left of a divider, and the other right of it.

#include "vx_defs.h"

#include "frame_drawer.h"
#include <optional>
#include <string>

namespace Viewer
{
using namespace Vexmoor;

enum class EWipe
{
	None,
	Unsorted, ///< Unsorted, and sorted.
	Frozen,   ///< Sorted for a camera that stood elsewhere, and for the one that is drawn with.
	KeyBits,  ///< Sorted by keys of 32 bits, and of 16, as common viewers of splats have them.
	Error     ///< The picture, and how far it is from the exact answer.
};

struct SWipe
{
	EWipe m_Kind = EWipe::None;
	float m_Share = 0.5f; ///< Of the picture's width, what lies left of the divider.
};

/// The name that options have for it: "none", "unsorted" and so on; nothing where none has this name.
const char *WipeName(EWipe wipe);
std::optional<EWipe> FindWipe(const std::string &name);
/// The one after it, and after the last the first.
EWipe NextWipe(EWipe wipe);

/// What the two sides say of themselves. The label is that of the order that is drawn.
struct SWipeLabels
{
	std::string m_Left;
	std::string m_Right;
};
SWipeLabels WipeLabels(EWipe wipe, const std::string &orderLabel);

/// The first column that lies right of the divider.
u32 DividerColumn(const SWipe &wipe, u32 width);

class CWipeDrawer
{
public:
	explicit CWipeDrawer(CFrameDrawer &drawer)
		: m_Drawer(drawer)
	{
	}

	/// Draws the drawer's frame in the other way, and keeps it. frozenCamera is that of EWipe::Frozen. Indices that are
	/// asked for are read back, if that way has sorted any.
	void DrawOther(
		EWipe wipe, EOrder order, const STrial &trial, const SCamera &frozenCamera, std::vector<u32> *indices = null);
	/// Then, when the frame has been drawn as it is: puts what was kept beside it.
	void Join(const SWipe &wipe);

private:
	CFrameDrawer &m_Drawer;
	SPicture m_Exact;
};
} // namespace Viewer
