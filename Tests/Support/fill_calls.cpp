#include "fill_calls.h"

#include "diagnostics.h"
#include <algorithm>
#include <cstring>
#include <iomanip>

using namespace Vexmoor;

namespace Support
{
bool IsByPosition(EFill fill)
{
	return fill == EFill::PositionsInSequence || fill == EFill::PositionsByList;
}

CGuardedMemory LayOutElements(const void *elements,
	std::size_t elementSize,
	std::size_t count,
	std::size_t stride,
	std::size_t addressMod16,
	CGuardedMemory::EFlush flush)
{
	if (stride == 0)
		count = std::min<std::size_t>(count, 1);
	CGuardedMemory memory(count == 0 ? 0 : (count - 1) * stride + elementSize, addressMod16, flush);
	for (std::size_t i = 0; i < count; ++i)
		std::memcpy(memory.Data() + i * stride, static_cast<const u8 *>(elements) + i * elementSize, elementSize);
	memory.Protect();
	return memory;
}

CGuardedMemory LayOutPositions(const Model::SPositions &positions, CGuardedMemory::EFlush flush)
{
	return LayOutElements(positions.m_Elements.data(), sizeof(Model::SFloat3), positions.m_Elements.size(),
		positions.m_Stride, positions.m_AddressMod16, flush);
}

CGuardedMemory LayOutValues(const Model::SValues &values, CGuardedMemory::EFlush flush)
{
	return LayOutElements(
		values.m_Elements.data(), sizeof(u32), values.m_Elements.size(), values.m_Stride, values.m_AddressMod16, flush);
}

u32 FlushAddressMod16(u32 elementSize, u32 count, u32 stride)
{
	const u32 size = count == 0 ? 0 : (stride == 0 ? 0 : (count - 1) * stride) + elementSize;
	return (16 - size % 16) % 16;
}

CFloat3 Float3FromBits(const Model::SFloat3 &bits)
{
	CFloat3 value;
	static_assert(sizeof(value) == sizeof(bits), "three floats");
	std::memcpy(static_cast<void *>(&value), &bits, sizeof(value));
	return value;
}

std::vector<Model::SRecord> ReadRecords(const void *records, std::size_t count)
{
	std::vector<Model::SRecord> copy(count);
	static_assert(sizeof(Model::SRecord) == sizeof(SIndexAndDepth), "key, then index");
	if (count != 0)
		std::memcpy(copy.data(), records, count * sizeof(SIndexAndDepth));
	return copy;
}

testing::AssertionResult SameRecords(
	const std::vector<Model::SRecord> &expected, const std::vector<Model::SRecord> &actual)
{
	if (expected.size() != actual.size())
		return testing::AssertionFailure() << actual.size() << " records instead of " << expected.size();
	for (std::size_t i = 0; i < expected.size(); ++i)
	{
		if (expected[i] != actual[i])
		{
			return testing::AssertionFailure() << "record " << i << " of " << expected.size() << " is " << std::hex
			                                   << std::showbase << actual[i].m_Key << ", " << actual[i].m_Index
			                                   << " instead of " << expected[i].m_Key << ", " << expected[i].m_Index;
		}
	}
	return testing::AssertionSuccess();
}

CFillMemory::CFillMemory(EFill fill, const Model::SFillCall &call, CGuardedMemory::EFlush flush)
	: m_SourceCount(
		  u32(IsByPosition(fill) ? call.m_Page.m_Positions.m_Elements.size() : call.m_Page.m_Values.m_Elements.size()))
	, m_EnabledCount(u32(call.m_Page.m_Enabled.size()))
	, m_Fill(fill)
	, m_RecordCount(call.m_RecordCount)
	, m_SourceStride(IsByPosition(fill) ? call.m_Page.m_Positions.m_Stride : call.m_Page.m_Values.m_Stride)
	, m_Camera(Float3FromBits(call.m_Camera))
	, m_IndexStart(call.m_IndexStart)
	, m_IndexIncrement(call.m_IndexIncrement)
	, m_MaxVertexId(call.m_MaxVertexId)
	, m_Source(IsByPosition(fill) ? LayOutPositions(call.m_Page.m_Positions, flush)
								  : LayOutValues(call.m_Page.m_Values, flush))
	, m_Enabled(LayOutElements(
		  call.m_Page.m_Enabled.data(), 1, call.m_Page.m_Enabled.size(), 1, call.m_Page.m_EnabledAddressMod16, flush))
	, m_IndexList(LayOutElements(call.m_IndexList.data(),
		  sizeof(u32),
		  call.m_IndexList.size(),
		  sizeof(u32),
		  call.m_IndexListAddressMod16,
		  flush))
	, m_Records(call.m_RecordCount * sizeof(SIndexAndDepth), call.m_RecordsAddressMod16, flush)
{
}

void CFillMemory::Run() const
{
	const TMemoryView<SIndexAndDepth> records(m_Records.As<SIndexAndDepth>(), m_RecordCount);
	TStridedMemoryView<const u8> enableds;
	if (m_EnabledCount != 0)
		enableds = TStridedMemoryView<const u8>(m_Enabled.Data(), m_EnabledCount, m_EnabledStride);
	if (IsByPosition(m_Fill))
	{
		const TStridedMemoryView<const CFloat3> positions(m_Source.As<const CFloat3>(), m_SourceCount, m_SourceStride);
		if (m_Fill == EFill::PositionsInSequence)
			CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
				records, positions, m_Camera, enableds, m_IndexStart, m_IndexIncrement);
		else
			CTriangleSorter::FillSortingIndirectionsListPoint_Indices(
				records, positions, m_Camera, enableds, m_IndexList.As<const u32>(), m_MaxVertexId);
		return;
	}
	const TStridedMemoryView<const float> values(m_Source.As<const float>(), m_SourceCount, m_SourceStride);
	if (m_Fill == EFill::ValuesInSequence)
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
			records, values, enableds, m_IndexStart, m_IndexIncrement);
	else
		CTriangleSorter::FillSortingIndirectionsListPoint_Indices(
			records, values, enableds, m_IndexList.As<const u32>(), m_MaxVertexId);
}

