#pragma once

// The command line: what was asked for, checked in full before anything is made.

#include "vx_defs.h"

#include "colour.h"
#include "point_cloud.h"
#include "scene_capture.h"
#include "scene_list.h"
#include "wipe.h"
#include <optional>
#include <string>

namespace Viewer
{
using namespace Vexmoor;

struct SArguments
{
	const SSceneKind *m_Scene = null;
	SCloudOptions m_CloudOptions; ///< How files that are dropped are read.
	u32 m_ParticleCount = 0;      ///< The scene's own number unless one was asked for.
	bool m_InWindow = false;
	u32 m_FrameCount = 24; ///< In a window, 0: until it is closed.
	u32 m_Seed = 1;
	EUp m_Up = EUp::Y; ///< As the scene or the file has it unless another is asked for.
	u32 m_Width = 640;
	u32 m_Height = 360;
	u32 m_IndexBits = 32;
	u32 m_ThreadCount = 1; ///< That share a sort.
	EColour m_Colour = EColour::Light;
	SWipe m_Wipe;
	u32 m_FirstCount = kAllPrimitives; ///< Primitives of a captured call to draw, from the first on.
	EShape m_Shape = EShape::Triangles;
	std::string m_OutFolder;   ///< Empty: no pictures are written.
	std::string m_TraceFile;   ///< Empty: no scopes are recorded.
	std::string m_CaptureFile; ///< Empty: no sort is captured.
	std::string m_ReplayFile;  ///< Empty: frames are drawn.
};

/// What the command line asks for; nothing when it was --help, which has been answered. A wrong argument is a CFailure.
std::optional<SArguments> ParseArguments(int argc, const char *const *argv);
} // namespace Viewer
