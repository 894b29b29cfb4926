#pragma once

// What differs between compilers and processors: which of them this is, hints to the optimiser, the enclosing
// function's signature, a trap that a debugger can continue from, what a shared library exports, and the switch between
// diagnosed and bare builds. No other file asks for a compiler or a processor by the compiler's own names, or uses
// words that only some compilers know: each such word has a name here, and stands behind it for each compiler.
//
// There are two families. The GNU family is g++ and clang, whichever operating system clang compiles for and whichever
// driver runs it; the other one is Microsoft's own compiler.

/// 1 for Microsoft's own compiler, 0 for the GNU family. If it is set to 1 on the command line, clang for Windows
/// compiles the lines that are written for Microsoft's compiler, which is how they are tested without that compiler.
#ifndef VX_COMPILER_MSVC
	#if defined(_MSC_VER) && !defined(__clang__)
		#define VX_COMPILER_MSVC 1
	#else
		#define VX_COMPILER_MSVC 0
	#endif
#endif

#if VX_COMPILER_MSVC
	#include <intrin.h>
#elif !defined(__GNUC__) && !defined(__clang__)
	#error "Vexmoor builds with g++, clang, clang-cl and Microsoft's compiler"
#endif

///@{
/// The processor that this is compiled for: 1 for one of them, or for none, and 0 for the others.
#if defined(__aarch64__) || defined(_M_ARM64) || defined(_M_ARM64EC)
	#define VX_ARM64 1 ///< 64-bit ARM.
#else
	#define VX_ARM64 0
#endif
#if defined(__arm__) && defined(__ARM_FP)
	#define VX_ARM32 1 ///< 32-bit ARM with a floating-point unit.
#else
	#define VX_ARM32 0
#endif
#if defined(__wasm__)
	#define VX_WASM 1 ///< WebAssembly.
#else
	#define VX_WASM 0
#endif
#if defined(__riscv) && defined(__riscv_flen)
	#define VX_RISCV 1 ///< RISC-V with a floating-point unit.
#else
	#define VX_RISCV 0
#endif
#if ((defined(__x86_64__) || defined(__i386__)) && defined(__SSE2__)) || (defined(_M_X64) && !VX_ARM64) || \
	(defined(_M_IX86_FP) && _M_IX86_FP >= 2)
	#define VX_X86 1 ///< x86 and x64, with SSE2.
#else
	#define VX_X86 0
#endif
///@}

///@{
/// What the compiler may use of such a processor: 1 or 0.
#if VX_ARM32 && defined(__ARM_NEON)
	#define VX_ARM32_NEON 1 ///< 32-bit ARM's NEON, which flushes denormals to zero in every mode.
#else
	#define VX_ARM32_NEON 0
#endif
#if VX_WASM && defined(__wasm_simd128__)
	#define VX_WASM_SIMD 1 ///< WebAssembly's 128-bit SIMD.
#else
	#define VX_WASM_SIMD 0
#endif
///@}

/// 1 where the lowest byte of a number comes first in memory.
#if VX_COMPILER_MSVC
	#define VX_LITTLE_ENDIAN 1
#elif __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
	#define VX_LITTLE_ENDIAN 1
#else
	#define VX_LITTLE_ENDIAN 0
#endif

/// 1 where the arithmetic of keys is kept exact by GNU's inline assembler. If it is set to 0 on the command line, it is
/// kept exact the way that Microsoft's compiler takes, which is how that is tested.
#ifndef VX_HAS_ASM
	#define VX_HAS_ASM (!VX_COMPILER_MSVC)
#endif

/// Inline at every optimisation level.
#if VX_COMPILER_MSVC
	#define VX_INLINE __forceinline
#else
	#define VX_INLINE inline __attribute__((always_inline))
#endif

/// Never inline: keeps the code and the registers of a rare path out of its caller.
#if VX_COMPILER_MSVC
	#define VX_NOINLINE __declspec(noinline)
#else
	#define VX_NOINLINE __attribute__((noinline))
