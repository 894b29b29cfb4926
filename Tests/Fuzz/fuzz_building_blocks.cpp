// Fuzzes the static functions and the sort template: the input's first byte chooses one and the floating-point mode of
// the thread, the rest describes its arguments. They lie between guard pages, what is only read cannot be written, and
// the outcome is the model's.

#include "ge_mesh_triangle_sorter.h"

#include "kr_sort.h"

#include "byte_reader.h"
#include "decoded_input.h"
#include "diagnostics.h"
#include "fill_calls.h"
#include "guarded_memory.h"
#include "reference_model.h"
#include "sort_fuzzing.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

using namespace Vexmoor;
using Fuzz::CByteReader;
using Support::CGuardedMemory;
using Support::CReportRecorder;
using Support::CWarningRecorder;
using Support::ReadOnly;

namespace
{
typedef std::vector<Model::SRecord> CRecords;
typedef TContiguousBaseIterator<SIndexAndDepth> CIterator;

// What is being called, for the message of a failure.
std::string s_Call;

void SetCall(const std::string &call)
{
	s_Call = call;
	Fuzz::Announce(call);
}

void Require(bool holds, const char *what)
{
	if (holds)
		return;
	std::fprintf(stderr, "%s: %s\n", s_Call.c_str(), what);
	std::abort();
}

void RequireWarnings(const CWarningRecorder &recorder, const Model::SWarnings &expected)
{
	Model::SWarnings recorded;
	for (const CLogUniqueCollection::SEntry &entry : recorder.Entries())
		recorded.push_back({u32(std::atoi(entry.m_Key.c_str() + std::strlen("[l."))), entry.m_Message});
	Require(recorded == expected, "other warnings than the model's");
	Require(recorder.Hazards() == expected.size(), "not a hazard per warning");
}

CGuardedMemory::EFlush ReadFlush(CByteReader &reader)
{
	return reader.Flag() ? CGuardedMemory::FlushStart : CGuardedMemory::FlushEnd;
}

std::size_t AddressToEndWithThePage(std::size_t size)
{
	return (16 - size % 16) % 16;
}

CGuardedMemory LayOut(const CRecords &records, std::size_t count, std::size_t address, CGuardedMemory::EFlush flush)
{
	CGuardedMemory memory(count * sizeof(SIndexAndDepth), address, flush);
	std::copy(records.begin(), records.end(), memory.As<Model::SRecord>());
	return memory;
}

// Fill and expand.

void Fill(CByteReader &reader)
{
	const Support::EFill fill = Support::EFill(reader.Below(4));
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const Model::SFillCall call = Fuzz::ReadFillCall(reader);
	SetCall("fill function " + std::to_string(int(fill)) + ", " + std::to_string(call.m_RecordCount) + " records of " +
			std::to_string(call.m_Page.m_Values.m_Elements.size()) + " particles, enabled bytes " +
			std::to_string(call.m_Page.m_Enabled.size()) + ", position stride " +
			std::to_string(call.m_Page.m_Positions.m_Stride) + ", value stride " +
			std::to_string(call.m_Page.m_Values.m_Stride) + ", records at " +
			std::to_string(call.m_RecordsAddressMod16) + " modulo 16");

	Model::SWarnings expectedWarnings;
	const CRecords expected = Support::ModelRecords(fill, call, expectedWarnings);
	const Support::CFillMemory memory(fill, call, flush);
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	memory.Run();
	Require(reports.Reports().empty(), "a report");
	Require(memory.Records() == expected, "other records than the model's");
	Require(memory.SurroundingsIntact(), "bytes around the records have changed");
	RequireWarnings(warnings, expectedWarnings);
}

template<typename _Index>
void Expand(const Model::SExpandCall &call, CGuardedMemory::EFlush flush)
{
	const std::size_t width = call.m_Pattern.size();
	const CGuardedMemory pattern = ReadOnly(call.m_Pattern, AddressToEndWithThePage(width * sizeof(u32)));
	const CGuardedMemory records = ReadOnly(call.m_Records, 0);
	const std::size_t count = width * call.m_Records.size();
	const CGuardedMemory output(count * sizeof(_Index), call.m_OutputAddressMod16, flush);

	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ExpandIndices(TMemoryView<const u32>(pattern.As<u32>(), u32(width)), records.As<SIndexAndDepth>(),
		static_cast<volatile _Index *>(output.As<_Index>()), u32(call.m_Records.size()));

	Model::SWarnings expectedWarnings;
	const std::vector<u32> expected = Model::ExpandIndices(
		call.m_IndexType, call.m_Pattern, call.m_Records, call.m_OutputAddressMod16, expectedWarnings);
	Require(std::equal(expected.begin(), expected.end(), output.As<_Index>(), output.As<_Index>() + count),
		"other indices than the model's");
	Require(output.SurroundingsIntact(), "bytes around the output have changed");
	Require(reports.Reports().empty(), "a report");
	RequireWarnings(warnings, expectedWarnings);
}

void Expand(CByteReader &reader)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const Model::SExpandCall call = Fuzz::ReadExpandCall(reader);
	const bool is16 = call.m_IndexType == Model::EIndexType::U16;
	SetCall(std::string(is16 ? "u16" : "u32") + " expansion, width " + std::to_string(call.m_Pattern.size()) + ", " +
			std::to_string(call.m_Records.size()) + " records, output at " + std::to_string(call.m_OutputAddressMod16) +
			" modulo 16");
	if (is16)
		Expand<u16>(call, flush);
	else
		Expand<u32>(call, flush);
}

