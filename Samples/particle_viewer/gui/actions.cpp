// Keys are those of a keyboard with Latin letters, as GLFW names their places.

#include "actions.h"

#include <GLFW/glfw3.h>

namespace Viewer
{
const std::vector<SKeyBinding> &KeyBindings()
{
	static const std::vector<SKeyBinding> kBindings = {
		{GLFW_KEY_SPACE,         "Space", EAction::PlayOrPause,         "play or pause"                                       },
		{GLFW_KEY_N,             "N",     EAction::Step,                "one step of the simulation, paused"                  },
		{GLFW_KEY_S,             "S",     EAction::Sorting,             "sorting on or off"                                   },
		{GLFW_KEY_F,             "F",     EAction::FreezeOrder,         "keep sorting for where the camera is now, or not"    },
		{GLFW_KEY_O,             "O",     EAction::NextOrder,           "next order to sort in"                               },
		{GLFW_KEY_C,             "C",     EAction::NextColour,          "next meaning of the colours"                         },
		{GLFW_KEY_W,             "W",     EAction::NextWipe,            "next wipe: two ways to draw, under a divider to drag"},
		{GLFW_KEY_TAB,           "Tab",   EAction::NextScene,           "next scene"                                          },
		{GLFW_KEY_I,             "I",     EAction::IndexType,           "indices of 16 or 32 bits"                            },
		{GLFW_KEY_LEFT_BRACKET,  "[",     EAction::SmallerOutput,       "smaller output, down to none"                        },
		{GLFW_KEY_RIGHT_BRACKET, "]",     EAction::LargerOutput,        "larger output, up to what the sort needs"            },
		{GLFW_KEY_M,             "M",     EAction::MisalignOutput,      "output off a vector's boundary, or on it"            },
		{GLFW_KEY_LEFT,          "Left",  EAction::TurnLeft,            "the camera to the left; dragging turns it too"       },
		{GLFW_KEY_RIGHT,         "Right", EAction::TurnRight,           "to the right"                                        },
		{GLFW_KEY_UP,            "Up",    EAction::TiltUp,              "upwards"                                             },
		{GLFW_KEY_DOWN,          "Down",  EAction::TiltDown,            "downwards"                                           },
		{GLFW_KEY_EQUAL,         "+",     EAction::Nearer,              "nearer; the wheel zooms too"                         },
		{GLFW_KEY_MINUS,         "-",     EAction::Farther,             "farther"                                             },
		{GLFW_KEY_PAGE_UP,       "PgUp",  EAction::FlyForwards,         "fly forwards; Shift or the right button pans"        },
		{GLFW_KEY_PAGE_DOWN,     "PgDn",  EAction::FlyBackwards,        "fly backwards"                                       },
		{GLFW_KEY_PERIOD,        ".",     EAction::MorePrimitives,      "of a capture: draw one primitive more"               },
		{GLFW_KEY_COMMA,         ",",     EAction::FewerPrimitives,     "one primitive less"                                  },
		{GLFW_KEY_L,             "L",     EAction::ManyMorePrimitives,  "a hundredth of all more"                             },
		{GLFW_KEY_J,             "J",     EAction::ManyFewerPrimitives, "a hundredth of all less; Space plays them"           },
		{GLFW_KEY_G,             "G",     EAction::NextShape,           "of a capture: triangles, quads or points"            },
		{GLFW_KEY_U,             "U",     EAction::NextUp,              "another axis upwards"                                },
		{GLFW_KEY_HOME,          "Home",  EAction::ResetCamera,         "the scene's own camera; a double click looks there"  },
		{GLFW_KEY_H,             "H",     EAction::ShowKeys,            "these keys on the screen, or not"                    },
		{GLFW_KEY_F12,           "F12",   EAction::WritePicture,        "write picture and window to the folder of --out"     },
		{GLFW_KEY_ESCAPE,        "Esc",   EAction::Close,               "close"                                               },
	};
	return kBindings;
}

const char *KeyName(EAction action)
{
	for (const SKeyBinding &binding : KeyBindings())
		if (binding.m_Action == action)
			return binding.m_KeyName;
	return "";
}

std::string KeysHelp()
{
	constexpr size_t kColumn = 14;
	std::string text = "Keys in the window\n";
	for (const SKeyBinding &binding : KeyBindings())
	{
		const std::string key = "  " + std::string(binding.m_KeyName);
		text += key + std::string(kColumn - key.size(), ' ') + binding.m_What + "\n";
	}
	return text;
}
} // namespace Viewer
