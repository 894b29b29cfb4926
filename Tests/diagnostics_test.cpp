// Assertions, log-once warnings, hazard counts, and the strings that messages are built in.
// A site's ignore flag lasts as long as the process. So every test that sets flags has sites of its own, in templates
// and types that exist nowhere else, and has nothing left to see when it is repeated.

#include "ge_mesh_triangle_sorter.h"

#include "simd/sse/simd_vector.h"
#include "vx_assert.h"

#include "kr_log_unique.h"
#include "kr_memoryviews.h"
#include "kr_profiler.h"
#include "kr_refptr.h"
#include "kr_string.h"

#include "diagnostics.h"
#include <algorithm>
#include <atomic>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Vexmoor;
using namespace Support;

#define TEST_LIMIT 3
#define TEST_TWICE(_x) ((_x) + (_x))

namespace
{
constexpr bool kAssertions = VX_ASSERTIONS != 0;

enum EForm
{
	Form_Plain,
	Form_Format,
	Form_Verify
};

// Three visits of one failing site. Counts how often its condition is evaluated and the code behind it runs.
struct SVisits
{
	int m_Evaluated = 0;
	int m_RanOn = 0;
};
template<EForm _Form, int _Decision>
SVisits VisitThreeTimes()
{
	SVisits visits;
	[[maybe_unused]] const auto fails = [&visits]
	{
		++visits.m_Evaluated;
		return false;
	};
	for (int i = 0; i < 3; ++i)
	{
		if constexpr (_Form == Form_Plain)
			VX_ASSERT(fails());
		else if constexpr (_Form == Form_Format)
			VX_ASSERT_MESSAGE(fails(), "%d", i);
		else if (VX_VERIFY(fails()))
			continue;
		++visits.m_RanOn;
	}
	return visits;
}

struct SDecisionCase
{
	const char *m_Name;
	SVisits (*m_Visit)();
	int m_Decision;
	std::size_t m_Reports;
	int m_Traps;
	int m_Evaluated; // of a verify: always
};

std::size_t LineCount(const std::string &text)
{
	return std::size_t(std::count(text.begin(), text.end(), '\n'));
}

bool Contains(const std::string &text, const std::string &part)
{
	return text.find(part) != std::string::npos;
}

// Owned by nobody else: their instantiations of the views have sites of their own.
struct SIgnoredElement
{
	u32 m_Value;
};
struct SOtherElement
{
	u32 m_Value;
};

template<typename _Type>
void FailingSiteOfATemplate()
{
	VX_ASSERT(sizeof(_Type) == 0);
}

#if VX_ASSERTIONS
constexpr const char *kSorterPath = "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp";

void FailingSiteForTheDefaultHandler()
{
	VX_ASSERT(TEST_LIMIT == 4);
}

std::string FailingSitesOfThisFunction()
{
	const char *p = "";
	VX_ASSERT(p == null);
	VX_ASSERT(std::strlen(p) >= TEST_LIMIT);
	VX_ASSERT(std::is_same_v<u8, u16>);
	VX_ASSERT_MESSAGE(TEST_TWICE(1) == 3, "%s is %d%%", "TEST_TWICE(1)", 2);
	VX_ASSERT_NOT_REACHED("Uninitialized or invalid sort type");
	static_cast<void>(VX_VERIFY(TEST_TWICE(2) == TEST_LIMIT));
	return __PRETTY_FUNCTION__;
}
#endif
} // namespace

