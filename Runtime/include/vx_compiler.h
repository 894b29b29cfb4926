#pragma once

// What differs between compilers: inlining hints, the enclosing function's signature, a trap that a debugger can
// continue from, printf checking, and the switch between diagnosed and bare builds.

#if !defined(__GNUC__) && !defined(__clang__)
	#error "Vexmoor builds with g++ and clang"
#endif

/// Inline at every optimisation level.
#define VX_INLINE inline __attribute__((always_inline))
/// Never inline: keeps the code and the registers of a rare path out of its caller.
#define VX_NOINLINE __attribute__((noinline))
///@{
/// The condition's value, with a hint which one to lay out straight.
#define VX_LIKELY(...) __builtin_expect(!!(__VA_ARGS__), 1)
#define VX_UNLIKELY(...) __builtin_expect(!!(__VA_ARGS__), 0)
///@}

///@{
/// 1 for the processors that this is compiled for, else 0: x86 with SSE2, of 32 or 64 bits; AArch64; WebAssembly.
#if defined(__SSE2__)
	#define VX_X86 1
#else
	#define VX_X86 0
#endif
#if defined(__aarch64__)
	#define VX_ARM64 1
#else
	#define VX_ARM64 0
#endif
#if defined(__wasm__)
	#define VX_WASM 1
#else
	#define VX_WASM 0
#endif
///@}

///@{
/// Around functions that are compiled for processors with wider registers, whatever the rest is compiled for. Who calls
/// them asks kr_cpu.h before. Compilers inline a function only into one that is compiled for as much, so everything that
/// such a function has inlined and that uses wide registers stands between the same two. Other headers come before: a
/// function of theirs that is not inlined may be shared by the whole program.
#if defined(__clang__)
	#define VX_BEGIN_TARGET(_features) \
		_Pragma(VX_STRINGIZE(clang attribute push(__attribute__((target(_features))), apply_to = function)))
	#define VX_END_TARGET _Pragma("clang attribute pop")
#else
	#define VX_BEGIN_TARGET(_features) _Pragma("GCC push_options") _Pragma(VX_STRINGIZE(GCC target(_features)))
	#define VX_END_TARGET _Pragma("GCC pop_options")
#endif
#define VX_BEGIN_TARGET_AVX2 VX_BEGIN_TARGET("avx2")
#define VX_BEGIN_TARGET_AVX512 VX_BEGIN_TARGET("avx512f,avx512bw,avx512dq,avx512vl")
///@}

/// 1 where inline assembler can be had.
#ifndef VX_HAS_ASM
	#define VX_HAS_ASM 1
#endif

/// What inline assembler calls a register of lanes.
#if VX_X86
	#define VX_LANES_REGISTER "x"
#elif VX_ARM64 || defined(__arm__)
	#define VX_LANES_REGISTER "w"
#elif VX_WASM
	#define VX_LANES_REGISTER "r"
#else
	#define VX_LANES_REGISTER "m"
#endif

/// Makes compilers forget what they know of the value of some lanes. It is no instruction.
#define VX_OPAQUE(_lanes) __asm__("" : "+" VX_LANES_REGISTER(_lanes))

///@{
/// Adds a register of floats to another, in place, as they stand: compilers fuse an add intrinsic with the multiplication
/// before it where they may use FMA, and swap its operands where it suits them. The long prefix is spelled out because
/// assemblers swap the operands where that makes a short prefix do, as if no NaN told them apart; clang's does so from 19
/// on. A 512-bit addition has one prefix only.
#if defined(__AVX__)
	#define VX_ADD_FLOATS_SSE2(_a, _b) __asm__("%{vex3%} vaddps %2, %1, %0" : "=x"(_a) : "x"(_a), "x"(_b))
#else
	#define VX_ADD_FLOATS_SSE2(_a, _b) __asm__("addps %1, %0" : "+x"(_a) : "x"(_b))
