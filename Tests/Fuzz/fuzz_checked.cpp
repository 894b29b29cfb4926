// Fuzzes the checked sorts: the input chooses a sound call and damages it, part by part. Whatever comes out is refused
// with every byte as it was, or sorted within its memory and to the same bytes as by the bare sort.

#include "damaged_call.h"
#include "diagnostics.h"
#include "sort_fuzzing.h"

namespace
{
// Draws from the input's bytes.
class CByteDraw
{
public:
	explicit CByteDraw(Fuzz::CByteReader &reader)
		: m_Reader(reader)
	{
	}

	Vexmoor::u32 Below(Vexmoor::u32 bound)
	{
		return bound == 0 ? 0 : (bound > 256 ? m_Reader.Word() : m_Reader.Byte()) % bound;
	}
	bool Chance(Vexmoor::u32 percent) { return Below(100) < percent; }
	Vexmoor::u32 Next() { return m_Reader.Word(); }

private:
	Fuzz::CByteReader &m_Reader;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	constexpr Vexmoor::u32 kMostDamages = 8;
	Fuzz::ChooseInstructionSet(size);
	Fuzz::CByteReader reader(data, size);
	CByteDraw draw(reader);
	const Support::CReportRecorder viewsOfWrongStrides;
	Support::CCall call(Support::kCallGeometries[draw.Below(4)]);
	call.m_ByPosition = reader.Flag();
	if (reader.Flag())
		call.Output16();
	if (draw.Below(8) == 7) // now and then the other entry
		call.m_Entry =
			call.m_Entry == Vexmoor::SortEntry_Points ? Vexmoor::SortEntry_Triangles : Vexmoor::SortEntry_Points;
	for (Vexmoor::u32 damages = draw.Below(kMostDamages + 1); damages != 0; --damages)
		Damage(call, draw);
	call.SetUp();
	const testing::AssertionResult result = IsRefusedOrSorts(call);
	if (!result)
		Fuzz::Fail(result.message());
	return 0;
}