TEST(Assertion, Decisions_IgnoreBreakOrGoOn)
{
	static bool s_FlagsAreSet = false;
	if (s_FlagsAreSet)
		GTEST_SKIP() << "sites stay ignored";
	s_FlagsAreSet = true;

	const SDecisionCase cases[] = {
		{"plain, break",     &VisitThreeTimes<Form_Plain,  0>,  0,  3, 3, 3},
		{"plain, ignore",    &VisitThreeTimes<Form_Plain,  1>,  1,  1, 0, 1},
		{"plain, continue",  &VisitThreeTimes<Form_Plain,  2>,  2,  3, 0, 3},
		{"plain, another",   &VisitThreeTimes<Form_Plain,  99>, 99, 3, 0, 3},
		{"plain, negative",  &VisitThreeTimes<Form_Plain,  -1>, -1, 3, 0, 3},
		{"format, break",    &VisitThreeTimes<Form_Format, 0>,  0,  3, 3, 3},
		{"format, ignore",   &VisitThreeTimes<Form_Format, 1>,  1,  1, 0, 1},
		{"format, continue", &VisitThreeTimes<Form_Format, 2>,  2,  3, 0, 3},
		{"format, another",  &VisitThreeTimes<Form_Format, 99>, 99, 3, 0, 3},
		{"verify, break",    &VisitThreeTimes<Form_Verify, 0>,  0,  3, 3, 3},
		{"verify, ignore",   &VisitThreeTimes<Form_Verify, 1>,  1,  1, 0, 3},
		{"verify, continue", &VisitThreeTimes<Form_Verify, 2>,  2,  3, 0, 3},
		{"verify, another",  &VisitThreeTimes<Form_Verify, 99>, 99, 3, 0, 3},
	};
	for (const SDecisionCase &row : cases)
	{
		SCOPED_TRACE(row.m_Name);
		const CTrapCounter traps;
		const CReportRecorder recorder(row.m_Decision);
		const SVisits visits = row.m_Visit();
		const bool verify = std::strncmp(row.m_Name, "verify", 6) == 0;
		EXPECT_EQ(visits.m_RanOn, 3);
		EXPECT_EQ(visits.m_Evaluated, kAssertions || verify ? row.m_Evaluated : 0);
		EXPECT_EQ(recorder.Reports().size(), kAssertions ? row.m_Reports : 0);
		EXPECT_EQ(traps.Count(), kAssertions ? row.m_Traps : 0);
	}
}

TEST(Assertion, ConditionsThatHold_ReportNothing)
{
	CExpectReports noReports;
	VX_ASSERT(TEST_LIMIT == 3);
	VX_ASSERT_MESSAGE(TEST_LIMIT == 3, "%d", TEST_LIMIT);
	EXPECT_TRUE(VX_VERIFY(TEST_LIMIT == 3));
}

#if VX_ASSERTIONS
TEST(Assertion, IgnoredSite_LeavesEveryOtherSiteReporting)
{
	static bool s_FlagsAreSet = false;
	if (s_FlagsAreSet)
		GTEST_SKIP() << "sites stay ignored";
	s_FlagsAreSet = true;

	// A view has two sites, and so have the views of each element type.
	SIgnoredElement ignored = {1};
	SOtherElement other = {2};
	const TStridedMemoryView<SIgnoredElement> noElements(&ignored, 0, 4), noData(null, 0, 4);
	const TStridedMemoryView<SOtherElement> otherNoElements(&other, 0, 4);
	CReportRecorder recorder(Assert::Decision_Ignore);
	EXPECT_EQ(noElements[0].m_Value, 1u);
	EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{"index < m_Storage.m_Count"}));
	recorder.Clear();
	EXPECT_EQ(noElements[0].m_Value, 1u);
	static_cast<void>(noData[1]);
	EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{"m_Storage.m_RawDataPtr != null"}));
	recorder.Clear();
	static_cast<void>(noData[1]);
	EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{}));
	EXPECT_EQ(otherNoElements[0].m_Value, 2u);
	EXPECT_EQ(recorder.Texts(), (std::vector<std::string>{"index < m_Storage.m_Count"}));
	recorder.Clear();

	FailingSiteOfATemplate<SIgnoredElement>();
	FailingSiteOfATemplate<SIgnoredElement>();
	EXPECT_EQ(recorder.Reports().size(), 1u);
	FailingSiteOfATemplate<SOtherElement>();
	EXPECT_EQ(recorder.Reports().size(), 2u);
}

