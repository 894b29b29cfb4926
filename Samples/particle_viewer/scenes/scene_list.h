#pragma once

// The list of scenes.

#include "vx_defs.h"

#include "scene.h"
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

class CCapturedCall;

struct SSceneKind
{
	const char *m_Name;
	u32 m_ParticleCount;    ///< Unless another is asked for.
	u32 m_MaxParticleCount; ///< What the scene's pages, vertices and 32-bit byte sizes leave room for.
	std::function<std::unique_ptr<IScene>(u32 particleCount, u32 seed)> m_Create;
	const char *m_Details;     ///< Lines of --help.
	u32 m_FrameCount = 24;     ///< Unless another is asked for; fewer where one takes long.
	std::string m_Source = {}; ///< Of a scene out of a file, where it comes from.
	EUp m_Up = EUp::Y;
	std::shared_ptr<CCapturedCall> m_Call = {}; ///< Of a captured draw call; otherwise null.
};

/// The first one is shown unless another is asked for.
const std::vector<SSceneKind> &SceneKinds();
/// Adds one to choose from, and returns it. Pointers to others stay valid; where there is no room, it is a CFailure.
const SSceneKind *AddSceneKind(const SSceneKind &kind);
/// Null where no scene has this name.
const SSceneKind *FindSceneKind(const std::string &name);
/// "a, b or c".
std::string SceneNames();
} // namespace Viewer