std::vector<Model::SRecord> CFillMemory::Records() const
{
	return ReadRecords(m_Records.Data(), m_RecordCount);
}

std::vector<Model::SRecord> ModelRecords(EFill fill, const Model::SFillCall &call, Model::SWarnings &warnings)
{
	const Model::SPage &page = call.m_Page;
	switch (fill)
	{
	case EFill::PositionsInSequence:
		return Model::FillNoIndices(call.m_RecordCount, call.m_RecordsAddressMod16, page.m_Positions, call.m_Camera,
			page.m_Enabled, call.m_IndexStart, call.m_IndexIncrement, warnings);
	case EFill::ValuesInSequence:
		return Model::FillNoIndices(
			call.m_RecordCount, page.m_Values, page.m_Enabled, call.m_IndexStart, call.m_IndexIncrement, warnings);
	case EFill::PositionsByList:
		return Model::FillIndices(call.m_RecordCount, page.m_Positions, call.m_Camera, page.m_Enabled,
			call.m_IndexList.data(), call.m_MaxVertexId, warnings);
	default:
		return Model::FillIndices(
			call.m_RecordCount, page.m_Values, page.m_Enabled, call.m_IndexList.data(), call.m_MaxVertexId, warnings);
	}
}

Model::SFillCall MakeFillCall(u32 recordCount, const std::vector<u8> &enabled)
{
	Model::CRandom random(recordCount * 1000 + enabled.size());
	const auto finite = [&random] { return random.Below(2) << 31 | random.Between(120u << 23, 135u << 23); };
	Model::SFillCall call = {};
	call.m_RecordCount = recordCount;
	call.m_Page.m_Enabled = enabled;
	const u32 particleCount = enabled.empty() ? recordCount : u32(enabled.size());
	for (u32 i = 0; i < particleCount; ++i)
	{
		Model::SFloat3 position = {};
		for (u32 *const axis : {&position.m_X, &position.m_Y, &position.m_Z})
			*axis = finite();
		call.m_Page.m_Positions.m_Elements.push_back(position);
		call.m_Page.m_Values.m_Elements.push_back(finite());
	}
	call.m_Camera = {0x3F800000u, 0xC0000000u, 0x40400000u}; // 1, -2, 3
	call.m_IndexStart = 1000;
	call.m_IndexIncrement = 4;
	call.m_MaxVertexId = 5000;
	for (u32 i = 0; i < recordCount; ++i)
		call.m_IndexList.push_back(random.Below(6000));
	return call;
}

