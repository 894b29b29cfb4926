// A turn of the loop: input, widgets, the view's picture, and what was asked to be written.

#include "window_run.h"

#include "control_panel.h"
#include "failure.h"
#include "file_scene.h"
#include "gui_window.h"
#include "live_view.h"
#include "picture.h"
#include <algorithm>
#include <cmath>
#include <imgui.h>
#include <optional>
#include <string>

namespace Viewer
{
namespace
{
	class CWindowRun
	{
	public:
		CWindowRun(const SArguments &arguments, COutputFolder *folder)
			: m_Arguments(arguments)
			, m_Folder(folder)
			, m_Window("particle_viewer", {arguments.m_Width, arguments.m_Height})
			, m_View(arguments)
		{
		}

		void Run()
		{
			while (!m_Window.IsClosing())
			{
				m_Window.BeginFrame(m_View.SecondsToSpare());
				TakeKeys();
				for (const std::string &path : m_Window.TakeDroppedFiles())
					TryToOpen(path);
				TakeMouse();
				const SSize size = m_Window.PictureSize();
				m_View.SetSize(size.m_Width, size.m_Height);
				m_View.Update();
				ShowFrame();
				ShowWidgets();
				if (m_WritePicture)
					TryToWritePicture();
				if (m_Arguments.m_FrameCount != 0 && m_View.FrameCount() >= m_Arguments.m_FrameCount)
					EndRun();
				m_Window.Show();
			}
		}

	private:
		// What cannot be read does not end what is being looked at.
		void TryToOpen(const std::string &path)
		{
			try
			{
				SViewSettings settings = m_View.Settings();
				settings.m_Scene = AddSceneKind(ReadFileScene(path, m_Arguments.m_CloudOptions));
				settings.m_ParticleCount = settings.m_Scene->m_ParticleCount;
				m_View.Change(settings);
				m_Message.clear();
			}
			catch (const CFailure &failure)
			{
				m_Message = failure.what();
			}
		}

		void TakeKeys()
		{
			for (const int key : m_Window.TakeKeys())
				for (const SKeyBinding &binding : KeyBindings())
					if (binding.m_Key == key)
						Do(binding.m_Action);
		}

		void Do(EAction action)
		{
			if (action == EAction::Close)
				m_Window.Close();
			else if (action == EAction::WritePicture)
				m_WritePicture = true;
			else if (action == EAction::ShowKeys)
				m_ShowsKeys = !m_ShowsKeys;
			else
				m_View.Do(action);
		}

		// The left button turns, and the others pan. A pixel is a step; the wheel's clicks are steps of zooming, which
		// some wheels give in fractions.
		void TakeMouse()
		{
			const ImGuiIO &io = ImGui::GetIO();
			const float width = io.DisplaySize.x - m_Window.PanelWidth();
			if (io.WantCaptureMouse || DragDivider(width))
				return;
			if (ImGui::IsMouseDoubleClicked(ImGuiMouseButton_Left))
				m_View.FocusAt(2.0f * io.MousePos.x / width - 1.0f, 1.0f - 2.0f * io.MousePos.y / io.DisplaySize.y);
			const bool left = ImGui::IsMouseDown(ImGuiMouseButton_Left);
			const bool pans = ImGui::IsMouseDown(ImGuiMouseButton_Right) ||
			                  ImGui::IsMouseDown(ImGuiMouseButton_Middle) || (left && io.KeyShift);
			if (pans && (io.MouseDelta.x != 0.0f || io.MouseDelta.y != 0.0f))
				m_View.Pan(io.MouseDelta.x / io.DisplaySize.y, -io.MouseDelta.y / io.DisplaySize.y);
			SViewSettings settings = m_View.Settings();
			if (left && !pans)
			{
				settings.m_Orbit.m_TurnSteps -= s32(std::lround(io.MouseDelta.x));
				settings.m_Orbit.m_TiltSteps += s32(std::lround(io.MouseDelta.y));
			}
			m_Wheel += io.MouseWheel;
			const float wholeSteps = std::trunc(m_Wheel);
			m_Wheel -= wholeSteps;
			settings.m_Orbit.m_ZoomSteps += s32(wholeSteps);
			if (settings.m_Orbit != m_View.Settings().m_Orbit)
				m_View.Change(settings);
		}

		// Whether the mouse is busy with the divider of a wipe.
		bool DragDivider(float width)
		{
			constexpr float kReach = 10.0f; // units of widgets
			SViewSettings settings = m_View.Settings();
			const float x = ImGui::GetIO().MousePos.x;
			if (!m_View.HasWipe() || !ImGui::IsMouseDown(ImGuiMouseButton_Left))
				m_DragsDivider = false;
			else if (ImGui::IsMouseClicked(ImGuiMouseButton_Left))
				m_DragsDivider = std::abs(x - settings.m_Wipe.m_Share * width) < kReach;
			if (!m_DragsDivider)
				return false;
			settings.m_Wipe.m_Share = std::clamp(x / width, 0.0f, 1.0f);
			if (settings.m_Wipe.m_Share != m_View.Settings().m_Wipe.m_Share)
				m_View.Change(settings);
			return true;
		}

		void ShowFrame()
		{
			const std::string title = "particle_viewer: " + m_View.Title();
			if (title != m_Title)
				m_Window.SetTitle(title);
			m_Title = title;
			m_Window.Clear();
			if (m_View.FrameCount() != 0)
				m_View.Renderer().ShowPicture();
		}

		// With the figures of the frame that is shown; what they change is in the next one.
		void ShowWidgets()
		{
			const std::optional<EAction> action = m_Panel.Show(m_View, m_Window.PanelWidth(), m_Message);
			CControlPanel::ShowOverlay(m_View, m_Window.PanelWidth(), m_ShowsKeys);
			m_Window.EndFrame();
			if (action)
				Do(*action);
		}

		// What cannot be written does not end what is being looked at.
		void TryToWritePicture()
		{
			m_WritePicture = false;
			try
			{
				if (m_Folder != null)
					WritePicture();
				else
					m_Message = "Pictures are written where --out DIR says.";
			}
			catch (const CFailure &failure)
			{
				m_Message = failure.what();
			}
		}

		void WritePicture()
		{
			const std::string number = std::to_string(++m_WrittenCount) + ".png";
			const SPicture picture = m_View.Renderer().ReadPicture();
			const SPicture window = m_Window.Read();
			m_Folder->Write({
				{"picture_" + number, &picture},
                {"window_" + number,  &window }
            });
			m_Message = "Written: " + m_Arguments.m_OutFolder + "/window_" + number + " and picture_" + number;
		}

		void EndRun()
		{
			if (m_Folder != null)
				WritePicture();
			m_Window.Close();
		}

		SArguments m_Arguments;
		COutputFolder *m_Folder;
		CGuiWindow m_Window;
		CLiveView m_View;
		CControlPanel m_Panel;
		std::string m_Title;
		std::string m_Message;
		float m_Wheel = 0.0f; // what is not a whole step yet
		bool m_WritePicture = false;
		bool m_ShowsKeys = false;
		bool m_DragsDivider = false;
		u32 m_WrittenCount = 0;
	};
} // namespace

void RunWindow(const SArguments &arguments)
{
	std::optional<COutputFolder> folder;
	if (!arguments.m_OutFolder.empty())
		folder.emplace(arguments.m_OutFolder);
	CWindowRun(arguments, folder ? &*folder : null).Run();
}
} // namespace Viewer