#endif

///@{
/// Where a function's code lies. Hot functions lie side by side, apart from all others. A small sort whose code has
/// left the caches then touches few pages, and finds lines that the processor has fetched ahead. A cold function is
/// never inlined. It lies apart, and so do the parts of other functions that end in a call of it. Microsoft's compiler
/// knows no such words, and leaves the order to its linker.
#if VX_COMPILER_MSVC
	#define VX_HOT_CODE
	#define VX_COLD_CODE __declspec(noinline)
#else
	#define VX_HOT_CODE __attribute__((hot))
	#define VX_COLD_CODE __attribute__((cold, noinline))
#endif
///@}

///@{
/// The condition's value. The name tells the compiler which value is usual, or, in front of a switch, which case.
/// Compilers put the code of the usual way right behind the condition, so that it is reached without a jump.
#if VX_COMPILER_MSVC
	#define VX_LIKELY(...) (!!(__VA_ARGS__))
	#define VX_UNLIKELY(...) (!!(__VA_ARGS__))
	#define VX_USUALLY(_value, _usual) (_value)
#else
	#define VX_LIKELY(...) __builtin_expect(!!(__VA_ARGS__), 1)
	#define VX_UNLIKELY(...) __builtin_expect(!!(__VA_ARGS__), 0)
	#define VX_USUALLY(_value, _usual) __builtin_expect(long(_value), long(_usual))
#endif
///@}

///@{
/// These two stand around functions that are compiled for wider registers than the rest. A caller asks kr_cpu.h first
/// whether the processor has them. Compilers inline a function only into one that is compiled for as much, so every
/// function with wide registers that is to be inlined there stands between the same two. Other headers are included
/// before, because a function of theirs that is not inlined may be shared by the whole program. Microsoft's compiler
/// accepts every instruction everywhere.
#if VX_COMPILER_MSVC
	#define VX_BEGIN_TARGET(_features)
	#define VX_END_TARGET
#elif defined(__clang__)
	#define VX_BEGIN_TARGET(_features) \
		_Pragma(VX_STRINGIZE(clang attribute push(__attribute__((target(_features))), apply_to = function)))
	#define VX_END_TARGET _Pragma("clang attribute pop")
#else
	#define VX_BEGIN_TARGET(_features) _Pragma("GCC push_options") _Pragma(VX_STRINGIZE(GCC target(_features)))
	#define VX_END_TARGET _Pragma("GCC pop_options")
#endif
#define VX_BEGIN_TARGET_AVX2 VX_BEGIN_TARGET("avx2,popcnt")
#define VX_BEGIN_TARGET_AVX512 VX_BEGIN_TARGET("popcnt,avx512f,avx512bw,avx512dq,avx512vl")
///@}

#if !VX_COMPILER_MSVC
	/// Elements of two registers of lanes, chosen by constant numbers, which count on from the first into the second.
	#define VX_SHUFFLE(_a, _b, ...) __builtin_shufflevector(_a, _b, __VA_ARGS__)
#endif

/// Asks the processor for the cache line at an address, which is written to soon. Any address will do, one past a
/// buffer too.
#if VX_COMPILER_MSVC && VX_X86
	#define VX_PREFETCH_TO_WRITE(_address) \
		_mm_prefetch(static_cast<const char *>(static_cast<const void *>(_address)), _MM_HINT_T0)
#elif VX_COMPILER_MSVC
	#define VX_PREFETCH_TO_WRITE(_address) __prefetch(_address)
#else
	#define VX_PREFETCH_TO_WRITE(_address) __builtin_prefetch(_address, 1)
#endif

/// Asks for the cache line at the address of a readable byte, which is written to soon. WebAssembly has no instruction
/// that asks, so the byte is loaded there.
#if VX_WASM
	#define VX_FETCH_TO_WRITE(_address) \
		static_cast<void>(*static_cast<const volatile unsigned char *>(static_cast<const void *>(_address)))
