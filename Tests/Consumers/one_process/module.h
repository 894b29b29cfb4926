#pragma once

// What every module of the process does with the library, compiled into each: the program and its plug-in.

#include "ge_mesh_triangle_sorter.h"

#include "kr_log_unique.h"
#include "kr_profiler.h"

/// Where a module finds what there is once per process, or once per thread.
struct SServices
{
	Vexmoor::CLogUniqueCollection *m_Warnings;
	Vexmoor::CLogUniqueCollection **m_Registry;
	Vexmoor::Profiler::CProfiler *m_Profiler;
	Vexmoor::Profiler::CHazards *m_Hazards;

	bool operator==(const SServices &other) const
	{
		return m_Warnings == other.m_Warnings && m_Registry == other.m_Registry && m_Profiler == other.m_Profiler &&
		       m_Hazards == other.m_Hazards;
	}
};

inline SServices FindServices()
{
	using namespace Vexmoor;
	return {CPerfHotspotsRegistry::Registry(), &CPerfHotspotsRegistry::m_Registry, Profiler::MainEngineProfiler(),
		&Profiler::CHazards::CurrentThreadHazards()};
}

constexpr Vexmoor::u32 kHeaderSites = 3;

/// Breaks conditions of the headers at as many sites, which each module compiles for itself. The library reads past the
/// first view as well.
inline void ReadPastViews()
{
	using namespace Vexmoor;
	SIndexAndDepth record = {};
	const u32 one = 1;
	static_cast<void>(TMemoryView<SIndexAndDepth>(record)[1]);
	static_cast<void>(TStridedMemoryView<const u32>(one)[1]);
	static_cast<void>(TMemoryView<const CFloat4>(null, 1)[0]);
}
