#pragma once

// The vocabulary of lane operations that the kernels are written in, and this processor's baseline.
//
// A register holds one, two or four groups of four 32-bit lanes. A kernel is a template over a target: a struct of
// static functions, one file for each. It stands once, and gives the same bits with every target.
//
//   file              target           groups   who has it
//   lanes_sse2.h      SLanesSse2       1        every x86; others through SIMDe, with VEXMOOR_SIMDE
//   lanes_avx2.h      SLanesAvx2       2        x86 that is found to have it at run time
//                     SLanesAvx        1        the same processors; for what is left
//   lanes_avx512.h    SLanesAvx512     4        x86 that is found to have its F, BW, DQ and VL
//                     SLanesAvx512VL   2        the same processors; for what is slower in wider registers
//   lanes_neon.h      SLanesNeon       1        every AArch64
//   lanes_wasm.h      SLanesWasm       1        every WebAssembly engine with 128-bit SIMD
//   lanes_scalar.h    SLanesScalar     1        WebAssembly without it
//
// A target has these names. Lane 0 is the one at the lowest address, and template arguments name lanes from 0 on.
// "In groups" means that no element leaves its group. Addresses need no alignment. _Element is u8, u16, u32 or u64 and
// says how wide the elements are; without it, they are 32 bits wide.
//
//   Register                bits, which floats are read from where a name says so
//   Mask                    what a comparison of lanes gives: a register with all bits of a lane or none, but for
//                           SLanesAvx512
//   kGroups, kLanes         groups and lanes of a register
//   Gathering               the target that is fastest where each group is loaded from elsewhere
//
//   Load(p), Store(p, r)    a whole register
//   LoadGroups(p, stride)   16 bytes for each group, group i from p + i * stride
//   LoadGroupsFrom(p, offset)
//                           16 bytes for each group, group i from the address p[4 * i] + offset
//   LoadTriples(p, x, y, z) packed triples of 12 bytes each, one for each lane, as three registers
//   LoadEvenLanes(p)        lanes 0, 2, 4, ... of two registers' bytes
//   StorePairs<upperFirst>(p, a, b)
//                           pairs a0 b0, a1 b1, ...; with upperFirst, those of each group in the order 2, 3, 0, 1
//   BitsOfBytes(p)          of kLanes bytes, a bit for each that is not 0, the first byte's the lowest
//   StoreWhere(p, bits, r)  lanes of r whose bit is 1, in order and side by side; returns how many. As many bytes as a
//                           register has may be written; what lies behind these lanes then is unspecified
//   StoreWhere(p, bits, r, room)
//                           the same, but no more than room lanes are written and counted, up to kLanes
//
//   Splat(value)            the value in every lane
//   Multiples(factor)       lane i has i * factor
//
//   Add<_Element>, Subtract<_Element>, And, Or, Xor
//   GreaterSigned(a, b)     the mask of lanes where a > b, as signed numbers
//   LessUnsigned(a, b)      the mask of lanes where a < b, as unsigned numbers
//   Select(mask, a, b)      lanes of a where mask says so, else of b
//   Where(mask, a)          lanes of a where mask says so, else 0
//   SortTwo(a, b)           in place, in every lane: the lower of both to a, the higher one to b, as signed numbers
//   Any(mask)               whether it says so of any lane
//   ShiftRightSigned<count>
//
//   Shuffle2<4 lanes>(a, b) two lanes of a, then two of b, in groups
//   InterleaveLow(a, b)     a0 b0 a1 b1, in groups
//   InterleaveHigh(a, b)    a2 b2 a3 b3, in groups
//   ShiftBytesUp<count>(r)  bytes move to higher ones in groups, and zeros follow
//   SpreadLast<_Element>(r) the last element of each group in all of the group
//
//   AllZero(r)              whether no bit is set
//   PrefixSums<_Element>(counts, before, total)
//                           before: the sum of the elements before each one; total: the sum of all, in each
//
//   SubtractFloats(a, b), MultiplyFloats(a, b), AddFloats(a, b)
//                           each result rounded by itself, as long as compilers fuse and reorder nothing. With
//                           kAddsInOrder, additions are left as they stand, and NaNs are those of simd/exact_floats.h
//
// A baseline has some more, for single positions and for the output:
//
//   LoadTwo(p)              8 bytes, then two lanes of 0
//   LoadThree(p)            12 bytes, then a lane of 0
//   LoadAligned(p), StoreAligned(p, r)
//                           a register at a multiple of 16
//   StoreInPlace(p, r)      a store that compilers leave in its place among volatile accesses
//   Stream(p, r)            the same at a multiple of 16, past the caches where the processor has a way
//   Fence()                 orders all streams before every later store
//   ShiftLeft<count>(r)
//   PackSigned(a, b)        to 16 bits, saturated as signed: a's lanes, then b's
//   Shuffle<4 lanes>(r)     lanes of r
//   Shuffle16<8 elements>(r)
//                           16-bit elements of r: the first four from the lower half, the others from the upper one
//   Lane0(r)                lane 0
//   EqualBytes(a, b)        all bits of a byte where a == b, else none
//   AllOnes(r)              whether each bit is set
//   SumBytes(r)             the sum of all bytes
//
// What several targets do by the same other operations is shared in lanes_shared.h. A file of kernels for AVX2 or
// AVX-512 includes its target, and then, behind VX_BEGIN_TARGET_AVX2 or _AVX512, the kernels.

#include "vx_compiler.h"

#if VX_ARM32_NEON
	#error "32-bit ARM's NEON flushes denormals, so keys would differ: compile without it, as with -mfpu=vfpv3-d16"
#elif defined(VEXMOOR_SIMDE) || VX_X86
	#include "simd/lanes_sse2.h"
#elif VX_ARM64
	#include "simd/lanes_neon.h"
#elif VX_WASM_SIMD
	#include "simd/lanes_wasm.h"
#elif VX_WASM
	#include "simd/lanes_scalar.h"
#else
	#error "no lane operations for this processor: define VEXMOOR_SIMDE to take SIMDe's, or add a file beside this one"
#endif

namespace Vexmoor
{
/// The target that every processor of this kind has.
#if defined(VEXMOOR_SIMDE) || VX_X86
typedef SLanesSse2 SLanesBase;
#elif VX_ARM64
typedef SLanesNeon SLanesBase;
#elif VX_WASM_SIMD
typedef SLanesWasm SLanesBase;
#else
typedef SLanesScalar SLanesBase;
#endif
} // namespace Vexmoor
