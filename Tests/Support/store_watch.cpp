// Pages without access fault at every load and store, and the fault says which of the two it was. Its handler opens the
// pages for one instruction, by the processor's single-step flag; the trap behind that instruction compares the bytes
// with what they were and closes the pages again.
//
// What lies in the pages is the complement of what is expected, and is put back after every store. So a byte shows up
// each time it is written, a second time as well, and a sum of old and new contents comes out wrong.

#include "store_watch.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
	#define TEST_SANITIZER 1
#elif defined(__has_feature)
	#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
		#define TEST_SANITIZER 1
	#endif
#endif

#if defined(__linux__) && defined(__x86_64__) && !defined(TEST_SANITIZER)

	#include <algorithm>
	#include <csignal>
	#include <cstdio>
	#include <cstdlib>
	#include <cstring>
	#include <sys/mman.h>
	#include <ucontext.h>
	#include <unistd.h>

namespace Support
{
using std::uint8_t;

namespace
{
	constexpr uint8_t kSurroundingByte = 0xA5;

	// What one instruction did. Bytes are numbered from the block's first one on; those before it are negative.
	struct SAccess
	{
		bool m_Loads;
		bool m_Stores;
		bool m_Streams;         // past the caches
		std::ptrdiff_t m_First; // the byte at which it faulted; with stores, the first one that changed
		std::ptrdiff_t m_Stop;  // one behind the last that changed
		bool m_HasGaps;         // bytes in between did not change
	};

	// The opcode of an instruction, and the table that it is of: 0 has opcodes of one byte, 1 those behind 0F, 2 those
	// behind 0F 38, and 3 those behind 0F 3A.
	struct SOpcode
	{
		int m_Map;
		uint8_t m_Byte;

		bool IsOneOf(std::initializer_list<uint8_t> opcodes) const
		{
			return std::find(opcodes.begin(), opcodes.end(), m_Byte) != opcodes.end();
		}
	};

	SOpcode OpcodeOf(const uint8_t *code)
	{
		constexpr uint8_t kPrefixes[] = {0x66, 0x67, 0xF2, 0xF3, 0x26, 0x2E, 0x36, 0x3E, 0x64, 0x65};
		while (std::find(std::begin(kPrefixes), std::end(kPrefixes), *code) != std::end(kPrefixes))
			++code;
		if ((*code & 0xF0) == 0x40) // REX
			++code;

		switch (*code)
		{
		case 0xC5: // VEX, two bytes
			return {1, code[2]};
		case 0xC4: // VEX, three bytes
			return {code[1] & 0x1F, code[3]};
		case 0x62: // EVEX
			return {code[1] & 0x07, code[4]};
		case 0x0F:
			if (code[1] == 0x38 || code[1] == 0x3A)
				return {code[1] == 0x38 ? 2 : 3, code[2]};
			return {1, code[1]};
		default:
			return {0, *code};
		}
	}

	// Whether an instruction that faulted as a store does no more than that: mov and its relatives, of general and of
	// vector registers, and the string instructions. Whatever else there is counts as reading what it writes.
	bool IsPlainStore(const SOpcode &opcode)
	{
		switch (opcode.m_Map)
		{
		case 0:
			return opcode.IsOneOf({0x88, 0x89, 0xA4, 0xA5, 0xAA, 0xAB, 0xC6, 0xC7}); // mov, movs, stos
		case 1:                                                                      // of vectors, and movnti
			return opcode.IsOneOf({0x11, 0x13, 0x17, 0x29, 0x2B, 0x7E, 0x7F, 0xC3, 0xD6, 0xE7});
		case 2: // lanes made narrower, by three rules and in six widths each; movdiri
			return (opcode.m_Byte >= 0x10 && opcode.m_Byte < 0x40 && (opcode.m_Byte & 0x0F) <= 5) ||
			       opcode.m_Byte == 0xF9;
		case 3:
			return opcode.IsOneOf({0x14, 0x15, 0x16, 0x17, 0x19, 0x1B, 0x39, 0x3B}); // extractions
		default:
			return false;
		}
	}

	// movntps and movntpd, movnti, movntdq.
	bool IsStreamingStore(const SOpcode &opcode)
	{
		return opcode.m_Map == 1 && opcode.IsOneOf({0x2B, 0xC3, 0xE7});
	}

	void Check(bool succeeded)
	{
		if (!succeeded)
		{
			std::perror("store watch");
			std::abort();
		}
	}

