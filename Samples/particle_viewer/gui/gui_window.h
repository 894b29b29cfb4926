#pragma once

// A window of the desktop with an OpenGL 4.5 core context and widgets: GLFW and Dear ImGui.

#include "vx_defs.h"

#include "picture.h"
#include <string>
#include <vector>

struct GLFWwindow;

namespace Viewer
{
using namespace Vexmoor;

struct SSize
{
	u32 m_Width;
	u32 m_Height;
};

/// Makes its context current and keeps it so; a CFailure where there is no display, or no driver for one.
class CGuiWindow
{
public:
	/// As large as a picture with a panel to its right, if the display has room.
	CGuiWindow(const std::string &title, const SSize &picture);
	~CGuiWindow();
	CGuiWindow(const CGuiWindow &) = delete;
	CGuiWindow &operator=(const CGuiWindow &) = delete;

	bool IsClosing() const;
	void Close();
	void SetTitle(const std::string &title);
	/// In units of widgets, which may be larger than pixels: less of a small window than of a large one.
	float PanelWidth() const;
	/// What the panel leaves of the window, in pixels.
	SSize PictureSize() const;

	/// Waits until there is input, or for so long; then a frame of widgets begins.
	void BeginFrame(double waitSeconds);
	/// The keys pressed since the last frame, however briefly, as GLFW numbers them.
	std::vector<int> TakeKeys();
	/// The files dropped on the window since the last frame.
	std::vector<std::string> TakeDroppedFiles();
	/// An empty window to draw the picture to.
	void Clear();
	/// Draws the widgets.
	void EndFrame();
	/// The window as it will be shown.
	SPicture Read() const;
	void Show();

private:
	static void OnKey(GLFWwindow *window, int key, int scanCode, int event, int modifiers);

	static void OnDrop(GLFWwindow *window, int count, const char **paths);

	GLFWwindow *m_Window = null;
	float m_Scale = 1.0f; // of widgets and letters, for displays with small pixels
	std::vector<int> m_Keys;
	std::vector<std::string> m_DroppedFiles;
};
} // namespace Viewer
