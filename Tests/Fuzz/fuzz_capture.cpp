// Files that call themselves captures: whatever their bytes, they are refused or replayed, and what is read is written
// again as the same file, but for how far apart its memory is. Sizes and checksums are mended first, or hardly an input
// would get past them.

#include "ge_mesh_sort_capture.h"

#include "capture_places.h"
#include "diagnostics.h"
#include "read_capture.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Vexmoor;

static std::vector<u8> Mended(const u8 *data, size_t size)
{
	constexpr u64 kTrailerSize = 16;
	std::vector<u8> file(data, data + size / 4 * 4);
	file.resize(file.size() + kTrailerSize);
	const u64 fileSize = file.size();
	std::memcpy(&file[fileSize - 16], &fileSize, sizeof(fileSize));
	const u64 checksum = SortCaptureChecksum(kSortCaptureChecksumStart, file.data(), fileSize - 8);
	std::memcpy(&file[fileSize - 8], &checksum, sizeof(checksum));
	return file;
}

static std::vector<u8> Written(const CCapturedSort &capture)
{
	const auto append = [](const void *bytes, u64 size, void *to)
	{
		const u8 *const first = static_cast<const u8 *>(bytes);
		static_cast<std::vector<u8> *>(to)->insert(static_cast<std::vector<u8> *>(to)->end(), first, first + size);
		return true;
	};
	std::vector<u8> file;
	if (!WriteSortCapture(
			capture.Sorter(), capture.WorkingBuffer(), capture.WorkingBufferSize(), SortCapture_Input, append, &file))
	{
		std::fprintf(stderr, "what was read is not written\n");
		std::abort();
	}
	return file;
}

// What is found, but for how much of the address space lies behind the working buffer, which is not the same twice.
static std::vector<std::string> Findings(const Support::SReplay &replay)
{
	std::vector<std::string> sentences = replay.m_Violations;
	sentences.insert(sentences.end(), replay.m_Advice.begin(), replay.m_Advice.end());
	for (std::string &sentence : sentences)
		sentence.resize(std::min(sentence.find(", but the address space ends after"), sentence.size()));
	return sentences;
}

template<typename _View>
static void ReadEveryElement(const _View &view)
{
	for (u32 i = 0; i < view.Count(); ++i)
	{
		const volatile u8 *const bytes = reinterpret_cast<const volatile u8 *>(view.AddressOf(i));
		for (u32 byte = 0; byte < sizeof(view[i]); ++byte)
			static_cast<void>(bytes[byte]);
	}
}

// Whatever rules the call breaks, what it is said to read can be read.
static void ReadWhatTheCallReads(const CCapturedSort &capture)
{
	constexpr u32 kMostElements = 1 << 16; // a view of a small file may have billions of elements, all the same one
	for (u32 page = 0; page <= capture.PageCount(); ++page)
	{
		if (capture.Positions(page).Count() <= kMostElements)
			ReadEveryElement(capture.Positions(page));
		if (capture.SortValues(page).Count() <= kMostElements)
			ReadEveryElement(capture.SortValues(page));
		if (capture.Enableds(page).Count() <= kMostElements)
			ReadEveryElement(capture.Enableds(page));
		ReadEveryElement(capture.IndexPattern(page));
		static_cast<void>(capture.RenderedCount(page));
		static_cast<void>(capture.VerticesPerParticle(page));
	}
	ReadEveryElement(capture.IndexList());
	ReadEveryElement(capture.QuadCenters());
}

static void Read(const std::vector<u8> &file)
{
	constexpr u64 kMemoryLimit = 1 << 20;
	Support::CReadCapture capture(file, kMemoryLimit);
	if (!capture.IsRead())
	{
		if (std::getenv("VEXMOOR_FUZZ_DESCRIBE") != null)
			std::printf("%s\n", capture.Refusal());
		return;
	}
	ReadWhatTheCallReads(capture);
	const std::vector<u8> written = Written(capture);
	Support::CReadCapture same(written, 2 * kMemoryLimit);
	// Elements may lie where the sorter or a view has addresses, which are others in the next memory.
	if (!same.IsRead() && std::strstr(same.Refusal(), "do not agree on the bytes that they share") != null)
		return;
	if (!same.IsRead() || Support::WithoutPlaces(Written(same)) != Support::WithoutPlaces(written))
	{
		std::fprintf(stderr, "what was written is read as something else. %s\n", same.Refusal());
		std::abort();
	}
	const Support::SReplay replay = Support::Replay(capture);
	const Support::SReplay replayOfSame = Support::Replay(same);
	if (Findings(replay) != Findings(replayOfSame) || replay.m_OutputHash != replayOfSame.m_OutputHash)
	{
		std::fprintf(stderr, "the same sort comes out differently\n");
		std::abort();
	}
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size)
{
	const Support::CReportRecorder reports;
	const Support::CWarningRecorder warnings;
	for (const std::vector<u8> &file : {std::vector<u8>(data, data + size), Mended(data, size)})
		Read(file);
	return 0;
}
