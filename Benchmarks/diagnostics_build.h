#pragma once

// The library built twice more, with assertions and without, each behind one function in a shared library that exports
// nothing else: two builds that may not be linked together run side by side in one process.

#include "vx_defs.h"

namespace VexmoorBench
{
using namespace Vexmoor;

/// Billboards of one page, sorted by position.
struct SBillboardSort
{
	const float *m_Positions; ///< Three per particle.
	u32 m_Count;
	float m_Camera[3];
	u32 *m_Indices; ///< Six per particle.
	void *m_Scratch;
	u32 m_ScratchBytes; ///< 16 per particle, padded to an even count.
};
} // namespace VexmoorBench

extern "C"
{
	__attribute__((visibility("default"))) void SortBillboards_AssertionsOn(const VexmoorBench::SBillboardSort *sort);
	__attribute__((visibility("default"))) void SortBillboards_AssertionsOff(const VexmoorBench::SBillboardSort *sort);
}
