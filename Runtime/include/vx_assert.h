#pragma once

// Assertions: a broken condition is reported to one process-wide handler, whose answer decides whether the site breaks
// into the debugger, goes on, or stays silent from then on. The code after a site runs as if its condition had held.

#include "vx_compiler.h"
#include "vx_defs.h"

namespace Vexmoor
{
/// The report of broken conditions.
namespace Assert
{
	/// What a site does after its report.
	enum EDecision
	{
		Decision_Break = 0,   ///< Trap into the debugger, then carry on.
		Decision_Ignore = 1,  ///< Carry on, and never evaluate or report this site again.
		Decision_Continue = 2 ///< Carry on; any other value means the same.
	};

	/// One broken condition. The texts are valid until the handler returns.
	struct SReport
	{
		const char *m_File;                  ///< As the compiler saw it.
		const char *m_Function;              ///< Full signature of the enclosing function.
		int m_Line;                          ///< Line of the site in m_File.
		const char *m_ConditionText;         ///< The condition as written.
		const char *m_ExpandedConditionText; ///< The condition after macro expansion.
		const char *m_Message;               ///< The condition again, or the site's message.
	};

	/// Receives every report, on the thread that broke the condition, and answers with an EDecision.
	typedef int (*CbReport)(const SReport &report, void *userData);

	/// Replaces the handler; null brings back the default, which prints one line on stderr and answers
	/// Decision_Ignore. Call it at start-up: a sort that runs meanwhile may still reach the earlier handler.
	VX_API void SetReportHandler(CbReport handler, void *userData);

	/// Reports a broken condition and returns the handler's decision.
	VX_API VX_COLD_CODE int EvalAssert(const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *message);

	/// The same, with a printf-style message, which is cut after 1023 characters.
	VX_API VX_COLD_CODE int EvalAssertFormat(const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *format,
		...) VX_PRINTF_LIKE(6, 7);

	/// Reports a condition that guards an early exit, unless ignored is set; sets ignored on Decision_Ignore.
	/// Returns true when the caller traps before it takes its exit.
	VX_API VX_COLD_CODE bool VerifyAssertFalse_Breaks(bool &ignored,
		const char *file,
		const char *function,
		int line,
		const char *conditionText,
		const char *expandedConditionText,
		const char *message);

	// A client compiled with another value of VX_ASSERTIONS than its library would mix two versions of the same inline
	// functions. Each value refers to a name of its own, and a library defines only one of the two, so such a client
	// does not link, and the linker's message names the value.
#if VX_ASSERTIONS
	VX_API extern const char LibraryIsBuiltWith_VX_ASSERTIONS_1; ///< Defined only in libraries with assertions.
	/// Refers to it.
	VX_KEPT static const char *const s_LibraryAgrees = &LibraryIsBuiltWith_VX_ASSERTIONS_1;
#else
	VX_API extern const char LibraryIsBuiltWith_VX_ASSERTIONS_0;
	VX_KEPT static const char *const s_LibraryAgrees = &LibraryIsBuiltWith_VX_ASSERTIONS_0;
#endif

	///@{
	/// A site's flag, which all threads share. If the condition fails on two threads at once, both may report.
	VX_INLINE bool _SiteIsIgnored(const bool &flag)
	{
		return VX_LOAD_FLAG(flag);
	}
	VX_INLINE void _IgnoreSite(bool &flag)
	{
		VX_STORE_FLAG(flag, true);
	}
	///@}
} // namespace Assert
} // namespace Vexmoor

#if VX_ASSERTIONS
/// What all assertions do. Each site has a flag, and evaluates its condition only while the flag is clear.
	#define VX_ASSERT_SITE(_condition, _eval)                                                    \
		do                                                                                       \
		{                                                                                        \
			static bool vxSiteIgnored = false;                                                   \
			if (!::Vexmoor::Assert::_SiteIsIgnored(vxSiteIgnored) && VX_UNLIKELY(!(_condition))) \
			{                                                                                    \
				const int vxDecision = _eval;                                                    \
				if (vxDecision == ::Vexmoor::Assert::Decision_Ignore)                            \
					::Vexmoor::Assert::_IgnoreSite(vxSiteIgnored);                               \
				else if (vxDecision == ::Vexmoor::Assert::Decision_Break)                        \
					VX_TRAP();                                                                   \
			}                                                                                    \
		} while (false)

	/// Reports the condition's own text when it does not hold.
	#define VX_ASSERT(...)                                                                                         \
		VX_ASSERT_SITE((__VA_ARGS__), ::Vexmoor::Assert::EvalAssert(__FILE__, VX_FUNCTION, __LINE__, #__VA_ARGS__, \
										  VX_STRINGIZE(__VA_ARGS__), #__VA_ARGS__))

	/// Reports the given text when the condition does not hold. For a condition that is longer than its text, because
	/// it also avoids an access outside a view.
	#define VX_ASSERT_AS(_text, ...) \
		VX_ASSERT_SITE(              \
			(__VA_ARGS__), ::Vexmoor::Assert::EvalAssert(__FILE__, VX_FUNCTION, __LINE__, _text, _text, _text))

	/// Reports a printf-style message when the condition does not hold. The condition has no comma outside brackets.
	#define VX_ASSERT_MESSAGE(_condition, ...)                                                                         \
		VX_ASSERT_SITE((_condition), ::Vexmoor::Assert::EvalAssertFormat(__FILE__, VX_FUNCTION, __LINE__, #_condition, \
										 VX_STRINGIZE(_condition), __VA_ARGS__))
#else
	#define VX_ASSERT(...) static_cast<void>(0)
	#define VX_ASSERT_AS(_text, ...) static_cast<void>(0)
	#define VX_ASSERT_MESSAGE(_condition, ...) static_cast<void>(0)
#endif

/// Reports a printf-style message whenever it is reached, under the condition text "false".
#define VX_ASSERT_NOT_REACHED(...) VX_ASSERT_MESSAGE(false, __VA_ARGS__)

/// The condition's value, for early exits: evaluated in every build, reported where assertions are compiled in.
/// Used as: if (!VX_VERIFY(...)) return;
#if VX_ASSERTIONS
	#define VX_VERIFY(...) \
		(VX_LIKELY(__VA_ARGS__) || ([](const char *vxFunction) {                                                       \
			static bool vxSiteIgnored = false;                                                                         \
			if (::Vexmoor::Assert::VerifyAssertFalse_Breaks(vxSiteIgnored,                                             \
					__FILE__,                                                                                          \
					vxFunction,                                                                                        \
					__LINE__,                                                                                          \
					#__VA_ARGS__,                                                                                      \
					VX_STRINGIZE(__VA_ARGS__),                                                                         \
					#__VA_ARGS__))                                                                                     \
				VX_TRAP();                                                                                             \
			return false;                                                                                              \
		})(VX_FUNCTION))
#else
	#define VX_VERIFY(...) (VX_LIKELY(__VA_ARGS__))
#endif
