#pragma once

// How long the stages of a sort take, from the scopes that the library reports to a host's profiler.

#include "vx_defs.h"

#include "kr_profiler.h"
#include "kr_profiler_recorder.h"

#include <chrono>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SSortTimes
{
	double m_Fill = 0.0; ///< Microseconds.
	double m_Sort = 0.0;
	double m_Expand = 0.0;

	double Total() const { return m_Fill + m_Sort + m_Expand; }
};

/// The median of each stage.
SSortTimes MedianOf(const std::vector<SSortTimes> &frames);

/// Listens to the process-wide profiler while it lives.
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
	static constexpr u32 kMaxDepth = 16; // the library's scopes nest two deep
	EStage m_Open[kMaxDepth];
	u32 m_Depth = 0;
	CClock::time_point m_Since;
	double m_Microseconds[Stage_Count] = {};
};
} // namespace Viewer
