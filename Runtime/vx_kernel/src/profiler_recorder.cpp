// The recorder. A thread owns the blocks it has taken and writes its scopes into them in the order in which they are
// entered. It publishes a scope by the count of its block, a block by its link, itself by the list of threads; the
// function that writes the trace follows what is published. So it reads nothing that is still being written, except
// lengths.

#include "kr_profiler_recorder.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

namespace Vexmoor
{
namespace Profiler
{
	constexpr u64 kStillOpen = ~u64(0);
	constexpr ureg kBlockAlignment = 64; // a cache line: no two threads share one

	struct CTraceRecorder::SScope
	{
		const SNodeDescriptor *m_Node;
		u64 m_Start;               // in nanoseconds
		std::atomic<u64> m_Length; // or kStillOpen
	};

	struct CTraceRecorder::SScopeBlock
	{
		static constexpr u32 kCapacity = (kBlockSize - 16) / sizeof(SScope);

		std::atomic<SScopeBlock *> m_Next;
		std::atomic<u32> m_Count;
		SScope m_Scopes[kCapacity];
	};

	struct CTraceRecorder::SThread
	{
		struct SOpenScope
		{
			const SNodeDescriptor *m_Node;
			SScope *m_Scope; // null: dropped
		};

		u64 m_Id;
		u32 m_Number; // from 1, in the order in which threads came
		SThread *m_Previous;
		std::atomic<const char *> m_Name;
		std::atomic<SScopeBlock *> m_FirstBlock;

		// What follows is the thread's own.
		SScopeBlock *m_LastBlock;
		u32 m_Depth;
		u32 m_DepthBeyond; // of scopes nested deeper than there is room for
		SOpenScope m_Open[kMaxDepth];
	};

	static u64 NextId()
	{
		static std::atomic<u64> s_LastId = 0;
		return ++s_LastId;
	}

	CTraceRecorder::CTraceRecorder(void *memory, u64 sizeInBytes)
		: m_Start(CClock::now())
		, m_Id(NextId())
	{
		static_assert(sizeof(SThread) <= kBlockSize && sizeof(SScopeBlock) <= kBlockSize, "each fits into a block");
		const u64 skipped = (kBlockAlignment - reinterpret_cast<ureg>(memory) % kBlockAlignment) % kBlockAlignment;
		m_Blocks = static_cast<u8 *>(memory) + std::min(skipped, sizeInBytes);
		m_BlockCount = sizeInBytes < skipped ? 0 : (sizeInBytes - skipped) / kBlockSize;
		if (m_BlockCount != 0)
			std::memset(m_Blocks, 0, m_BlockCount * kBlockSize);
	}

	// Recording.

	void CTraceRecorder::OnScope(const SNodeDescriptor &node, bool entering, void *recorder)
	{
		CTraceRecorder &self = *static_cast<CTraceRecorder *>(recorder);
		if (entering)
			self._Enter(node);
		else
			self._Leave(node);
	}

	void CTraceRecorder::NameThread(const char *name)
	{
		if (SThread *const thread = _CurrentThread())
			thread->m_Name.store(name, std::memory_order_release);
	}

	void CTraceRecorder::_Enter(const SNodeDescriptor &node)
	{
		SThread *const thread = _CurrentThread();
		const bool hasRoom = thread != null && thread->m_Depth < kMaxDepth;
		SScope *const scope = hasRoom ? _AddScope(*thread, node) : null;
		if (scope == null)
			m_DroppedCount.fetch_add(1, std::memory_order_relaxed);
		if (hasRoom)
			thread->m_Open[thread->m_Depth++] = {&node, scope};
		else if (thread != null)
			++thread->m_DepthBeyond;
	}

	// A hook that is set or taken away while scopes are open leaves some entered for good and others unentered: the
	// innermost open one of the same site is the one that ends, and what is open inside it never does.
	void CTraceRecorder::_Leave(const SNodeDescriptor &node)
	{
		const u64 now = _Nanoseconds();
		SThread *const thread = _CurrentThread();
		if (thread == null)
			return;
		if (thread->m_DepthBeyond != 0)
		{
			--thread->m_DepthBeyond;
			return;
		}
		for (u32 depth = thread->m_Depth; depth != 0;)
		{
			const SThread::SOpenScope &open = thread->m_Open[--depth];
			if (open.m_Node != &node)
				continue;
			if (open.m_Scope != null)
				open.m_Scope->m_Length.store(now - open.m_Scope->m_Start, std::memory_order_relaxed);
			thread->m_Depth = depth;
			return;
		}
	}