template<typename _Index>
void ExpandQuads(const Fuzz::SQuadCall &call, CGuardedMemory::EFlush flush)
{
	const std::size_t width = call.m_Pattern.size();
	const CGuardedMemory pattern = ReadOnly(call.m_Pattern, AddressToEndWithThePage(width * sizeof(u32)));
	const CGuardedMemory centers = ReadOnly(call.m_Centers, 0);
	const CGuardedMemory records = ReadOnly(call.m_Records, 0);
	const std::size_t count = width * call.m_Records.size();
	const CGuardedMemory output(count * sizeof(_Index), call.m_OutputAddressMod16, flush);

	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ExpandAndSortIndices(TMemoryView<const u32>(pattern.As<u32>(), u32(width)),
		TMemoryView<const CFloat4>(centers.As<CFloat4>(), u32(call.m_Centers.size())),
		Support::Float3FromBits(call.m_Camera), records.As<SIndexAndDepth>(),
		static_cast<volatile _Index *>(output.As<_Index>()), u32(call.m_Records.size()), call.m_VerticesPerParticle);

	Model::SWarnings expectedWarnings;
	const std::vector<std::optional<u32>> expected = Model::ExpandAndSortIndices(call.m_IndexType, call.m_Pattern,
		call.m_Centers, call.m_Camera, call.m_Records, call.m_VerticesPerParticle, expectedWarnings);
	Require(std::equal(expected.begin(), expected.end(), output.As<_Index>(), output.As<_Index>() + count,
				[](const std::optional<u32> &index, _Index written)
				{ return index.value_or(_Index(0xCDCDCDCDu)) == written; }),
		"other indices than the model's");
	Require(output.SurroundingsIntact(), "bytes around the output have changed");
	Require(reports.Reports().empty(), "a report");
	RequireWarnings(warnings, expectedWarnings);
}

void ExpandQuads(CByteReader &reader)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const Fuzz::SQuadCall call = Fuzz::ReadQuadCall(reader);
	const bool is16 = call.m_IndexType == Model::EIndexType::U16;
	SetCall(std::string(is16 ? "u16" : "u32") + " quad expansion, width " + std::to_string(call.m_Pattern.size()) +
			", " + std::to_string(call.m_Records.size()) + " records, " + std::to_string(call.m_VerticesPerParticle) +
			" vertices per particle, output at " + std::to_string(call.m_OutputAddressMod16) + " modulo 16");
	if (is16)
		ExpandQuads<u16>(call, flush);
	else
		ExpandQuads<u32>(call, flush);
}

// Triangles.

void Widen(CByteReader &reader)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const u32 address = reader.Below(2) * 8;
	const u32 trianglesPerParticle = reader.Below(16) + 1;
	const u32 triangleOffset = reader.Flag() ? reader.Word() : reader.Byte();
	const CRecords particles = Fuzz::ReadRecords(reader);
	const u32 count = u32(particles.size()) * trianglesPerParticle;
	SetCall("widening of " + std::to_string(particles.size()) + " particles to " +
			std::to_string(trianglesPerParticle) + " triangles each, records at " + std::to_string(address) +
			" modulo 16");

	const CGuardedMemory list = LayOut(particles, count, address, flush);
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles(
		TMemoryView<SIndexAndDepth>(list.As<SIndexAndDepth>(), count), u32(particles.size()), trianglesPerParticle,
		triangleOffset);
	Require(Support::ReadRecords(list.Data(), count) ==
				Model::WidenToTriangles(particles, trianglesPerParticle, triangleOffset),
		"other records than the model's");
	Require(list.SurroundingsIntact(), "bytes around the records have changed");
	std::vector<std::string> expectedReports;
	if (VX_ASSERTIONS && address != 0)
		expectedReports.push_back("Mem::IsAligned<0x10>(inoutList.Data())");
	Require(reports.Texts() == expectedReports, "other reports than the alignment's");
	RequireWarnings(warnings, {});
}

