// Draws only when something changed: a paused view costs nothing.

#include "live_view.h"

#include "exact_order.h"
#include "failure.h"
#include <algorithm>

namespace Viewer
{
namespace
{
	constexpr std::chrono::milliseconds kStepTime(33);
	constexpr std::chrono::milliseconds kWarmUpTime(40); // a turn of the warm-up; then the window is heard
	constexpr double kIdleSeconds = 0.1;
	constexpr u32 kOutputPercentStep = 5;
	constexpr s32 kOrbitStepsPerKey = 40; // 10 degrees
	constexpr float kFlownPerKey = 0.1f;  // of the distance to what is looked at
	constexpr u32 kSortsPerSortOnOneThread = 4;

	bool SameScene(const SViewSettings &a, const SViewSettings &b)
	{
		return a.m_Scene == b.m_Scene && a.m_ParticleCount == b.m_ParticleCount;
	}

	/// Times of one are no times of the other.
	bool SameSort(const SViewSettings &a, const SViewSettings &b)
	{
		return a.m_Sorting == b.m_Sorting && a.m_Order == b.m_Order && a.m_ThreadCount == b.m_ThreadCount;
	}

	void Keep(std::deque<SSortTimes> &history, const SSortTimes &times)
	{
		history.push_back(times);
		if (history.size() > CLiveView::kHistoryLength)
			history.pop_front();
	}

	/// What a captured call, which is not sorted anew, has no use for.
	bool IsAboutSorting(EAction action)
	{
		switch (action)
		{
		case EAction::FreezeOrder:
		case EAction::NextWipe:
		case EAction::IndexType:
		case EAction::SmallerOutput:
		case EAction::LargerOutput:
		case EAction::MisalignOutput:
			return true;
		default:
			return false;
		}
	}

