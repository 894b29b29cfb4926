#include "panel_words.h"

#include "text.h"
#include <algorithm>
#include <cstdio>

namespace Viewer
{
namespace
{
	std::string Counted(u32 count, const char *one, const char *several)
	{
		return Grouped(count) + " " + (count == 1 ? one : several);
	}

	std::string Printed(const char *format, double number)
	{
		char text[64];
		std::snprintf(text, sizeof(text), format, number);
		return text;
	}
} // namespace

std::string DrawnWords(const SViewFigures &figures)
{
	return Grouped(figures.m_ParticleCount) + " drawn in " + Counted(figures.m_PageCount, "page", "pages") + ", " +
	       Counted(figures.m_DrawCallCount, "draw call", "draw calls");
}

std::string LostWords(const SPrimitiveCounts &primitives)
{
	if (primitives.m_Drawn >= primitives.m_All)
		return "";
	return Grouped(primitives.m_All - primitives.m_Drawn) + " of " + Grouped(primitives.m_All) + " primitives are lost";
}

std::string OrderWords(bool sorting, EOrder order, const std::vector<SPictureOfOrder> &orders)
{
	if (!sorting)
		return "unsorted, as in memory";
	const auto current = std::find_if(
		orders.begin(), orders.end(), [&](const SPictureOfOrder &picture) { return picture.m_Order == order; });
	return current == orders.end() ? "" : current->m_Label;
}

std::vector<STimeLine> TimeLines(const SSortTimes &median, u32 particleCount)
{
	if (median.Total() == 0.0)
		return {};
	const double nanosecondsPerParticle = 1000.0 / double(std::max(particleCount, 1u));
	std::vector<STimeLine> lines;
	const auto add = [&](const char *name, double microseconds, double SSortTimes::*stage) {
		lines.push_back({name, microseconds, microseconds * nanosecondsPerParticle, stage});
	};
	if (median.m_Values != 0.0)
		add("sort values", median.m_Values, &SSortTimes::m_Values);
	add("fill", median.m_Fill, &SSortTimes::m_Fill);
	add("sort", median.m_Sort, &SSortTimes::m_Sort);
	add("expand", median.m_Expand, &SSortTimes::m_Expand);
	add("in all", median.Total(), null);
	return lines;
}

std::string TimesNote(const SSortTimes &median)
{
	return median.m_Values != 0.0 ? "in all: computing values and sorting by them, not simulation or drawing"
	                              : "in all: sorting, with distances; not simulation or drawing";
}

std::string GainWords(u32 threadCount, double microseconds, double microsecondsOfOneThread)
{
	if (threadCount < 2 || microseconds <= 0.0 || microsecondsOfOneThread <= 0.0)
		return "";
	return Printed("%.0f \u00b5s on ", microseconds) + std::to_string(threadCount) +
	       Printed(" threads, %.0f \u00b5s on one: ", microsecondsOfOneThread) +
	       Printed("%.1f times as fast", microsecondsOfOneThread / microseconds);
}

std::string PairWords(const SPairFigures &figures)
{
	const double percent = 100.0 * figures.m_WorstBacktrack;
	return "worst backtrack " + Printed(percent < 10.0 ? "%.2g %%" : "%.0f %%", percent) + ", " +
	       Grouped(figures.m_OutOfOrder) + " of " + Grouped(figures.m_PairCount) + " pairs out of order";
}

std::string FrameRateWords(double framesPerSecond)
{
	return framesPerSecond > 0.0 ? Printed("%.1f frames a second", framesPerSecond) : "nothing moves";
}

std::string NoFindingsWords(bool sorting, bool checking)
{
	if (!sorting)
		return "Nothing is sorted.";
	return checking ? "No rule is broken, and nothing could be better." : "";
}
} // namespace Viewer
