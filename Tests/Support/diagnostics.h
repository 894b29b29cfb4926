#pragma once

// Stack objects that stand in for a host's services: they record reports, warnings, scopes and allocations while they
// live, so that what the library says is tested like what it writes. One of each kind at a time.

#include "vx_assert.h"

#include "kr_log_unique.h"
#include "kr_mem.h"
#include "kr_profiler.h"

#include <csignal>
#include <initializer_list>
#include <string>
#include <vector>

namespace Support
{
struct SRecordedReport
{
	std::string m_File;
	std::string m_Function;
	int m_Line;
	std::string m_ConditionText;
	std::string m_ExpandedConditionText;
	std::string m_Message;
};

/// Makes every report a failure of the test that runs, until somebody else handles reports.
void FailAtReports();

/// Records every report; sites stay armed unless another decision is asked for.
class CReportRecorder
{
public:
	explicit CReportRecorder(int decision = Vexmoor::Assert::Decision_Continue);
	~CReportRecorder();
	CReportRecorder(const CReportRecorder &) = delete;
	CReportRecorder &operator=(const CReportRecorder &) = delete;

	const std::vector<SRecordedReport> &Reports() const { return m_Reports; }
	/// What each report says, in order: its condition, or its message where the condition is just "false".
	std::vector<std::string> Texts() const;
	void Clear() { m_Reports.clear(); }
	void SetDecision(int decision) { m_Decision = decision; }

private:
	static int _Record(const Vexmoor::Assert::SReport &report, void *self);

	int m_Decision;
	std::vector<SRecordedReport> m_Reports;
};

/// Expects exactly these reports, in this order, by the time it goes out of scope, where assertions are compiled in;
/// and none where they are not.
class CExpectReports : public CReportRecorder
{
public:
	CExpectReports() = default;
	CExpectReports(std::initializer_list<const char *> texts)
		: m_Expected(texts.begin(), texts.end())
	{
	}
	explicit CExpectReports(std::vector<std::string> texts)
		: m_Expected(std::move(texts))
	{
	}
	~CExpectReports();

private:
	std::vector<std::string> m_Expected;
};

/// Stands in for a debugger: counts traps and goes on behind them.
class CTrapCounter
{
public:
	CTrapCounter()
	{
		s_Traps = 0;
		struct sigaction action = {};
		action.sa_handler = [](int) { s_Traps = s_Traps + 1; };
		sigaction(SIGTRAP, &action, &m_Before);
	}
	~CTrapCounter() { sigaction(SIGTRAP, &m_Before, nullptr); }
	CTrapCounter(const CTrapCounter &) = delete;
	CTrapCounter &operator=(const CTrapCounter &) = delete;

	int Count() const { return s_Traps; }

private:
	static inline volatile std::sig_atomic_t s_Traps = 0;
	struct sigaction m_Before;
};

/// Empties the process-wide warning collection, keeps it quiet, and reads it.
class CWarningRecorder
{
public:
	CWarningRecorder();
	~CWarningRecorder();
	CWarningRecorder(const CWarningRecorder &) = delete;
	CWarningRecorder &operator=(const CWarningRecorder &) = delete;

	std::vector<Vexmoor::CLogUniqueCollection::SEntry> Entries() const;
	/// In order of first touch.
	std::vector<std::string> Messages() const;
	/// The site numbers out of keys such as "[l.248] @ path", in order of first touch.
	std::vector<int> Sites() const;
	/// Hazards that this thread has counted since the recorder was made.
	Vexmoor::u32 Hazards() const;

private:
	Vexmoor::u32 m_HazardsBefore;
};

/// The process-wide collection is another one while this lives.
class CReplacedRegistry
{
public:
	explicit CReplacedRegistry(Vexmoor::CLogUniqueCollection &collection)
		: m_Before(Vexmoor::CPerfHotspotsRegistry::m_Registry)
	{
		Vexmoor::CPerfHotspotsRegistry::m_Registry = &collection;
	}
	~CReplacedRegistry() { Vexmoor::CPerfHotspotsRegistry::m_Registry = m_Before; }
	CReplacedRegistry(const CReplacedRegistry &) = delete;
	CReplacedRegistry &operator=(const CReplacedRegistry &) = delete;

private:
	Vexmoor::CLogUniqueCollection *const m_Before;
};

/// "key: message x touches" for each entry, in order of first touch.
std::vector<std::string> Contents(const Vexmoor::CLogUniqueCollection &collection);

/// Records scopes as "+name" where one is entered and "-name" where it is left.
class CScopeRecorder
{
public:
	CScopeRecorder();
	~CScopeRecorder();
	CScopeRecorder(const CScopeRecorder &) = delete;
	CScopeRecorder &operator=(const CScopeRecorder &) = delete;

	const std::vector<std::string> &Events() const { return m_Events; }
	const std::vector<const Vexmoor::Profiler::SNodeDescriptor *> &Nodes() const { return m_Nodes; }

private:
	static void _Record(const Vexmoor::Profiler::SNodeDescriptor &node, bool entering, void *self);

	std::vector<std::string> m_Events;
	std::vector<const Vexmoor::Profiler::SNodeDescriptor *> m_Nodes; // of the entered scopes
};

struct SRecordedAllocation
{
	void *m_Block;
	Vexmoor::u64 m_Size;
	Vexmoor::u32 m_Alignment;
	Vexmoor::Mem::EAllocType m_Type;
	Vexmoor::Mem::EOrigin m_Origin;
	std::string m_Module;
	std::string m_File;
	std::string m_Function;
	bool m_Freed;
	std::string m_FreedByFile;
};

/// Records what goes through the allocator hook. Blocks come from the heap, or are refused. They are expected to go
/// back under the type, the origin and the module that they were taken for. Blocks that were not freed are released at
/// the end.
class CAllocationRecorder
{
public:
	explicit CAllocationRecorder(bool refuse = false);
	~CAllocationRecorder();
	CAllocationRecorder(const CAllocationRecorder &) = delete;
	CAllocationRecorder &operator=(const CAllocationRecorder &) = delete;

	const std::vector<SRecordedAllocation> &Allocations() const { return m_Allocations; }

private:
	static void *_Alloc(void *self,
		Vexmoor::u64 size,
		Vexmoor::u32 alignment,
		Vexmoor::Mem::EAllocType type,
		Vexmoor::Mem::EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function);
	static void _Free(void *self,
		void *block,
		Vexmoor::Mem::EAllocType type,
		Vexmoor::Mem::EOrigin origin,
		const char *module,
		const char *file,
		int line,
		const char *function);

	bool m_Refuse;
	std::vector<SRecordedAllocation> m_Allocations;
};
} // namespace Support