#else
	#define VX_FETCH_TO_WRITE(_address) VX_PREFETCH_TO_WRITE(_address)
#endif

/// Asks the processor for the cache line at an address, which is read soon. Any address will do.
#if VX_COMPILER_MSVC && VX_X86
	#define VX_PREFETCH_TO_READ(_address) \
		_mm_prefetch(static_cast<const char *>(static_cast<const void *>(_address)), _MM_HINT_T0)
#elif VX_COMPILER_MSVC
	#define VX_PREFETCH_TO_READ(_address) __prefetch(_address)
#else
	#define VX_PREFETCH_TO_READ(_address) __builtin_prefetch(_address)
#endif

/// No load behind this begins before all stores ahead know their addresses, on processors that have a way to say so.
/// Processors guess whether a load reads what a store ahead is about to write, and start over if the guess was wrong.
/// It pays between a loop that stores to computed addresses and one that reads the few records that were stored.
#if VX_X86 && VX_COMPILER_MSVC
	#define VX_FINISH_STORES_FIRST() _mm_lfence()
#elif VX_X86
	#define VX_FINISH_STORES_FIRST() __asm__ volatile("lfence" ::: "memory")
#else
	#define VX_FINISH_STORES_FIRST() static_cast<void>(0)
#endif

/// The full signature of the enclosing function, as characters that live as long as the program.
#if VX_COMPILER_MSVC
	#define VX_FUNCTION __FUNCSIG__
#else
	#define VX_FUNCTION __PRETTY_FUNCTION__
#endif

/// A variable that linkers keep although nothing refers to it. Microsoft's compiler removes it all the same when it
/// optimises.
#if VX_COMPILER_MSVC
	#define VX_KEPT [[maybe_unused]]
#elif defined(_WIN32)
	#define VX_KEPT __attribute__((used))
#else
	#define VX_KEPT __attribute__((used, retain))
#endif

/// Checks a printf-style call: the 1-based positions of the format and of the first argument after it.
#if VX_COMPILER_MSVC
	#define VX_PRINTF_LIKE(_format, _firstArgument)
#else
	#define VX_PRINTF_LIKE(_format, _firstArgument) __attribute__((format(printf, _format, _firstArgument)))
#endif

/// Makes a typedef whose objects may lie at any address, and in the same bytes as objects of other types. To
/// Microsoft's compiler every integer type is one.
#if VX_COMPILER_MSVC
	#define VX_ANYWHERE
#else
	#define VX_ANYWHERE __attribute__((may_alias, aligned(1)))
#endif

/// The letter of the constraint that stands for a register with four lanes in inline assembler. On processors without
/// such registers, lanes are in memory.
#if VX_X86
	#define VX_LANES_REGISTER "x"
#elif VX_ARM64
	#define VX_LANES_REGISTER "w"
#elif VX_WASM_SIMD
	#define VX_LANES_REGISTER "r"
#else
	#define VX_LANES_REGISTER "m"
#endif

#if VX_HAS_ASM
	/// Makes compilers forget what they know about the value of lanes. It is no instruction.
	#define VX_OPAQUE(_lanes) __asm__("" : "+" VX_LANES_REGISTER(_lanes))
	/// Makes compilers forget what they know about the value of an integer.
	#define VX_OPAQUE_WORD(_word) __asm__("" : "+r"(_word))
#endif

#if VX_HAS_ASM && VX_X86
///@{
/// Adds a register of floats to another, in place, as they stand: compilers fuse an add intrinsic with the
/// multiplication before it where they may use FMA, and swap its operands where it suits them. The long prefix is
/// spelled out because assemblers swap the operands where that makes a short prefix do, as if no NaN told them apart;
/// clang's does so from 19 on. A 512-bit addition has one prefix only.
	#if defined(__AVX__)
		#define VX_ADD_FLOATS_SSE2(_a, _b) VX_ADD_FLOATS_AVX(_a, _b)
	#else
		#define VX_ADD_FLOATS_SSE2(_a, _b) __asm__("addps %1, %0" : "+x"(_a) : "x"(_b))
	#endif
	#define VX_ADD_FLOATS_AVX(_a, _b) __asm__("%{vex3%} vaddps %2, %1, %0" : "=x"(_a) : "x"(_a), "x"(_b))
	#define VX_ADD_FLOATS_AVX512(_a, _b) __asm__("vaddps %2, %1, %0" : "=v"(_a) : "v"(_a), "v"(_b))
