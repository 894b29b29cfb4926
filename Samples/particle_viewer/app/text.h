#pragma once

// Numbers and foreign text as they stand in sentences.

#include "vx_defs.h"

#include <string>
#include <string_view>

namespace Viewer
{
using namespace Vexmoor;

/// 70051 as "70,051".
std::string Grouped(u64 number);

/// Text from outside in single quotes: on one line, printable, and cut where it goes on for too long.
std::string Quoted(std::string_view text);
} // namespace Viewer
