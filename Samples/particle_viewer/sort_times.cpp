// Scopes nest: time belongs to the innermost one that is open.

#include "sort_times.h"

#include <algorithm>
#include <cstring>

namespace Viewer
{
CSortClock::CSortClock()
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
		{"CTriangleSorter::FillSource",                           Stage_Fill  },
		{"CTriangleSorter::Sort",                                 Stage_Sort  },
		{"ExpandIndices<u32>",									Stage_Expand},
		{"ExpandIndices<u16>",									Stage_Expand},
		{"FillSortingIndirectionsListPoint_NoIndices_And_Expand", Stage_Fill  },
		{"ExpandSortToTriangles",                                 Stage_Expand},
		{"Sort",												  Stage_Sort  },
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
	self.Charge();
	if (entering && self.m_Depth < kMaxDepth)
		self.m_Open[self.m_Depth++] = StageOf(node.m_Name);
	else if (!entering && self.m_Depth > 0)
		--self.m_Depth;
	self.m_Since = CClock::now();
}

void CSortClock::Charge()
{
	if (m_Depth == 0)
		return;
	const std::chrono::duration<double, std::micro> elapsed = CClock::now() - m_Since;
	m_Microseconds[m_Open[m_Depth - 1]] += elapsed.count();
}

void CSortClock::EndFrame()
{
	for (u32 stage = 0; stage < Stage_Count; ++stage)
	{
		m_Frames[stage].push_back(m_Microseconds[stage]);
		m_Microseconds[stage] = 0.0;
	}
}

SSortTimes CSortClock::Median() const
{
	return {MedianOf(Stage_Fill), MedianOf(Stage_Sort), MedianOf(Stage_Expand)};
}

double CSortClock::MedianOf(EStage stage) const
{
	std::vector<double> frames = m_Frames[stage];
	if (frames.empty())
		return 0.0;
	const auto middle = frames.begin() + std::ptrdiff_t(frames.size() / 2);
	std::nth_element(frames.begin(), middle, frames.end());
	return *middle;
}
} // namespace Viewer