///@}
#endif

/// A statement that stores a value of a type at any address, once and whole. Compilers keep it in its place among
/// volatile accesses and other such stores.
#if VX_COMPILER_MSVC
	#define VX_STORE_IN_PLACE(_Type, _p, _value)                              \
		do                                                                    \
		{                                                                     \
			const _Type vxStored = _value;                                    \
			_ReadWriteBarrier();                                              \
			std::memcpy(const_cast<void *>(_p), &vxStored, sizeof(vxStored)); \
			_ReadWriteBarrier();                                              \
		} while (false)
#else
	#define VX_STORE_IN_PLACE(_Type, _p, _value)           \
		do                                                 \
		{                                                  \
			typedef _Type VX_ANYWHERE CStored;             \
			*static_cast<volatile CStored *>(_p) = _value; \
		} while (false)
#endif

///@{
/// Two statements around a store of lanes: the first, with the lanes, right before it; the second, with the object that
/// is stored to, right behind it. Compilers then keep the store in its place among volatile accesses and other such
/// stores. To them the first statement makes the lanes, so the store cannot come earlier, and the second reads the
/// object, so the store cannot come later. Neither is an instruction, though g++ may compute the object's address once
/// more. Other loads and arithmetic still move. With Microsoft's compiler, no access to memory moves across either.
#if VX_COMPILER_MSVC
	#define VX_BEFORE_STORE_IN_PLACE(_lanes) _ReadWriteBarrier()
	#define VX_BEHIND_STORE_IN_PLACE(_object) _ReadWriteBarrier()
#else
	#define VX_BEFORE_STORE_IN_PLACE(_lanes) __asm__ volatile("" : "+" VX_LANES_REGISTER(_lanes))
	#define VX_BEHIND_STORE_IN_PLACE(_object) __asm__ volatile("" : : "m"(_object))
#endif
///@}

/// No access to memory moves across this, so that bytes written as one type may be read as another type of the same
/// layout. It is no instruction.
#if VX_COMPILER_MSVC
	#define VX_MEMORY_CHANGES_TYPES() _ReadWriteBarrier()
#else
	#define VX_MEMORY_CHANGES_TYPES() __asm__ volatile("" : : : "memory")
#endif

///@{
/// Reads and writes a bool that threads share, atomically, without an order among other accesses.
#if VX_COMPILER_MSVC
	#define VX_LOAD_FLAG(_flag) (*static_cast<const volatile bool *>(&(_flag)))
	#define VX_STORE_FLAG(_flag, _value) (*static_cast<volatile bool *>(&(_flag)) = (_value))
#else
	#define VX_LOAD_FLAG(_flag) __atomic_load_n(&(_flag), __ATOMIC_RELAXED)
	#define VX_STORE_FLAG(_flag, _value) __atomic_store_n(&(_flag), _value, __ATOMIC_RELAXED)
#endif
///@}

/// Marks a function whose unsigned arithmetic is meant to wrap: clang's -fsanitize=integer, which takes every wrap for
/// a fault, does not check it.
#if !VX_COMPILER_MSVC && defined(__clang__)
	#define VX_WRAPS __attribute__((no_sanitize("unsigned-integer-overflow", "unsigned-shift-base")))
#else
	#define VX_WRAPS
#endif

/// Stands at the head of a file whose floating-point arithmetic is exact to the bit, behind the headers that it
/// includes. It makes Microsoft's compiler round every operation by itself, whatever the flags. In the GNU family it
/// is nothing: flags affect intrinsics there too, so sums of keys are instructions of inline assembler.
#if VX_COMPILER_MSVC
	#define VX_PRECISE_FLOATS __pragma(float_control(precise, on)) __pragma(fp_contract(off))
