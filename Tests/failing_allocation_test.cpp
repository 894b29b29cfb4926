// What the library does when an allocation fails: each call runs again and again, and each time another of its
// allocations is the one that fails, until none does. No exception leaves, no block is lost, what is written is whole
// or untouched, and the same call works afterwards. The tests also count allocations: a sort takes the scratch that it
// was not given, and nothing else.

#include "ge_mesh_sort_capture.h"
#include "ge_mesh_sort_replay.h"
#include "ge_mesh_sort_validation.h"

#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler_recorder.h"
#include "kr_string.h"

#include "diagnostics.h"
#include "heap.h"
#include "known_order.h"
#include "sort_call.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <new>

using namespace Vexmoor;
using namespace Support;

namespace
{
// Something that a host calls, and what has to come of it.
class CHostCall
{
public:
	virtual ~CHostCall() = default;
	virtual void Run() = 0;
	// Whether all is as it has to be after a run in which an allocation failed, or in which none did.
	virtual bool IsSound(bool hasFailed) = 0;
};

// A host whose services take nothing from the heap themselves, other than scratch: it comes from the heap that fails.
class CFrugalHost
{
public:
	CFrugalHost()
	{
		m_Warnings.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, null);
		Assert::SetReportHandler(
			[](const Assert::SReport &, void *host) -> int
			{
				++static_cast<CFrugalHost *>(host)->m_ReportCount;
				return Assert::Decision_Continue;
			},
			this);
		const Mem::SAllocator allocator = {
			[](void *, u64 size, u32, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
			{ return std::malloc(std::size_t(size)); }, // at a multiple of 16, as every sort asks
			[](void *, void *block, Mem::EAllocType, Mem::EOrigin, const char *, const char *, int, const char *)
			{ std::free(block); },
			null};
		Mem::SetAllocator(&allocator);
	}
	~CFrugalHost()
	{
		Mem::SetAllocator(null);
		FailAtReports();
	}
	CFrugalHost(const CFrugalHost &) = delete;
	CFrugalHost &operator=(const CFrugalHost &) = delete;

	u32 m_ReportCount = 0;

private:
	CLogUniqueCollection m_Warnings; // a new one: every touch of a site is its first
	const CReplacedRegistry m_Registry{m_Warnings};
};

// Runs what make() makes with each of its allocations failing in turn, and returns how many there are.
template<typename _Make>
u64 FailEachInTurn(const _Make &make)
{
	constexpr u64 kTooMany = 1000;
	for (u64 countBefore = 0; countBefore < kTooMany; ++countBefore)
	{
		bool hasThrown = false, hasFailed, isSound, isSoundAfterwards;
		const s64 blocksBefore = HeapBlockCount();
		{
			const std::unique_ptr<CHostCall> call = make();
			{
				const CFailingAllocation failing(countBefore);
				try
				{
					call->Run();
				}
				catch (...)
				{
					hasThrown = true;
				}
				hasFailed = failing.HasFailed();
			}
			isSound = call->IsSound(hasFailed);
			call->Run();
			isSoundAfterwards = call->IsSound(false);
		}
		const s64 blocksAfter = HeapBlockCount();
		EXPECT_FALSE(hasThrown) << "allocation " << countBefore;
		EXPECT_TRUE(isSound) << "allocation " << countBefore << (hasFailed ? " fails" : ": none fails");
		EXPECT_TRUE(isSoundAfterwards) << "after allocation " << countBefore;
		EXPECT_EQ(blocksAfter, blocksBefore) << "allocation " << countBefore;
		if (!hasFailed)
			return countBefore;
	}
	ADD_FAILURE() << "there is always one more";
	return kTooMany;
}

// A sort that is set up already, or is set up in the same breath; in scratch of its own, or in a buffer that it is
// given.
struct SSortCase
{
	ECallGeometry m_Geometry;
	bool m_16Bit;
	bool m_ByPosition;
	bool m_HasBuffer = false;
	bool m_SetsUp = false;
	bool m_ChecksFirst = false;
};

class CSortCall final : public CHostCall
{
public:
	explicit CSortCall(const SSortCase &row)
		: m_Row(row)
		, m_Call(row.m_Geometry)
	{
		if (row.m_Geometry == Constant || row.m_Geometry == List)
			m_Call.m_Pattern.push_back(1); // of seven entries, which warns with a number in its text
		if (row.m_16Bit)
			m_Call.Output16();
		if (row.m_ByPosition)
			m_Call.SortByPosition();
		if (!row.m_HasBuffer)
		{
			m_Call.m_WorkingBuffer = null;
			m_Call.m_WorkingBufferSize = 0;
		}
		if (!row.m_SetsUp)
			m_Call.SetUp();
		std::memset(m_Call.m_Output, kUntouched, _OutputSize());
	}

