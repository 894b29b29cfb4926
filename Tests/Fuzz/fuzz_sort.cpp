// Fuzzes both sort entry points: the input describes a draw call, which is laid out between guard pages, sorted, and
// compared with the reference model to the last byte, report and warning.

#include "sort_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	Fuzz::ChooseInstructionSet(size);
	Fuzz::CByteReader reader(data, size);
	const Fuzz::SHost host = Fuzz::ReadHost(reader);
	Fuzz::SortLikeTheModel(reader, host);
	return 0;
}