Model::SFillCall MakeCompactingCall(const std::vector<u8> &enabled)
{
	return MakeFillCall(u32(enabled.size()) - u32(std::count(enabled.begin(), enabled.end(), u8(0))), enabled);
}

Model::SFillCall WithStride(Model::SFillCall call, u32 stride)
{
	call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = stride;
	return call;
}

void ExpectAsModel(EFill fill, const Model::SFillCall &call, CGuardedMemory::EFlush flush)
{
	Model::SWarnings expected;
	const std::vector<Model::SRecord> expectedRecords = ModelRecords(fill, call, expected);
	const CFillMemory memory(fill, call, flush);
	const CWarningRecorder warnings;
	{
		const u32 stride = IsByPosition(fill) ? call.m_Page.m_Positions.m_Stride : call.m_Page.m_Values.m_Stride;
		const bool overlap = stride != 0 && stride < (IsByPosition(fill) ? sizeof(CFloat3) : sizeof(float));
		const std::vector<std::string> ofTheView = {"stride >= ValueFootprintInBytes || stride == 0"};
		const CExpectReports reports(overlap ? ofTheView : std::vector<std::string>());
		memory.Run();
	}
	EXPECT_TRUE(SameRecords(expectedRecords, memory.Records()));
	EXPECT_TRUE(memory.SurroundingsIntact());

	Model::SWarnings actual;
	const std::vector<int> sites = warnings.Sites();
	const std::vector<std::string> messages = warnings.Messages();
	for (std::size_t i = 0; i < sites.size(); ++i)
		actual.push_back({u32(sites[i]), messages[i]});
	EXPECT_TRUE(expected == actual) << actual.size() << " warnings instead of " << expected.size();
	EXPECT_EQ(warnings.Hazards(), expected.size());
}

void ExpectEveryLoopAsModel(EFill fill)
{
	const std::vector<u32> strides = IsByPosition(fill) ? std::vector<u32>{12, 16, 20, 0} : std::vector<u32>{4, 8, 0};
	for (u32 count = 0; count <= 70; ++count)
	{
		Model::SFillCall call = MakeFillCall(count);
		// Source, records and list at independent addresses modulo 16, the list at all of the source's in turn.
		for (u32 alignment = 0; alignment < 8; ++alignment)
		{
			call.m_Page.m_Positions.m_AddressMod16 = call.m_Page.m_Values.m_AddressMod16 = alignment % 4 * 4;
			call.m_RecordsAddressMod16 = alignment / 4 * 8;
			call.m_IndexListAddressMod16 = (alignment * 3 + count) % 16;
			for (const u32 stride : strides)
			{
				SCOPED_TRACE(testing::Message() << count << " records at " << call.m_RecordsAddressMod16
												<< ", source at " << alignment % 4 * 4 << ", stride " << stride);
				call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = stride;
				ExpectAsModel(fill, call, count % 2 == 0 ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart);
				if (testing::Test::HasFailure())
					return;
			}
		}
	}
}

// Enabled bytes of count rendered particles, among them disabled ones.
static std::vector<std::vector<u8>> EnabledPatterns(u32 count)
{
	std::vector<u8> firstDisabled(count, 1);
	firstDisabled.insert(firstDisabled.begin(), 0);
	std::vector<u8> lastDisabled(count, 0xFF);
	lastDisabled.push_back(0);
	std::vector<u8> alternating, sparse, random;
	for (u32 i = 0; i < count; ++i)
	{
		alternating.insert(alternating.end(), {0x80, 0});
		sparse.insert(sparse.end(), {0, 0, 0, 0, 0, 0, 2});
	}
	alternating.push_back(0);
	sparse.push_back(0);
	Model::CRandom draw(count);
	for (u32 enabled = 0; enabled < count || random.size() == count;)
	{
		random.push_back(u8(enabled < count && draw.Chance(60)));
		enabled += random.back();
	}
	return {firstDisabled, lastDisabled, alternating, sparse, random};
}

