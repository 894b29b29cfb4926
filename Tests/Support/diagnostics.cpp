#include "diagnostics.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace Vexmoor;

namespace Support
{
void FailAtReports()
{
	Assert::SetReportHandler(
		[](const Assert::SReport &report, void *)
		{
			ADD_FAILURE_AT(report.m_File, report.m_Line) << report.m_Message << " in " << report.m_Function;
			return int(Assert::Decision_Continue);
		},
		null);
}

CReportRecorder::CReportRecorder(int decision)
	: m_Decision(decision)
{
	Assert::SetReportHandler(&_Record, this);
}

CReportRecorder::~CReportRecorder()
{
	FailAtReports();
}

std::vector<std::string> CReportRecorder::Texts() const
{
	std::vector<std::string> texts;
	for (const SRecordedReport &report : m_Reports)
		texts.push_back(report.m_ConditionText == "false" ? report.m_Message : report.m_ConditionText);
	return texts;
}

int CReportRecorder::_Record(const Assert::SReport &report, void *self)
{
	CReportRecorder *const recorder = static_cast<CReportRecorder *>(self);
	recorder->m_Reports.push_back({report.m_File, report.m_Function, report.m_Line, report.m_ConditionText,
		report.m_ExpandedConditionText, report.m_Message});
	return recorder->m_Decision;
}

CExpectReports::~CExpectReports()
{
#if VX_ASSERTIONS
	EXPECT_EQ(Texts(), m_Expected);
#else
	EXPECT_EQ(Texts(), std::vector<std::string>());
#endif
}

CWarningRecorder::CWarningRecorder()
	: m_HazardsBefore(Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards)
{
	CPerfHotspotsRegistry::Registry()->Clear();
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, null);
}

CWarningRecorder::~CWarningRecorder()
{
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(null, null);
}

std::vector<CLogUniqueCollection::SEntry> CWarningRecorder::Entries() const
{
	return CPerfHotspotsRegistry::Registry()->Snapshot();
}

std::vector<std::string> CWarningRecorder::Messages() const
{
	std::vector<std::string> messages;
	for (const CLogUniqueCollection::SEntry &entry : Entries())
		messages.push_back(entry.m_Message);
	return messages;
}

std::vector<int> CWarningRecorder::Sites() const
{
	std::vector<int> sites;
	for (const CLogUniqueCollection::SEntry &entry : Entries())
		sites.push_back(std::atoi(entry.m_Key.c_str() + std::string("[l.").size()));
	return sites;
}

u32 CWarningRecorder::Hazards() const
{
	return Profiler::CHazards::CurrentThreadHazards().m_PerformanceHazards - m_HazardsBefore;
}

std::vector<std::string> Contents(const CLogUniqueCollection &collection)
{
	std::vector<std::string> contents;
	for (const CLogUniqueCollection::SEntry &entry : collection.Snapshot())
		contents.push_back(entry.m_Key + ": " + entry.m_Message + " x " + std::to_string(entry.m_TouchCount));
	return contents;
}

CScopeRecorder::CScopeRecorder()
{
	Profiler::MainEngineProfiler()->SetScopeHandler(&_Record, this);
}

CScopeRecorder::~CScopeRecorder()
{
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
}

void CScopeRecorder::_Record(const Profiler::SNodeDescriptor &node, bool entering, void *self)
{
	CScopeRecorder *const recorder = static_cast<CScopeRecorder *>(self);
	recorder->m_Events.push_back((entering ? "+" : "-") + std::string(node.m_Name));
	if (entering)
		recorder->m_Nodes.push_back(&node);
}

CAllocationRecorder::CAllocationRecorder(bool refuse)
	: m_Refuse(refuse)
{
	const Mem::SAllocator allocator = {&_Alloc, &_Free, this};
	Mem::SetAllocator(&allocator);
}

CAllocationRecorder::~CAllocationRecorder()
{
	Mem::SetAllocator(null);
	for (const SRecordedAllocation &allocation : m_Allocations)
	{
		if (!allocation.m_Freed)
			std::free(allocation.m_Block);
	}
}

void *CAllocationRecorder::_Alloc(void *self,
	u64 size,
	u32 alignment,
	Mem::EAllocType type,
	Mem::EOrigin origin,
	const char *module,
	const char *file,
	int,
	const char *function)
{
	CAllocationRecorder *const recorder = static_cast<CAllocationRecorder *>(self);
	void *block = null;
	if (!recorder->m_Refuse)
		block = std::aligned_alloc(alignment, (size / alignment + 1) * alignment);
	recorder->m_Allocations.push_back({block, size, alignment, type, origin, module, file, function, false, ""});
	return block;
}

void CAllocationRecorder::_Free(void *self,
	void *block,
	Mem::EAllocType type,
	Mem::EOrigin origin,
	const char *module,
	const char *file,
	int,
	const char *)
{
	CAllocationRecorder *const recorder = static_cast<CAllocationRecorder *>(self);
	const auto allocation = std::find_if(recorder->m_Allocations.begin(), recorder->m_Allocations.end(),
		[block](const SRecordedAllocation &candidate) { return candidate.m_Block == block && !candidate.m_Freed; });
	if (allocation == recorder->m_Allocations.end())
	{
		ADD_FAILURE() << "freed a block that is not allocated";
		return;
	}
	EXPECT_EQ(type, allocation->m_Type);
	EXPECT_EQ(origin, allocation->m_Origin);
	EXPECT_EQ(module, allocation->m_Module);
	allocation->m_Freed = true;
	allocation->m_FreedByFile = file;
	std::free(block);
}
} // namespace Support
