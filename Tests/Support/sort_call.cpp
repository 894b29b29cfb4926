// Puts together a call that keeps every rule, and compares what validation says of it once it is broken.

#include "sort_call.h"

#include "diagnostics.h"
#include <algorithm>
#include <cstring>
#include <new>

using namespace Vexmoor;

namespace Support
{
unsigned char *CCall::_Add(std::size_t size)
{
	m_Memory.emplace_back(size);
	return m_Memory.back().Data();
}

template<typename _Type>
_Type *CCall::_Add(const std::vector<_Type> &elements)
{
	unsigned char *const data = _Add(elements.size() * sizeof(_Type));
	std::memcpy(data, static_cast<const void *>(elements.data()), elements.size() * sizeof(_Type));
	return reinterpret_cast<_Type *>(data);
}

void SetPattern(CPattern &pattern, std::vector<u32> entries)
{
	pattern = TMemoryView<u32>(entries.data(), u32(entries.size()));
}

CCall::CCall(ECallGeometry geometry)
	: m_Geometry(geometry)
	, m_Entry(geometry == Triangles ? SortEntry_Triangles : SortEntry_Points)
{
	const auto values = [this](u32 count) { return CValueView(_Add(std::vector<float>(count, 1.0f)), count, 4); };
	m_Values = _Add(std::vector<CValueView>{values(4), CValueView(), values(5), values(2)});
	const auto positions = [this](u32 count)
	{ return CPositionView(_Add(std::vector<CFloat3>(count, CFloat3(1, 2, 3))), count, 12); };
	m_Positions = _Add(std::vector<CPositionView>{positions(4), CPositionView(), positions(5), positions(2)});
	m_EnabledBytes = _Add(std::vector<u8>{1, 0, 255, 0, 7});
	m_Enableds = _Add(std::vector<CEnabledView>(kPageCount));
	m_Enableds[2] = CEnabledView(m_EnabledBytes, 5, 1);
	m_Counts = _Add(std::vector<u32>{4, 0, 3, 2});
	m_PositionPages = CTriangleSorter::CPositionPages(m_Positions, kPageCount, sizeof(CPositionView));
	m_ValuePages = CTriangleSorter::CSortKeyPages(m_Values, kPageCount, sizeof(CValueView));
	m_EnabledPages = CTriangleSorter::CEnabledPages(m_Enableds, kPageCount, sizeof(CEnabledView));
	m_RenderedCounts = CTriangleSorter::CRenderedCounts(m_Counts, kPageCount, sizeof(u32));

	m_Pattern = {0, 1, 2, 0, 2, 3};
	if (geometry == Quads)
		m_Pattern.insert(m_Pattern.end(), {3, 2, 1, 3, 1, 0});
	std::vector<u32> entries;
	for (u32 i = 0; i < kParticleCount; ++i)
		entries.push_back(i * m_VerticesPerParticle);
	m_Entries = _Add(entries);
	m_IndexList = TMemoryView<const u32>(m_Entries, kParticleCount);
	m_QuadCenters = TMemoryView<const CFloat4>(_Add(std::vector<CFloat4>(kParticleCount * 16)), kParticleCount * 16);

	m_Patterns = reinterpret_cast<CPattern *>(_Add(kPageCount * sizeof(CPattern)));
	for (u32 i = 0; i < kPageCount; ++i)
		new (m_Patterns + i) CPattern();
	SetPattern(m_Patterns[0], {0, 1, 2});
	SetPattern(m_Patterns[2], {0, 1, 2, 0, 2, 3});
	SetPattern(m_Patterns[3], {2, 1, 0});
	m_VertexCounts = _Add(std::vector<u32>{3, 0, 4, 3});
	m_PatternPages = TMemoryView<const CPattern>(m_Patterns, kPageCount);
	m_VertexCountPages = TMemoryView<const u32>(m_VertexCounts, kPageCount);

	m_VertexCount = geometry == Triangles ? 30 : 36;
	m_OutputCount = geometry == Triangles ? m_IndexCount : kParticleCount * u32(m_Pattern.size());
	m_Output = _Add(m_OutputCount * sizeof(u32));
	m_WorkingBufferSize = geometry == Triangles ? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(m_IndexCount)
	                                            : CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kParticleCount);
	m_WorkingBuffer = _Add(m_WorkingBufferSize);
}

