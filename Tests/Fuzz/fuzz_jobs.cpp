// Fuzzes both sort entry points with jobs: the input says how many there may be and in which order a hostile host runs
// them, and describes a draw call, which is laid out between guard pages, sorted, and compared with the reference model
// to the last index, report and warning.

#include "sort_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	constexpr Vexmoor::u32 kMostJobs = 70;
	constexpr Vexmoor::u32 kJobOrders = 3; // on threads only coverage would be left to chance
	Fuzz::ChooseInstructionSet(size);
	Fuzz::CByteReader reader(data, size);
	Fuzz::SHost host = Fuzz::ReadHost(reader);
	host.m_Layout.m_MaxJobCount = reader.Below(kMostJobs) + 1;
	host.m_Layout.m_JobOrder = Support::EJobOrder(reader.Below(kJobOrders));
	Fuzz::SortLikeTheModel(reader, host);
	return 0;
}
