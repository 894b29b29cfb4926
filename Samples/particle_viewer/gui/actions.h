#pragma once

// The actions of the window that a key or a button starts: one table for the keyboard, the buttons and the help.

#include "vx_defs.h"

#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

enum class EAction
{
	PlayOrPause,
	Step,
	Sorting,
	FreezeOrder,
	NextOrder,
	NextColour,
	NextWipe,
	NextScene,
	IndexType,
	SmallerOutput,
	LargerOutput,
	MisalignOutput,
	TurnLeft,
	TurnRight,
	TiltUp,
	TiltDown,
	Nearer,
	Farther,
	FlyForwards,
	FlyBackwards,
	MorePrimitives,
	FewerPrimitives,
	ManyMorePrimitives,
	ManyFewerPrimitives,
	NextShape,
	NextUp,
	ResetCamera,
	ShowKeys,
	WritePicture,
	Close
};

struct SKeyBinding
{
	int m_Key; ///< As GLFW numbers keys.
	const char *m_KeyName;
	EAction m_Action;
	const char *m_What;
};

const std::vector<SKeyBinding> &KeyBindings();
/// The name of the key that does it.
const char *KeyName(EAction action);
/// Lines of --help.
std::string KeysHelp();
} // namespace Viewer
