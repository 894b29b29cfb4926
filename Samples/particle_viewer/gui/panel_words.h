#pragma once

// The texts and numbers of the panel that depend on the view, made without widgets.

#include "vx_defs.h"

#include "findings.h"
#include "order_pairs.h"
#include "scene.h"
#include "sort_frame.h"
#include "sort_times.h"
#include <string>
#include <utility>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What came of the last frame.
struct SViewFigures
{
	u32 m_ParticleCount = 0;
	u32 m_PageCount = 0;
	u32 m_DrawCallCount = 0;
	SPrimitiveCounts m_Primitives;
	CFindings m_Findings;
	std::vector<std::pair<std::string, SPairFigures>> m_Orders; ///< Of short keys beside long ones: each and its name.
	std::string m_Trouble; ///< Why the settings cannot be drawn; empty where they were.
};

/// What a line of the table of times says.
struct STimeLine
{
	std::string m_Name;
	double m_Microseconds;
	double m_NanosecondsPerParticle;
	double SSortTimes::*m_Stage; ///< Null: the sum of all.
};

/// "20,000 drawn in 34 pages, 1 draw call".
std::string DrawnWords(const SViewFigures &figures);
/// How many primitives an output that is too small loses; empty where none is lost.
std::string LostWords(const SPrimitiveCounts &primitives);
/// The order that is on screen: the label of the one that is chosen, or that nothing is sorted.
std::string OrderWords(bool sorting, EOrder order, const std::vector<SPictureOfOrder> &orders);
/// The stages that the sorts went through, and their sum; none where nothing was sorted.
std::vector<STimeLine> TimeLines(const SSortTimes &median, u32 particleCount);
/// What the sum of the times has in it, and what not.
std::string TimesNote(const SSortTimes &median);
/// How much faster the sort is on several threads; empty for one, and until both were measured.
std::string GainWords(u32 threadCount, double microseconds, double microsecondsOfOneThread);
/// How far an order is from that of distances: its worst backtrack, and its pairs out of order.
std::string PairWords(const SPairFigures &figures);
/// "29.9 frames a second", or that nothing moves.
std::string FrameRateWords(double framesPerSecond);
/// What is said where the validation finds nothing.
std::string NoFindingsWords(bool sorting, bool checking);
} // namespace Viewer
