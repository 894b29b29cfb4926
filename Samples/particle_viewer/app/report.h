#pragma once

// The table of a run, on standard output.

#include "vx_defs.h"

#include "arguments.h"
#include "exact_order.h"
#include "order_pairs.h"
#include "picture.h"
#include "sort_times.h"
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SPictureFigures
{
	EOrder m_Order;
	std::string m_FileName;
	SDifference m_Difference;
	SOrderFigures m_OrderFigures;
};

struct SReport
{
	SArguments m_Arguments;
	std::string m_Driver;

	u32 m_ParticleCount = 0;
	u32 m_PageCount = 0;
	u32 m_MixedPageCount = 0; ///< Pages with disabled particles and others that are drawn.
	u32 m_EmptyPageCount = 0;
	u32 m_DrawCallCount = 0;
	u32 m_IndexCount = 0;

	SSortTimes m_Times;
	double m_FrameTime = 0.0; ///< The median of whole frames, in microseconds.
	u64 m_IndexHash = 0;
	std::vector<SPictureFigures> m_Pictures;
	std::vector<std::pair<std::string, SPairFigures>> m_Orders; ///< Of short keys beside long ones: each and its name.
	std::vector<std::string> m_SlowPaths;                       ///< Warnings of the library, once each.
	u32 m_AssertionCount = 0;
};

void Print(const SReport &report);

// Parts of the table that other runs have too.

/// frameTime  of whole frames, in microseconds, where there were any
void PrintTimes(const SSortTimes &times, u32 particleCount, const std::optional<double> &frameTime);
void PrintLibraryReports(u32 assertionCount, const std::vector<std::string> &slowPaths);
} // namespace Viewer
