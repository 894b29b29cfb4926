#pragma once

// A recorder for the profiler's hook: keeps the scopes of all threads in memory of the caller's, and writes them as a
// Chrome trace, which Perfetto and chrome://tracing open. For hosts that have no profiler of their own.
//
//     static u8 memory[8 << 20]; // about 340,000 scopes
//     Profiler::CTraceRecorder recorder(memory, sizeof(memory));
//     Profiler::MainEngineProfiler()->SetScopeHandler(Profiler::CTraceRecorder::OnScope, &recorder);
//     ... frames ...
//     Profiler::MainEngineProfiler()->SetScopeHandler(null, null);
//     recorder.WriteChromeTrace(WriteToFile, file);

#include "vx_defs.h"

#include "kr_profiler.h"
#include "kr_write.h"

#include <atomic>
#include <chrono>

namespace Vexmoor
{
namespace Profiler
{
	/// Memory is handed out in blocks: one to each thread that has a scope, and one for every 170 scopes of a thread.
	/// When it is used up, later scopes are dropped and counted, and recorded ones stay: a trace is complete up to that
	/// point. Scopes nested deeper than kMaxDepth are dropped and counted as well.
	///
	/// Threads  OnScope, NameThread, WriteChromeTrace and DroppedCount run side by side on any threads, without a lock.
	///          Remove the hook, and let every thread leave it, before the recorder or its memory is destroyed.
	/// Memory   nothing is allocated. All of the memory given is touched at construction, so that recording does not
	///          wait for pages.
	class CTraceRecorder
	{
	public:
		static constexpr u32 kBlockSize = 4096; ///< Bytes in which memory is handed out.
		static constexpr u32 kMaxDepth = 128;   ///< Scopes that may be open at once on a thread.

		/// memory  sizeInBytes bytes at any address, the recorder's until it is destroyed; whole blocks at multiples of
		///         64 are used of it
		VX_API CTraceRecorder(void *memory, u64 sizeInBytes);
		CTraceRecorder(const CTraceRecorder &) = delete;
		CTraceRecorder &operator=(const CTraceRecorder &) = delete;

		/// For CProfiler::SetScopeHandler, with the recorder as user data. A scope left without having been entered is
		/// ignored. The descriptor and its texts are not copied: they live until the trace is written.
		VX_API static void OnScope(const SNodeDescriptor &node, bool entering, void *recorder);

		/// Names the calling thread in the trace; not copied. A thread that the memory has no room for stays unnamed.
		VX_API void NameThread(const char *name);

		/// Writes what has been recorded so far as JSON, times in microseconds since construction. A scope that is
		/// still open is written as one without an end. Texts are any bytes; what is not UTF-8 becomes U+FFFD.
		/// Returns false as soon as write does.
		VX_API bool WriteChromeTrace(CbWrite write, void *userData) const;

		/// Scopes that were not recorded.
		u64 DroppedCount() const { return m_DroppedCount.load(std::memory_order_relaxed); }

	private:
		typedef std::chrono::steady_clock CClock;

		struct SScope;
		struct SScopeBlock;
		struct SThread;
		class CJson;

		void _Enter(const SNodeDescriptor &node);
		void _Leave(const SNodeDescriptor &node);
		SThread *_CurrentThread();
		SThread *_FindThread(u64 threadId) const;
		SThread *_AddThread(u64 threadId);
		SScope *_AddScope(SThread &thread, const SNodeDescriptor &node);
		void *_TakeBlock();
		u64 _Nanoseconds() const;
		static void _WriteThread(CJson &json, const SThread &thread);

		const CClock::time_point m_Start;
		const u64 m_Id; // of this recorder, and of none that has been at its address before
		u8 *m_Blocks;
		u64 m_BlockCount;
		std::atomic<u64> m_TakenBlockCount = 0;
		std::atomic<u32> m_ThreadCount = 0;
		std::atomic<SThread *> m_LastThread = null;
		std::atomic<u64> m_DroppedCount = 0;
	};
} // namespace Profiler
} // namespace Vexmoor