// Where a condition has no macro, its texts are equal; null is a constant for that reason.
TEST(Assertion, Report_CarriesTheTextsAsWrittenAndExpanded)
{
	struct SCase
	{
		const char *m_Condition;
		const char *m_Expanded;
		const char *m_Message;
	};
	const SCase cases[] = {
		{"p == null",                    "p == null",               "p == null"                         },
		{"std::strlen(p) >= TEST_LIMIT", "std::strlen(p) >= 3",     "std::strlen(p) >= TEST_LIMIT"      },
		{"std::is_same_v<u8, u16>",      "std::is_same_v<u8, u16>", "std::is_same_v<u8, u16>"           },
		{"TEST_TWICE(1) == 3",           "((1) + (1)) == 3",        "TEST_TWICE(1) is 2%"               },
		{"false",                        "false",                   "Uninitialized or invalid sort type"},
		{"TEST_TWICE(2) == TEST_LIMIT",  "((2) + (2)) == 3",        "TEST_TWICE(2) == TEST_LIMIT"       },
	};
	const CReportRecorder recorder;
	const std::string function = FailingSitesOfThisFunction();
	ASSERT_EQ(recorder.Reports().size(), std::size(cases));
	for (std::size_t i = 0; i < std::size(cases); ++i)
	{
		const SRecordedReport &report = recorder.Reports()[i];
		SCOPED_TRACE(cases[i].m_Condition);
		EXPECT_EQ(report.m_ConditionText, cases[i].m_Condition);
		EXPECT_EQ(report.m_ExpandedConditionText, cases[i].m_Expanded);
		EXPECT_EQ(report.m_Message, cases[i].m_Message);
		EXPECT_EQ(report.m_File, __FILE__);
		EXPECT_EQ(report.m_Function, function);
		EXPECT_EQ(report.m_Line, recorder.Reports()[0].m_Line + int(i)); // the sites stand in consecutive lines
	}
}

// Paths are the same wherever the checkout lies.
TEST(Assertion, ReportOfTheRuntime_NamesItsSourceAndFunction)
{
	struct SCase
	{
		const char *m_File;
		const char *m_Function;
		void (*m_Fail)();
	};
	static u32 s_Elements[4] = {};
	const SCase cases[] = {
		{"../../Runtime/vx_kernel/include/kr_memoryviews.h", "_AssertAccessible(",
         [] { static_cast<void>(TMemoryView<u32>(s_Elements, 1)[1]); }                         },
		{"../../Runtime/vx_kernel/include/kr_memoryviews.h", "Slice(",
         [] { static_cast<void>(TStridedMemoryView<u32>(s_Elements, 1, 4).Slice(0, 2)); }      },
		{"../../Runtime/vx_kernel/include/kr_iterators.h",   "TStridedBaseIterator<",
         [] { static_cast<void>(*(TStridedMemoryView<u32>(s_Elements, 0, 4).Begin())); }       },
		{kSorterPath,                                        "Vexmoor::CTriangleSorter::WorkingBuffer_SortedTris(",
         [] { static_cast<void>(CTriangleSorter::WorkingBuffer_SortedTris(s_Elements, 3, 2)); }},
		{kSorterPath,                                        "Vexmoor::CTriangleSorter::SortPoints_AutogenIndices(",
         [] { CTriangleSorter().SortPoints_AutogenIndices(static_cast<void *>(s_Elements)); }  },
	};
	for (const SCase &row : cases)
	{
		SCOPED_TRACE(row.m_Function);
		const CReportRecorder recorder;
		row.m_Fail();
		ASSERT_FALSE(recorder.Reports().empty());
		EXPECT_EQ(recorder.Reports().back().m_File, row.m_File);
		EXPECT_TRUE(Contains(recorder.Reports().back().m_Function, row.m_Function))
			<< recorder.Reports().back().m_Function;
		EXPECT_GT(recorder.Reports().back().m_Line, 0);
	}
}

TEST(Assertion, DefaultHandler_PrintsOneLineAndIgnores)
{
	Assert::SetReportHandler(null, null);
	static bool s_FlagsAreSet = false;
	if (s_FlagsAreSet)
		GTEST_SKIP() << "sites stay ignored";
	s_FlagsAreSet = true;

	const CTrapCounter traps;
	testing::internal::CaptureStderr();
	for (int i = 0; i < 3; ++i)
		FailingSiteForTheDefaultHandler();
	const std::string printed = testing::internal::GetCapturedStderr();
	EXPECT_EQ(LineCount(printed), 1u) << printed;
	EXPECT_TRUE(Contains(printed, "TEST_LIMIT == 4")) << printed;
	EXPECT_TRUE(Contains(printed, __FILE__)) << printed;
	EXPECT_EQ(traps.Count(), 0);
}
#endif

