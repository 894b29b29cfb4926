#pragma once

// A scene as the window shows it: played, paused and stepped, and sorted as the settings say. This class knows nothing
// of windows and widgets.

#include "vx_defs.h"

#include "actions.h"
#include "arguments.h"
#include "frame_drawer.h"
#include "library_reports.h"
#include "orbit.h"
#include "panel_words.h"
#include "scene_capture.h"
#include "scene_list.h"
#include "sort_times.h"
#include "wipe.h"
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SViewSettings
{
	const SSceneKind *m_Scene = null;
	u32 m_ParticleCount = 0;

	bool m_Playing = true;
	bool m_Sorting = true;
	EOrder m_Order = EOrder::ByValue; ///< Where sorting is on; one that the scene has.
	bool m_FreezeOrder = false;       ///< Sorted for where the camera was when this was set.
	EColour m_Colour = EColour::Light;
	u32 m_IndexBits = 32;
	u32 m_OutputPercent = 100; ///< Of the primitives, what the output has room for.
	bool m_MisalignOutput = false;
	bool m_CheckCalls = true;
	u32 m_ThreadCount = 1; ///< That share a sort; the indices are the same.
	SWipe m_Wipe;          ///< Where sorting is on.
	EUp m_Up = EUp::Y;
	SOrbit m_Orbit;

	// Of a captured call.
	u32 m_FirstCount = kAllPrimitives; ///< Of its drawing order, as many are drawn.
	EShape m_Shape = EShape::Triangles;
	u32 m_SizePercent = 100; ///< Of shapes.
};

/// The colours that can be drawn without the exact answer.
constexpr EColour kLiveColours[] = {EColour::Light, EColour::Order, EColour::Overdraw};

/// The orders that the sorter makes of a scene.
std::vector<SPictureOfOrder> SortedOrders(const IScene &scene);

class CLiveView
{
public:
	static constexpr u32 kHistoryLength = 160; // sorts

	/// Needs the current context that CRenderer needs.
	explicit CLiveView(const SArguments &arguments);

	const SViewSettings &Settings() const { return m_Settings; }
	void Change(const SViewSettings &settings);
	/// What is about the view; the rest is the window's.
	void Do(EAction action);
	void SetSize(u32 width, u32 height);
	/// Looks at what is drawn at a place of the picture, and goes nearer. x and y are from -1 to 1, rightwards and
	/// upwards.
	void FocusAt(float x, float y);
	/// Moves the camera so that what is looked at follows a pointer: rightwards and upwards, in heights of the picture.
	void Pan(float right, float up);

	/// Simulates and draws what is due.
	void Update();
	/// How long nothing is due, in seconds.
	double SecondsToSpare() const;

	CRenderer &Renderer() { return m_Drawer.Renderer(); }
	const IScene &Scene() const { return *m_Scene; }
	/// The scene, if it is a captured call.
	const CCaptureScene *Capture() const { return m_Scene->Capture(); }
	/// Of a captured call, the order that is drawn, and how many of its primitives.
	EOrder CaptureOrder() const { return m_Settings.m_Sorting ? m_Settings.m_Order : EOrder::Storage; }
	u32 CaptureCount() const;
	const SViewFigures &Figures() const { return m_Figures; }
	/// Of the last sorts, the newest last; none where nothing is sorted.
	const std::deque<SSortTimes> &History() const { return m_History; }
	/// Of the last sorts on one thread, for comparison: with several threads, one of every few frames is sorted so.
	const std::deque<SSortTimes> &HistoryOfOneThread() const { return m_HistoryOfOneThread; }
	/// Frames drawn in a second, of late; 0 while nothing is.
	double FramesPerSecond() const;
	const std::vector<std::string> &Assertions() const { return m_LibraryReports.Assertions(); }
	/// Frames of the scene that have been drawn.
	u32 FrameCount() const { return m_FrameCount; }
	/// From 0 to 1 while a scene is simulated ahead; 1 when it is on show.
	float WarmUpShare() const;
	/// The camera of the last frame, and the one that it was sorted for.
	const SCamera &Camera() const { return m_Drawer.Frame().m_Camera; }
	/// What is on both sides of the divider.
	SWipeLabels SideLabels() const;
	const SCamera &SortCamera() const { return m_Settings.m_FreezeOrder ? m_FrozenCamera : Camera(); }
	bool HasWipe() const
	{
		return m_Settings.m_Sorting && m_Settings.m_Wipe.m_Kind != EWipe::None && Capture() == null;
	}
	/// The scene and what is done with it, in a line.
	std::string Title() const;

private:
	typedef std::chrono::steady_clock CClock;

	void Restart();
	void UseDefaultsOfScene();
	void ShowPrimitives(SViewSettings &settings, s64 more) const;
	void PlayCapture();
	void Shift(SOrbit &orbit, float right, float up, float forward) const;
	void ForgetTimes();
	void NoteDraw();
	std::string OrderLabel() const;
	void WarmUp();
	void Advance();
	SCamera SceneCamera() const { return Upright(m_Frame.m_Camera, m_Settings.m_Up); }
	void Draw();
	SDrawn DrawInOrder();
	SDrawn DrawWithWipe(const STrial &trial);
	void Count(const std::vector<SDrawCall> &drawCalls);

	SArguments m_Arguments;
	CLibraryReports m_LibraryReports;
	CFrameDrawer m_Drawer;
	CSortClock m_Clock;
	std::unique_ptr<IScene> m_Scene;
	SViewSettings m_Settings;
	SCamera m_FrozenCamera;
	CWipeDrawer m_WipeDrawer{m_Drawer};

	SFrame m_Frame; // as the scene has it, with the scene's camera
	u32 m_WarmUpStep = 0;
	u32 m_FrameCount = 0;
	CClock::time_point m_NextStep;
	bool m_Redraw = true;

	SViewFigures m_Figures;
	std::deque<SSortTimes> m_History;
	std::deque<SSortTimes> m_HistoryOfOneThread;
	std::deque<CClock::time_point> m_DrawTimes;
	u32 m_SortCount = 0;

	std::vector<std::pair<std::string, SPairFigures>> m_Orders; // measured of late
	CClock::time_point m_NextMeasurement;
};
} // namespace Viewer
