// Set-up, output, and the views of pages and particles, broken: the sentences that say what is wrong.

#include "sort_call.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

// One page of count particles, all at one value, over memory that is not there.
static void RenderOnly(CCall &call, u32 count)
{
	std::fill(call.m_Counts, call.m_Counts + 4, 0u);
	call.m_Counts[0] = call.m_ParticleCount = count;
	call.m_Values[0] = {call.m_Values[0].Data(), count, 0};
	call.m_VertexCount = count * 4;
	call.m_OutputCount = count * 6;
	call.m_WorkingBufferSize = u64(count + count % 2) * 16;
	call.m_WorkingBuffer = BytesBeforeTheEnd<void>(call.m_WorkingBufferSize);
}

class SortValidationOfInput : public testing::TestWithParam<SBrokenCall>
{
};

TEST_P(SortValidationOfInput, BrokenCall_IsToldInSentences)
{
	ExpectFindings(GetParam());
}

static const SBrokenCall kSetUp[] = {
	SBrokenCall("NoOutput", Constant, {"No output is set up."}, [](CCall &call) { call.m_HasOutput = false; }),
	SBrokenCall("NoInput", Constant, {"No input is set up."}, [](CCall &call) { call.m_HasInput = false; }),
	SBrokenCall("NoInputOfTriangles", Triangles, {"No input is set up."}, [](CCall &call) { call.m_HasInput = false; }),
	SBrokenCall("NoGeometry", Constant, {"No geometry is set up."}, [](CCall &call) { call.m_HasGeometry = false; }),
	SBrokenCall("OutputNull",
		Constant,
		{"The view of the output has a null pointer, but a count of 54."},
		[](CCall &call) { call.m_Output = null; }),
	SBrokenCall("Output32AtOddAddress",
		Constant,
		{"The view of the output starts at 2 modulo 4, but needs 0."},
		[](CCall &call) { call.m_Output = BytesPast<void>(call.m_Output, 2); }),
	SBrokenCall("Output16AtOddAddress",
		Constant,
		{"The view of the output starts at 1 modulo 2, but needs 0."},
		[](CCall &call)
		{
			call.Output16();
			call.m_Output = BytesPast<void>(call.m_Output, 1);
		}),
	SBrokenCall("OutputBeyondAddresses",
		Constant,
		{"The sort uses 216 bytes of the output, but the address space ends after 64."},
		[](CCall &call) { call.m_Output = BytesBeforeTheEnd<void>(64); }),
	SBrokenCall("OutputUpToTheLastAddress",
		Constant,
		{"Advice: The output starts at 8 modulo 16: 0 is faster."},
		[](CCall &call)
		{
			call.m_Output = BytesBeforeTheEnd<void>(216);
			call.m_OutputCount = 54;
		}),
	SBrokenCall("OutputTooLarge",
		Constant,
		{"The sort uses 4294967304 bytes of the output, but sizes end at 4294967295."},
		[](CCall &call)
		{
			RenderOnly(call, 0x0AAAAAABu);
			call.m_Output = BytesPast<void>(null, 16);
		}),
	SBrokenCall("OutputOfMoreThanIsWritten", Constant, {}, [](CCall &call) { call.m_OutputCount = 0xFFFFFFFFu; }),
	SBrokenCall("OutputNullOfWhichNothingIsWritten",
		Quads,
		{"Advice: The width of the index pattern is 5, 5 more than whole quads: the rest is not drawn, and its place "
		 "in the output is left as it is."},
		[](CCall &call)
		{
			call.m_Pattern.resize(5);
			call.m_Output = null;
		}),
	SBrokenCall("OutputOfLessThanAPattern",
		Constant,
		{"Advice: The output has room for 0 of 9 particles: the lowest keys are not drawn, nor is the highest."},
		[](CCall &call) { call.m_OutputCount = 5; }),
	SBrokenCall("OutputOfNothingForAnEvenCount",
		Constant,
		{"Advice: The output has room for 0 of 8 particles: the lowest keys are not drawn, and the sort reports that "
		 "it has no record to read."},
		[](CCall &call)
		{
			call.m_Counts[3] = 1;
			call.m_ParticleCount = 8;
			call.m_OutputCount = 5;
		}),
	SBrokenCall("OutputOfOddShortfall",
		Constant,
		{"Advice: The output has room for 4 of 9 particles: the lowest keys are not drawn, nor is the highest."},
		[](CCall &call) { call.m_OutputCount = 6 * 4; }),
	SBrokenCall("OutputNullOfNothing",
		Constant,
		{"Advice: The output has room for 0 of 9 particles: the lowest keys are not drawn, nor is the highest."},
		[](CCall &call)
		{
			call.m_Output = null;
			call.m_OutputCount = 0;
		}),
	SBrokenCall("OutputUnaligned",
		Constant,
		{"Advice: The output starts at 8 modulo 16: 0 is faster."},
		[](CCall &call) { call.m_Output = BytesPast<void>(call.m_Output, 8); }),
	SBrokenCall("OutputMemoryOfNoKind",
		Constant,
		{"The kind of output memory is 2, but the kinds are 0 and 1."},
		[](CCall &call) { call.m_Sorter.Setup_OutputMemory(CTriangleSorter::EOutputMemory(2)); }),
	SBrokenCall("OutputMemoryOfNoKindAndNoOutput",
		Constant,
		{"No output is set up.", "The kind of output memory is 4294967295, but the kinds are 0 and 1."},
		[](CCall &call)
		{
			call.m_HasOutput = false;
			call.m_Sorter.Setup_OutputMemory(CTriangleSorter::EOutputMemory(0xFFFFFFFFu));
		}),
	SBrokenCall("OutputInOrdinaryMemory",
		Constant,
		{},
		[](CCall &call) { call.m_Sorter.Setup_OutputMemory(CTriangleSorter::OutputMemory_Cached); }),
	SBrokenCall("TwelveWideOutputUnaligned",
		Constant,
		{"Advice: The output starts at 4 modulo 8: 0 is faster."},
		[](CCall &call)
		{
			call.m_Pattern.insert(call.m_Pattern.end(), 6, 3);
			call.m_Output = BytesPast<void>(call.m_Output, 4);
			call.m_OutputCount = 108;
		}),
};
INSTANTIATE_TEST_SUITE_P(SetUp, SortValidationOfInput, testing::ValuesIn(kSetUp), NameOf);