// The functions behind the sites are there in every build.
TEST(AssertionService, EvalAssert_HandsOverTheTextsAndReturnsTheDecision)
{
	for (const int decision : {0, 1, 2, 42, -7})
	{
		const CReportRecorder recorder(decision);
		EXPECT_EQ(Assert::EvalAssert("file", "function", 12, "condition", "expanded", "message"), decision);
		EXPECT_EQ(Assert::EvalAssertFormat("f", "g", 13, "false", "0", "%s %u", "page", 7u), decision);
		ASSERT_EQ(recorder.Reports().size(), 2u);
		const SRecordedReport &plain = recorder.Reports()[0], &formatted = recorder.Reports()[1];
		EXPECT_EQ(plain.m_File + plain.m_Function + plain.m_ConditionText, "filefunctioncondition");
		EXPECT_EQ(plain.m_ExpandedConditionText + plain.m_Message, "expandedmessage");
		EXPECT_EQ(plain.m_Line, 12);
		EXPECT_EQ(formatted.m_File + formatted.m_Function + formatted.m_ConditionText, "fgfalse");
		EXPECT_EQ(formatted.m_ExpandedConditionText + formatted.m_Message, "0page 7");
		EXPECT_EQ(formatted.m_Line, 13);
	}
}

// The message is formatted on the stack, in 1,024 bytes.
TEST(AssertionService, LongMessage_IsCutNotOverrun)
{
	const CReportRecorder recorder;
	const std::string text(5000, 'x');
	Assert::EvalAssertFormat("file", "function", 1, "false", "false", "%s", text.c_str());
	EXPECT_EQ(recorder.Reports()[0].m_Message, text.substr(0, 1023));
}

TEST(AssertionService, VerifyAssertFalse_BreaksOnZeroAndRemembersOne)
{
	struct SCase
	{
		int m_Decision;
		bool m_Breaks;
		bool m_Ignored;
	};
	for (const SCase &row : {
			 SCase{0, true,  false},
             SCase{1, false, true },
             SCase{2, false, false},
             SCase{9, false, false}
    })
	{
		SCOPED_TRACE(row.m_Decision);
		const CReportRecorder recorder(row.m_Decision);
		bool ignored = false;
		for (std::size_t call = 1; call <= 3; ++call)
		{
			EXPECT_EQ(Assert::VerifyAssertFalse_Breaks(ignored, "file", "function", 3, "c", "e", "m"), row.m_Breaks);
			EXPECT_EQ(ignored, row.m_Ignored);
			EXPECT_EQ(recorder.Reports().size(), row.m_Ignored ? 1 : call);
		}
		EXPECT_EQ(recorder.Reports()[0].m_ConditionText + recorder.Reports()[0].m_ExpandedConditionText, "ce");
		EXPECT_EQ(recorder.Reports()[0].m_Message, "m");
	}
}

TEST(AssertionService, DefaultHandler_AnswersIgnore)
{
	Assert::SetReportHandler(null, null);
	testing::internal::CaptureStderr();
	EXPECT_EQ(Assert::EvalAssert("file.cpp", "function", 12, "a < b", "1 < 0", "what it means"), 1);
	bool ignored = false;
	EXPECT_FALSE(Assert::VerifyAssertFalse_Breaks(ignored, "file", "function", 3, "c", "e", "m"));
	EXPECT_TRUE(ignored);
	const std::string printed = testing::internal::GetCapturedStderr();
	EXPECT_EQ(LineCount(printed), 2u) << printed;
	for (const char *const part : {"file.cpp", "12", "function", "a < b", "what it means"})
		EXPECT_TRUE(Contains(printed, part)) << printed;
}