	void Run() override
	{
		m_Host.m_ReportCount = 0;
		if (m_Row.m_SetsUp)
			m_Call.SetUp();
		if (m_Row.m_ChecksFirst)
			m_Call.SortChecked(null, null);
		else
			m_Call.Sort();
	}
	bool IsSound(bool hasFailed) override
	{
		const u8 *const output = static_cast<const u8 *>(m_Call.m_Output);
		const bool isUntouched =
			std::all_of(output, output + _OutputSize(), [](u8 byte) { return byte == kUntouched; });
		return m_Call.SurroundingsIntact() && (hasFailed ? isUntouched : !isUntouched);
	}

	u32 ReportCount() const { return m_Host.m_ReportCount; }
	std::vector<u8> Output() const
	{
		const u8 *const output = static_cast<const u8 *>(m_Call.m_Output);
		return {output, output + _OutputSize()};
	}

private:
	static constexpr u8 kUntouched = 0xAB;

	std::size_t _OutputSize() const { return m_Call.m_OutputCount * (m_Row.m_16Bit ? sizeof(u16) : sizeof(u32)); }

	const SSortCase m_Row;
	CCall m_Call;
	CFrugalHost m_Host;
};

template<typename _Body>
void ForEverySort(const _Body &body)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const bool is16Bit : {false, true})
		{
			for (const bool byPosition : {false, true})
			{
				SCOPED_TRACE(testing::Message() << "geometry " << geometry << (is16Bit ? ", 16 bits" : ", 32 bits")
												<< (byPosition ? ", by position" : ", by value"));
				body(SSortCase{geometry, is16Bit, byPosition});
			}
		}
	}
}

// More records than the quick sort takes, in an order that is known.
class CLargeSortCall final : public CHostCall
{
public:
	explicit CLargeSortCall(ECallGeometry geometry)
		: m_Sort(_Known(geometry))
	{
	}

	void Run() override { m_Sort.Sort(); }
	bool IsSound(bool hasFailed) override { return hasFailed ? m_Sort.OutputIsUntouched() : m_Sort.OutputIsInOrder(); }

private:
	static SKnownCall _Known(ECallGeometry geometry)
	{
		SKnownCall call;
		call.m_Geometry = geometry;
		call.m_PageCounts = {1000};
		return call;
	}

	CKnownSort m_Sort;
	CFrugalHost m_Host;
};

// All that looks at a sort, or records it, around one in a buffer that it is given.
class CServicesCall final : public CHostCall
{
public:
	explicit CServicesCall(ECallGeometry geometry)
		: m_Call(geometry)
		, m_Recorder(m_TraceMemory, sizeof(m_TraceMemory))
	{
		m_Call.m_VertexCount = 1; // a broken rule, so that there is something to find
		m_Call.SetUp();
	}

	void Run() override
	{
		m_FindingCount = 0;
		m_CaptureSize = m_TraceSize = 0;
		m_Call.Validate([](const SSortFinding &, void *count) { ++*static_cast<u32 *>(count); }, &m_FindingCount);
		Profiler::MainEngineProfiler()->SetScopeHandler(&Profiler::CTraceRecorder::OnScope, &m_Recorder);
		m_Recorder.NameThread("sorts");
		m_Call.Sort();
		Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
		m_IsGood = WriteSortCapture(m_Call.m_Sorter, m_Call.m_WorkingBuffer, m_Call.m_WorkingBufferSize,
			SortCapture_InputAndOutput, &_Count, &m_CaptureSize);
		m_IsGood &= m_Recorder.WriteChromeTrace(&_Count, &m_TraceSize);
	}
	bool IsSound(bool) override { return m_IsGood && m_FindingCount != 0 && m_CaptureSize != 0 && m_TraceSize != 0; }

private:
	static bool _Count(const void *, u64 size, void *total)
	{
		*static_cast<u64 *>(total) += size;
		return true;
	}

	CCall m_Call;
	CFrugalHost m_Host;
	u8 m_TraceMemory[1 << 16];
	Profiler::CTraceRecorder m_Recorder;
	u32 m_FindingCount = 0;
	u64 m_CaptureSize = 0, m_TraceSize = 0;
	bool m_IsGood = false;
};

// A capture is read, or refused in a sentence.
class CReadCall final : public CHostCall
{
public:
	explicit CReadCall(ECallGeometry geometry)
	{
		CCall call(geometry);
		call.SetUp();
		call.Sort();
		EXPECT_TRUE(WriteSortCapture(call.m_Sorter, call.m_WorkingBuffer, call.m_WorkingBufferSize,
			SortCapture_InputAndOutput, &_Append, &m_File));
	}

