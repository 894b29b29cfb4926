// Geometry, working buffer and shared memory, broken: the sentences that say what is wrong.

#include "sort_call.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

class SortValidationOfGeometry : public testing::TestWithParam<SBrokenCall>
{
};

TEST_P(SortValidationOfGeometry, BrokenCall_IsToldInSentences)
{
	ExpectFindings(GetParam());
}

static const SBrokenCall kPoints[] = {
	SBrokenCall("PatternEmpty",
		Constant,
		{"The index pattern has 0 entries, but needs at least 1."},
		[](CCall &call) { call.m_Pattern.clear(); }),
	SBrokenCall("ListPatternEmpty",
		List,
		{"The index pattern has 0 entries, but needs at least 1."},
		[](CCall &call) { call.m_Pattern.clear(); }),
	SBrokenCall("QuadPatternEmpty",
		Quads,
		{"The index pattern has 0 entries, but needs at least 1."},
		[](CCall &call) { call.m_Pattern.clear(); }),
	SBrokenCall("PatternOfOneNotZero",
		Constant,
		{"The index pattern's only entry is 2, but has to be 0."},
		[](CCall &call) { call.m_Pattern = {2}; }),
	SBrokenCall("PatternOfSeldomWidth",
		Constant,
		{"Advice: The width of the index pattern is 7: 1, 3, 6 and 12 are faster."},
		[](CCall &call)
		{
			call.m_Pattern.push_back(3);
			call.m_OutputCount = 63;
		}),
	SBrokenCall("PatternOf12In16BitsAtAnyAddress",
		Constant,
		{"Advice: The output has room for 8 of 9 particles: the lowest keys are not drawn, nor is the highest."},
		[](CCall &call)
		{
			call.m_Pattern = {0, 1, 2, 0, 2, 3, 0, 1, 2, 0, 2, 3};
			call.m_OutputCount = 8 * 12 + 1;
			call.Output16();
			call.m_Output = BytesPast<u16>(call.m_Output, sizeof(u16));
			--call.m_OutputCount;
		}),
	SBrokenCall("ListEntryBeyondVerticesDrawsVertex0BeyondTheType",
		List,
		{"Advice: Page 3, particle 7: its list entry is 100, but the vertex count is 36: it draws vertex 0's, as if "
		 "infinitely far.",
			"Advice: Page 0, particle 0: its largest index is 70000, but the vertex count is 36.",
			"Advice: Page 2, particle 4: its largest index is 70016, but the vertex count is 36.",
			"Advice: Page 3, particle 8: its largest index is 70032, but the vertex count is 36.",
			"Page 0, particle 0: its largest index is 70000, but indices of 16 bits end at 65534.",
			"Page 2, particle 4: its largest index is 70016, but indices of 16 bits end at 65534.",
			"Page 3, particle 7: its largest index is 70000, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_Pattern[5] = 70000;
			call.m_Entries[7] = 100;
		}),
	SBrokenCall("PatternEntryBeyondVertices",
		Constant,
		{"Advice: Entry 4 of the index pattern is 4, but the vertices per particle are 4: it draws a vertex of a later "
		 "particle.",
			"Advice: Page 3, particle 8: its largest index is 36, but the vertex count is 36."},
		[](CCall &call) { call.m_Pattern[4] = 4; }),
	SBrokenCall("PatternOfARibbonThatSharesVertices",
		Constant,
		{"Advice: Entry 2 of the index pattern is 2, but the vertices per particle are 2: it draws a vertex of a later "
		 "particle."},
		[](CCall &call)
		{
			call.m_VerticesPerParticle = 2;
			call.m_VertexCount = 20;
		}),
	SBrokenCall("TubePatternEntryBeyondVertices",
		Quads,
		{"Advice: Entry 6 of the index pattern is 4, but the vertices per particle are 4: it draws a vertex of a later "
		 "particle.",
			"Advice: Page 3, particle 8: its largest index is 36, but the vertex count is 36."},
		[](CCall &call) { call.m_Pattern[6] = 4; }),
	SBrokenCall("NoVerticesPerParticle",
		Constant,
		{"The particles have 0 vertices each, but need at least 1."},
		[](CCall &call) { call.m_VerticesPerParticle = 0; }),
	SBrokenCall("NoVerticesPerTube",
		Quads,
		{"The particles have 0 vertices each, but need at least 1."},
		[](CCall &call) { call.m_VerticesPerParticle = 0; }),
	SBrokenCall("VerticesEndBeforeParticles",
		Constant,
		{"Advice: The vertex count of 35 has room for 8 of 9 particles: the rest draws vertex 0's."},
		[](CCall &call) { call.m_VertexCount = 35; }),
	SBrokenCall("IndexOf16BitsTooLarge",
		Constant,
		{"Page 2, particle 5: its largest index is 78641, but indices of 16 bits end at 65534.",
			"Page 3, particle 7: its largest index is 104855, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_VerticesPerParticle = 0xFFFF / 5;
			call.m_Pattern[0] = 0x3332;
			call.m_VertexCount = 0x20000;
		}),
	SBrokenCall("IndexOf16BitsNotDrawn",
		Constant,
		{"Advice: The vertex count of 65536 has room for 8 of 9 particles: the rest draws vertex 0's."},
		[](CCall &call)
		{
			call.Output16();
			call.m_VerticesPerParticle = 0x2000;
			call.m_VertexCount = 0x10000;
		}),
	SBrokenCall("IndexOf16BitsAtTheEnd",
		Constant,
		{"Page 3, particle 8: its largest index is 65535, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_VerticesPerParticle = 0x1FFF;
			call.m_Pattern[0] = 7;
			call.m_VertexCount = 0x20000;
		}),
	SBrokenCall("IndexOf32BitsTooLarge",
		List,
		{"Advice: Page 2, particle 5: its largest index is 4294967296, but the vertex count is 4294967295.",
			"Page 2, particle 5: its largest index is 4294967296, but indices of 32 bits end at 4294967295."},
		[](CCall &call)
		{
			call.m_VertexCount = 0xFFFFFFFFu;
			call.m_Entries[5] = 0xFFFFFFFDu;
		}),
	SBrokenCall("ListNull",
		List,
		{"The view of the index list has a null pointer, but a count of 9."},
		[](CCall &call) {
			call.m_IndexList = {null, 9};
		}),
	SBrokenCall("ListTooShort",
		List,
		{"The count of the index list is 8, but the particle count is 9."},
		[](CCall &call) {
			call.m_IndexList = {call.m_Entries + 1, 8};
		}),
	SBrokenCall("ListOfAPool",
		List,
		{},
		[](CCall &call) {
			call.m_IndexList = {call.m_Entries, 0xFFFFFFFFu};
		}),
	SBrokenCall("ListBeyondAddresses",
		List,
		{"The sort uses 36 bytes of the index list, but the address space ends after 8."},
		[](CCall &call) {
			call.m_IndexList = {BytesBeforeTheEnd<const u32>(8), 9};
		}),
	SBrokenCall("ListEntryBeyondVertices",
		List,
		{"Advice: Page 0, particle 3: its list entry is 36, but the vertex count is 36: it draws vertex 0's, as if "
		 "infinitely far.",
			"Advice: Page 3, particle 8: its list entry is 4294967295, but the vertex count is 36: it draws vertex "
			"0's, as if infinitely far."},
		[](CCall &call)
		{
			call.m_Entries[3] = 36;
			call.m_Entries[8] = 0xFFFFFFFFu;
		}),
	SBrokenCall("ListWithoutVertices",
		List,
		{"Advice: Page 0, particle 0: its list entry is 0, but the vertex count is 0: it draws vertex 0's, as if "
		 "infinitely far.",
			"Advice: Page 2, particle 4: its list entry is 16, but the vertex count is 0: it draws vertex 0's, as if "
			"infinitely far.",
			"Advice: Page 3, particle 7: its list entry is 28, but the vertex count is 0: it draws vertex 0's, as if "
			"infinitely far."},
		[](CCall &call) { call.m_VertexCount = 0; }),
	SBrokenCall("ListParticleBeyondVertices",
		List,
		{"Advice: Page 2, particle 6: its largest index is 36, but the vertex count is 36."},
		[](CCall &call) { call.m_Entries[6] = 33; }),
	SBrokenCall("ListIndexOf16BitsTooLarge",
		List,
		{"Page 2, particle 5: its largest index is 65535, but indices of 16 bits end at 65534.",
			"Page 3, particle 7: its largest index is 65537, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_VertexCount = 0x20000;
			call.m_Entries[4] = 0xFFFB;
			call.m_Entries[5] = 0xFFFC;
			call.m_Entries[6] = 0xFFFD;
			call.m_Entries[7] = 0xFFFE;
		}),
	SBrokenCall("ListPatternOf16BitsTooLarge",
		List,
		{"Advice: Page 0, particle 0: its largest index is 65535, but the vertex count is 36.",
			"Advice: Page 2, particle 4: its largest index is 65551, but the vertex count is 36.",
			"Advice: Page 3, particle 7: its largest index is 65563, but the vertex count is 36.",
			"Page 0, particle 0: its largest index is 65535, but indices of 16 bits end at 65534.",
			"Page 2, particle 4: its largest index is 65551, but indices of 16 bits end at 65534.",
			"Page 3, particle 7: its largest index is 65563, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_Pattern[5] = 0xFFFF;
		}),
	SBrokenCall("QuadCentersOfAPool",
		Quads,
		{},
		[](CCall &call) {
			call.m_QuadCenters = {call.m_QuadCenters.Data(), 0xFFFFFFFFu};
		}),
	SBrokenCall("QuadCentersNoSlots",
		Quads,
		{"Page 0, particle 0: its quads need 16 centre slots, but there are 15.",
			"Page 2, particle 4: its quads need 80 centre slots, but there are 15.",
			"Page 3, particle 7: its quads need 128 centre slots, but there are 15."},
		[](CCall &call) {
			call.m_QuadCenters = {call.m_QuadCenters.Data(), 15};
		}),
	SBrokenCall("QuadCentersNull",
		Quads,
		{"The view of the quad centres has a null pointer, but a count of 144."},
		[](CCall &call) {
			call.m_QuadCenters = {null, 144};
		}),
	SBrokenCall("QuadCentersTooFew",
		Quads,
		{"Page 3, particle 8: its quads need 144 centre slots, but there are 143."},
		[](CCall &call) {
			call.m_QuadCenters = {call.m_QuadCenters.Data() + 1, 143};
		}),
	SBrokenCall("QuadCentersMisaligned",
		Quads,
		{"The view of the quad centres starts at 2 modulo 4, but needs 0."},
		[](CCall &call) {
			call.m_QuadCenters = {BytesPast<const CFloat4>(const_cast<CFloat4 *>(call.m_QuadCenters.Data()), 2), 144};
		}),
	SBrokenCall("QuadCentersBeyondAddresses",
		Quads,
		{"The sort uses 2304 bytes of the quad centres, but the address space ends after 16."},
		[](CCall &call) {
			call.m_QuadCenters = {BytesBeforeTheEnd<const CFloat4>(16), 144};
		}),
	SBrokenCall("SixteenQuads",
		Quads,
		{"The index pattern has 16 quads, but at most 15 can be sorted."},
		[](CCall &call)
		{
			call.m_Pattern.assign(96, 0);
			call.m_OutputCount = 96 * 9;
		}),
	SBrokenCall("QuadsAndARest",
		Quads,
		{"Advice: The width of the index pattern is 8, 2 more than whole quads: the rest is not drawn, and its place "
		 "in the output is left as it is."},
		[](CCall &call) { call.m_Pattern.resize(8); }),
	// No quad, no centre, no camera: nothing of them is read.
	SBrokenCall("LessThanAQuad",
		Quads,
		{"Advice: The width of the index pattern is 5, 5 more than whole quads: the rest is not drawn, and its place "
		 "in the output is left as it is."},
		[](CCall &call)
		{
			call.m_Pattern.resize(5);
			call.m_Pattern[4] = 9;
			call.m_VertexCount = 42;
			call.m_VerticesPerParticle = 0;
			call.m_QuadCenters = {null, 3};
			const u32 bits = 0x7FC00000u;
			std::memcpy(static_cast<void *>(&call.m_Camera), &bits, sizeof(bits));
		}),
	SBrokenCall("TubeCameraInfinite",
		Quads,
		{"Advice: The camera's x is infinite, and so is every distance to it."},
		[](CCall &call)
		{
			const u32 bits = 0x7F800000u;
			std::memcpy(static_cast<void *>(&call.m_Camera), &bits, sizeof(bits));
		}),
	SBrokenCall("TubeCameraNotANumber",
		Quads,
		{"Advice: The camera's x is not a number, and so is every distance to it."},
		[](CCall &call)
		{
			const u32 bits = 0x7FC00000u;
			std::memcpy(static_cast<void *>(&call.m_Camera), &bits, sizeof(bits));
		}),
};
INSTANTIATE_TEST_SUITE_P(Points, SortValidationOfGeometry, testing::ValuesIn(kPoints), NameOf);