static const SBrokenCall kPages[] = {
	SBrokenCall("NoPages",
		Constant,
		{"The count of rendered counts is 0, but a sort of points needs at least 1."},
		[](CCall &call)
		{
			call.m_RenderedCounts = {};
			call.m_ValuePages = {};
			call.m_EnabledPages = {};
			call.m_ParticleCount = 0;
		}),
	SBrokenCall("NothingRendered",
		Constant,
		{"Advice: The pages render 0 particles: the sort draws nothing, and reports that it has no first record."},
		[](CCall &call)
		{
			std::fill(call.m_Counts, call.m_Counts + 4, 0u);
			call.m_ParticleCount = 0;
		}),
	SBrokenCall("ParticleCountTooHigh",
		Constant,
		{"The pages render 9 particles, but the particle count is 10.",
			"Advice: The output has room for 9 of 10 particles: the lowest keys are not drawn, nor is the highest.",
			"Advice: The vertex count of 36 has room for 9 of 10 particles: the rest draws vertex 0's."},
		[](CCall &call) { call.m_ParticleCount = 10; }),
	SBrokenCall("ParticleCountTooLow",
		List,
		{"The pages render 9 particles, but the particle count is 8."},
		[](CCall &call) { call.m_ParticleCount = 8; }),
	SBrokenCall("RenderedCountsWrapToTheParticleCount",
		Constant,
		{"The pages render 4294967305 particles, but the particle count is 9.",
			"Page 0 renders 5 particles, but has sort values for 4.",
			"Page 1 renders 4294967295 particles, but has sort values for 0."},
		[](CCall &call)
		{
			call.m_Counts[1] = 0xFFFFFFFFu;
			call.m_Counts[0] = 5;
		}),
	SBrokenCall("RenderedCountsNull",
		Constant,
		{"The view of the rendered counts has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_RenderedCounts = {null, 4, 4};
		}),
	SBrokenCall("RenderedCountsOverlap",
		Constant,
		{"The view of the rendered counts has a stride of 2, but elements of 4 bytes."},
		[](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 4, 2};
		}),
	SBrokenCall("RenderedCountsMisaligned",
		Constant,
		{"The view of the rendered counts starts at 2 modulo 4, but needs 0."},
		[](CCall &call) {
			call.m_RenderedCounts = {BytesPast<u32>(call.m_Counts, 2), 3, 4};
		}),
	SBrokenCall("RenderedCountsStrideMisaligned",
		Constant,
		{"The view of the rendered counts has a stride of 6, but needs a multiple of 4."},
		[](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 2, 6};
		}),
	SBrokenCall("RenderedCountsBeyondAddresses",
		Constant,
		{"The sort uses 16 bytes of the rendered counts, but the address space ends after 12."},
		[](CCall &call) {
			call.m_RenderedCounts = {BytesBeforeTheEnd<u32>(12), 4, 4};
		}),
	SBrokenCall("RenderedCountsTooMany",
		Constant,
		{"The sort uses 4294967296 bytes of the rendered counts, but sizes end at 4294967295."},
		[](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 0x40000000, 4};
		}),
	SBrokenCall("FewerValuePages",
		Constant,
		{"The count of sort value views is 3, but that of rendered counts is 4."},
		[](CCall &call) { call.m_ValuePages = call.m_ValuePages.Slice(0, 3); }),
	SBrokenCall("FewerPositionPages",
		Constant,
		{"The count of position views is 2, but that of rendered counts is 4."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_PositionPages = call.m_PositionPages.Slice(0, 2);
		}),
	SBrokenCall("FewerEnabledPages",
		Constant,
		{"The count of enabled views is 1, but that of rendered counts is 4."},
		[](CCall &call) { call.m_EnabledPages = call.m_EnabledPages.Slice(0, 1); }),
	SBrokenCall("NoEnabledPages",
		Triangles,
		{"There is no enabled view, but 4 pages: each needs one, an empty view where no particle is disabled."},
		[](CCall &call) { call.m_EnabledPages = {}; }),
	SBrokenCall("NoEnabledPageOfOne",
		Constant,
		{"There is no enabled view, but 1 page: each needs one, an empty view where no particle is disabled."},
		[](CCall &call)
		{
			call.m_RenderedCounts = call.m_RenderedCounts.Slice(0, 1);
			call.m_ValuePages = call.m_ValuePages.Slice(0, 1);
			call.m_EnabledPages = {};
			call.m_ParticleCount = 4;
		}),
	SBrokenCall("MoreEnabledPages",
		Constant,
		{"The count of enabled views is 4, but that of rendered counts is 3."},
		[](CCall &call)
		{
			call.m_RenderedCounts = call.m_RenderedCounts.Slice(0, 3);
			call.m_ParticleCount = 7;
			call.m_ValuePages = call.m_ValuePages.Slice(0, 3);
		}),
	SBrokenCall("ValuePagesNull",
		Constant,
		{"The view of the pages' sort values has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_ValuePages = {null, 4, 16};
		}),
	SBrokenCall("PositionPagesNull",
		Constant,
		{"The view of the pages' positions has a null pointer, but a count of 4."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_PositionPages = {null, 4, 16};
		}),
	SBrokenCall("EnabledPagesNull",
		Constant,
		{"The view of the pages' enabled bytes has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_EnabledPages = {null, 4, 16};
		}),
	SBrokenCall("ValuePagesOverlap",
		Constant,
		{"The view of the pages' sort values has a stride of 8, but elements of 16 bytes."},
		[](CCall &call) {
			call.m_ValuePages = {call.m_Values, 4, 8};
		}),
	SBrokenCall("EnabledPagesMisaligned",
		Constant,
		{"The view of the pages' enabled bytes starts at 4 modulo 8, but needs 0."},
		[](CCall &call) {
			call.m_EnabledPages = {BytesPast<CEnabledView>(call.m_Enableds, 4), 4, 16};
		}),
	SBrokenCall("ValuePagesBeyondAddresses",
		Constant,
		{"The sort uses 64 bytes of the pages' sort values, but the address space ends after 48."},
		[](CCall &call) {
			call.m_ValuePages = {BytesBeforeTheEnd<CValueView>(48), 4, 16};
		}),
};
INSTANTIATE_TEST_SUITE_P(Pages, SortValidationOfInput, testing::ValuesIn(kPages), NameOf);

