// Prints plain text in columns for people. Scripts can tell the lines by their first words.

#include "report.h"

#include "panel_words.h"
#include "text.h"
#include <cinttypes>
#include <cstdio>

namespace Viewer
{
namespace
{
	void PrintScene(const SReport &report)
	{
		const SArguments &arguments = report.m_Arguments;
		std::printf("scene           %s, seed %u, %u frames of %u x %u pixels\n", arguments.m_Scene->m_Name,
			arguments.m_Seed, arguments.m_FrameCount, arguments.m_Width, arguments.m_Height);
		if (!arguments.m_Scene->m_Source.empty())
			std::printf("source          %s\n", arguments.m_Scene->m_Source.c_str());
		std::printf("driver          %s\n", report.m_Driver.c_str());
		std::printf("particles       %s\n", Grouped(report.m_ParticleCount).c_str());
		std::printf("pages           %u, %u with disabled particles, %u empty\n", report.m_PageCount,
			report.m_MixedPageCount, report.m_EmptyPageCount);
		std::printf("draw calls      %u, %s indices of %u bits\n", report.m_DrawCallCount,
			Grouped(report.m_IndexCount).c_str(), arguments.m_IndexBits);
		std::printf("threads         %u\n", arguments.m_ThreadCount);
		std::printf("index hash      %016" PRIx64 " (FNV-1a over all frames)\n", report.m_IndexHash);
	}

	void PrintStage(const char *stage, double microseconds, u32 particleCount)
	{
		std::printf("%-15s %10.1f us %10.2f ns a particle\n", stage, microseconds,
			microseconds * 1000.0 / double(particleCount));
	}

	void PrintCause(const char *cause, u32 count)
	{
		if (count != 0)
			std::printf("    %-10s %s\n", Grouped(count).c_str(), cause);
	}

	// Nothing explains storage order, and nothing has to.
	void PrintCauses(const SPictureFigures &picture)
	{
		const SOrderFigures &figures = picture.m_OrderFigures;
		if (!figures.m_Complete)
			std::printf("    not every particle is drawn exactly once\n");
		if (picture.m_Order == EOrder::Storage)
			return;
		PrintCause("have equal keys: their distances differ by less than a key shows", figures.m_EqualKeys);
		PrintCause("differ by no more than a squared distance is rounded in floats", figures.m_Rounding);
		PrintCause("where pages with disabled particles end and those without begin", figures.m_PageKinds);
		PrintCause("where one draw call ends and the next begins", figures.m_DrawCalls);
		PrintCause("are triangles or quads under their particle's key", figures.m_ParticleKeys);
		std::printf("    %-10u unexplained\n", figures.m_Unexplained);
	}

	void PrintPictures(const SReport &report)
	{
		std::printf("\nagainst the     channel difference   worst        neighbours\n");
		std::printf("exact answer        mean   largest   backtrack    out of order\n");
		for (const SPictureFigures &picture : report.m_Pictures)
		{
			char backtrack[32];
			std::snprintf(backtrack, sizeof(backtrack), "%.3g %%", picture.m_OrderFigures.m_WorstBacktrack * 100.0);
			std::printf("%-16s %7.4f   %7u   %-12s %s\n", picture.m_FileName.c_str(), picture.m_Difference.m_Mean,
				picture.m_Difference.m_Largest, backtrack, Grouped(picture.m_OrderFigures.m_OutOfOrder).c_str());
			PrintCauses(picture);
		}
	}
} // namespace

void PrintTimes(const SSortTimes &times, u32 particleCount, const std::optional<double> &frameTime)
{
	std::printf("\nmedian of a frame\n");
	if (times.m_Values != 0.0)
		PrintStage("sort values", times.m_Values, particleCount);
	PrintStage("fill", times.m_Fill, particleCount);
	PrintStage("sort", times.m_Sort, particleCount);
	PrintStage("expansion", times.m_Expand, particleCount);
	PrintStage("in all", times.Total(), particleCount);
	if (frameTime)
		std::printf("%-15s %10.1f us, %.1f a second: simulated, uploaded, sorted, drawn, and indices read back\n",
			"whole frame", *frameTime, 1000000.0 / *frameTime);
}

void PrintLibraryReports([[maybe_unused]] u32 assertionCount, const std::vector<std::string> &slowPaths)
{
#if VX_ASSERTIONS
	std::printf("\nassertions      %u\n", assertionCount);
#else
	std::printf("\nassertions      compiled out\n");
#endif
	std::printf("slow paths      %zu\n", slowPaths.size());
	for (const std::string &slowPath : slowPaths)
		std::printf("    %s\n", slowPath.c_str());
}

void Print(const SReport &report)
{
	PrintScene(report);
	PrintTimes(report.m_Times, report.m_ParticleCount, report.m_FrameTime);
	PrintPictures(report);
	for (const auto &[name, figures] : report.m_Orders)
		std::printf("%-16s %s\n", name.c_str(), PairWords(figures).c_str());
	PrintLibraryReports(report.m_AssertionCount, report.m_SlowPaths);
}
} // namespace Viewer