#else
	#define VX_PRECISE_FLOATS
#endif

///@{
/// Reads the processor's floating-point mode into a u32, or sets it from a u32: MXCSR on x86, FPCR on 64-bit ARM, FPSCR
/// on 32-bit ARM, the rounding mode alone on RISC-V. No access to memory moves across a change. Not defined if there is
/// no mode, as on WebAssembly, or if it is not known.
#if VX_COMPILER_MSVC && VX_X86
	#define VX_GET_FLOAT_MODE(_mode) (_ReadWriteBarrier(), (_mode) = _mm_getcsr())
	#define VX_SET_FLOAT_MODE(_mode) (_ReadWriteBarrier(), _mm_setcsr(_mode), _ReadWriteBarrier())
#elif VX_COMPILER_MSVC && VX_ARM64
	#define VX_FPCR 0x5A20 ///< Its number: op0 - 2 = 1, op1 = 3, CRn = 4, CRm = 4, op2 = 0, in 2 + 3 + 4 + 4 + 3 bits.
	#define VX_GET_FLOAT_MODE(_mode) (_ReadWriteBarrier(), (_mode) = unsigned(_ReadStatusReg(VX_FPCR)))
	#define VX_SET_FLOAT_MODE(_mode) (_ReadWriteBarrier(), _WriteStatusReg(VX_FPCR, _mode), _ReadWriteBarrier())
#elif VX_X86
	#define VX_GET_FLOAT_MODE(_mode) __asm__ volatile("stmxcsr %0" : "=m"(_mode))
	#define VX_SET_FLOAT_MODE(_mode) __asm__ volatile("ldmxcsr %0" : : "m"(_mode) : "memory")
#elif VX_ARM64
	#define VX_GET_FLOAT_MODE(_mode) __asm__ volatile("mrs %x0, fpcr" : "=r"(_mode))
	#define VX_SET_FLOAT_MODE(_mode) __asm__ volatile("msr fpcr, %x0" : : "r"(0ull | (_mode)) : "memory")
#elif VX_ARM32
	#define VX_GET_FLOAT_MODE(_mode) __asm__ volatile("vmrs %0, fpscr" : "=r"(_mode))
	#define VX_SET_FLOAT_MODE(_mode) __asm__ volatile("vmsr fpscr, %0" : : "r"(_mode) : "memory")
#elif VX_RISCV
	#define VX_GET_FLOAT_MODE(_mode) __asm__ volatile("frrm %0" : "=r"(_mode))
	#define VX_SET_FLOAT_MODE(_mode) __asm__ volatile("fsrm %0" : : "r"(_mode) : "memory")
#endif
///@}

///@{
/// What an x86 processor says of itself. VX_CPUID fills an array of four int with EAX, EBX, ECX and EDX of a leaf and a
/// subleaf. VX_XCR0 sets an int to the low half of XCR0, which says which registers the operating system saves. CPUID
/// says whether a program may read it.
#if VX_X86 && VX_COMPILER_MSVC
	#define VX_CPUID(_registers, _leaf, _subleaf) __cpuidex(_registers, _leaf, _subleaf)
	#define VX_XCR0(_states) ((_states) = int(_xgetbv(0)))
#elif VX_X86
	#define VX_CPUID(_registers, _leaf, _subleaf)                                                                     \
		__asm__ volatile("cpuid"                                                                                      \
						 : "=a"((_registers)[0]), "=b"((_registers)[1]), "=c"((_registers)[2]), "=d"((_registers)[3]) \
						 : "0"(_leaf), "2"(_subleaf))
	#define VX_XCR0(_states) __asm__ volatile("xgetbv" : "=a"(_states) : "c"(0) : "edx")
#endif
///@}