static const SBrokenCall kEntries[] = {
	SBrokenCall("ConstantGeometryInATriangleSort",
		Constant,
		{"The geometry is one pattern for all particles, but a sort of triangles needs one pattern per page."},
		[](CCall &call) { call.m_Entry = SortEntry_Triangles; }),
	SBrokenCall("ListInATriangleSort",
		List,
		{"The geometry is one pattern for all particles, but a sort of triangles needs one pattern per page."},
		[](CCall &call) { call.m_Entry = SortEntry_Triangles; }),
	SBrokenCall("TubesInATriangleSort",
		Quads,
		{"The geometry is one pattern for all particles, but a sort of triangles needs one pattern per page."},
		[](CCall &call) { call.m_Entry = SortEntry_Triangles; }),
	SBrokenCall("GeometryPerPageInAPointSort",
		Triangles,
		{"The geometry is one pattern per page, but a sort of points needs one pattern for all particles."},
		[](CCall &call) { call.m_Entry = SortEntry_Points; }),
	SBrokenCall("NoGeometryInATriangleSort",
		Triangles,
		{"No geometry is set up."},
		[](CCall &call) { call.m_HasGeometry = false; }),
	// The geometry of an earlier call is still there, but nothing of it is looked at.
	SBrokenCall("EarlierGeometryPerPageInATriangleSort",
		Constant,
		{"The geometry is one pattern for all particles, but a sort of triangles needs one pattern per page.",
			"The working buffer has 160 bytes, but the sort needs 336."},
		[](CCall &call)
		{
			call.m_Sorter.Setup_Geometry(
				TMemoryView<const CPattern>(null, 7), TMemoryView<const u32>(null, 7), call.m_IndexCount);
			call.m_Entry = SortEntry_Triangles;
		}),
};
INSTANTIATE_TEST_SUITE_P(Entries, SortValidationOfGeometry, testing::ValuesIn(kEntries), NameOf);