CCall::~CCall()
{
	for (u32 i = 0; i < kPageCount; ++i)
		m_Patterns[i].~CPattern();
}

void CCall::Output16()
{
	m_16Bit = true;
	m_Output = _Add(m_OutputCount * sizeof(u16));
}

void CCall::SetUp()
{
	if (m_HasOutput && m_16Bit)
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u16>(static_cast<u16 *>(m_Output), m_OutputCount), m_VertexCount);
	else if (m_HasOutput)
		m_Sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(static_cast<u32 *>(m_Output), m_OutputCount), m_VertexCount);

	if (m_HasInput && m_ByPosition)
		m_Sorter.Setup_InputPageCache(m_PositionPages, m_EnabledPages, m_RenderedCounts, m_ParticleCount, m_Camera);
	else if (m_HasInput)
		m_Sorter.Setup_InputPageCache(m_ValuePages, m_EnabledPages, m_RenderedCounts, m_ParticleCount, m_Camera);

	const TMemoryView<u32> pattern(m_Pattern.data(), u32(m_Pattern.size()));
	if (!m_HasGeometry)
		return;
	if (m_Geometry == Constant)
		m_Sorter.Setup_Geometry(pattern, m_VerticesPerParticle);
	else if (m_Geometry == List)
		m_Sorter.Setup_Geometry(pattern, m_IndexList);
	else if (m_Geometry == Quads)
		m_Sorter.Setup_Geometry(pattern, m_IndexList, m_QuadCenters, m_VerticesPerParticle);
	else
		m_Sorter.Setup_Geometry(m_PatternPages, m_VertexCountPages, m_IndexCount);
}

void CCall::Sort()
{
	if (m_Entry == SortEntry_Triangles)
		m_Sorter.SortTriangles_AutogenIndices(m_WorkingBuffer);
	else
		m_Sorter.SortPoints_AutogenIndices(m_WorkingBuffer);
}

u32 CCall::SortChecked(CbSortFinding handler, void *userData)
{
	const auto sort = m_Entry == SortEntry_Triangles ? &SortTrianglesChecked : &SortPointsChecked;
	return sort(m_Sorter, m_WorkingBuffer, m_WorkingBufferSize, handler, userData, null);
}

bool CCall::SurroundingsIntact() const
{
	return std::all_of(
		m_Memory.begin(), m_Memory.end(), [](const CGuardedMemory &memory) { return memory.SurroundingsIntact(); });
}

std::vector<unsigned char> CCall::Contents() const
{
	std::vector<unsigned char> contents;
	for (const CGuardedMemory &memory : m_Memory)
		contents.insert(contents.end(), memory.Data(), memory.Data() + memory.Size());
	return contents;
}

u32 CCall::Validate(CbSortFinding handler, void *userData) const
{
	return ValidateSort(m_Sorter, m_Entry, m_WorkingBuffer, m_WorkingBufferSize, handler, userData);
}

void Collect(const SSortFinding &finding, void *findings)
{
	SFindings &collected = *static_cast<SFindings *>(findings);
	const bool isAdvice = finding.m_Kind == SortFinding_Advice;
	collected.m_ViolationCount += isAdvice ? 0 : 1;
	collected.m_Sentences.push_back((isAdvice ? "Advice: " : "") + std::string(finding.m_Sentence));
}

std::vector<std::string> CCall::Findings()
{
	SetUp();
	const CExpectReports noReports;
	SFindings collected;
	const u32 violationCount = Validate(&Collect, &collected);
	EXPECT_EQ(violationCount, collected.m_ViolationCount);
	EXPECT_EQ(Validate(null, null), violationCount);
	return collected.m_Sentences;
}

