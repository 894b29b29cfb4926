// Widgets in the display's own scale, and letters of a font that most desktops have.

#include "gui_window.h"

#include "failure.h"
#include "lettering.h"
#include "renderer.h"
#include <GLFW/glfw3.h>
#include <algorithm>
#include <backends/imgui_impl_glfw.h>
#include <backends/imgui_impl_opengl3.h>
#include <epoxy/gl.h>
#include <filesystem>
#include <imgui.h>
#include <utility>

namespace Viewer
{
namespace
{
	constexpr float kFontHeight = 15.0f;
	constexpr u32 kSmallestPicture = 16;

	// Of a window, both in units of widgets that are not scaled. The picture gets most of every window that is wide
	// enough for the panel's buttons.
	u32 PanelWidthIn(u32 windowWidth)
	{
		constexpr u32 kSmallest = 280;
		constexpr u32 kLargest = 360;
		return std::clamp(windowWidth * 2 / 5, kSmallest, kLargest);
	}

	// The window grows by 0 or 1 more than its panel does, so one of all widths leaves just the picture.
	u32 WindowWidthFor(u32 pictureWidth)
	{
		u32 width = pictureWidth;
		while (width - std::min(width, PanelWidthIn(width)) < pictureWidth)
			++width;
		return width;
	}

	ImVec4 Grey(float brightness, float alpha = 1.0f)
	{
		return ImVec4(brightness, brightness * 1.02f, brightness * 1.07f, alpha);
	}

	std::string LastError()
	{
		const char *description = nullptr;
		glfwGetError(&description);
		return description != nullptr ? description : "for no known reason";
	}

	void SetStyle(float scale)
	{
		ImGui::StyleColorsDark();
		ImGuiStyle &style = ImGui::GetStyle();
		style.WindowPadding = ImVec2(14.0f, 14.0f);
		style.FramePadding = ImVec2(8.0f, 4.0f);
		style.ItemSpacing = ImVec2(8.0f, 7.0f);
		style.WindowRounding = 0.0f;
		style.WindowBorderSize = 0.0f;
		style.FrameRounding = 4.0f;
		style.GrabRounding = 4.0f;
		style.ScrollbarSize = 10.0f;

		const ImVec4 accent(0.20f, 0.52f, 0.78f, 1.0f);
		const ImVec4 accentLit(0.26f, 0.60f, 0.88f, 1.0f);
		ImVec4 *const colours = style.Colors;
		colours[ImGuiCol_WindowBg] = Grey(0.085f);
		colours[ImGuiCol_Text] = Grey(0.88f);
		colours[ImGuiCol_TextDisabled] = Grey(0.55f);
		colours[ImGuiCol_FrameBg] = Grey(0.16f);
		colours[ImGuiCol_FrameBgHovered] = Grey(0.20f);
		colours[ImGuiCol_FrameBgActive] = Grey(0.24f);
		colours[ImGuiCol_Button] = Grey(0.19f);
		colours[ImGuiCol_ButtonHovered] = Grey(0.25f);
		colours[ImGuiCol_ButtonActive] = accent;
		colours[ImGuiCol_Header] = Grey(0.22f);
		colours[ImGuiCol_HeaderHovered] = Grey(0.28f);
		colours[ImGuiCol_HeaderActive] = accent;
		colours[ImGuiCol_CheckMark] = accentLit;
		colours[ImGuiCol_SliderGrab] = accent;
		colours[ImGuiCol_SliderGrabActive] = accentLit;
		colours[ImGuiCol_PlotHistogram] = accent;
		colours[ImGuiCol_Separator] = Grey(0.18f);
		style.ScaleAllSizes(scale);
	}

	void SetFont(float scale)
	{
		ImGuiIO &io = ImGui::GetIO();
		std::error_code error;
		if (std::filesystem::is_regular_file(kFontFile, error))
			io.Fonts->AddFontFromFileTTF(kFontFile, kFontHeight * scale);
		else
			io.FontGlobalScale = scale;
	}
} // namespace

CGuiWindow::CGuiWindow(const std::string &title, const SSize &picture)
{
	if (glfwInit() != GLFW_TRUE)
		throw CFailure(
			"There is no display to open a window on (" + LastError() + "); without --window none is needed.");
	glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
	glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 5);
	glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
	glfwWindowHint(GLFW_SCALE_TO_MONITOR, GLFW_TRUE);
	m_Window =
		glfwCreateWindow(int(WindowWidthFor(picture.m_Width)), int(picture.m_Height), title.c_str(), nullptr, nullptr);
	if (m_Window == nullptr)
	{
		const std::string error = LastError();
		glfwTerminate();
		throw CFailure("The display has no OpenGL 4.5 core context (" + error +
					   "); a software driver comes with the "
					   "packages libgl1-mesa-dri and libglx-mesa0.");
	}
	glfwMakeContextCurrent(m_Window);
	glfwSwapInterval(1);
	glfwGetWindowContentScale(m_Window, &m_Scale, nullptr);
	glfwSetWindowSizeLimits(m_Window, int(float(WindowWidthFor(kSmallestPicture)) * m_Scale), int(kSmallestPicture),
		GLFW_DONT_CARE, GLFW_DONT_CARE);
	glfwSetWindowUserPointer(m_Window, this);
	glfwSetKeyCallback(m_Window, OnKey); // before the widgets', which calls it
	glfwSetDropCallback(m_Window, OnDrop);