	class CStoreWatch
	{
	public:
		CStoreWatch(const std::vector<std::optional<uint8_t>> &expected, std::size_t address)
			: m_Before(m_Pages.Size(expected.size() + address), kSurroundingByte)
			, m_Written(expected.size())
			, m_Block(PageSize() + address)
		{
			for (std::size_t i = 0; i < expected.size(); ++i)
				m_Before[m_Block + i] = expected[i] ? uint8_t(~*expected[i]) : kSurroundingByte;
			// Handlers do not allocate: as many as a call can make that is in order, and some to say what is not.
			m_Accesses.reserve(expected.size() + 100);

			m_Pages.Map(m_Before.size());
			std::memcpy(m_Pages.Data(), m_Before.data(), m_Before.size());
		}

		void Run(const std::function<void(void *)> &call)
		{
			struct sigaction action = {};
			action.sa_flags = SA_SIGINFO;
			action.sa_sigaction = &_OnFault;
			Check(sigaction(SIGSEGV, &action, &m_OldFault) == 0);
			action.sa_sigaction = &_OnStep;
			Check(sigaction(SIGTRAP, &action, &m_OldStep) == 0);
			s_Running = this;
			_Protect(PROT_NONE);
			call(m_Pages.Data() + m_Block);
			_Protect(PROT_READ | PROT_WRITE);
			s_Running = nullptr;
			Check(sigaction(SIGSEGV, &m_OldFault, nullptr) == 0);
			Check(sigaction(SIGTRAP, &m_OldStep, nullptr) == 0);
		}

		const std::vector<SAccess> &Accesses() const { return m_Accesses; }
		const std::vector<uint8_t> &Written() const { return m_Written; }

	private:
		static std::size_t PageSize() { return std::size_t(sysconf(_SC_PAGESIZE)); }

		class CPages
		{
		public:
			CPages() = default;
			~CPages() { munmap(m_Data, m_Size); }
			CPages(const CPages &) = delete;
			CPages &operator=(const CPages &) = delete;

			// Whole pages around that many bytes, and one more at either end.
			std::size_t Size(std::size_t byteCount) const { return (byteCount / PageSize() + 3) * PageSize(); }
			void Map(std::size_t size)
			{
				void *const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
				Check(pages != MAP_FAILED);
				m_Data = static_cast<uint8_t *>(pages);
				m_Size = size;
			}
			uint8_t *Data() const { return m_Data; }

		private:
			uint8_t *m_Data = nullptr;
			std::size_t m_Size = 0;
		};

		static void _OnFault(int signal, siginfo_t *info, void *context)
		{
			CStoreWatch &watch = *s_Running;
			greg_t *const registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
			const std::uintptr_t byte = reinterpret_cast<std::uintptr_t>(info->si_addr) -
			                            reinterpret_cast<std::uintptr_t>(watch.m_Pages.Data());
			if (byte >= watch.m_Before.size() || watch.m_IsStepping)
			{
				sigaction(signal, &watch.m_OldFault, nullptr); // not ours: happens again, to whom it may concern
				return;
			}

			constexpr greg_t kFaultOfStore = 2;
			const bool stores = (registers[REG_ERR] & kFaultOfStore) != 0;
			const SOpcode opcode = OpcodeOf(reinterpret_cast<const uint8_t *>(registers[REG_RIP]));
			const bool loads = !stores || !IsPlainStore(opcode);
			watch.m_Step = {
				loads, stores, stores && IsStreamingStore(opcode), std::ptrdiff_t(byte - watch.m_Block), 0, false};
			watch.m_IsStepping = true;
			watch._Protect(PROT_READ | PROT_WRITE);
			registers[REG_EFL] |= kSingleStep;
		}

		static void _OnStep(int signal, siginfo_t *, void *context)
		{
			CStoreWatch &watch = *s_Running;
			if (!watch.m_IsStepping)
			{
				sigaction(signal, &watch.m_OldStep, nullptr);
				raise(signal);
				return;
			}
			static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_EFL] &= ~kSingleStep;
			watch._TakeChangedBytes();
			watch.m_IsStepping = false;
			watch._Protect(PROT_NONE);
		}

		void _TakeChangedBytes()
		{
			uint8_t *const now = m_Pages.Data();
			const uint8_t *const before = m_Before.data();
			const std::size_t size = m_Before.size();
			constexpr std::size_t kPiece = 64;
			std::size_t first = size, stop = 0, changedCount = 0;
			for (std::size_t piece = 0; piece < size; piece += kPiece)
			{
				if (std::memcmp(now + piece, before + piece, kPiece) == 0)
					continue;
				for (std::size_t i = piece; i < piece + kPiece; ++i)
				{
					if (now[i] == before[i])
						continue;
					first = std::min(first, i);
					stop = i + 1;
					++changedCount;
					if (i >= m_Block && i < m_Block + m_Written.size())
						m_Written[i - m_Block] = now[i];
					now[i] = before[i];
				}
			}
			if (changedCount != 0)
			{
				m_Step.m_Stores = true;
				m_Step.m_First = std::ptrdiff_t(first - m_Block);
				m_Step.m_Stop = std::ptrdiff_t(stop - m_Block);
				m_Step.m_HasGaps = changedCount != stop - first;
			}
			if (m_Accesses.size() < m_Accesses.capacity())
				m_Accesses.push_back(m_Step);
		}

