// Scopes nest: time belongs to the innermost one that is open.

#include "sort_times.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Viewer
{
CSortClock::CSortClock(Profiler::CTraceRecorder *recorder)
	: m_Recorder(recorder)
{
	Profiler::MainEngineProfiler()->SetScopeHandler(OnScope, this);
}

CSortClock::~CSortClock()
{
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
}

CSortClock::EStage CSortClock::StageOf(const char *scopeName)
{
	static const struct
	{
		const char *m_ScopeName;
		EStage m_Stage;
	} kScopes[] = {
		{"Compute sort values",                                   Stage_Values},
		{"CTriangleSorter::FillSource",                           Stage_Fill  },
		{"CTriangleSorter::Sort",                                 Stage_Sort  },
		{"ExpandIndices<u32>",                                    Stage_Expand},
		{"ExpandIndices<u16>",                                    Stage_Expand},
		{"ExpandAndSortIndices<u32>",                             Stage_Expand},
		{"ExpandAndSortIndices<u16>",                             Stage_Expand},
		{"FillSortingIndirectionsListPoint_NoIndices_And_Expand", Stage_Fill  },
		{"ExpandSortToTriangles",                                 Stage_Expand},
		{"Sort",                                                  Stage_Sort  },
		{"ApplySortingToIndices",                                 Stage_Expand},
	};
	for (const auto &scope : kScopes)
		if (std::strcmp(scope.m_ScopeName, scopeName) == 0)
			return scope.m_Stage;
	return Stage_Other;
}

void CSortClock::OnScope(const Profiler::SNodeDescriptor &node, bool entering, void *clock)
{
	CSortClock &self = *static_cast<CSortClock *>(clock);
	if (std::this_thread::get_id() != self.m_Thread)
	{
		if (self.m_Recorder != null)
			Profiler::CTraceRecorder::OnScope(node, entering, self.m_Recorder);
		return;
	}
	self.Charge();
	if (entering && self.m_Depth < kMaxDepth)
		self.m_Open[self.m_Depth++] = StageOf(node.m_Name);
	else if (!entering && self.m_Depth > 0)
		--self.m_Depth;
	if (self.m_Recorder != null)
		Profiler::CTraceRecorder::OnScope(node, entering, self.m_Recorder);
	self.m_Since = CClock::now();
}

void CSortClock::Charge()
{
	if (m_Depth == 0)
		return;
	const std::chrono::duration<double, std::micro> elapsed = CClock::now() - m_Since;
	m_Microseconds[m_Open[m_Depth - 1]] += elapsed.count();
}

SSortTimes CSortClock::EndFrame()
{
	const SSortTimes times = {m_Microseconds[Stage_Values], m_Microseconds[Stage_Fill], m_Microseconds[Stage_Sort],
		m_Microseconds[Stage_Expand]};
	std::fill(std::begin(m_Microseconds), std::end(m_Microseconds), 0.0);
	return times;
}

double MedianOf(std::vector<double> times)
{
	if (times.empty())
		return 0.0;
	const auto middle = times.begin() + std::ptrdiff_t(times.size() / 2);
	std::nth_element(times.begin(), middle, times.end());
	return *middle;
}

SSortTimes MedianOf(const std::vector<SSortTimes> &frames)
{
	const auto medianOf = [&frames](double SSortTimes::*stage)
	{
		std::vector<double> times;
		for (const SSortTimes &frame : frames)
			times.push_back(frame.*stage);
		return MedianOf(times);
	};
	return {medianOf(&SSortTimes::m_Values), medianOf(&SSortTimes::m_Fill), medianOf(&SSortTimes::m_Sort),
		medianOf(&SSortTimes::m_Expand)};
}
} // namespace Viewer
