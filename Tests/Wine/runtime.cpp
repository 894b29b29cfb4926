// What a program or a DLL for Microsoft's ABI calls, but neither wine's import libraries nor the headers of LLVM's
// standard library define: the entry point, thread-local storage, the heap, and a few functions of a compiled standard
// library. Tools/matrix.sh says which headers and import libraries these are.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <mutex>
#include <new>
#include <string>

int main(int argc, char **argv);

extern "C"
{
	int _fltused = 0; // objects with floating-point arithmetic ask for it

	// The initial contents of a thread's storage lie between these two. The loader copies them as _tls_used says: its
	// fields are those of IMAGE_TLS_DIRECTORY64.
#pragma section(".tls", read, write)
#pragma section(".tls$ZZZ", read, write)
	__declspec(allocate(".tls")) char _tls_start = 0;
	__declspec(allocate(".tls$ZZZ")) char _tls_end = 0;
	std::uint32_t _tls_index = 0;
	struct STlsDirectory
	{
		const void *m_Begin, *m_End, *m_Index, *m_Callbacks;
		std::uint32_t m_ZeroFill, m_Characteristics;
	};
	extern const STlsDirectory _tls_used;
	const STlsDirectory _tls_used = {&_tls_start, &_tls_end, &_tls_index, nullptr, 0, 0};

	// The initialisers of static objects lie between these two.
	typedef void (*CbInitialise)();
#pragma section(".CRT$XCA", read)
#pragma section(".CRT$XCZ", read)
	__declspec(allocate(".CRT$XCA")) CbInitialise beforeInitialisers = nullptr;
	__declspec(allocate(".CRT$XCZ")) CbInitialise behindInitialisers = nullptr;

	__declspec(dllimport) void _initterm(CbInitialise *begin, CbInitialise *end);
	__declspec(dllimport) int _configure_narrow_argv(int mode);
	__declspec(dllimport) int *__p___argc();
	__declspec(dllimport) char ***__p___argv();
	__declspec(dllimport) void AcquireSRWLockExclusive(void *lock);
	__declspec(dllimport) void ReleaseSRWLockExclusive(void *lock);
	__declspec(dllimport) std::uint64_t GetTickCount64();

#if defined(_WINDLL)
	// The loader calls it as the program starts, and again as it ends.
	int _DllMainCRTStartup(void *, unsigned reason, void *)
	{
		constexpr unsigned kProcessAttach = 1;
		if (reason == kProcessAttach)
			_initterm(&beforeInitialisers, &behindInitialisers);
		return 1;
	}
#else
	#pragma clang diagnostic ignored "-Wmain" // it is called
	[[noreturn]] void mainCRTStartup()
	{
		_initterm(&beforeInitialisers, &behindInitialisers);
		_configure_narrow_argv(1);
		std::exit(main(*__p___argc(), *__p___argv()));
	}
#endif
}

void *operator new(std::size_t size)
{
	if (void *const block = std::malloc(size))
		return block;
	std::abort();
}
void *operator new[](std::size_t size)
{
	return operator new(size);
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
	return std::malloc(size);
}
void *operator new(std::size_t size, std::align_val_t alignment)
{
	if (void *const block = _aligned_malloc(size, std::size_t(alignment)))
		return block;
	std::abort();
}
void operator delete(void *block) noexcept
{
	std::free(block);
}
void operator delete[](void *block) noexcept
{
	std::free(block);
}
void operator delete(void *block, std::size_t) noexcept
{
	std::free(block);
}
void operator delete(void *block, std::size_t, std::align_val_t) noexcept
{
	_aligned_free(block);
}

namespace std
{
const nothrow_t nothrow{};

inline namespace __1
{
	template class basic_string<char>;

	string to_string(unsigned long long value)
	{
		char digits[24];
		return string(digits, size_t(snprintf(digits, sizeof(digits), "%llu", value)));
	}

	void mutex::lock()
	{
		AcquireSRWLockExclusive(native_handle());
	}
	void mutex::unlock() noexcept
	{
		ReleaseSRWLockExclusive(native_handle());
	}

	chrono::steady_clock::time_point chrono::steady_clock::now() noexcept
	{
		return time_point(chrono::milliseconds(GetTickCount64()));
	}

	void __libcpp_verbose_abort(const char *, ...)
	{
		abort();
	}
} // namespace __1
} // namespace std