///@{
/// try and catch (const std::exception &), for what the standard library throws. Where exceptions are switched off
/// (-fno-exceptions), the first block runs and the second one never does.
#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
	#define VX_TRY try
	#define VX_CATCH catch (const std::exception &)
#else
	#define VX_TRY if (true)
	#define VX_CATCH else
#endif
///@}

/// A breakpoint that a debugger can continue from; on WebAssembly, it ends the program.
#if VX_COMPILER_MSVC
	#define VX_TRAP() __debugbreak()
#elif defined(__x86_64__) || defined(__i386__)
	#define VX_TRAP() __asm__ volatile("int3")
#elif defined(__aarch64__)
	#define VX_TRAP() __asm__ volatile("brk #0xF000")
#elif defined(__arm__)
	#define VX_TRAP() __asm__ volatile("bkpt #0")
#elif defined(__riscv)
	#define VX_TRAP() __asm__ volatile("ebreak")
#else
	#define VX_TRAP() __builtin_trap()
#endif

/// The calling convention of functions between C and C++, whatever default the flags set.
#if defined(_WIN32)
	#define VX_CDECL __cdecl
#else
	#define VX_CDECL
#endif

/// 1 for a shared library and its clients, 0 for everything else; the build system's target carries it.
#ifndef VX_SHARED
	#define VX_SHARED 0
#endif

///@{
/// Mark what a shared library exports: VX_API the functions and classes of vx_kernel, VX_GEOMETRICS_API those of
/// vx_geometrics, and VX_API_INLINE templates and classes of inline functions, which are compiled wherever they are
/// used but keep something once per process, such as an assertion site's flag. Everything else in a shared library is
/// hidden, and so are members of a marked class that VX_LOCAL marks. In sources that a host compiles into a program of
/// its own, the host's flags decide.
///
/// On Windows, the build system defines VX_BUILDS_KERNEL or VX_BUILDS_GEOMETRICS for a library's own sources, so that
/// they export what clients import. There each library and each client keeps an assertion site's flag of its own.
#if VX_SHARED && defined(_WIN32)
	#if defined(VX_BUILDS_KERNEL)
		#define VX_API __declspec(dllexport)
	#else
		#define VX_API __declspec(dllimport)
	#endif
	#if defined(VX_BUILDS_GEOMETRICS)
		#define VX_GEOMETRICS_API __declspec(dllexport)
	#else
		#define VX_GEOMETRICS_API __declspec(dllimport)
	#endif
	#define VX_API_INLINE
	#define VX_LOCAL
#elif VX_SHARED && defined(__ELF__)
	#define VX_API __attribute__((visibility("default")))
	#define VX_GEOMETRICS_API VX_API
	#define VX_API_INLINE VX_API
	#define VX_LOCAL __attribute__((visibility("hidden")))
#else
	#define VX_API
	#define VX_GEOMETRICS_API
	#define VX_API_INLINE
	#define VX_LOCAL
#endif
///@}

/// Joins after expanding its arguments.
#define VX_JOIN(_a, _b) VX_JOIN_AS_WRITTEN(_a, _b)
/// Joins its arguments as they stand.
#define VX_JOIN_AS_WRITTEN(_a, _b) _a##_b

/// Its argument's text, after macro expansion.
#define VX_STRINGIZE(...) VX_STRINGIZE_AS_WRITTEN(__VA_ARGS__)
/// Its argument's text as it stands.
#define VX_STRINGIZE_AS_WRITTEN(...) #__VA_ARGS__

/// 1: assertions are compiled in; 0: they are not. A library and everything that includes its headers need the same
/// value, which the build system's target carries.
#ifndef VX_ASSERTIONS
	#ifdef NDEBUG
		#define VX_ASSERTIONS 0
	#else
		#define VX_ASSERTIONS 1
	#endif
#endif

// Linkers for Microsoft's ABI refuse object files of which some say 1 and some say 0.
#if defined(_MSC_VER)
	#pragma detect_mismatch("VX_ASSERTIONS", VX_STRINGIZE(VX_ASSERTIONS))
#endif
