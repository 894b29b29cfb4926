// What the panel says, for views of every kind.

#include "panel_words.h"
#include <gtest/gtest.h>

using namespace Viewer;

namespace
{
const std::vector<SPictureOfOrder> kOrders = {
	{EOrder::ByPosition, "", "by position"    },
	{EOrder::ByValue,    "", "sorted by value"},
};

SSortFinding Advice(const std::string &sentence)
{
	return {SortFinding_Advice, sentence.c_str()};
}
} // namespace

TEST(PanelWords, Drawn_CountsAndGroups)
{
	SViewFigures figures;
	figures.m_ParticleCount = 20000;
	figures.m_PageCount = 1;
	figures.m_DrawCallCount = 1;
	EXPECT_EQ(DrawnWords(figures), "20,000 drawn in 1 page, 1 draw call");
	figures.m_PageCount = 34;
	figures.m_DrawCallCount = 2;
	EXPECT_EQ(DrawnWords(figures), "20,000 drawn in 34 pages, 2 draw calls");
}

// Unsorted frames are drawn with indices that are ready: all of them, so none is lost.
TEST(PanelWords, UnsortedFrame_LosesNothing)
{
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	SFrame frame;
	frame.m_IndexPattern = TMemoryView<u32>(quad, 6);
	const SPrimitiveCounts billboards = CountPrimitives({PlanReadyDrawCall(frame, 600)});
	EXPECT_EQ(billboards.m_All, 100u);
	EXPECT_EQ(billboards.m_Drawn, 100u);
	EXPECT_EQ(LostWords(billboards), "");

	const SPrimitiveCounts meshes = CountPrimitives({PlanReadyDrawCall(SFrame(), 600)});
	EXPECT_EQ(meshes.m_All, 200u);
	EXPECT_EQ(LostWords(meshes), "");
}

TEST(PanelWords, Lost_NamesBothNumbers)
{
	EXPECT_EQ(LostWords({1000, 900}), "100 of 1,000 primitives are lost");
	EXPECT_EQ(LostWords({1000, 0}), "1,000 of 1,000 primitives are lost");
	EXPECT_EQ(LostWords({1000, 1000}), "");
	EXPECT_EQ(LostWords({0, 1000}), ""); // nonsense does not wrap
}

TEST(PanelWords, Order_IsWhatIsOnScreen)
{
	EXPECT_EQ(OrderWords(true, EOrder::ByValue, kOrders), "sorted by value");
	EXPECT_EQ(OrderWords(true, EOrder::ByPosition, kOrders), "by position");
	EXPECT_EQ(OrderWords(false, EOrder::ByValue, kOrders), "unsorted, as in memory");
	EXPECT_EQ(OrderWords(true, EOrder::ByTriangle, kOrders), "");
}

TEST(PanelWords, TimesByValue_HaveTheComputingOfValuesInTheirSum)
{
	const std::vector<STimeLine> lines = TimeLines({150.0, 100.0, 250.0, 150.0}, 100000);
	ASSERT_EQ(lines.size(), 5u);
	EXPECT_EQ(lines[0].m_Name, "sort values");
	EXPECT_EQ(lines[0].m_Microseconds, 150.0);
	EXPECT_EQ(lines[0].m_NanosecondsPerParticle, 1.5);
	EXPECT_EQ(lines[4].m_Name, "in all");
	EXPECT_EQ(lines[4].m_Microseconds, 650.0);
	EXPECT_NE(TimesNote({150.0, 100.0, 250.0, 150.0}).find("computing values"), std::string::npos);
}

TEST(PanelWords, TimesByPosition_HaveNoLineForValues)
{
	const std::vector<STimeLine> lines = TimeLines({0.0, 100.0, 250.0, 150.0}, 0);
	ASSERT_EQ(lines.size(), 4u);
	EXPECT_EQ(lines[0].m_Name, "fill");
	EXPECT_EQ(lines[3].m_Microseconds, 500.0);
	EXPECT_EQ(TimesNote({0.0, 1.0, 1.0, 1.0}).find("values"), std::string::npos);
}