static const SBrokenCall kTriangles[] = {
	SBrokenCall("FewerPatterns",
		Triangles,
		{"The count of index patterns is 3, but that of rendered counts is 4."},
		[](CCall &call) { call.m_PatternPages = call.m_PatternPages.Slice(0, 3); }),
	SBrokenCall("FewerVertexCounts",
		Triangles,
		{"The count of vertex counts is 2, but that of rendered counts is 4."},
		[](CCall &call) { call.m_VertexCountPages = call.m_VertexCountPages.Slice(0, 2); }),
	SBrokenCall("PatternsNull",
		Triangles,
		{"The view of the pages' index patterns has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_PatternPages = {null, 4};
		}),
	SBrokenCall("VertexCountsNull",
		Triangles,
		{"The view of the pages' vertex counts has a null pointer, but a count of 4."},
		[](CCall &call) {
			call.m_VertexCountPages = {null, 4};
		}),
	SBrokenCall("VertexCountsMisaligned",
		Triangles,
		{"The view of the pages' vertex counts starts at 1 modulo 4, but needs 0."},
		[](CCall &call) {
			call.m_VertexCountPages = {BytesPast<const u32>(call.m_VertexCounts, 1), 3};
		}),
	SBrokenCall("PagePatternEmpty",
		Triangles,
		{"The width of the index pattern of page 3 is 0, but has to be a multiple of 3 above 0.",
			"Advice: The pages draw 30 indices, but the index count is 36: vertex 0 fills the rest."},
		[](CCall &call) { SetPattern(call.m_Patterns[3], {}); }),
	SBrokenCall("PagePatternNotTriangles",
		Triangles,
		{"The width of the index pattern of page 0 is 4, but has to be a multiple of 3 above 0.",
			"The pages draw 40 indices, but the index count is 36."},
		[](CCall &call) {
			SetPattern(call.m_Patterns[0], {0, 1, 2, 0});
		}),
	SBrokenCall("PagePatternEntryBeyondVertices",
		Triangles,
		{"Advice: Entry 1 of the index pattern of page 3 is 3, but the vertices per particle are 3: it draws a vertex "
		 "of "
		 "a later particle.",
			"Advice: Page 3, particle 8: its largest index is 30, but the vertex count is 30."},
		[](CCall &call) {
			SetPattern(call.m_Patterns[3], {0, 3, 1});
		}),
	SBrokenCall("NoVerticesPerParticleOfAPage",
		Triangles,
		{"The particles of page 2 have 0 vertices each, but need at least 1."},
		[](CCall &call) { call.m_VertexCounts[2] = 0; }),
	SBrokenCall("TriangleIndicesBeyond32Bits",
		Triangles,
		{"The pages draw 4295098392 indices, but the index count is 36.",
			"Advice: The vertex count of 30 has room for 10 of the 65536 particles of page 0.",
			"Advice: The first particle of page 2 ends at vertex 34, but the vertex count is 30: pages from there on "
			"are "
			"not drawn."},
		[](CCall &call)
		{
			SetPattern(call.m_Patterns[0], std::vector<u32>(0x10002));
			call.m_Values[0] = {call.m_Values[0].Data(), 0x10000, 0};
			call.m_Counts[0] = 0x10000;
			call.m_ParticleCount = 0x10000 + 5;
		}),
	SBrokenCall("IndexCountTooLow",
		Triangles,
		{"The pages draw 36 indices, but the index count is 33."},
		[](CCall &call) { call.m_IndexCount = 33; }),
	SBrokenCall("IndexCountNotTriangles",
		Triangles,
		{"The index count is 35, but needs to be a multiple of 3.",
			"The pages draw 36 indices, but the index count is 35."},
		[](CCall &call) { call.m_IndexCount = 35; }),
	SBrokenCall("IndexCountTooHigh",
		Triangles,
		{"Advice: The pages draw 36 indices, but the index count is 39: vertex 0 fills the rest.",
			"Advice: The output has room for 12 of 13 triangles: the lowest keys are not drawn.",
			"Advice: No working buffer is given: the sort takes one from the allocator and gives it back."},
		[](CCall &call)
		{
			call.m_IndexCount = 39;
			call.m_WorkingBufferSize = 0;
			call.m_WorkingBuffer = null;
		}),
	// Page 0 makes 4 triangles, page 2 from its 3 particles one each: page 3 starts at triangle 7.
	SBrokenCall("OddTrianglesBeforeAPage",
		Triangles,
		{"Advice: Page 3 starts at triangle 7, an odd number: assertions report that its records are not aligned, "
		 "though "
		 "they come out right."},
		[](CCall &call)
		{
			SetPattern(call.m_Patterns[2], {0, 1, 2});
			call.m_IndexCount = 27;
		}),
	SBrokenCall("OddTrianglesOfACutPage",
		Triangles,
		{"Advice: The vertex count of 18 has room for 1 of the 3 particles of page 2.",
			"Advice: Page 2 starts at triangle 5, an odd number: assertions report that its records are not aligned, "
			"though they come out right."},
		[](CCall &call)
		{
			call.m_Counts[0] = 5;
			call.m_Values[0] = {call.m_Values[0].Data(), 5, 0};
			call.m_VertexCounts[2] = 3;
			SetPattern(call.m_Patterns[2], {0, 1, 2});
			call.m_Counts[3] = call.m_VertexCounts[3] = 0;
			call.m_ParticleCount = 8;
			call.m_VertexCount = 18;
			call.m_IndexCount = 24;
		}),
	SBrokenCall("OddTrianglesBeforeNothing",
		Triangles,
		{},
		[](CCall &call)
		{
			SetPattern(call.m_Patterns[2], {0, 1, 2});
			call.m_Counts[3] = 0;
			call.m_ParticleCount = 7;
			call.m_IndexCount = 21;
		}),
	SBrokenCall("TriangleOutputTooSmall",
		Triangles,
		{"Advice: The output has room for 11 of 12 triangles: the lowest keys are not drawn."},
		[](CCall &call) { call.m_OutputCount = 35; }),
	SBrokenCall("TriangleIndexOf16BitsTooLarge",
		Triangles,
		{"Page 2, particle 4: its largest index is 65539, but indices of 16 bits end at 65534.",
			"Page 3, particle 7: its largest index is 65550, but indices of 16 bits end at 65534."},
		[](CCall &call)
		{
			call.Output16();
			call.m_VertexCounts[0] = 0x4000;
			call.m_VertexCount = 0x20000;
		}),
	SBrokenCall("TriangleVerticesCutAPage",
		Triangles,
		{"Advice: The vertex count of 23 has room for 2 of the 3 particles of page 2.",
			"Advice: The vertex count of 23 has room for 1 of the 2 particles of page 3."},
		[](CCall &call) { call.m_VertexCount = 23; }),
	SBrokenCall("TriangleVerticesDropAPage",
		Triangles,
		{"Advice: The first particle of page 2 ends at vertex 16, but the vertex count is 15: pages from there on are "
		 "not drawn."},
		[](CCall &call) { call.m_VertexCount = 15; }),
	SBrokenCall("TriangleVerticesWrap",
		Triangles,
		{"Advice: The first particle of page 2 ends at vertex 4294967296, but the vertex count is 4294967295: pages "
		 "from "
		 "there on are not drawn."},
		[](CCall &call)
		{
			call.m_VertexCount = 0xFFFFFFFFu;
			call.m_VertexCounts[2] = 0xFFFFFFF4u;
		}),
};
INSTANTIATE_TEST_SUITE_P(Triangles, SortValidationOfGeometry, testing::ValuesIn(kTriangles), NameOf);

