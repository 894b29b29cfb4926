#pragma once

// A host's thread may flush denormals, round as it likes and trap on exceptions; the library's bits are the same. While
// this lives, the calling thread is such a one.

#include "reference_model.h"
#include <immintrin.h>

namespace Fuzz
{
class CHostFloatMode
{
public:
	static constexpr Model::u32 kModeCount = 8;

	explicit CHostFloatMode(Model::u32 mode)
		: m_Saved(_mm_getcsr())
	{
		constexpr Model::u32 kDefault = 0x1F80; // every exception masked
		constexpr Model::u32 kFlushToZero = 0x8000;
		constexpr Model::u32 kDenormalsAreZero = 0x0040;
		constexpr Model::u32 kRoundDown = 0x2000;
		constexpr Model::u32 kRoundUp = 0x4000;
		constexpr Model::u32 kRoundToZero = 0x6000;
		constexpr Model::u32 kModes[kModeCount] = {
			kDefault,
			kDefault | kFlushToZero | kDenormalsAreZero, // what linking with -ffast-math asks for
			kDefault | kFlushToZero, kDefault | kDenormalsAreZero, kDefault | kRoundDown, kDefault | kRoundUp,
			kDefault | kRoundToZero | kFlushToZero | kDenormalsAreZero,
			0, // every exception traps
		};
		_mm_setcsr(kModes[mode]);
	}
	~CHostFloatMode() { _mm_setcsr(m_Saved); }
	CHostFloatMode(const CHostFloatMode &) = delete;
	CHostFloatMode &operator=(const CHostFloatMode &) = delete;

private:
	const Model::u32 m_Saved;
};
} // namespace Fuzz
