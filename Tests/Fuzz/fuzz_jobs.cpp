// Fuzzes both sort entry points with jobs: the input says how many there may be and in which order a hostile host runs
// them, and describes a draw call, which is laid out between guard pages, sorted, and compared with the reference model to
// the last index, report and warning.

#include "kr_cpu.h"

#include "byte_reader.h"
#include "decoded_input.h"
#include "host_float_mode.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	Vexmoor::Cpu::SetMaxInstructionSet(
		Vexmoor::Cpu::EInstructionSet(size % 3)); // every one sees every input sooner or later
	Fuzz::CByteReader reader(data, size);
	Fuzz::SHost host = Fuzz::ReadHost(reader);
	host.m_Layout.m_MaxJobCount = reader.Below(70) + 1;
	host.m_Layout.m_JobOrder = Support::EJobOrder(reader.Below(3)); // on threads only coverage would be left to chance
	const Model::SScene scene = Fuzz::ReadScene(reader);
	Fuzz::Announce(Describe(scene));
	const Fuzz::CHostFloatMode floatMode(host.m_FloatMode);
	const testing::AssertionResult result = Support::SortsLikeTheModel(scene, host.m_Layout);
	if (!result)
	{
		std::fprintf(stderr, "%s\n%s\n", result.message(), Describe(scene).c_str());
		std::abort();
	}
	return 0;
}