testing::AssertionResult IsRefused(CCall &call)
{
	SFindings told;
	const u32 violationCount = call.Validate(&Collect, &told);
	if (violationCount == 0)
		return testing::AssertionFailure() << "no rule is broken";

	const std::vector<unsigned char> before = call.Contents();
	const CReportRecorder reports;
	const CWarningRecorder warnings;
	const CAllocationRecorder allocations;
	SFindings toldAgain;
	if (call.SortChecked(&Collect, &toldAgain) != violationCount || toldAgain.m_Sentences != told.m_Sentences)
		return testing::AssertionFailure() << "findings: " << testing::PrintToString(toldAgain.m_Sentences)
		                                   << "\nnot: " << testing::PrintToString(told.m_Sentences);
	if (const u32 count = call.SortChecked(null, null); count != violationCount)
		return testing::AssertionFailure() << "without a handler " << count << " violations, not " << violationCount;
	if (call.Contents() != before || !call.SurroundingsIntact())
		return testing::AssertionFailure() << "something was written";
	if (!reports.Texts().empty())
		return testing::AssertionFailure() << "reports: " << testing::PrintToString(reports.Texts());
	if (!warnings.Entries().empty() || warnings.Hazards() != 0)
		return testing::AssertionFailure() << "warnings: " << testing::PrintToString(warnings.Messages());
	if (!allocations.Allocations().empty())
		return testing::AssertionFailure() << "memory was allocated";
	return testing::AssertionSuccess();
}

// What a sort reports of calls that keep the rules, and the words of the advice that foretells it.
static bool IsForetold(const std::string &report, const std::string &advice)
{
	const auto advises = [&advice](const char *words) { return advice.find(words) != std::string::npos; };
	if (report == "index < m_Count")
		return advises("reports that it has no first record") || advises("reports that it has no record to read");
	return (report == "Mem::IsAligned<0x10>(it)" || report == "Mem::IsAligned<0x10>(inoutList.Data())") &&
	       advises("an odd number");
}

testing::AssertionResult IsRefusedOrSorts(CCall &call)
{
	if (call.Validate(null, null) != 0)
		return IsRefused(call);

	CReportRecorder reports;
	const CWarningRecorder quiet;
	SFindings findings;
	if (const u32 count = call.SortChecked(&Collect, &findings); count != 0)
		return testing::AssertionFailure() << count << " violations, and none before";
	std::string advice;
	for (const std::string &sentence : findings.m_Sentences)
		advice += sentence + "\n";
	for (const std::string &report : reports.Texts())
	{
		if (!IsForetold(report, advice))
			return testing::AssertionFailure() << "a report that nothing foretells: " << report << "\n" << advice;
	}
	const bool foretellsReport = advice.find("report") != std::string::npos;
	if (VX_ASSERTIONS && foretellsReport && reports.Texts().empty())
		return testing::AssertionFailure() << "no report, but: " << advice;

	const std::vector<unsigned char> sorted = call.Contents();
	call.Sort();
	if (call.Contents() != sorted)
		return testing::AssertionFailure() << "the bare sort writes something else";
	if (!call.SurroundingsIntact())
		return testing::AssertionFailure() << "bytes around the call's memory have changed";
	return testing::AssertionSuccess();
}

void PrintTo(const SBrokenCall &broken, std::ostream *stream)
{
	*stream << broken.m_Name;
}

std::string NameOf(const testing::TestParamInfo<SBrokenCall> &broken)
{
	return broken.param.m_Name;
}

void ExpectFindings(const SBrokenCall &broken)
{
	CCall call(broken.m_Geometry);
	{
		const CReportRecorder viewsOfWrongStrides;
		broken.m_Break(call);
	}
	const std::vector<std::string> findings = call.Findings();
	EXPECT_EQ(findings, broken.m_Findings);
	const bool isViolated = std::any_of(findings.begin(), findings.end(),
		[](const std::string &sentence) { return sentence.rfind("Advice: ", 0) != 0; });
	if (isViolated)
	{
		EXPECT_TRUE(IsRefused(call));
	}
}
} // namespace Support