	// The thread remembers the last recorder that it met; one more is found in that one's list.
	CTraceRecorder::SThread *CTraceRecorder::_CurrentThread()
	{
		struct SKnown
		{
			u64 m_RecorderId;
			SThread *m_Thread;
		};
		static thread_local SKnown s_Known = {0, null};
		if (VX_LIKELY(s_Known.m_RecorderId == m_Id))
			return s_Known.m_Thread;

		static thread_local const u64 s_ThreadId = NextId();
		SThread *thread = _FindThread(s_ThreadId);
		if (thread == null)
			thread = _AddThread(s_ThreadId);
		if (thread != null)
			s_Known = {m_Id, thread};
		return thread;
	}

	CTraceRecorder::SThread *CTraceRecorder::_FindThread(u64 threadId) const
	{
		SThread *thread = m_LastThread.load(std::memory_order_acquire);
		while (thread != null && thread->m_Id != threadId)
			thread = thread->m_Previous;
		return thread;
	}

	CTraceRecorder::SThread *CTraceRecorder::_AddThread(u64 threadId)
	{
		void *const block = _TakeBlock();
		if (block == null)
			return null;
		SThread *const thread = new (block) SThread();
		thread->m_Id = threadId;
		thread->m_Number = ++m_ThreadCount;
		thread->m_Previous = m_LastThread.load(std::memory_order_relaxed);
		while (!m_LastThread.compare_exchange_weak(
			thread->m_Previous, thread, std::memory_order_acq_rel, std::memory_order_relaxed))
		{
		}
		return thread;
	}

	CTraceRecorder::SScope *CTraceRecorder::_AddScope(SThread &thread, const SNodeDescriptor &node)
	{
		SScopeBlock *block = thread.m_LastBlock;
		if (block == null || block->m_Count.load(std::memory_order_relaxed) == SScopeBlock::kCapacity)
		{
			void *const taken = _TakeBlock();
			if (taken == null)
				return null;
			block = new (taken) SScopeBlock();
			(thread.m_LastBlock == null ? thread.m_FirstBlock : thread.m_LastBlock->m_Next)
				.store(block, std::memory_order_release);
			thread.m_LastBlock = block;
		}
		const u32 count = block->m_Count.load(std::memory_order_relaxed);
		SScope *const scope = &block->m_Scopes[count];
		scope->m_Node = &node;
		scope->m_Length.store(kStillOpen, std::memory_order_relaxed);
		scope->m_Start = _Nanoseconds();
		block->m_Count.store(count + 1, std::memory_order_release);
		return scope;
	}

	void *CTraceRecorder::_TakeBlock()
	{
		// Asked before it is raised: once all are taken, the count stays.
		if (m_TakenBlockCount.load(std::memory_order_relaxed) >= m_BlockCount)
			return null;
		const u64 block = m_TakenBlockCount.fetch_add(1, std::memory_order_relaxed);
		return block < m_BlockCount ? m_Blocks + block * kBlockSize : null;
	}

	u64 CTraceRecorder::_Nanoseconds() const
	{
		return u64(std::chrono::duration_cast<std::chrono::nanoseconds>(CClock::now() - m_Start).count());
	}

	// Writing.

	// Text for a file, handed over a few kilobytes at a time.
	class CTraceRecorder::CJson
	{
	public:
		CJson(CbWrite write, void *userData)
			: m_Write(write)
			, m_UserData(userData)
		{
		}

		void Print(const char *format, ...) VX_PRINTF_LIKE(2, 3)
		{
			char text[192]; // of numbers and words; texts of the host's go to String
			va_list arguments;
			va_start(arguments, format);
			const int length = std::vsnprintf(text, sizeof(text), format, arguments);
			va_end(arguments);
			_Add(text, u32(length));
		}

		// Microseconds with three digits of nanoseconds, whatever the locale.
		void Time(const char *key, u64 nanoseconds)
		{
			Print(",\"%s\":%" PRIu64 ".%03u", key, nanoseconds / 1000, u32(nanoseconds % 1000));
		}

