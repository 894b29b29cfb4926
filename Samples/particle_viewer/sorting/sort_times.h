#pragma once

// How long the stages of a sort take, from the scopes that the library and the viewer report to the profiler.

#include "vx_defs.h"

#include "kr_profiler.h"
#include "kr_profiler_recorder.h"

#include <chrono>
#include <thread>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SSortTimes
{
	double m_Values = 0.0; ///< Microseconds that the viewer computes sort values for; 0 where positions are sorted.
	double m_Fill = 0.0;
	double m_Sort = 0.0;
	double m_Expand = 0.0;

	/// Everything from positions to the index buffer.
	double Total() const { return m_Values + m_Fill + m_Sort + m_Expand; }
};

/// The middle one of some times; 0 of none.
double MedianOf(std::vector<double> times);
/// The median of each stage.
SSortTimes MedianOf(const std::vector<SSortTimes> &frames);

/// Listens to the process-wide profiler while it lives, and measures the thread that it is made on.
class CSortClock
{
public:
	/// recorder  hears every scope as well; null: nobody else does
	explicit CSortClock(Profiler::CTraceRecorder *recorder = null);
	~CSortClock();
	CSortClock(const CSortClock &) = delete;
	CSortClock &operator=(const CSortClock &) = delete;

	/// Ends a frame: what has been measured since the last one.
	SSortTimes EndFrame();

private:
	typedef std::chrono::steady_clock CClock;

	enum EStage : u32
	{
		Stage_Values,
		Stage_Fill,
		Stage_Sort,
		Stage_Expand,
		Stage_Other,
		Stage_Count
	};

	static EStage StageOf(const char *scopeName);
	static void OnScope(const Profiler::SNodeDescriptor &node, bool entering, void *clock);
	void Charge();

	Profiler::CTraceRecorder *m_Recorder;
	static constexpr u32 kMaxDepth = 16; // the library's scopes nest two deep, and the viewer's as much
	EStage m_Open[kMaxDepth];
	u32 m_Depth = 0;
	std::thread::id m_Thread = std::this_thread::get_id();
	CClock::time_point m_Since;
	double m_Microseconds[Stage_Count] = {};
};
} // namespace Viewer