	void Run() override { m_IsRead = m_Capture.Read(m_File.data(), m_File.size(), 1 << 20); }
	bool IsSound(bool hasFailed) override
	{
		return m_IsRead ? m_Capture.Refusal()[0] == '\0' : hasFailed && m_Capture.Refusal()[0] != '\0';
	}

private:
	static bool _Append(const void *bytes, u64 size, void *file)
	{
		const u8 *const first = static_cast<const u8 *>(bytes);
		static_cast<std::vector<u8> *>(file)->insert(static_cast<std::vector<u8> *>(file)->end(), first, first + size);
		return true;
	}

	CFrugalHost m_Host;
	std::vector<u8> m_File;
	CCapturedSort m_Capture;
	bool m_IsRead = false;
};

// An array is what was assigned, or empty where there was no room; what it held before is gone either way.
class CArrayCall final : public CHostCall
{
public:
	void Run() override
	{
		std::fill(std::begin(m_IsWholeOrEmpty), std::end(m_IsWholeOrEmpty), false);
		CPattern array(TMemoryView<const u32>(m_Numbers, 12));
		m_IsWholeOrEmpty[0] = _IsWholeOrEmpty(array, 12);
		CPattern copy(array);
		m_IsWholeOrEmpty[1] = _IsWholeOrEmpty(copy, array.Count());
		copy = TMemoryView<const u32>(m_Numbers, 40);
		m_IsWholeOrEmpty[2] = _IsWholeOrEmpty(copy, 40);
		copy = TMemoryView<u32>(m_Numbers, 3);
		m_IsWholeOrEmpty[3] = _IsWholeOrEmpty(copy, 3);
		array = copy;
		m_IsWholeOrEmpty[4] = _IsWholeOrEmpty(array, copy.Count());
		const u32 count = array.Count();
		copy = std::move(array);
		m_IsWholeOrEmpty[5] = _IsWholeOrEmpty(copy, count) && copy.Count() == count;
	}
	bool IsSound(bool hasFailed) override
	{
		const bool areWholeOrEmpty =
			std::all_of(std::begin(m_IsWholeOrEmpty), std::end(m_IsWholeOrEmpty), [](bool isSo) { return isSo; });
		const u32 reportCount = m_Host.m_ReportCount;
		m_Host.m_ReportCount = 0;
		return areWholeOrEmpty && reportCount == (hasFailed && VX_ASSERTIONS ? 1u : 0u);
	}

private:
	bool _IsWholeOrEmpty(const CPattern &array, u32 count) const
	{
		const TMemoryView<const u32> view = array;
		return view.Empty() || (view.Count() == count && std::equal(m_Numbers, m_Numbers + count, view.Data()));
	}

	u32 m_Numbers[40] = {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8};
	bool m_IsWholeOrEmpty[6] = {};
	CFrugalHost m_Host;
};

#if TEST_LIBRARY_CATCHES
class CStringCall final : public CHostCall
{
public:
	void Run() override
	{
		const CString string = CString::Format("%s and %d more, which do not fit beside the string itself", "one", 3);
		const CString copy = string;
		m_IsWhole = std::strcmp(copy.Data(), "one and 3 more, which do not fit beside the string itself") == 0;
		m_IsEmpty = std::strcmp(copy.Data(), "") == 0;
	}
	bool IsSound(bool hasFailed) override { return hasFailed ? m_IsEmpty : m_IsWhole; }

private:
	bool m_IsWhole = false, m_IsEmpty = false;
};

// A collection of a host's own: a touch that finds no room is left out, and the rest counts.
class CCollectionCall final : public CHostCall
{
public:
	void Run() override
	{
		CLogUniqueCollection collection;
		collection.SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, null);
		for (const char *const key : m_Keys)
			collection.Touch(key, m_Message);
		for (const char *const key : m_Keys)
			collection.Touch(key, m_Message);
		m_HasThrown = false;
		m_KeyCount = 0;
		try
		{
			for (const CLogUniqueCollection::SEntry &entry : collection.Snapshot())
				m_KeyCount += entry.m_Message == m_Message && entry.m_TouchCount == 2 ? 1 : 0;
		}
		catch (const std::bad_alloc &) // the copy is the host's, and so is what its memory throws
		{
			m_HasThrown = true;
		}
		collection.Clear();
		collection.Touch("again", m_Message);
	}
	bool IsSound(bool hasFailed) override
	{
		const u32 missing = u32(std::size(m_Keys)) - m_KeyCount;
		return hasFailed ? m_HasThrown || missing <= 1 : !m_HasThrown && missing == 0;
	}

private:
	const char *const m_Keys[3] = {"a key", "another key, longer than a string keeps beside itself", "a third"};
	const char *const m_Message = "a message that is longer than what a string keeps beside itself";
	bool m_HasThrown = false;
	u32 m_KeyCount = 0;
};
#endif