		void String(const char *text)
		{
			_Add("\"", 1);
			for (const u8 *c = reinterpret_cast<const u8 *>(text); *c != 0;)
			{
				const u32 length = _CharacterLength(c);
				if (length == 0)
					Print("\\ufffd");
				else if (*c < 0x20)
					Print("\\u%04x", *c);
				else
				{
					if (*c == '"' || *c == '\\')
						_Add("\\", 1);
					_Add(reinterpret_cast<const char *>(c), length);
				}
				c += std::max(length, 1u);
			}
			_Add("\"", 1);
		}

		bool Finish()
		{
			_Flush();
			return m_Good;
		}
		bool Good() const { return m_Good; }

	private:
		// Bytes of the UTF-8 character at c, or 0 where there is none: no overlong forms, no surrogates, none beyond
		// U+10FFFF.
		static u32 _CharacterLength(const u8 *c)
		{
			const auto continues = [c](u32 index) { return (c[index] & 0xC0) == 0x80; };
			if (c[0] < 0x80)
				return 1;
			if (c[0] >= 0xC2 && c[0] <= 0xDF)
				return continues(1) ? 2 : 0;
			if (c[0] >= 0xE0 && c[0] <= 0xEF)
			{
				const bool isInRange = c[0] == 0xE0 ? c[1] >= 0xA0 : c[0] != 0xED || c[1] <= 0x9F;
				return continues(1) && isInRange && continues(2) ? 3 : 0;
			}
			if (c[0] >= 0xF0 && c[0] <= 0xF4)
			{
				const bool isInRange = c[0] == 0xF0 ? c[1] >= 0x90 : c[0] != 0xF4 || c[1] <= 0x8F;
				return continues(1) && isInRange && continues(2) && continues(3) ? 4 : 0;
			}
			return 0;
		}

		void _Add(const char *text, u32 length)
		{
			if (m_Length + length > sizeof(m_Text))
				_Flush();
			std::memcpy(m_Text + m_Length, text, length);
			m_Length += length;
		}

		void _Flush()
		{
			if (m_Good && m_Length != 0)
				m_Good = m_Write(m_Text, m_Length, m_UserData);
			m_Length = 0;
		}

		const CbWrite m_Write;
		void *const m_UserData;
		bool m_Good = true;
		u32 m_Length = 0;
		char m_Text[4096] = {};
	};

	bool CTraceRecorder::WriteChromeTrace(CbWrite write, void *userData) const
	{
		CJson json(write, userData);
		json.Print("{\"displayTimeUnit\":\"ns\",\"otherData\":{\"droppedScopes\":%" PRIu64 "},\n\"traceEvents\":[",
			DroppedCount());
		const SThread *const last = m_LastThread.load(std::memory_order_acquire);
		for (const SThread *thread = last; thread != null && json.Good(); thread = thread->m_Previous)
		{
			json.Print(thread == last ? "\n" : ",\n");
			_WriteThread(json, *thread);
		}
		json.Print("\n]}\n");
		return json.Finish();
	}

	void CTraceRecorder::_WriteThread(CJson &json, const SThread &thread)
	{
		json.Print("{\"ph\":\"M\",\"pid\":1,\"tid\":%u,\"name\":\"thread_name\",\"args\":{\"name\":", thread.m_Number);
		if (const char *const name = thread.m_Name.load(std::memory_order_acquire))
			json.String(name);
		else
			json.Print("\"thread %u\"", thread.m_Number);
		json.Print("}}");

		const SScopeBlock *block = thread.m_FirstBlock.load(std::memory_order_acquire);
		for (; block != null && json.Good(); block = block->m_Next.load(std::memory_order_acquire))
		{
			const u32 count = block->m_Count.load(std::memory_order_acquire);
			for (const SScope *scope = block->m_Scopes; scope != block->m_Scopes + count; ++scope)
			{
				const u64 length = scope->m_Length.load(std::memory_order_relaxed);
				const char *const phase = length == kStillOpen ? "B" : "X";
				json.Print(",\n{\"ph\":\"%s\",\"pid\":1,\"tid\":%u", phase, thread.m_Number);
				json.Time("ts", scope->m_Start);
				if (length != kStillOpen)
					json.Time("dur", length);
				json.Print(",\"name\":");
				json.String(scope->m_Node->m_Name);
				json.Print(",\"args\":{\"file\":");
				json.String(scope->m_Node->m_FileAndFunction);
				json.Print("}}");
			}
		}
	}
} // namespace Profiler
} // namespace Vexmoor