		void _Protect(int protection) { Check(mprotect(m_Pages.Data(), m_Before.size(), protection) == 0); }

		static constexpr greg_t kSingleStep = 0x100;
		static CStoreWatch *s_Running;

		CPages m_Pages;
		std::vector<uint8_t> m_Before;
		std::vector<uint8_t> m_Written;
		const std::size_t m_Block; // where it starts in the pages
		std::vector<SAccess> m_Accesses;
		SAccess m_Step = {};
		volatile bool m_IsStepping = false;
		struct sigaction m_OldFault = {};
		struct sigaction m_OldStep = {};
	};

	CStoreWatch *CStoreWatch::s_Running = nullptr;
} // namespace

const char *WhyStoresGoUnseen()
{
	static const bool s_Seen = []
	{
		CStoreWatch watch(std::vector<std::optional<uint8_t>>(4, uint8_t(1)), 0);
		watch.Run(
			[](void *output)
			{
				volatile uint8_t *const bytes = static_cast<uint8_t *>(output);
				bytes[2] = 1;
				static_cast<void>(bytes[3]);
			});
		const std::vector<SAccess> &accesses = watch.Accesses();
		return accesses.size() == 2 && accesses[0].m_Stores && !accesses[0].m_Loads && accesses[0].m_First == 2 &&
		       accesses[0].m_Stop == 3 && !accesses[1].m_Stores && accesses[1].m_Loads && accesses[1].m_First == 3;
	}();
	return s_Seen ? nullptr : "What runs this program does not step through it instruction by instruction.";
}

testing::AssertionResult WritesFrontToBack(const std::vector<std::optional<uint8_t>> &expected,
	std::size_t address,
	const std::function<void(void *output)> &call,
	std::size_t *streamedByteCount)
{
	CStoreWatch watch(expected, address);
	watch.Run(call);
	if (streamedByteCount != nullptr)
	{
		*streamedByteCount = 0;
		for (const SAccess &access : watch.Accesses())
			*streamedByteCount += access.m_Streams ? std::size_t(access.m_Stop - access.m_First) : 0;
	}

	const std::ptrdiff_t size = std::ptrdiff_t(expected.size());
	std::ptrdiff_t next = 0;
	const auto passUnwritten = [&expected, &next, size]
	{
		while (next < size && !expected[std::size_t(next)])
			++next;
	};
	passUnwritten();
	for (std::size_t i = 0; i < watch.Accesses().size(); ++i)
	{
		const SAccess &access = watch.Accesses()[i];
		const auto failure = [i] { return testing::AssertionFailure() << "Access " << i; };
		if (access.m_Loads)
			return failure() << " reads at byte " << access.m_First << " of " << size << ".";
		if (access.m_First < 0 || access.m_Stop > size)
			return failure() << " writes outside: bytes " << access.m_First << " to " << access.m_Stop - 1 << " of "
			                 << size << ".";
		if (access.m_First != next)
			return failure() << " writes at byte " << access.m_First << " of " << size << " when byte " << next
			                 << " is next.";
		if (access.m_HasGaps || access.m_Stop <= access.m_First)
			return failure() << " writes wrong values at byte " << access.m_First << " of " << size << ".";
		for (; next < access.m_Stop; ++next)
		{
			const std::optional<uint8_t> &value = expected[std::size_t(next)];
			if (!value)
				return failure() << " writes byte " << next << " of " << size << ", which is to be left alone.";
			if (*value != watch.Written()[std::size_t(next)])
				return failure() << " writes a wrong value to byte " << next << " of " << size << ".";
		}
		passUnwritten();
	}
	if (next < size)
		return testing::AssertionFailure() << "Byte " << next << " of " << size << " is never written.";
	return testing::AssertionSuccess();
}
} // namespace Support

#else

namespace Support
{
const char *WhyStoresGoUnseen()
{
	return "Single steps are for Linux on x86-64, without sanitizers.";
}

testing::AssertionResult WritesFrontToBack(const std::vector<std::optional<std::uint8_t>> &,
	std::size_t,
	const std::function<void(void *output)> &,
	std::size_t *)
{
	return testing::AssertionFailure() << WhyStoresGoUnseen();
}
} // namespace Support

#endif