#endif
#define VX_ADD_FLOATS_AVX(_a, _b) __asm__("%{vex3%} vaddps %2, %1, %0" : "=x"(_a) : "x"(_a), "x"(_b))
#define VX_ADD_FLOATS_AVX512(_a, _b) __asm__("vaddps %2, %1, %0" : "=v"(_a) : "v"(_a), "v"(_b))
///@}

/// Fetches the cache line of an address that is going to be written to.
#define VX_PREFETCH_TO_WRITE(_address) __builtin_prefetch(_address, 1)

/// The full signature of the enclosing function.
#define VX_FUNCTION __PRETTY_FUNCTION__

/// Something that nobody names, and that linkers leave in all the same.
#if defined(_WIN32)
	#define VX_KEPT __attribute__((used))
#else
	#define VX_KEPT __attribute__((used, retain))
#endif

/// Checks a printf-style call: the 1-based positions of the format and of the first argument after it.
#define VX_PRINTF_LIKE(_format, _firstArgument) __attribute__((format(printf, _format, _firstArgument)))

/// Makes a typedef whose objects may lie at any address, and in the same bytes as objects of other types.
#define VX_ANYWHERE __attribute__((may_alias, aligned(1)))

/// A statement that stores a value of a type at any address, _p, once and whole. Compilers keep it in its place among
/// volatile accesses and other such stores.
#define VX_STORE_IN_PLACE(_Type, _p, _value)           \
	do                                                 \
	{                                                  \
		typedef _Type VX_ANYWHERE CStored;             \
		*static_cast<volatile CStored *>(_p) = _value; \
	} while (false)

///@{
/// Two statements around a store of lanes: the first, with the lanes, right before it; the second, with the object that
/// is stored to, right behind it. Compilers then keep the store in its place among volatile accesses and other such
/// stores. To them the first statement makes the lanes, so the store cannot come earlier, and the second reads the
/// object, so the store cannot come later. Neither is an instruction, though g++ may compute the object's address once
/// more. Other loads and arithmetic still move.
#define VX_BEFORE_STORE_IN_PLACE(_lanes) __asm__ volatile("" : "+" VX_LANES_REGISTER(_lanes))
#define VX_BEHIND_STORE_IN_PLACE(_object) __asm__ volatile("" : : "m"(_object))
///@}

/// Unsigned arithmetic of the function is meant to wrap: clang's -fsanitize=integer, which takes every wrap for a
/// fault, passes it over.
#if defined(__clang__)
	#define VX_WRAPS __attribute__((no_sanitize("unsigned-integer-overflow", "unsigned-shift-base")))
#else
	#define VX_WRAPS
#endif

///@{
/// try and catch (const std::exception &), for what the standard library throws. Where exceptions are switched off
/// (-fno-exceptions), the first block runs and the second one never does.
#if defined(__cpp_exceptions)
	#define VX_TRY try
	#define VX_CATCH catch (const std::exception &)
#else
	#define VX_TRY if (true)
	#define VX_CATCH else
#endif
///@}

/// A breakpoint that a debugger can continue from.
#if defined(__aarch64__)
	#define VX_TRAP() __asm__ volatile("brk #0xF000")
#else
	#define VX_TRAP() __asm__ volatile("int3")
#endif

/// 1 for a shared library and its clients, 0 for everything else; the build system's target carries it.
#ifndef VX_SHARED
	#define VX_SHARED 0
#endif

///@{
/// Marks what a shared library gives its clients, functions as well as classes and templates that keep something once
/// per process, such as an assertion site's flag. All else in it is hidden, and so is what VX_LOCAL takes out of a
/// marked class. Sources that a host builds into something of its own follow the host's flags.
#if VX_SHARED && defined(__ELF__)
	#define VX_API __attribute__((visibility("default")))
	#define VX_LOCAL __attribute__((visibility("hidden")))
#else
	#define VX_API
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

/// 1: assertions are compiled in; 0: their sites vanish. A library and everything that includes its headers agree on
/// the value; the build system's target carries it.
#ifndef VX_ASSERTIONS
	#ifdef NDEBUG
		#define VX_ASSERTIONS 0
	#else
		#define VX_ASSERTIONS 1
	#endif
#endif