template<typename _Index>
void Gather(CByteReader &reader)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const std::size_t sourceAddress = reader.Below(16 / sizeof(_Index)) * sizeof(_Index);
	const std::size_t outputAddress = reader.Below(16 / sizeof(_Index)) * sizeof(_Index);
	const u32 listAddress = reader.Below(2) * 8;
	const u32 sourceCount = reader.Byte() + 1;
	CRecords list = Fuzz::ReadRecords(reader);
	for (Model::SRecord &record : list)
		record.m_Index = record.m_Key % sourceCount;
	SetCall("gathering of " + std::to_string(list.size()) + " triangles out of " + std::to_string(sourceCount));

	std::vector<u32> sourceIndices;
	for (u32 i = 0; i < sourceCount * 3; ++i)
		sourceIndices.push_back(_Index(i * 0x9E3779B1u));
	CGuardedMemory listMemory = LayOut(list, list.size(), listAddress, flush);
	listMemory.Protect();
	CGuardedMemory source(sourceIndices.size() * sizeof(_Index), sourceAddress, flush);
	std::transform(sourceIndices.begin(), sourceIndices.end(), source.As<_Index>(), [](u32 i) { return _Index(i); });
	source.Protect();
	const CGuardedMemory output(list.size() * 3 * sizeof(_Index), outputAddress, flush);

	const CReportRecorder reports;
	const CWarningRecorder warnings;
	CTriangleSorter::ApplySortingIndirectionsListTriangles(
		TMemoryView<SIndexAndDepth>(listMemory.As<SIndexAndDepth>(), u32(list.size())),
		TMemoryView<const _Index>(source.As<_Index>(), u32(sourceIndices.size())), output.As<_Index>(),
		u32(list.size()));
	const std::vector<u32> expected = Model::GatherTriangles(list, sourceIndices);
	Require(std::equal(expected.begin(), expected.end(), output.As<_Index>(), output.As<_Index>() + expected.size()),
		"other indices than the model's");
	Require(output.SurroundingsIntact(), "bytes around the output have changed");
	Require(reports.Reports().empty(), "a report");
	RequireWarnings(warnings, {});
}

// Order.

void SortInto(CByteReader &reader, bool radixAlways)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	const u32 address = reader.Below(2) * 8;
	CRecords records = Fuzz::ReadRecords(reader);
	SetCall(std::string(radixAlways ? "radix sort" : "sort") + " of " + std::to_string(records.size()) + " records");
	const u32 count = u32(records.size());
	const CGuardedMemory input = LayOut(records, count, address, flush);
	const CGuardedMemory output(count * sizeof(SIndexAndDepth), 8 - address, flush);

	const CReportRecorder reports;
	const CIterator first(input.As<SIndexAndDepth>());
	const CIterator to(output.As<SIndexAndDepth>());
	if (radixAlways)
		TRadixSort<Sort_InBuffer>::Sort11(first, first + int(count), to, SSortKeyExtractor_TriangleIndexAndDepth());
	else
		Sort<SSortKeyExtractor_TriangleIndexAndDepth>(first, first + int(count), to);
	const CRecords expected = radixAlways ? Model::RadixSort(records) : Model::Sort(records);
	Require(Support::ReadRecords(output.Data(), count) == expected, "another order than the model's");
	Require(Support::ReadRecords(input.Data(), count) == records, "another input afterwards than the model's");
	Require(input.SurroundingsIntact() && output.SurroundingsIntact(), "bytes around the records have changed");
	Require(reports.Reports().empty(), "a report");
}

void SortInPlace(CByteReader &reader, bool insertionAlways)
{
	const CGuardedMemory::EFlush flush = ReadFlush(reader);
	CRecords records = Fuzz::ReadRecords(reader);
	if (insertionAlways) // it is quadratic
		records.resize(std::min<std::size_t>(records.size(), 60));
	SetCall(std::string(insertionAlways ? "insertion" : "quick") + " sort of " + std::to_string(records.size()) +
			" records");
	const u32 count = u32(records.size());
	const CGuardedMemory memory =
		LayOut(records, count, AddressToEndWithThePage(count * sizeof(SIndexAndDepth)), flush);

	const CIterator first(memory.As<SIndexAndDepth>());
	if (!insertionAlways)
	{
		QuickSort(first, first + int(count));
		Model::QuickSort(records);
	}
	else if (count != 0)
	{
		InsertionSort(first, first + int(count - 1));
		Model::InsertionSort(records, 0, s32(count - 1));
	}
	Require(Support::ReadRecords(memory.Data(), count) == records, "another order than the model's");
	Require(memory.SurroundingsIntact(), "bytes around the records have changed");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	Fuzz::ChooseInstructionSet(size);
	constexpr u32 kFunctionCount = 10;
	CByteReader reader(data, size);
	const u32 code = reader.Byte();
	const Fuzz::CHostFloatMode floatMode(code / kFunctionCount % Fuzz::CHostFloatMode::kModeCount);
	switch (code % kFunctionCount)
	{
	case 0:
	case 1:
		Fill(reader);
		break;
	case 2:
		Expand(reader);
		break;
	case 3:
		ExpandQuads(reader);
		break;
	case 4:
		Widen(reader);
		break;
	case 5:
		reader.Flag() ? Gather<u16>(reader) : Gather<u32>(reader);
		break;
	case 6:
		SortInto(reader, false);
		break;
	case 7:
		SortInto(reader, true);
		break;
	case 8:
		SortInPlace(reader, false);
		break;
	default:
		SortInPlace(reader, true);
		break;
	}
	return 0;
}
