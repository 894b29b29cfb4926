// The assertion service: one handler for the process, asked about every broken condition.

#include "vx_assert.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace Vexmoor
{
namespace Assert
{
#if VX_ASSERTIONS
	const char LibraryIsBuiltWith_VX_ASSERTIONS_1 = 1;
#else
	const char LibraryIsBuiltWith_VX_ASSERTIONS_0 = 1;
#endif

	static std::atomic<CbReport> s_Handler = null;
	static std::atomic<void *> s_UserData = null;

	static int ReportOnStderr(const SReport &report)
	{
		std::fprintf(stderr, "%s:%d: assertion \"%s\" failed in %s: %s\n", report.m_File, report.m_Line,
			report.m_ConditionText, report.m_Function, report.m_Message);
		return Decision_Ignore;
	}

	void SetReportHandler(CbReport handler, void *userData)
	{
		s_UserData.store(userData, std::memory_order_relaxed);
		s_Handler.store(handler, std::memory_order_release);
	}

	int EvalAssert(const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *message)
	{
		const SReport report = {file, function, line, conditionText, expandedConditionText, message};
		const CbReport handler = s_Handler.load(std::memory_order_acquire);
		return handler != null ? handler(report, s_UserData.load(std::memory_order_relaxed)) : ReportOnStderr(report);
	}

	int EvalAssertFormat(const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *format,
		...)
	{
		char message[1024]; // on the stack: a report may come from wherever memory has run out
		va_list arguments;
		va_start(arguments, format);
		std::vsnprintf(message, sizeof(message), format, arguments);
		va_end(arguments);
		return EvalAssert(file, function, line, conditionText, expandedConditionText, message);
	}

	bool VerifyAssertFalse_Breaks(bool &ignored,
		const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *message)
	{
		if (_SiteIsIgnored(ignored))
			return false;
		const int decision = EvalAssert(file, function, line, conditionText, expandedConditionText, message);
		if (decision == Decision_Ignore)
			_IgnoreSite(ignored);
		return decision == Decision_Break;
	}
} // namespace Assert
} // namespace Vexmoor
