// Prints plain text in columns, like the figures of a run that draws.

#include "replay_run.h"

#include "capture_words.h"
#include "failure.h"
#include "report.h"
#include "sort_times.h"
#include "text.h"
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>

namespace Viewer
{
namespace
{
	constexpr u64 kMemoryLimit = CCapturedCall::kMemoryLimit;
	constexpr u32 kTimedSortCount = 15;

	std::vector<u8> ReadFile(const std::string &fileName)
	{
		const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(fileName.c_str(), "rb"), std::fclose);
		std::vector<u8> bytes;
		u8 piece[65536];
		size_t read = 0;
		while (file && bytes.size() <= kMemoryLimit && (read = std::fread(piece, 1, sizeof(piece), file.get())) != 0)
			bytes.insert(bytes.end(), piece, piece + read);
		if (!file || std::ferror(file.get()) != 0 || bytes.size() > kMemoryLimit)
			throw CFailure("The capture '" + fileName + "' cannot be read.");
		return bytes;
	}

	// Of how many findings, and each of them once, for all of the pages that it is said of.
	void PrintFindings(const char *name, const std::vector<SFinding> &findings)
	{
		u32 count = 0;
		for (const SFinding &finding : findings)
			count += finding.m_Count;
		std::printf("%-15s %s\n", name, Grouped(count).c_str());
		for (const SFinding &finding : findings)
			std::printf("    %s\n", finding.Text().c_str());
	}

	void PrintInput(const std::string &source, const CCapturedSort &capture)
	{
		std::printf("capture         %s\n", source.c_str());
		std::printf("sort            %s, %s, %s\n", SortTypeName(capture.SortType()),
			GeometryName(capture.GeometryType()), IndexTypeName(capture.IndexType()));
		std::printf("particles       %s\n", Grouped(capture.ParticleCount()).c_str());
		std::printf("pages           %u, %u with enabled bytes, %u empty\n", capture.PageCount(),
			capture.PageCountWithEnableds(), capture.EmptyPageCount());
		std::printf("output          room for %s indices, of %s vertices\n", Grouped(capture.OutputCount()).c_str(),
			Grouped(capture.VertexCount()).c_str());
	}

	void PrintOutput(const SSortReplay &replay)
	{
		std::printf("index hash      %016" PRIx64 " (FNV-1a over %s indices)\n", replay.m_OutputHash,
			Grouped(replay.m_WrittenCount).c_str());
		if (!replay.m_Compared)
			std::printf("as recorded     nothing is recorded\n");
		else if (replay.m_DifferenceCount == 0)
			std::printf("as recorded     yes, every index\n");
		else
			std::printf("as recorded     no: %s indices differ, the first at place %u, %u here and %u recorded\n",
				Grouped(replay.m_DifferenceCount).c_str(), replay.m_FirstDifference, replay.m_ReplayedIndex,
				replay.m_RecordedIndex);
	}

	SSortTimes Time(CCapturedSort &capture)
	{
		CSortClock clock;
		std::vector<SSortTimes> times;
		for (u32 i = 0; i < kTimedSortCount; ++i)
		{
			capture.Sort();
			times.push_back(clock.EndFrame());
		}
		return MedianOf(times);
	}
} // namespace

void PrintReplay(const std::string &source,
	CCapturedSort &capture,
	const CFindings &findings,
	const SSortReplay &replay,
	const CLibraryReports &libraryReports)
{
	PrintInput(source, capture);
	PrintFindings("broken rules", findings.Of(true));
	PrintFindings("advice", findings.Of(false));
	if (replay.m_Sorted)
	{
		PrintOutput(replay);
		PrintTimes(Time(capture), capture.ParticleCount(), std::nullopt);
	}
	else
		std::printf("not sorted      a sort that breaks a rule may touch what it must not\n");
	PrintLibraryReports(u32(libraryReports.Assertions().size()), CLibraryReports::SlowPaths());
}

bool RunReplay(const std::string &fileName)
{
	const std::vector<u8> file = ReadFile(fileName);
	const CLibraryReports libraryReports;
	CCapturedSort capture;
	if (!capture.Read(file.data(), file.size(), kMemoryLimit))
		throw CFailure(capture.Refusal());
	CFindings findings;
	const SSortReplay replay = ReplaySort(capture, CFindings::Collect, &findings);

	PrintReplay(fileName + ", " + Grouped(file.size()) + " bytes", capture, findings, replay, libraryReports);
	if (std::fflush(stdout) != 0)
		throw CFailure("The figures cannot be written to standard output.");
	return replay.Good();
}
} // namespace Viewer