	/// The element after a value, and after the last one the first.
	template<typename _Elements, typename _IsValue>
	auto Next(const _Elements &elements, const _IsValue &isValue)
	{
		const auto value = std::find_if(std::begin(elements), std::end(elements), isValue);
		return value == std::end(elements) || value + 1 == std::end(elements) ? *std::begin(elements) : *(value + 1);
	}
} // namespace

std::vector<SPictureOfOrder> SortedOrders(const IScene &scene)
{
	std::vector<SPictureOfOrder> orders = scene.Pictures();
	orders.erase(std::remove_if(orders.begin(), orders.end(),
					 [](const SPictureOfOrder &picture) { return picture.m_Order == EOrder::Storage; }),
		orders.end());
	return orders;
}

CLiveView::CLiveView(const SArguments &arguments)
	: m_Arguments(arguments)
	, m_Drawer(arguments.m_Width, arguments.m_Height, arguments.m_IndexBits)
{
	m_Settings.m_Scene = arguments.m_Scene;
	m_Settings.m_ParticleCount = arguments.m_ParticleCount;
	m_Settings.m_IndexBits = arguments.m_IndexBits;
	m_Settings.m_Colour = arguments.m_Colour;
	m_Settings.m_ThreadCount = arguments.m_ThreadCount;
	m_Settings.m_Up = arguments.m_Up;
	m_Settings.m_Wipe = arguments.m_Wipe;
	m_Settings.m_Shape = arguments.m_Shape;
	Restart();
	UseDefaultsOfScene();
	m_Settings.m_FirstCount = arguments.m_FirstCount;
	m_Settings.m_Colour = arguments.m_Colour;
}

// A capture is one frame, which is looked at for its order, from where its camera was.
void CLiveView::UseDefaultsOfScene()
{
	const bool isCapture = Capture() != null;
	m_Settings.m_FirstCount = kAllPrimitives;
	m_Settings.m_Playing = !isCapture;
	m_Settings.m_Colour = isCapture ? EColour::Order : EColour::Light;
	if (isCapture)
		m_Settings.m_Orbit = SOrbit();
}

void CLiveView::Restart()
{
	m_Scene = m_Settings.m_Scene->m_Create(m_Settings.m_ParticleCount, m_Arguments.m_Seed);
	m_Settings.m_Order = m_Scene->Pictures().back().m_Order;
	m_Settings.m_FreezeOrder = false;
	m_WarmUpStep = 0;
	m_FrameCount = 0;
	ForgetTimes();
}

void CLiveView::ForgetTimes()
{
	m_History.clear();
	m_HistoryOfOneThread.clear();
	m_Orders.clear();
	m_NextMeasurement = CClock::time_point();
}

void CLiveView::Change(const SViewSettings &settings)
{
	const SViewSettings before = m_Settings;
	m_Settings = settings;
	if (before.m_Scene != settings.m_Scene)
		m_Settings.m_Up = settings.m_Scene->m_Up;
	const bool wasCapture = Capture() != null;
	if (!SameScene(before, settings))
		Restart();
	if (before.m_Scene != settings.m_Scene && (wasCapture || Capture() != null))
		UseDefaultsOfScene();
	if (m_FrameCount == 0)
		m_Settings.m_FreezeOrder = false; // there is no order yet
	const auto freezes = [](const SViewSettings &each)
	{ return each.m_FreezeOrder || each.m_Wipe.m_Kind == EWipe::Frozen; };
	if (freezes(m_Settings) && !freezes(before))
		m_FrozenCamera = Camera();
	if (!SameSort(before, m_Settings))
		ForgetTimes();
	m_Redraw = true;
}

void CLiveView::Do(EAction action)
{
	if (Capture() != null && IsAboutSorting(action))
		return;
	SViewSettings settings = m_Settings;
	switch (action)
	{
	case EAction::PlayOrPause:
		settings.m_Playing = !settings.m_Playing;
		if (settings.m_Playing && Capture() != null && settings.m_FirstCount >= CaptureCount())
			settings.m_FirstCount = 0;
		break;
	case EAction::Step:
		settings.m_Playing = false;
		if (Capture() != null)
			ShowPrimitives(settings, 1);
		else if (m_FrameCount != 0)
			Advance();
		break;
	case EAction::MorePrimitives:
		ShowPrimitives(settings, 1);
		break;
	case EAction::FewerPrimitives:
		ShowPrimitives(settings, -1);
		break;
	case EAction::ManyMorePrimitives:
		ShowPrimitives(settings, s64(CaptureCount() / 100) + 1);
		break;
	case EAction::ManyFewerPrimitives:
		ShowPrimitives(settings, -s64(CaptureCount() / 100) - 1);
		break;
	case EAction::NextShape:
		settings.m_Shape = NextShape(settings.m_Shape);
		break;
	case EAction::Sorting:
		settings.m_Sorting = !settings.m_Sorting;
		break;
	case EAction::FreezeOrder:
		settings.m_FreezeOrder = !settings.m_FreezeOrder;
		break;
	case EAction::NextOrder:
		settings.m_Order = Next(SortedOrders(*m_Scene),
			[&](const SPictureOfOrder &picture) {
				return picture.m_Order == settings.m_Order;
			}).m_Order;
		break;
	case EAction::NextColour:
		settings.m_Colour = Next(kLiveColours, [&](EColour colour) { return colour == settings.m_Colour; });
		break;
	case EAction::NextScene:
	{
		const SSceneKind *const last = &SceneKinds().back();
		settings.m_Scene = settings.m_Scene == last ? &SceneKinds().front() : settings.m_Scene + 1;
		settings.m_ParticleCount = settings.m_Scene->m_ParticleCount;
		break;
	}
	case EAction::NextWipe:
		settings.m_Wipe.m_Kind = NextWipe(settings.m_Wipe.m_Kind);
		settings.m_Sorting = true;
		break;
	case EAction::IndexType:
		settings.m_IndexBits = settings.m_IndexBits == 32 ? 16 : 32;
		break;
	case EAction::SmallerOutput:
		settings.m_OutputPercent -= std::min(settings.m_OutputPercent, kOutputPercentStep);
		break;
	case EAction::LargerOutput:
		settings.m_OutputPercent = std::min(settings.m_OutputPercent + kOutputPercentStep, 100u);
		break;
	case EAction::MisalignOutput:
		settings.m_MisalignOutput = !settings.m_MisalignOutput;
		break;
	case EAction::TurnLeft:
		settings.m_Orbit.m_TurnSteps -= kOrbitStepsPerKey;
		break;
	case EAction::TurnRight:
		settings.m_Orbit.m_TurnSteps += kOrbitStepsPerKey;
		break;
	case EAction::TiltUp:
		settings.m_Orbit.m_TiltSteps += kOrbitStepsPerKey;
		break;
	case EAction::TiltDown:
		settings.m_Orbit.m_TiltSteps -= kOrbitStepsPerKey;
		break;
	case EAction::Nearer:
		settings.m_Orbit.m_ZoomSteps += 1;
		break;
	case EAction::Farther:
		settings.m_Orbit.m_ZoomSteps -= 1;
		break;
	case EAction::FlyForwards:
		Shift(settings.m_Orbit, 0.0f, 0.0f, kFlownPerKey);
		break;
	case EAction::FlyBackwards:
		Shift(settings.m_Orbit, 0.0f, 0.0f, -kFlownPerKey);
		break;
	case EAction::NextUp:
		settings.m_Up = NextUp(settings.m_Up);
		break;
	case EAction::ResetCamera:
		settings.m_Orbit = SOrbit();
		break;
	case EAction::ShowKeys:
	case EAction::WritePicture:
	case EAction::Close:
		return;
	}
	Change(settings);
}

u32 CLiveView::CaptureCount() const
{
	return Capture() != null ? Capture()->Count(CaptureOrder()) : 0;
}

void CLiveView::ShowPrimitives(SViewSettings &settings, s64 more) const
{
	const s64 count = CaptureCount();
	const s64 first = std::clamp(std::min(s64(settings.m_FirstCount), count) + more, s64(0), count);
	settings.m_FirstCount = first == count ? kAllPrimitives : u32(first);
}

// From the first primitive to the last, in eight seconds.
void CLiveView::PlayCapture()
{
	constexpr s64 kSteps = 240;
	ShowPrimitives(m_Settings, s64(CaptureCount()) / kSteps + 1);
	m_Settings.m_Playing = m_Settings.m_FirstCount != kAllPrimitives;
}

void CLiveView::Shift(SOrbit &orbit, float right, float up, float forward) const
{
	const CFloat3 shift = ShiftAlong(Camera(), right, up, forward);
	for (u32 axis = 0; axis < 3; ++axis)
		orbit.m_Shift[axis] += shift[axis];
}

void CLiveView::Pan(float right, float up)
{
	SViewSettings settings = m_Settings;
	const float aspect = float(m_Arguments.m_Width) / float(m_Arguments.m_Height);
	const float height = 2.0f * HalfHeight(Camera(), aspect); // of the picture, at distance 1
	Shift(settings.m_Orbit, -right * height, -up * height, 0.0f);
	Change(settings);
}

// Of the particles near that place, the one that is nearest to the camera.
void CLiveView::FocusAt(float x, float y)
{
	constexpr float kNear = 0.03f; // of half the picture's height
	constexpr s32 kZoomSteps = 4;

	if (m_FrameCount == 0)
		return;
	const float aspect = float(m_Arguments.m_Width) / float(m_Arguments.m_Height);
	const SViewTransform view = ViewTransform(Camera(), aspect);
	const SFrame &frame = m_Drawer.Frame();
	const CFloat3 *found = null;
	float foundDepth = 0.0f;
	for (u32 page = 0; page < frame.m_Positions.Count(); ++page)
		for (u32 i = 0; i < frame.m_Positions[page].Count(); ++i)
		{
			if (!frame.m_Enableds[page].Empty() && frame.m_Enableds[page][i] == 0)
				continue;
			const CFloat3 &position = frame.m_Positions[page][i];
			const SClipPoint point = Projected(view, position);
			const float right = (point.m_X / point.m_W - x) * aspect;
			const float up = point.m_Y / point.m_W - y;
			if (point.m_W <= 0.0f || right * right + up * up > kNear * kNear || (found && point.m_W >= foundDepth))
				continue;
			found = &position;
			foundDepth = point.m_W;
		}
	if (found == null)
		return;
	SViewSettings settings = m_Settings;
	settings.m_Orbit.m_Shift = Subtract(*found, SceneCamera().m_Target);
	settings.m_Orbit.m_ZoomSteps += kZoomSteps;
	Change(settings);
}

void CLiveView::SetSize(u32 width, u32 height)
{
	if (width == m_Arguments.m_Width && height == m_Arguments.m_Height)
		return;
	m_Arguments.m_Width = width;
	m_Arguments.m_Height = height;
	Renderer().SetSize(width, height);
	m_Redraw = true;
}

float CLiveView::WarmUpShare() const
{
	const u32 stepCount = m_Scene->WarmUpStepCount();
	return stepCount == 0 ? 1.0f : float(m_WarmUpStep) / float(stepCount);
}

double CLiveView::SecondsToSpare() const
{
	if (m_FrameCount == 0 || m_Redraw)
		return 0.0;
	if (!m_Settings.m_Playing)
		return kIdleSeconds;
	const std::chrono::duration<double> left = m_NextStep - CClock::now();
	return std::clamp(left.count(), 0.0, kIdleSeconds);
}

void CLiveView::Update()
{
	if (m_WarmUpStep < m_Scene->WarmUpStepCount())
	{
		WarmUp();
		return;
	}
	const CClock::time_point now = CClock::now();
	if (m_FrameCount == 0 || (m_Settings.m_Playing && now >= m_NextStep))
	{
		m_NextStep = std::max(m_NextStep + kStepTime, now); // what cannot keep up is slow, and does not catch up
		Advance();
	}
	if (m_Redraw)
		Draw();
}

void CLiveView::WarmUp()
{
	const CClock::time_point end = CClock::now() + kWarmUpTime;
	while (m_WarmUpStep < m_Scene->WarmUpStepCount() && CClock::now() < end)
	{
		m_Scene->Advance();
		++m_WarmUpStep;
	}
}

void CLiveView::Advance()
{
	m_Scene->Advance();
	m_Frame = m_Scene->Frame();
	if (Capture() != null && m_FrameCount != 0)
		PlayCapture();
	if (m_FrameCount == 0)
		m_FrozenCamera = Moved(SceneCamera(), m_Settings.m_Orbit);
	++m_FrameCount;
	m_Redraw = true;
}

void CLiveView::Draw()
{
	m_Redraw = false;
	m_Figures = SViewFigures();
	NoteDraw();
	if (CCaptureScene *const capture = m_Scene->Capture())
	{
		capture->SetLook({CaptureOrder(), m_Settings.m_Shape, m_Settings.m_SizePercent, m_Settings.m_FirstCount,
			m_Settings.m_Colour == EColour::Order});
		m_Frame = capture->Frame();
	}
	SFrame frame = m_Frame;
	frame.m_Camera = Moved(SceneCamera(), m_Settings.m_Orbit);
	try
	{
		m_Drawer.SetFrame(frame);
		m_Drawer.SetIndexBits(m_Settings.m_IndexBits);
		m_Drawer.Sorter().SetFindingHandler(m_Settings.m_CheckCalls ? CFindings::Collect : null, &m_Figures.m_Findings);
		// Errors are those of light.
		const bool showsErrors = HasWipe() && m_Settings.m_Wipe.m_Kind == EWipe::Error;
		const bool hasOwnColours = showsErrors || (Capture() != null && m_Settings.m_Colour == EColour::Order);
		m_Drawer.Renderer().SetColour(hasOwnColours ? EColour::Light : m_Settings.m_Colour);
		Count(DrawInOrder().m_DrawCalls);
		if (HasWipe())
			m_WipeDrawer.Join(m_Settings.m_Wipe);
	}
	catch (const CFailure &failure)
	{
		m_Figures.m_Trouble = failure.what();
	}
}

// A pause begins the count of frames anew.
void CLiveView::NoteDraw()
{
	constexpr size_t kMostTimes = 31;
	constexpr std::chrono::seconds kPause(5);
	const CClock::time_point now = CClock::now();
	if (!m_DrawTimes.empty() && now - m_DrawTimes.back() > kPause)
		m_DrawTimes.clear();
	m_DrawTimes.push_back(now);
	if (m_DrawTimes.size() > kMostTimes)
		m_DrawTimes.pop_front();
}

SDrawn CLiveView::DrawInOrder()
{
	if (CCaptureScene *const capture = m_Scene->Capture())
	{
		m_Figures.m_Findings = capture->Call().Findings();
		return m_Drawer.DrawIndices(capture->Indices());
	}
	if (!m_Settings.m_Sorting)
		return m_Drawer.DrawIndices(CExactOrder(m_Drawer.Frame()).StorageIndices());

	STrial trial;
	trial.m_SortCamera = &SortCamera();
	trial.m_OutputShare = float(m_Settings.m_OutputPercent) / 100.0f;
	trial.m_MisalignedOutput = m_Settings.m_MisalignOutput;
	const bool onOneThread = m_Settings.m_ThreadCount > 1 && m_SortCount++ % kSortsPerSortOnOneThread == 0;
	m_Drawer.Sorter().SetThreadCount(onOneThread ? 1 : m_Settings.m_ThreadCount);
	const SDrawn drawn = HasWipe() ? DrawWithWipe(trial) : m_Drawer.DrawSorted(m_Settings.m_Order, trial);
	Keep(onOneThread ? m_HistoryOfOneThread : m_History, m_Clock.EndFrame());
	return drawn;
}

// Short keys are measured beside long ones, over all pairs. That takes a while, so it is not done for every frame:
// while a scene plays, for what takes a tenth of the time.
SDrawn CLiveView::DrawWithWipe(const STrial &trial)
{
	constexpr std::chrono::milliseconds kPause(500);
	const bool isOfKeys = m_Settings.m_Wipe.m_Kind == EWipe::KeyBits && m_Settings.m_Order != EOrder::ByProperty;
	const bool measures = isOfKeys && trial.m_OutputShare == 1.0f && CClock::now() >= m_NextMeasurement;
	std::vector<u32> indices;
	m_WipeDrawer.DrawOther(
		m_Settings.m_Wipe.m_Kind, m_Settings.m_Order, trial, m_FrozenCamera, measures ? &indices : null);
	m_Clock.EndFrame(); // times are those of the sort that is chosen
	m_Figures.m_Findings = CFindings();
	const SDrawn drawn = m_Drawer.DrawSorted(m_Settings.m_Order, trial);
	if (measures)
	{
		const CClock::time_point start = CClock::now();
		const CExactOrder exact(m_Drawer.Frame());
		const SWipeLabels labels = SideLabels();
		m_Orders = {
			{labels.m_Left,  MeasurePairs(exact.DistancesOf(m_Drawer.Renderer().ReadIndices(drawn)))},
			{labels.m_Right, MeasurePairs(exact.DistancesOf(indices))                               }
        };
		m_NextMeasurement = CClock::now() + std::max<CClock::duration>(kPause, 9 * (CClock::now() - start));
	}
	if (isOfKeys)
		m_Figures.m_Orders = m_Orders;
	return drawn;
}

void CLiveView::Count(const std::vector<SDrawCall> &drawCalls)
{
	m_Figures.m_ParticleCount = m_Frame.m_ParticleCount;
	m_Figures.m_PageCount = m_Frame.m_RenderedCounts.Count();
	m_Figures.m_DrawCallCount = u32(drawCalls.size());
	m_Figures.m_Primitives = CountPrimitives(drawCalls);
}

double CLiveView::FramesPerSecond() const
{
	constexpr std::chrono::seconds kStill(5); // software draws some frames that slowly
	if (m_DrawTimes.size() < 2 || CClock::now() - m_DrawTimes.back() > kStill)
		return 0.0;
	const std::chrono::duration<double> duration = m_DrawTimes.back() - m_DrawTimes.front();
	return double(m_DrawTimes.size() - 1) / std::max(duration.count(), 1e-6);
}

std::string CLiveView::OrderLabel() const
{
	for (const SPictureOfOrder &picture : SortedOrders(*m_Scene))
		if (m_Settings.m_Sorting && picture.m_Order == m_Settings.m_Order)
			return picture.m_Label;
	return "unsorted";
}

SWipeLabels CLiveView::SideLabels() const
{
	return WipeLabels(m_Settings.m_Wipe.m_Kind, OrderLabel());
}

std::string CLiveView::Title() const
{
	const std::string order = HasWipe() ? SideLabels().m_Left + " | " + SideLabels().m_Right : OrderLabel();
	return std::string(m_Settings.m_Scene->m_Name) + ", " + order + (m_Settings.m_FreezeOrder ? ", frozen" : "") +
	       (m_FrameCount == 0         ? ", simulating"
			   : m_Settings.m_Playing ? ", playing"
									  : ", paused");
}
} // namespace Viewer