static const SBrokenCall kParticles[] = {
	SBrokenCall("ValuesNull",
		Constant,
		{"The view of the sort values of page 0 has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_Values[0] = {null, 4, 4};
		}),
	SBrokenCall("ValuesTooFew",
		Constant,
		{"Page 0 renders 4 particles, but has sort values for 3."},
		[](CCall &call) { call.m_Values[0] = call.m_Values[0].Slice(0, 3); }),
	SBrokenCall("ValuesNone",
		Triangles,
		{"Page 3 renders 2 particles, but has sort values for 0."},
		[](CCall &call) { call.m_Values[3] = {}; }),
	SBrokenCall("ValuesOverlap",
		Constant,
		{"The view of the sort values of page 3 has a stride of 3, but elements of 4 bytes."},
		[](CCall &call) {
			call.m_Values[3] = {call.m_Values[3].Data(), 2, 3};
		}),
	SBrokenCall("ValuesBeyondAddresses",
		Constant,
		{"The sort uses 16 bytes of the sort values of page 0, but the address space ends after 12."},
		[](CCall &call) {
			call.m_Values[0] = {BytesBeforeTheEnd<float>(12), 4, 4};
		}),
	SBrokenCall("ValuesTooLarge",
		Constant,
		{"The sort uses 4294967296 bytes of the sort values of page 0, but sizes end at 4294967295."},
		[](CCall &call) {
			call.m_Values[0] = {call.m_Values[0].Data(), 4, 0x40000000};
		}),
	SBrokenCall("ValuesStrided",
		Constant,
		{"Advice: The sort values of page 0 have a stride of 5: 4 is faster."},
		[](CCall &call) {
			call.m_Values[0] = {call.m_Values[2].Data(), 4, 5};
		}),
	SBrokenCall("PositionsNull",
		Triangles,
		{"The view of the positions of page 2 has a null pointer, but a count of 5.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[2] = {null, 5, 12};
		}),
	SBrokenCall("PositionsTooFew",
		Constant,
		{"Page 3 renders 2 particles, but has positions for 1.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[3] = call.m_Positions[3].Slice(1, 1);
		}),
	SBrokenCall("PositionsOverlap",
		Constant,
		{"The view of the positions of page 0 has a stride of 11, but elements of 12 bytes.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[0] = {call.m_Positions[0].Data(), 4, 11};
		}),
	SBrokenCall("PositionsStrided",
		Constant,
		{"Advice: The positions of page 3 have a stride of 16: 12 is faster.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[3] = {call.m_Positions[2].Data(), 2, 16};
		}),
	SBrokenCall("PagesMixedByPosition",
		Constant,
		{"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
		 "however near it is."},
		[](CCall &call) { call.SortByPosition(); }),
	SBrokenCall("PagesMixedByPositionWithTheFullOneBehind",
		Constant,
		{"Advice: Page 2 has disabled particles and page 3 has none: sorted by position, the former is drawn first, "
		 "however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Counts[0] = 0;
			call.m_ParticleCount = 5;
		}),
	SBrokenCall("ValuesOfAPool",
		Constant,
		{},
		[](CCall &call) {
			call.m_Values[0] = {call.m_Values[0].Data(), 0xFFFFFFFFu, 4};
		}),
	SBrokenCall("PositionsOfAPool",
		Triangles,
		{},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Enableds[2] = {};
			call.m_Positions[3] = {call.m_Positions[3].Data(), 0xFFFFFFFFu, 12};
		}),
	SBrokenCall("PositionsOfAPoolWithEnabledBytes",
		Constant,
		{"The sort uses 51539607540 bytes of the positions of page 2, but sizes end at 4294967295.",
			"Page 2 has enabled bytes for 5, but positions for 4294967295.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[2] = {call.m_Positions[2].Data(), 0xFFFFFFFFu, 12};
		}),
	SBrokenCall("ValuesNullBeyondTheVertices",
		Constant,
		{"Advice: The vertex count of 16 has room for 4 of 9 particles: the rest draws vertex 0's."},
		[](CCall &call)
		{
			call.m_VertexCount = 16;
			call.m_Values[2] = {null, 5, 4};
			call.m_Enableds[2] = {null, 3, 2};
			call.m_Values[3] = {};
		}),
	SBrokenCall("ValuesAsManyAsTheVerticesHaveRoomFor",
		Constant,
		{"Advice: The vertex count of 32 has room for 8 of 9 particles: the rest draws vertex 0's."},
		[](CCall &call)
		{
			call.m_VertexCount = 32;
			call.m_Values[3] = call.m_Values[3].Slice(1, 1);
		}),
	SBrokenCall("ValuesFewerThanTheVerticesHaveRoomFor",
		Constant,
		{"Page 3 renders 2 particles, but has sort values for 1."},
		[](CCall &call) { call.m_Values[3] = call.m_Values[3].Slice(1, 1); }),
	SBrokenCall("ValuesNullBeyondThePageThatIsDropped",
		Triangles,
		{"Advice: The first particle of page 2 ends at vertex 16, but the vertex count is 15: pages from there on are "
		 "not drawn."},
		[](CCall &call)
		{
			call.m_VertexCount = 15;
			call.m_Values[3] = {null, 2, 4};
			SetPattern(call.m_Patterns[3], {0, 1, 2, 0, 1, 2});
			call.m_IndexCount = 42;
			call.m_Output = BytesBeforeTheEnd<void>(0x1000);
			call.m_OutputCount = 42;
			call.m_WorkingBuffer = BytesBeforeTheEnd<void>(0x2000);
			call.m_WorkingBufferSize = 0x1000;
		}),
	// The sort sees to it that there is a source before it finds that there is no room.
	SBrokenCall("ValuesNoneOfThePageThatIsDropped",
		Triangles,
		{"Page 2 renders 3 particles, but has sort values for 0.",
			"Advice: The first particle of page 2 ends at vertex 16, but the vertex count is 15: pages from there on "
			"are not drawn."},
		[](CCall &call)
		{
			call.m_VertexCount = 15;
			call.m_Values[2] = {};
		}),
	SBrokenCall("CameraInfinite",
		Constant,
		{"Advice: The camera's x is infinite, and so is every distance to it.",
			"Advice: The camera's z is infinite, and so is every distance to it."},
		[](CCall &call)
		{
			const u32 bits[] = {0x7F800000u, 0x7F7FFFFFu, 0xFF800000u};
			std::memcpy(static_cast<void *>(&call.m_Camera), bits, sizeof(bits));
			call.SortByPosition();
			call.m_Enableds[2] = {};
		}),
	SBrokenCall("CameraThatNothingIsMeasuredFrom",
		List,
		{},
		[](CCall &call)
		{
			const u32 bits[] = {0x7F800000u, 0x7FC00000u, 0xFF800000u};
			std::memcpy(static_cast<void *>(&call.m_Camera), bits, sizeof(bits));
		}),
	SBrokenCall("CameraNotANumber",
		Constant,
		{"Advice: The camera's x is not a number, and so is every distance to it.",
			"Advice: The camera's z is not a number, and so is every distance to it."},
		[](CCall &call)
		{
			const u32 bits[] = {0x7F800001u, 0x7F800000u, 0xFFC00000u};
			std::memcpy(static_cast<void *>(&call.m_Camera), bits, sizeof(bits));
			call.SortByPosition();
			call.m_Enableds[2] = {};
		}),
	SBrokenCall("EnabledBytesTooFew",
		Constant,
		{"Page 2 renders 3 particles, but 2 of its enabled bytes are not 0."},
		[](CCall &call) { call.m_EnabledBytes[4] = 0; }),
	SBrokenCall("EnabledBytesTooMany",
		Constant,
		{"Page 2 renders 3 particles, but 4 of its enabled bytes are not 0."},
		[](CCall &call) { call.m_EnabledBytes[3] = 1; }),
	SBrokenCall("EnabledBytesNoneSet",
		Triangles,
		{"Page 2 renders 3 particles, but 0 of its enabled bytes are not 0."},
		[](CCall &call) { std::fill(call.m_EnabledBytes, call.m_EnabledBytes + 5, u8(0)); }),
	SBrokenCall("EnabledBytesOfAllRendered",
		Constant,
		{"Page 2 renders 5 particles, but 3 of its enabled bytes are not 0."},
		[](CCall &call)
		{
			call.m_Counts[2] = 5;
			call.m_Counts[0] = 2;
		}),
	SBrokenCall("EnabledBytesFewerThanValues",
		Constant,
		{"Page 2 has enabled bytes for 4, but sort values for 5."},
		[](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 4, 1};
		}),
	SBrokenCall("EnabledBytesMoreThanPositions",
		Triangles,
		{"Page 2 has enabled bytes for 5, but positions for 4.",
			"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
			"however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[2] = call.m_Positions[2].Slice(0, 4);
		}),
	SBrokenCall("EnabledBytesStrided",
		Constant,
		{"The enabled bytes of page 2 have a stride of 2, but need 1."},
		[](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 3, 2};
		}),
	SBrokenCall("EnabledBytesVirtual",
		Constant,
		{"The enabled bytes of page 2 have a stride of 0, but need 1."},
		[](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 0};
		}),
	SBrokenCall("EnabledBytesNull",
		Constant,
		{"The view of the enabled bytes of page 2 has a null pointer, but a count of 5."},
		[](CCall &call) {
			call.m_Enableds[2] = {null, 5, 1};
		}),
	SBrokenCall("EnabledBytesBeyondAddresses",
		Constant,
		{"The sort uses 5 bytes of the enabled bytes of page 2, but the address space ends after 4."},
		[](CCall &call) {
			call.m_Enableds[2] = {BytesBeforeTheEnd<u8>(4), 5, 1};
		}),
};
INSTANTIATE_TEST_SUITE_P(Particles, SortValidationOfInput, testing::ValuesIn(kParticles), NameOf);