TEST(FailingAllocation, SortsWithoutBuffer_TakeOneBlockAndWriteAllOrNothing)
{
	ForEverySort([](const SSortCase &row)
		{ EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), 1u); });
}

TEST(FailingAllocation, SortsOfManyWithoutBuffer_TakeOneBlockAndWriteAllOrNothing)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		SCOPED_TRACE(geometry);
		EXPECT_EQ(FailEachInTurn([geometry] { return std::make_unique<CLargeSortCall>(geometry); }), 1u);
	}
}

TEST(FailingAllocation, SortsInABuffer_TakeNothing)
{
	ForEverySort(
		[](SSortCase row)
		{
			row.m_HasBuffer = true;
			EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), 0u);
		});
}

// Checks allocate nothing. If there is no memory for the working buffer, a checked sort does what a bare sort does: it
// leaves the output untouched.
TEST(FailingAllocation, CheckedSorts_TakeWhatBareOnesDo)
{
	ForEverySort(
		[](SSortCase row)
		{
			row.m_ChecksFirst = true;
			EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), 1u);
			row.m_HasBuffer = true;
			EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), 0u);
		});
}

// The pattern has to be kept somewhere; patterns per page are the host's. A sort without its pattern writes nothing.
TEST(FailingAllocation, SetUpsAndSorts_TakeTheirPatternAndScratch)
{
	ForEverySort(
		[](SSortCase row)
		{
			row.m_SetsUp = true;
			const u64 patternCount = row.m_Geometry == Triangles ? 0 : 1;
			EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), patternCount + 1);
			row.m_HasBuffer = true;
			EXPECT_EQ(FailEachInTurn([&row] { return std::make_unique<CSortCall>(row); }), patternCount);
		});
}

// First the pattern that could not be kept is reported, and then the sort that has none; but not by tubes, which have
// never said so.
TEST(FailingAllocation, PatternThatIsNotKept_IsReported)
{
	ForEverySort(
		[](SSortCase row)
		{
			if (row.m_Geometry == Triangles)
				return;
			row.m_SetsUp = row.m_HasBuffer = true;
			CSortCall call(row);
			{
				const CFailingAllocation pattern(0);
				call.Run();
			}
			EXPECT_EQ(call.ReportCount(), VX_ASSERTIONS == 0 ? 0u : row.m_Geometry == Quads ? 1u : 2u);
			EXPECT_TRUE(call.IsSound(true));
			call.Run();
			EXPECT_EQ(call.ReportCount(), 0u);

			CSortCall undisturbed(row);
			undisturbed.Run();
			EXPECT_EQ(call.Output(), undisturbed.Output());
		});
}

TEST(FailingAllocation, ValidationCaptureAndTrace_TakeNothing)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		SCOPED_TRACE(geometry);
		EXPECT_EQ(FailEachInTurn([geometry] { return std::make_unique<CServicesCall>(geometry); }), 0u);
	}
}

// Constructed, copied, assigned more than there is room for: three blocks. What is empty is copied without one.
TEST(FailingAllocation, Arrays_AreWholeOrEmptyAndReport)
{
	EXPECT_EQ(FailEachInTurn([] { return std::make_unique<CArrayCall>(); }), 3u);
}

#if TEST_LIBRARY_CATCHES
TEST(FailingAllocation, Strings_AreWholeOrEmpty)
{
	EXPECT_GE(FailEachInTurn([] { return std::make_unique<CStringCall>(); }), 2u);
}

TEST(FailingAllocation, Captures_AreReadOrRefused)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		SCOPED_TRACE(geometry);
		EXPECT_GE(FailEachInTurn([geometry] { return std::make_unique<CReadCall>(geometry); }), 20u);
	}
}

TEST(FailingAllocation, Collections_LeaveOutWhatFindsNoRoom)
{
	EXPECT_GE(FailEachInTurn([] { return std::make_unique<CCollectionCall>(); }), 1u);
}
#endif

// Every way of taking memory from the heap is counted, and can be made to fail.
TEST(FailingAllocation, Heap_FailsAndCountsEveryWay)
{
	bool newHasThrown = false;
	const s64 before = HeapBlockCount();
	{
		const CFailingAllocation failing(0);
		try
		{
			::operator delete(::operator new(1));
		}
		catch (const std::bad_alloc &)
		{
			newHasThrown = true;
		}
		EXPECT_TRUE(failing.HasFailed());
	}
	EXPECT_TRUE(newHasThrown);
	void *failed, *taken;
	{
		const CFailingAllocation failing(1);
		taken = std::malloc(1);
		failed = std::malloc(1);
	}
	EXPECT_EQ(failed, nullptr);
	ASSERT_NE(taken, nullptr);
	EXPECT_EQ(HeapBlockCount(), before + 1);
	std::free(taken);
	EXPECT_EQ(HeapBlockCount(), before);
}
} // namespace
