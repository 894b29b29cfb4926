#pragma once

// The widgets beside the picture and over it: the settings of a view, and its results.

#include "vx_defs.h"

#include "live_view.h"
#include <optional>
#include <string>

namespace Viewer
{
using namespace Vexmoor;

class CControlPanel
{
public:
	/// One frame of the panel, at the right edge of the window. Settings are changed in place; if a button is pressed,
	/// its action is returned, for the function that also carries out the actions of keys.
	std::optional<EAction> Show(CLiveView &view, float width, const std::string &message);

	/// One frame of what lies over the picture: how far a simulation is, what a frozen order is sorted for, a wipe's
	/// divider, and all keys if they are asked for.
	static void ShowOverlay(const CLiveView &view, float panelWidth, bool showsKeys);

private:
	bool ShowScene(SViewSettings &settings, const SViewFigures &figures, bool isCapture);

	int m_EditedParticleCount = 0; // while its slider is held
	bool m_IsEditing = false;
};
} // namespace Viewer
