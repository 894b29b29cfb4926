#pragma once

// Both types of index, for typed tests, whose names they show.

#include "vx_defs.h"

#include <gtest/gtest.h>
#include <string>
#include <type_traits>

namespace Support
{
using SIndexTypes = testing::Types<Vexmoor::u32, Vexmoor::u16>;

struct SIndexName
{
	template<typename _Index>
	static std::string GetName(int)
	{
		return std::is_same_v<_Index, Vexmoor::u16> ? "U16" : "U32";
	}
};
} // namespace Support
