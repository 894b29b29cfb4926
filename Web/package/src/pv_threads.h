#pragma once

// Threads that sort together. Only the module that has them links threads.cpp: VEXMOOR_WEB_THREADS is 1 there.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

namespace Vexmoor
{
constexpr bool kHasThreads = VEXMOOR_WEB_THREADS;

// How many threads there are with the one that sorts: 1 where no other thread takes jobs.
u32 ThreadCount();

// Runs jobs on all threads, as a sort asks for.
SSortJobs JobsOfThreads();
} // namespace Vexmoor