TEST(PanelWords, NothingSorted_HasNoTimes)
{
	EXPECT_TRUE(TimeLines(SSortTimes(), 100).empty());
	EXPECT_EQ(NoFindingsWords(false, true), "Nothing is sorted.");
	EXPECT_EQ(NoFindingsWords(true, true), "No rule is broken, and nothing could be better.");
	EXPECT_EQ(NoFindingsWords(true, false), "");
}

TEST(PanelWords, Gain_NeedsBothTimesAndSeveralThreads)
{
	EXPECT_EQ(GainWords(4, 2000.0, 5000.0), "2000 \u00b5s on 4 threads, 5000 \u00b5s on one: 2.5 times as fast");
	EXPECT_EQ(GainWords(1, 2000.0, 5000.0), "");
	EXPECT_EQ(GainWords(4, 0.0, 5000.0), "");
	EXPECT_EQ(GainWords(4, 2000.0, 0.0), "");
}

TEST(PanelWords, Pairs_SayWhatIsOutOfOrder)
{
	EXPECT_EQ(PairWords({4999950000, 302160203, 0.0987}),
		"worst backtrack 9.9 %, 302,160,203 of 4,999,950,000 pairs out of order");
	EXPECT_EQ(PairWords({10, 9, 1.234}), "worst backtrack 123 %, 9 of 10 pairs out of order");
	EXPECT_EQ(PairWords({10, 0, 0.0}), "worst backtrack 0 %, 0 of 10 pairs out of order");
}

TEST(PanelWords, FrameRate_IsNoneWhileNothingMoves)
{
	EXPECT_EQ(FrameRateWords(29.94), "29.9 frames a second");
	EXPECT_EQ(FrameRateWords(0.0), "nothing moves");
}

// Three hundred pages with one and the same stride are one thing to know.
TEST(Findings, AdviceOfManyPages_IsSaidOnceWithTheirNumber)
{
	CFindings findings;
	for (u32 page = 5; page < 305; ++page)
	{
		const std::string ofPage =
			"The positions of page " + std::to_string(page) + " have a stride of 20: 12 is faster.";
		CFindings::Collect(Advice(ofPage), &findings);
	}
	const std::string other = "The width of the index pattern is 7: 1, 3, 6 and 12 are faster.";
	findings.Add(Advice(other));
	ASSERT_EQ(findings.All().size(), 2u);
	EXPECT_EQ(findings.All()[0].Text(),
		"The positions of page 5 have a stride of 20: 12 is faster. (The first of 300 pages like it.)");
	EXPECT_EQ(findings.All()[1].Text(), other);
}

TEST(Findings, SentencesThatDiffer_StayApart)
{
	CFindings findings;
	const std::string sentences[] = {"The output starts at 4 modulo 16: 0 is faster.",
		"The output starts at 8 modulo 16: 0 is faster.", "Page 3 has enabled bytes for 5, but positions for 4.",
		"Page 3 has enabled bytes for 5, but values for 4."};
	for (const std::string &sentence : sentences)
		findings.Add({SortFinding_Violation, sentence.c_str()});
	EXPECT_EQ(findings.Of(true).size(), 4u);
	EXPECT_EQ(findings.Of(false).size(), 0u);
}

TEST(Findings, TooManyToTell_StillCountThoseThatAreTold)
{
	CFindings findings;
	for (u32 i = 0; i < 1000; ++i)
	{
		const std::string sentence(i + 1, 'x');
		findings.Add(Advice(sentence));
	}
	EXPECT_EQ(findings.All().size(), 100u);
	findings.Add(Advice("x"));
	EXPECT_EQ(findings.All()[0].m_Count, 2u);
	EXPECT_EQ(findings.All().size(), 100u);
}
