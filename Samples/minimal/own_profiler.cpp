// The library's scopes in the host's own profiler, through one function. Scopes nest, and a scope begins and ends on
// one thread, so a profiler that pushes and pops zones can take them as they are. A host without a profiler can use
// Profiler::CTraceRecorder of kr_profiler_recorder.h.

#include "ge_mesh_pages.h"

#include "kr_profiler.h"

#include "minimal.h"
#include <chrono>
#include <string>

using namespace Vexmoor;

// What stands for the host's profiler: zones of a name and a colour, pushed and popped, per thread.
struct SZone
{
	std::string m_Name;
	u32 m_ColourRGBA8;
	size_t m_Depth;
	std::chrono::steady_clock::time_point m_Begin;
	std::chrono::steady_clock::time_point m_End;
};

class CHostProfiler
{
public:
	void Push(const char *name, u32 colourRGBA8)
	{
		m_Open.push_back(m_Zones.size());
		m_Zones.push_back({name, colourRGBA8, m_Open.size(), std::chrono::steady_clock::now(), {}});
	}
	void Pop()
	{
		m_Zones[m_Open.back()].m_End = std::chrono::steady_clock::now();
		m_Open.pop_back();
	}
	bool HasOpenZones() const { return !m_Open.empty(); }
	const std::vector<SZone> &Zones() const { return m_Zones; }

private:
	std::vector<size_t> m_Open;
	std::vector<SZone> m_Zones;
};

// On the thread of the scope. The descriptor is a constant of the site, so a profiler that registers its zones can keep
// what it has registered under the descriptor's address.
static void OnScope(const Profiler::SNodeDescriptor &node, bool entering, void *userData)
{
	CHostProfiler &profiler = *static_cast<CHostProfiler *>(userData);
	if (entering)
		profiler.Push(node.m_Name, node.m_ColorRGBA8);
	else
		profiler.Pop();
}

int main()
{
	CHostProfiler profiler;
	Profiler::MainEngineProfiler()->SetScopeHandler(OnScope, &profiler);

	constexpr u32 kCount = 3;
	const CFloat3 positions[kCount] = {
		{0, 0, 1},
		{0, 0, 2},
		{0, 0, 3},
	};
	const CPositionPage pages[] = {ViewOf(positions)};
	std::vector<u32> indices(kCount * 6);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	u32 quad[] = {0, 1, 2, 0, 2, 3};

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), CFloat3(0, 0, 0));
	sorter.Setup_Geometry(ViewOf(quad), 4);
	Minimal::RequireValid(sorter, scratch);
	{
		VX_PROFILE_SCOPE("Particles"); // a scope of the host's, through the same hook
		sorter.SortPoints_AutogenIndices(scratch.data());
	}
	Profiler::MainEngineProfiler()->SetScopeHandler(null, null);

	for (const SZone &zone : profiler.Zones())
	{
		const std::chrono::duration<double, std::micro> length = zone.m_End - zone.m_Begin;
		std::printf("%*s%s: %.3f us\n", int(zone.m_Depth - 1) * 4, "", zone.m_Name.c_str(), length.count());
	}
	const std::vector<SZone> &zones = profiler.Zones();
	const char *const names[] = {
		"Particles", "CTriangleSorter::FillSource", "CTriangleSorter::Sort", "ExpandIndices<u32>"};
	Minimal::Require(
		!profiler.HasOpenZones() && zones.size() == std::size(names), "the zones are not those of a sort.");
	for (size_t i = 0; i < zones.size(); ++i)
	{
		Minimal::Require(zones[i].m_Name == names[i], "a zone has another name.");
		Minimal::Require(zones[i].m_Depth == (i == 0 ? 1u : 2u), "the sort's zones are not inside the host's.");
		Minimal::Require(zones[0].m_Begin <= zones[i].m_Begin && zones[i].m_End <= zones[0].m_End,
			"a zone lasts longer than the one around it.");
	}
	return 0;
}