TEST(AssertionService, Threads_ReportAtOnce)
{
	std::atomic<u32> reports = 0;
	Assert::SetReportHandler(
		[](const Assert::SReport &, void *count) -> int
		{
			++*static_cast<std::atomic<u32> *>(count);
			return Assert::Decision_Continue;
		},
		&reports);
	std::thread threads[4];
	for (std::thread &thread : threads)
	{
		thread = std::thread(
			[]
			{
				for (int i = 0; i < 100; ++i)
					Assert::EvalAssert("file", "function", i, "condition", "condition", "condition");
			});
	}
	for (std::thread &thread : threads)
		thread.join();
	Assert::SetReportHandler(null, null);
	EXPECT_EQ(reports, 400u);
}

TEST(RefPtr, UnderflowOfTheCount_Reports)
{
	struct SObject : CRefCountedObject
	{
		~SObject() override = default;
	};
	CReportRecorder recorder;
	SObject *const object = new SObject; // nobody refers to it
	object->ReleaseStrongRef();
	delete object; // the report has left it alone
	ASSERT_EQ(recorder.Reports().size(), kAssertions ? 1u : 0u);
	for (const SRecordedReport &report : recorder.Reports())
	{
		EXPECT_EQ(report.m_ConditionText, "s32(nrc) >= 0");
		EXPECT_EQ(report.m_Message, "/!\\ strong refcount underflow /!\\");
		EXPECT_EQ(report.m_File, "../../Runtime/vx_kernel/include/kr_refptr.h");
	}
}

// Neither a copy that goes nor an assignment to itself is the last reference.
// Counts that are lost leave an object that nobody deletes, or that somebody still refers to.
TEST(RefPtr, ReferencesTakenOnManyThreads_AreAllCounted)
{
	struct SObject final : CRefCountedObject
	{
		explicit SObject(std::atomic<u32> &deleted)
			: m_Deleted(deleted)
		{
		}
		~SObject() override { ++m_Deleted; }
		std::atomic<u32> &m_Deleted;
	};
	std::atomic<u32> deleted = 0;
	{
		const TRefPtr<SObject> shared = new SObject(deleted);
		std::vector<std::thread> threads;
		for (u32 thread = 0; thread < 4; ++thread)
			threads.emplace_back(
				[&shared]
				{
					for (u32 i = 0; i < 20'000; ++i)
						const TRefPtr<SObject> copy = shared;
				});
		for (std::thread &thread : threads)
			thread.join();
		EXPECT_EQ(deleted, 0u);
	}
	EXPECT_EQ(deleted, 1u);
}

TEST(RefPtr, LastReference_DeletesTheObject)
{
	CExpectReports noReports;
	struct SObject : CRefCountedObject
	{
		explicit SObject(int &deleted)
			: m_Deleted(deleted)
		{
		}
		~SObject() override { ++m_Deleted; }
		int &m_Deleted;
	};
	int deleted = 0;
	{
		TRefPtr<SObject> first = new SObject(deleted);
		{
			const TRefPtr<SObject> second = first;
			EXPECT_EQ(second.Get(), first.Get());
		}
		TRefPtr<SObject> &same = first;
		first = same;
		EXPECT_EQ(deleted, 0);
		first = TRefPtr<SObject>(new SObject(deleted));
		EXPECT_EQ(deleted, 1);
		EXPECT_TRUE(first != null);
		first = TRefPtr<SObject>();
		EXPECT_EQ(deleted, 2);
		EXPECT_TRUE(first == null);
	}
	EXPECT_EQ(deleted, 2);
}

TEST(String, Format_BuildsATextThatCopiesShare)
{
	const CString string = CString::Format("Render sort: %d of %s", 3, "them");
	EXPECT_STREQ(string.Data(), "Render sort: 3 of them");
	CString copy;
	EXPECT_STREQ(copy.Data(), "");
	{
		const CString shortLived = CString::Format("%05u", 42u);
		copy = shortLived;
		EXPECT_EQ(copy.Data(), shortLived.Data());
	}
	EXPECT_STREQ(copy.Data(), "00042");
	EXPECT_STREQ(CString::Format("%s", "").Data(), "");
	EXPECT_STREQ(CString::Format("%lc", std::wint_t(0x7FFFFFFF)).Data(), ""); // no character, says libc
	const std::string longText(5000, 'x');
	EXPECT_EQ(CString::Format("%s!", longText.c_str()).Data(), longText + "!");
}