void ExpectEveryCompactionAsModel(EFill fill)
{
	const u32 packed = IsByPosition(fill) ? 12 : 4;
	for (u32 count = 0; count <= 70; ++count)
	{
		for (const std::vector<u8> &enabled : EnabledPatterns(count))
		{
			Model::SFillCall call = MakeCompactingCall(enabled);
			for (u32 layout = 0; layout < 6; ++layout)
			{
				const u32 strides[] = {packed, packed + 4, 0};
				call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = strides[layout / 2];
				call.m_Page.m_Positions.m_AddressMod16 = call.m_Page.m_Values.m_AddressMod16 = count % 4 * 4;
				call.m_Page.m_EnabledAddressMod16 = count % 16;
				call.m_RecordsAddressMod16 = layout % 2 * 8;
				SCOPED_TRACE(
					testing::Message() << count << " of " << enabled.size() << " particles, layout " << layout);
				ExpectAsModel(fill, call, count % 2 == 0 ? CGuardedMemory::FlushStart : CGuardedMemory::FlushEnd);
				if (testing::Test::HasFailure())
					return;
			}
		}
	}
}

// Gives elements that share bytes in memory the bytes that they have there.
template<typename _Element>
static void ShareBytes(std::vector<_Element> &elements, u32 stride)
{
	std::vector<u8> memory(elements.size() * stride + sizeof(_Element));
	for (std::size_t i = 0; i < elements.size(); ++i)
		std::memcpy(memory.data() + i * stride, &elements[i], sizeof(_Element));
	for (std::size_t i = 0; i < elements.size(); ++i)
		std::memcpy(&elements[i], memory.data() + i * stride, sizeof(_Element));
}

void ExpectNothingReadOutside(EFill fill)
{
	for (const u32 stride : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 17u, 20u, 24u})
	{
		for (u32 count = 0; count <= 40; ++count)
		{
			std::vector<u8> enabled(count, 1);
			if (count > 1)
				enabled[count / 2 - 1] = 0;
			for (Model::SFillCall call : {MakeFillCall(count), MakeCompactingCall(enabled)})
			{
				SCOPED_TRACE(testing::Message() << call.m_RecordCount << " of " << count << " at stride " << stride);
				call.m_Page.m_Positions.m_Stride = call.m_Page.m_Values.m_Stride = stride;
				if (stride != 0)
				{
					ShareBytes(call.m_Page.m_Positions.m_Elements, stride);
					ShareBytes(call.m_Page.m_Values.m_Elements, stride);
				}
				ExpectAsModel(fill, call, CGuardedMemory::FlushStart);
				call.m_Page.m_Positions.m_AddressMod16 = FlushAddressMod16(12, count, stride);
				call.m_Page.m_Values.m_AddressMod16 = FlushAddressMod16(4, count, stride);
				call.m_Page.m_EnabledAddressMod16 = FlushAddressMod16(1, u32(call.m_Page.m_Enabled.size()), 1);
				call.m_IndexListAddressMod16 = FlushAddressMod16(4, call.m_RecordCount, 4);
				call.m_RecordsAddressMod16 = FlushAddressMod16(8, call.m_RecordCount, 8);
				ExpectAsModel(fill, call);
				if (testing::Test::HasFailure())
					return;
			}
		}
	}
}

std::vector<Model::SRecord> Filled(EFill fill, const Model::SFillCall &call)
{
	const CFillMemory memory(fill, call);
	memory.Run();
	EXPECT_TRUE(memory.SurroundingsIntact());
	return memory.Records();
}

std::vector<Model::SRecord> ModelRecords(EFill fill, const Model::SFillCall &call)
{
	Model::SWarnings warnings;
	return ModelRecords(fill, call, warnings);
}
} // namespace Support