	ImGui::CreateContext();
	ImGui::GetIO().IniFilename = nullptr; // no file is left behind
	SetStyle(m_Scale);
	SetFont(m_Scale);
	ImGui_ImplGlfw_InitForOpenGL(m_Window, true);
	ImGui_ImplOpenGL3_Init("#version 450 core");
}

CGuiWindow::~CGuiWindow()
{
	ImGui_ImplOpenGL3_Shutdown();
	ImGui_ImplGlfw_Shutdown();
	ImGui::DestroyContext();
	glfwDestroyWindow(m_Window);
	glfwTerminate();
}

bool CGuiWindow::IsClosing() const
{
	return glfwWindowShouldClose(m_Window) == GLFW_TRUE;
}

void CGuiWindow::Close()
{
	glfwSetWindowShouldClose(m_Window, GLFW_TRUE);
}

void CGuiWindow::SetTitle(const std::string &title)
{
	glfwSetWindowTitle(m_Window, title.c_str());
}

float CGuiWindow::PanelWidth() const
{
	int width = 0;
	glfwGetWindowSize(m_Window, &width, nullptr);
	return float(PanelWidthIn(u32(float(width) / m_Scale))) * m_Scale;
}

SSize CGuiWindow::PictureSize() const
{
	int windowWidth = 0;
	int width = 0;
	int height = 0;
	glfwGetWindowSize(m_Window, &windowWidth, nullptr);
	glfwGetFramebufferSize(m_Window, &width, &height);
	const float pixelsPerUnit = windowWidth > 0 ? float(width) / float(windowWidth) : 1.0f;
	const int panel = int(PanelWidth() * pixelsPerUnit);
	return {u32(std::max(width - panel, int(kSmallestPicture))), u32(std::max(height, int(kSmallestPicture)))};
}

void CGuiWindow::BeginFrame(double waitSeconds)
{
	if (waitSeconds > 0.0)
		glfwWaitEventsTimeout(waitSeconds);
	else
		glfwPollEvents();
	ImGui_ImplOpenGL3_NewFrame();
	ImGui_ImplGlfw_NewFrame();
	ImGui::NewFrame();
}

std::vector<int> CGuiWindow::TakeKeys()
{
	std::vector<int> keys;
	keys.swap(m_Keys);
	if (ImGui::GetIO().WantTextInput) // they are letters of a number then
		keys.clear();
	return keys;
}

void CGuiWindow::Clear()
{
	glBindFramebuffer(GL_FRAMEBUFFER, 0);
	glClearColor(0.03f, 0.03f, 0.04f, 1.0f);
	glClear(GL_COLOR_BUFFER_BIT);
}

void CGuiWindow::EndFrame()
{
	glBindFramebuffer(GL_FRAMEBUFFER, 0);
	ImGui::Render();
	ImGui_ImplOpenGL3_RenderDrawData(ImGui::GetDrawData());
}

SPicture CGuiWindow::Read() const
{
	int width = 0;
	int height = 0;
	glfwGetFramebufferSize(m_Window, &width, &height);
	return ReadFramebuffer(0, u32(width), u32(height));
}

void CGuiWindow::Show()
{
	glfwSwapBuffers(m_Window);
}

void CGuiWindow::OnDrop(GLFWwindow *window, int count, const char **paths)
{
	CGuiWindow *const self = static_cast<CGuiWindow *>(glfwGetWindowUserPointer(window));
	self->m_DroppedFiles.insert(self->m_DroppedFiles.end(), paths, paths + count);
}

std::vector<std::string> CGuiWindow::TakeDroppedFiles()
{
	return std::exchange(m_DroppedFiles, {});
}

void CGuiWindow::OnKey(GLFWwindow *window, int key, int, int event, int)
{
	if (event != GLFW_RELEASE)
		static_cast<CGuiWindow *>(glfwGetWindowUserPointer(window))->m_Keys.push_back(key);
}
} // namespace Viewer