static const SBrokenCall kMemory[] = {
	SBrokenCall("WorkingBufferNullWithSize",
		Constant,
		{"The working buffer is null, but has 160 bytes."},
		[](CCall &call) { call.m_WorkingBuffer = null; }),
	SBrokenCall("WorkingBufferLeftToTheSorter",
		Constant,
		{"Advice: No working buffer is given: the sort takes one from the allocator and gives it back."},
		[](CCall &call)
		{
			call.m_WorkingBuffer = null;
			call.m_WorkingBufferSize = 0;
		}),
	SBrokenCall("WorkingBufferTooSmall",
		Constant,
		{"The working buffer has 159 bytes, but the sort needs 160."},
		[](CCall &call) { --call.m_WorkingBufferSize; }),
	SBrokenCall("TriangleWorkingBufferTooSmall",
		Triangles,
		{"The working buffer has 335 bytes, but the sort needs 336."},
		[](CCall &call) { --call.m_WorkingBufferSize; }),
	SBrokenCall("WorkingBufferMisaligned",
		Constant,
		{"The working buffer starts at 8 modulo 16, but needs 0."},
		[](CCall &call) { call.m_WorkingBuffer = BytesPast<void>(call.m_WorkingBuffer, 8); }),
	SBrokenCall("WorkingBufferBeyondAddresses",
		Constant,
		{"The working buffer has 160 bytes, but the address space ends after 64."},
		[](CCall &call) { call.m_WorkingBuffer = BytesBeforeTheEnd<void>(64); }),
	SBrokenCall("WorkingBufferBeyondSizes",
		Constant,
		{"The pages render 9 particles, but the particle count is 268435455.",
			"Advice: The output has room for 9 of 268435455 particles: the lowest keys are not drawn.",
			"Advice: The vertex count of 36 has room for 9 of 268435455 particles: the rest draws vertex 0's.",
			"The sort needs 4294967296 bytes of working buffer, but sizes end at 4294967295."},
		[](CCall &call) { call.m_ParticleCount = 0x0FFFFFFFu; }),
	SBrokenCall("TriangleWorkingBufferBeyondSizes",
		Triangles,
		{"Advice: The pages draw 36 indices, but the index count is 536870913: vertex 0 fills the rest.",
			"Advice: The output has room for 12 of 178956971 triangles: the lowest keys are not drawn.",
			"The sort needs 5010795208 bytes of working buffer, but sizes end at 4294967295."},
		[](CCall &call) { call.m_IndexCount = 0x20000001u; }),
	SBrokenCall("OutputInTheUnusedPartOfTheWorkingBuffer",
		Constant,
		{"Advice: The output has room for 2 of 9 particles: the lowest keys are not drawn, nor is the highest."},
		[](CCall &call)
		{
			const u32 needed = CTriangleSorter::GetAutogenIndicesWorkingBufferSize(CCall::kParticleCount);
			call.m_WorkingBuffer = call.m_Output;
			call.m_WorkingBufferSize = call.m_OutputCount * sizeof(u32);
			call.m_Output = BytesPast<u32>(call.m_Output, needed);
			call.m_OutputCount = 12;
		}),
	SBrokenCall("WorkingBufferOnOutput",
		Constant,
		{"The working buffer overlaps the output by 128 bytes."},
		[](CCall &call)
		{
			call.m_Output = BytesPast<void>(call.m_WorkingBuffer, 32);
			call.m_OutputCount = 54;
		}),
	SBrokenCall("WorkingBufferOnValues",
		Constant,
		{"The working buffer overlaps the sort values of page 3 by 4 bytes."},
		[](CCall &call)
		{
			std::memset(call.m_WorkingBuffer, 0, 160);
			call.m_Values[3] = {BytesPast<float>(call.m_WorkingBuffer, 156), 2, 4};
		}),
	SBrokenCall("WorkingBufferOnRenderedCounts",
		Constant,
		{"The working buffer overlaps the rendered counts by 16 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_WorkingBuffer, call.m_Counts, 16);
			call.m_RenderedCounts = {static_cast<u32 *>(call.m_WorkingBuffer), 4, 4};
		}),
	SBrokenCall("OutputOnPositions",
		Constant,
		{"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
		 "however near it is.",
			"The output overlaps the positions of page 0 by 12 bytes."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_Positions[0] = {static_cast<CFloat3 *>(call.m_Output), 4, 0};
		}),
	SBrokenCall("OutputOnEnabledBytes",
		Constant,
		{"The output overlaps the enabled bytes of page 2 by 5 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_EnabledBytes, 5);
			call.m_Enableds[2] = {static_cast<u8 *>(call.m_Output), 5, 1};
		}),
	SBrokenCall("OutputOnValuePages",
		Constant,
		{"The output overlaps the pages' sort values by 64 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_Values, 4 * sizeof(CValueView));
			call.m_ValuePages = {static_cast<CValueView *>(call.m_Output), 4, sizeof(CValueView)};
		}),
	SBrokenCall("OutputOnEnabledPages",
		Triangles,
		{"The output overlaps the pages' enabled bytes by 64 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_Enableds, 4 * sizeof(CEnabledView));
			call.m_EnabledPages = {static_cast<CEnabledView *>(call.m_Output), 4, sizeof(CEnabledView)};
		}),
	SBrokenCall("OutputOnPagePattern",
		Triangles,
		{"Advice: The output has room for 2 of 12 triangles: the lowest keys are not drawn.",
			"The output overlaps the index pattern of page 2 by 24 bytes."},
		[](CCall &call)
		{
			call.m_Output = call.m_Patterns[2].Data();
			call.m_OutputCount = 6;
		}),
	SBrokenCall("OutputOnIndexPattern",
		Constant,
		{"The output overlaps the index pattern by 24 bytes."},
		[](CCall &call)
		{
			// The sorter's copy is on the heap, where the patterns of pages are: written are 32 MiB around them.
			constexpr u32 kCount = 0x800000 / 6;
			std::fill(call.m_Counts, call.m_Counts + 4, 0u);
			call.m_Counts[0] = call.m_ParticleCount = kCount;
			call.m_Values[0] = {call.m_Values[0].Data(), kCount, 0};
			call.m_VertexCount = kCount * 4;
			call.m_OutputCount = kCount * 6;
			call.m_Output = reinterpret_cast<u8 *>(call.m_Patterns[2].Data()) - 0x1000000;
			call.m_WorkingBuffer = BytesBeforeTheEnd<void>(0x4000000);
			call.m_WorkingBufferSize = 0x4000000;
		}),
	SBrokenCall("RestOfTheOutputOnPositions",
		Constant,
		{"Advice: Page 2 has disabled particles and page 0 has none: sorted by position, the former is drawn first, "
		 "however near it is."},
		[](CCall &call)
		{
			call.SortByPosition();
			call.m_OutputCount = 0x1000;
			call.m_Positions[0] = {BytesPast<CFloat3>(call.m_Output, 216), 4, 12};
		}),
	SBrokenCall("OutputOnTheRestOfValues",
		Constant,
		{},
		[](CCall &call) {
			call.m_Values[0] = {BytesPast<float>(call.m_Output, 0 - ureg(16)), 100, 4};
		}),
	SBrokenCall("OutputOnTheRestOfAnIndexList",
		List,
		{},
		[](CCall &call)
		{
			call.m_IndexList = {call.m_Entries, 100000};
			call.m_Output = BytesPast<void>(call.m_Entries, 36 + 12);
		}),
	SBrokenCall("OutputOnTheRestOfQuads",
		Quads,
		{"Advice: The width of the index pattern is 8, 2 more than whole quads: the rest is not drawn, and its place "
		 "in the output is left as it is.",
			"The output overlaps the rendered counts by 4 bytes."},
		[](CCall &call)
		{
			call.m_Pattern.resize(8);
			call.m_OutputCount = 72;
			std::memcpy(BytesPast<void>(call.m_Output, 276), call.m_Counts, 16);
			call.m_RenderedCounts = {BytesPast<u32>(call.m_Output, 276), 4, 4};
		}),
	SBrokenCall("OutputOnIndexList",
		List,
		{"The output overlaps the index list by 36 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_Entries, 36);
			call.m_IndexList = {static_cast<u32 *>(call.m_Output), 9};
		}),
	SBrokenCall("OutputOnIndexListOfTubes",
		Quads,
		{"The output overlaps the index list by 36 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_Entries, 36);
			call.m_IndexList = {static_cast<u32 *>(call.m_Output), 9};
		}),
	SBrokenCall("OutputOnIndexListOfAnEarlierCall",
		Constant,
		{},
		[](CCall &call) {
			call.m_Sorter.Setup_Geometry(
				TMemoryView<u32>(), TMemoryView<const u32>(static_cast<u32 *>(call.m_Output), 9));
		}),
	SBrokenCall("OutputOnQuadCenters",
		Quads,
		{"The output overlaps the quad centres by 432 bytes."},
		[](CCall &call) { call.m_Output = const_cast<CFloat4 *>(call.m_QuadCenters.Data() + 1); }),
	SBrokenCall("OutputOnVertexCounts",
		Triangles,
		{"The output overlaps the pages' vertex counts by 16 bytes."},
		[](CCall &call)
		{
			std::memcpy(call.m_Output, call.m_VertexCounts, 16);
			call.m_VertexCountPages = {static_cast<u32 *>(call.m_Output), 4};
		}),
	SBrokenCall("OutputOnSorter",
		Triangles,
		{"The output overlaps the sorter by 144 bytes."},
		[](CCall &call) { call.m_Output = &call.m_Sorter; }),
	SBrokenCall("WorkingBufferOnPagePatterns",
		Triangles,
		{"The working buffer has 16 bytes, but the sort needs 336.",
			"The working buffer overlaps the pages' index patterns by 16 bytes."},
		[](CCall &call)
		{
			call.m_WorkingBuffer = call.m_Patterns;
			call.m_WorkingBufferSize = 16;
		}),
};
INSTANTIATE_TEST_SUITE_P(Memory, SortValidationOfGeometry, testing::ValuesIn(kMemory), NameOf);
