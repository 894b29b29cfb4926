// Checked sorts: every kind of broken call is refused in words and touches nothing, and every sound call sorts like the
// bare sort. Random sound calls are compared with the model in sort_differential_test.cpp.

#include "ge_mesh_sort_validation.h"

#include "damaged_call.h"
#include "diagnostics.h"
#include "random_scene.h"
#include "sort_call.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

using namespace Vexmoor;
using namespace Support;

namespace
{
// Geometries that a breakage is for, as bits.
constexpr u32 kConstant = 1 << Constant;
constexpr u32 kList = 1 << List;
constexpr u32 kQuads = 1 << Quads;
constexpr u32 kTriangles = 1 << Triangles;
constexpr u32 kLists = kList | kQuads;
constexpr u32 kPoints = kConstant | kLists;
constexpr u32 kAll = kPoints | kTriangles;

// A small change to a sound call, and words of the sentence that names it. With each geometry it is a kind of broken
// call.
struct SBreakage
{
	const char *m_Name;
	u32 m_Geometries;
	const char *m_Words;
	void (*m_Break)(CCall &call);
};

// What differs between calls of one kind.
struct SVariant
{
	bool m_16Bit;
	bool m_ByPosition;
	bool m_HasEnableds;
};

// Sources are positions or values, whichever the call sorts by.
void SetSource(CCall &call, u32 page, void *data, u32 count, u32 strideFactor)
{
	call.m_Positions[page] = {static_cast<CFloat3 *>(data), count, strideFactor * 12};
	call.m_Values[page] = {static_cast<float *>(data), count, strideFactor * 4};
}

void KeepSources(CCall &call, u32 page, u32 count)
{
	call.m_Positions[page] = call.m_Positions[page].Slice(0, count);
	call.m_Values[page] = call.m_Values[page].Slice(0, count);
}

void SetSourcePages(CCall &call, void *data, u32 count, u32 stride)
{
	call.m_PositionPages = {static_cast<CPositionView *>(data), count, stride};
	call.m_ValuePages = {static_cast<CValueView *>(data), count, stride};
}

void *SourcePages(const CCall &call)
{
	return call.m_ByPosition ? static_cast<void *>(call.m_Positions) : static_cast<void *>(call.m_Values);
}

void *Source(const CCall &call, u32 page)
{
	return call.m_ByPosition ? static_cast<void *>(const_cast<CFloat3 *>(call.m_Positions[page].Data()))
	                         : static_cast<void *>(const_cast<float *>(call.m_Values[page].Data()));
}

void *QuadCenters(const CCall &call)
{
	return const_cast<CFloat4 *>(call.m_QuadCenters.Data());
}

void SetCounts(CCall &call, std::vector<u32> counts)
{
	std::copy(counts.begin(), counts.end(), call.m_Counts);
}

// The working buffer, or the output, laid over something that is read.
void LayWorkingBuffer(CCall &call, const void *over)
{
	call.m_WorkingBuffer = const_cast<void *>(over);
}
void LayOutput(CCall &call, const void *over)
{
	call.m_Output = const_cast<void *>(over);
}

const SBreakage kBreakages[] = {
  // Set-up.
	{"NoOutput",                             kAll,               "No output",                                                              [](CCall &call) { call.m_HasOutput = false; }               },
	{"NoInput",                              kAll,               "No input",                                                               [](CCall &call) { call.m_HasInput = false; }                },
	{"NoGeometry",                           kAll,               "No geometry",                                                            [](CCall &call) { call.m_HasGeometry = false; }             },
	{"SortedAsTriangles",                    kPoints,            "a sort of triangles needs one pattern per page",
     [](CCall &call) { call.m_Entry = SortEntry_Triangles; }                                                                                                                                           },
	{"SortedAsPoints",                       kTriangles,         "a sort of points needs one pattern for all particles",
     [](CCall &call) { call.m_Entry = SortEntry_Points; }                                                                                                                                              },

 // Output.
	{"OutputNull",                           kAll,               "output has a null pointer",                                              [](CCall &call) { call.m_Output = null; }                   },
	{"OutputAtOddAddress",                   kAll,               "output starts at 1 modulo",
     [](CCall &call) { call.m_Output = BytesPast<void>(call.m_Output, 1); }                                                                                                                            },
	{"OutputBeyondAddresses",                kAll,               "the output, but the address space ends",
     [](CCall &call) { call.m_Output = BytesBeforeTheEnd<void>(32); }                                                                                                                                  },

 // Rendered counts.
	{"RenderedCountsNull",                   kAll,               "rendered counts has a null pointer",
     [](CCall &call) {
			call.m_RenderedCounts = {null, 4, 4};
		}                                                                                                                                                                                              },
	{"RenderedCountsOverlap",                kAll,               "rendered counts has a stride of 2",
     [](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 4, 2};
		}                                                                                                                                                                                              },
	{"RenderedCountsAtOddStride",            kAll,               "rendered counts has a stride of 6",
     [](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 2, 6};
		}                                                                                                                                                                                              },
	{"RenderedCountsMisaligned",             kAll,               "rendered counts starts at 1 modulo 4",
     [](CCall &call) {
			call.m_RenderedCounts = {BytesPast<u32>(call.m_Counts, 1), 3, 4};
		}                                                                                                                                                                                              },
	{"RenderedCountsBeyondAddresses",        kAll,               "the rendered counts, but the address space ends",
     [](CCall &call) {
			call.m_RenderedCounts = {BytesBeforeTheEnd<u32>(8), 4, 4};
		}                                                                                                                                                                                              },
	{"RenderedCountsTooLarge",               kAll,               "the rendered counts, but sizes end",
     [](CCall &call) {
			call.m_RenderedCounts = {call.m_Counts, 0x40000000, 4};
		}                                                                                                                                                                                              },
	{"RenderedCountsFewer",                  kAll,               "but that of rendered counts is 3",
     [](CCall &call)
		{
			call.m_RenderedCounts = call.m_RenderedCounts.Slice(0, 3);
			call.m_ParticleCount = 7;
		}                                                                                                                                                                                              },
	{"RenderedCountsMore",                   kAll,               "but that of rendered counts is 4294967295",
     [](CCall &call)
		{
			call.m_RenderedCounts = {call.m_Counts + 1, 0xFFFFFFFFu, 0};
			call.m_ParticleCount = 0;
		}                                                                                                                                                                                              },
	{"NoPages",                              kPoints,            "count of rendered counts is 0",
     [](CCall &call)
		{
			call.m_RenderedCounts = {};
			call.m_EnabledPages = {};
			SetSourcePages(call, null, 0, 0);
			call.m_ParticleCount = 0;
		}                                                                                                                                                                                              },

 // Particle count.
	{"ParticleCountTooHigh",                 kAll,               "render 9 particles, but the particle count is 10",
     [](CCall &call) { ++call.m_ParticleCount; }                                                                                                                                                       },
	{"ParticleCountTooLow",                  kAll,               "render 9 particles, but the particle count is 8",
     [](CCall &call) { --call.m_ParticleCount; }                                                                                                                                                       },
	{"ParticleCountZero",                    kAll,               "but the particle count is 0",                                            [](CCall &call) { call.m_ParticleCount = 0; }               },
	{"ParticleCountHuge",                    kAll,               "but the particle count is 4294967295",
     [](CCall &call) { call.m_ParticleCount = 0xFFFFFFFFu; }                                                                                                                                           },
	{"RenderedCountTooHigh",                 kAll,               "render 10 particles, but the particle count is 9",
     [](CCall &call) { ++call.m_Counts[3]; }                                                                                                                                                           },
	{"RenderedCountOfAPageOfNone",           kAll,               "Page 1 renders 1 particle, but has",
     [](CCall &call) {
			SetCounts(call, {3, 1});
		}                                                                                                                                                                                              },
	{"RenderedCountHuge",                    kAll,               "render 4294967300 particles",                                            [](CCall &call) { call.m_Counts[2] = 0xFFFFFFFFu - 1; }     },
	{"RenderedCountsWrapToTheParticleCount", kAll,               "render 4294967305 particles",
     [](CCall &call) {
			SetCounts(call, {5, 0xFFFFFFFFu});
		}                                                                                                                                                                                              },

 // Pages' sources.
	{"SourcePagesNull",                      kAll,               " has a null pointer, but a count of 4",
     [](CCall &call) { SetSourcePages(call, null, 4, 16); }                                                                                                                                            },
	{"SourcePagesFewer",                     kAll,               "views is 3, but that of rendered counts is 4",
     [](CCall &call) { SetSourcePages(call, SourcePages(call), 3, 16); }                                                                                                                               },
	{"SourcePagesNone",                      kAll,               "views is 0, but that of rendered counts is 4",
     [](CCall &call) { SetSourcePages(call, null, 0, 16); }                                                                                                                                            },
	{"SourcePagesMore",                      kAll,               "views is 5, but that of rendered counts is 4",
     [](CCall &call) { SetSourcePages(call, SourcePages(call), 5, 0); }                                                                                                                                },
	{"SourcePagesOverlap",                   kAll,               "has a stride of 8, but elements of 16 bytes",
     [](CCall &call) { SetSourcePages(call, SourcePages(call), 4, 8); }                                                                                                                                },
	{"SourcePagesAtOddStride",               kAll,               "has a stride of 20, but needs a multiple of 8",
     [](CCall &call) { SetSourcePages(call, SourcePages(call), 4, 20); }                                                                                                                               },
	{"SourcePagesMisaligned",                kAll,               "starts at 4 modulo 8",
     [](CCall &call) { SetSourcePages(call, BytesPast<void>(SourcePages(call), 4), 4, 16); }                                                                                                           },
	{"SourcePagesBeyondAddresses",           kAll,               "but the address space ends after 48",
     [](CCall &call) { SetSourcePages(call, BytesBeforeTheEnd<void>(48), 4, 16); }                                                                                                                     },
	{"SourcePagesTooLarge",                  kAll,               "The sort uses 4294967296 bytes of the pages'",
     [](CCall &call) { SetSourcePages(call, SourcePages(call), 0x10000000, 16); }                                                                                                                      },

 // Sources.
	{"SourceNull",                           kAll,               "of page 0 has a null pointer, but a count of 4",
     [](CCall &call) { SetSource(call, 0, null, 4, 1); }                                                                                                                                               },
	{"SourceTooFew",                         kAll,               "Page 0 renders 4 particles, but has",                                    [](CCall &call) { KeepSources(call, 0, 3); }                },
	{"SourceNone",                           kAll,               "Page 3 renders 2 particles, but has",                                    [](CCall &call) { SetSource(call, 3, null, 0, 0); }         },
	{"SourceOverlaps",                       kAll,               "of page 3 has a stride of 3, but elements",
     [](CCall &call)
		{
			call.m_Positions[3] = {call.m_Positions[3].Data(), 2, 3};
			call.m_Values[3] = {call.m_Values[3].Data(), 2, 3};
		}                                                                                                                                                                                              },
	{"SourceBeyondAddresses",                kAll,               "of page 0, but the address space ends after 8",
     [](CCall &call) { SetSource(call, 0, BytesBeforeTheEnd<void>(8), 4, 1); }                                                                                                                         },
	{"SourceTooLarge",                       kAll,               "of page 0, but sizes end",
     [](CCall &call) { SetSource(call, 0, Source(call, 0), 4, 0x10000000); }                                                                                                                           },

 // Enabled pages.
	{"EnabledPagesNull",                     kAll,               "enabled bytes has a null pointer",
     [](CCall &call) {
			call.m_EnabledPages = {null, 4, 16};
		}                                                                                                                                                                                              },
	{"EnabledPagesNone",                     kAll,               "There is no enabled view, but 4 pages",                                  [](CCall &call) { call.m_EnabledPages = {}; }               },
	{"EnabledPagesFewer",                    kAll,               "enabled views is 3",
     [](CCall &call) { call.m_EnabledPages = call.m_EnabledPages.Slice(0, 3); }                                                                                                                        },
	{"EnabledPagesMore",                     kAll,               "enabled views is 5",
     [](CCall &call) {
			call.m_EnabledPages = {call.m_Enableds, 5, 0};
		}                                                                                                                                                                                              },
	{"EnabledPagesOverlap",                  kAll,               "enabled bytes has a stride of 8",
     [](CCall &call) {
			call.m_EnabledPages = {call.m_Enableds, 4, 8};
		}                                                                                                                                                                                              },
	{"EnabledPagesMisaligned",               kAll,               "enabled bytes starts at 4 modulo 8",
     [](CCall &call) {
			call.m_EnabledPages = {BytesPast<CEnabledView>(call.m_Enableds, 4), 4, 16};
		}                                                                                                                                                                                              },
	{"EnabledPagesBeyondAddresses",          kAll,               "enabled bytes, but the address space ends",
     [](CCall &call) {
			call.m_EnabledPages = {BytesBeforeTheEnd<CEnabledView>(16), 4, 16};
		}                                                                                                                                                                                              },
	{"EnabledPagesTooLarge",                 kAll,               "enabled bytes, but sizes end",
     [](CCall &call) {
			call.m_EnabledPages = {call.m_Enableds, 0x10000000, 16};
		}                                                                                                                                                                                              },

 // Enabled bytes: of page 2 unless the variant has none, in which case the page gets some.
	{"EnabledBytesTooFewSet",                kAll,               "Page 2 renders 3 particles, but 2 of its enabled bytes",
     [](CCall &call)
		{
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 1};
			call.m_EnabledBytes[4] = 0;
		}                                                                                                                                                                                              },
	{"EnabledBytesTooManySet",               kAll,               "Page 2 renders 3 particles, but 4 of its enabled bytes",
     [](CCall &call)
		{
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 1};
			call.m_EnabledBytes[3] = 1;
		}                                                                                                                                                                                              },
	{"EnabledBytesNoneSet",                  kAll,               "Page 2 renders 3 particles, but 0 of its enabled bytes",
     [](CCall &call)
		{
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 1};
			std::fill(call.m_EnabledBytes, call.m_EnabledBytes + 5, u8(0));
		}                                                                                                                                                                                              },
	{"EnabledBytesOfAFullPageNotAllSet",     kAll,               "Page 2 renders 5 particles, but 4 of its enabled bytes",
     [](CCall &call)
		{
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 1};
			std::fill(call.m_EnabledBytes, call.m_EnabledBytes + 4, u8(1));
			call.m_EnabledBytes[4] = 0;
			SetCounts(call, {2, 0, 5, 2});
		}                                                                                                                                                                                              },
	{"EnabledBytesFewerThanSources",         kAll,               "Page 2 has enabled bytes for 4, but",
     [](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 4, 1};
		}                                                                                                                                                                                              },
	{"EnabledBytesMoreThanSources",          kAll,               "Page 2 has enabled bytes for 5, but",
     [](CCall &call)
		{
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 1};
			KeepSources(call, 2, 4);
		}                                                                                                                                                                                              },
	{"EnabledBytesStrided",                  kAll,               "page 2 have a stride of 2",
     [](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 3, 2};
		}                                                                                                                                                                                              },
	{"EnabledBytesVirtual",                  kAll,               "page 2 have a stride of 0",
     [](CCall &call) {
			call.m_Enableds[2] = {call.m_EnabledBytes, 5, 0};
		}                                                                                                                                                                                              },
	{"EnabledBytesNull",                     kAll,               "enabled bytes of page 2 has a null pointer",
     [](CCall &call) {
			call.m_Enableds[2] = {null, 5, 1};
		}                                                                                                                                                                                              },
	{"EnabledBytesBeyondAddresses",          kAll,               "enabled bytes of page 2, but the address space ends",
     [](CCall &call) {
			call.m_Enableds[2] = {BytesBeforeTheEnd<u8>(2), 5, 1};
		}                                                                                                                                                                                              },

 // Shared geometry.
	{"PatternEmpty",                         kPoints,            "index pattern has 0 entries",                                            [](CCall &call) { call.m_Pattern.clear(); }                 },
	{"PatternOfOneNotZero",                  kConstant | kList,  "only entry is 3, but has to be 0",
     [](CCall &call) { call.m_Pattern = {3}; }                                                                                                                                                         },
	{"NoVerticesPerParticle",                kConstant | kQuads, "0 vertices each",
     [](CCall &call) { call.m_VerticesPerParticle = 0; }                                                                                                                                               },
	{"SixteenQuads",                         kQuads,             "16 quads, but at most 15",                                               [](CCall &call) { call.m_Pattern.assign(96, 0); }           },
	{"PatternEntryHuge",                     kPoints,            "indices of 32 bits end",
     [](CCall &call)
		{
			call.m_16Bit = false;
			call.m_Pattern[2] = 0xFFFFFFFFu;
		}                                                                                                                                                                                              },
	{"PatternEntryHugeIn16Bits",             kPoints,            "its largest index is 65535, but indices of 16 bits end at 65534",
     [](CCall &call)
		{
			call.Output16();
			call.m_Pattern[2] = 0xFFFF;
		}                                                                                                                                                                                              },

 // Index list and quad centres.
	{"ListNull",                             kLists,             "index list has a null pointer",
     [](CCall &call) {
			call.m_IndexList = {null, 9};
		}                                                                                                                                                                                              },
	{"ListTooShort",                         kLists,             "count of the index list is 8",
     [](CCall &call) {
			call.m_IndexList = {call.m_Entries, 8};
		}                                                                                                                                                                                              },
	{"ListNone",                             kLists,             "count of the index list is 0",
     [](CCall &call) {
			call.m_IndexList = {null, 0};
		}                                                                                                                                                                                              },
	{"ListBeyondAddresses",                  kLists,             "the index list, but the address space ends",
     [](CCall &call) {
			call.m_IndexList = {BytesBeforeTheEnd<const u32>(20), 9};
		}                                                                                                                                                                                              },
	{"ListEntryBeyond16Bits",                kLists,             "Page 2, particle 6: its largest index is",
     [](CCall &call)
		{
			call.Output16();
			call.m_VertexCount = 0x20000;
			call.m_Entries[6] = 0x10000;
		}                                                                                                                                                                                              },
	{"ListEntryBeyond32Bits",                kLists,             "Page 3, particle 8: its largest index is",
     [](CCall &call)
		{
			call.m_VertexCount = 0xFFFFFFFFu;
			call.m_Entries[8] = 0xFFFFFFFEu;
		}                                                                                                                                                                                              },
	{"ListEntryBeyondCenters",               kQuads,             "Page 2, particle 4: its quads need 160 centre slots, but there are 144",
     [](CCall &call)
		{
			call.m_VertexCount = 40;
			call.m_Entries[4] = 36;
		}                                                                                                                                                                                              },
	{"CentersNull",                          kQuads,             "quad centres has a null pointer",
     [](CCall &call) {
			call.m_QuadCenters = {null, 144};
		}                                                                                                                                                                                              },
	{"CentersTooFew",                        kQuads,             "Page 3, particle 8: its quads need 144 centre slots, but there are 128",
     [](CCall &call) {
			call.m_QuadCenters = {call.m_QuadCenters.Data(), 128};
		}                                                                                                                                                                                              },
	{"CentersNone",                          kQuads,             "Page 0, particle 0: its quads need 16 centre slots, but there are 0",
     [](CCall &call) {
			call.m_QuadCenters = {null, 0};
		}                                                                                                                                                                                              },
	{"CentersMisaligned",                    kQuads,             "quad centres starts at 1 modulo 4",
     [](CCall &call) {
			call.m_QuadCenters = {BytesPast<const CFloat4>(QuadCenters(call), 1), 144};
		}                                                                                                                                                                                              },
	{"CentersBeyondAddresses",               kQuads,             "the quad centres, but the address space ends",
     [](CCall &call) {
			call.m_QuadCenters = {BytesBeforeTheEnd<const CFloat4>(64), 144};
		}                                                                                                                                                                                              },
	{"CentersTooLarge",                      kQuads,             "the quad centres, but sizes end",
     [](CCall &call)
		{
			call.m_QuadCenters = {call.m_QuadCenters.Data(), 0x10000000};
			call.m_VertexCount = 0x4000000;
		}                                                                                                                                                                                              },

 // Geometry per page.
	{"PatternsNull",                         kTriangles,         "index patterns has a null pointer",
     [](CCall &call) { call.m_PatternPages = {null, 4}; }                                                                                                                                              },
	{"PatternsFewer",                        kTriangles,         "index patterns is 3",
     [](CCall &call) { call.m_PatternPages = call.m_PatternPages.Slice(0, 3); }                                                                                                                        },
	{"PatternsNone",                         kTriangles,         "index patterns is 0",
     [](CCall &call) {
			call.m_PatternPages = {null, 0};
		}                                                                                                                                                                                              },
	{"PatternsMisaligned",                   kTriangles,         "index patterns starts at 4 modulo 8",
     [](CCall &call) {
			call.m_PatternPages = {BytesPast<const CPattern>(call.m_Patterns, 4), 3};
		}                                                                                                                                                                                              },
	{"PatternsBeyondAddresses",              kTriangles,         "index patterns, but the address space ends",
     [](CCall &call) {
			call.m_PatternPages = {BytesBeforeTheEnd<const CPattern>(16), 4};
		}                                                                                                                                                                                              },
	{"VertexCountsNull",                     kTriangles,         "vertex counts has a null pointer",
     [](CCall &call) {
			call.m_VertexCountPages = {null, 4};
		}                                                                                                                                                                                              },
	{"VertexCountsFewer",                    kTriangles,         "vertex counts is 1",
     [](CCall &call) { call.m_VertexCountPages = call.m_VertexCountPages.Slice(0, 1); }                                                                                                                },
	{"VertexCountsNone",                     kTriangles,         "vertex counts is 0",
     [](CCall &call) {
			call.m_VertexCountPages = {null, 0};
		}                                                                                                                                                                                              },
	{"VertexCountsMisaligned",               kTriangles,         "vertex counts starts at 2 modulo 4",
     [](CCall &call) {
			call.m_VertexCountPages = {BytesPast<const u32>(call.m_VertexCounts, 2), 3};
		}                                                                                                                                                                                              },
	{"VertexCountsBeyondAddresses",          kTriangles,         "vertex counts, but the address space ends",
     [](CCall &call) {
			call.m_VertexCountPages = {BytesBeforeTheEnd<const u32>(4), 4};
		}                                                                                                                                                                                              },
	{"NoVerticesPerParticleOfAPage",         kTriangles,         "particles of page 0 have 0 vertices each",
     [](CCall &call) { call.m_VertexCounts[0] = 0; }                                                                                                                                                   },
	{"PagePatternEmpty",                     kTriangles,         "width of the index pattern of page 2 is 0",
     [](CCall &call) { SetPattern(call.m_Patterns[2], {}); }                                                                                                                                           },
	{"PagePatternNotTriangles",              kTriangles,         "width of the index pattern of page 3 is 2",
     [](CCall &call) {
			SetPattern(call.m_Patterns[3], {0, 1});
		}                                                                                                                                                                                              },
	{"PagePatternLonger",                    kTriangles,         "draw 42 indices, but the index count is 36",
     [](CCall &call) {
			SetPattern(call.m_Patterns[3], {0, 1, 2, 2, 1, 0});
		}                                                                                                                                                                                              },
	{"PagePatternEntryHuge",                 kTriangles,         "Page 2, particle 4: its largest index is",
     [](CCall &call) {
			SetPattern(call.m_Patterns[2], {0, 1, 0xFFFFFFFFu, 0, 1, 2});
		}                                                                                                                                                                                              },
	{"IndexCountTooLow",                     kTriangles,         "draw 36 indices, but the index count is 33",
     [](CCall &call) { call.m_IndexCount = 33; }                                                                                                                                                       },
	{"IndexCountZero",                       kTriangles,         "draw 36 indices, but the index count is 0",
     [](CCall &call) { call.m_IndexCount = 0; }                                                                                                                                                        },
	{"IndexCountNotTriangles",               kTriangles,         "index count is 37, but needs to be a multiple of 3",
     [](CCall &call) { call.m_IndexCount = 37; }                                                                                                                                                       },
	{"IndexCountHuge",                       kTriangles,         "bytes of working buffer, but sizes end",
     [](CCall &call) { call.m_IndexCount = 0xFFFFFFFFu; }                                                                                                                                              },

 // Working buffer.
	{"WorkingBufferNullWithASize",           kAll,               "working buffer is null, but has",
     [](CCall &call) { call.m_WorkingBuffer = null; }                                                                                                                                                  },
	{"WorkingBufferTooSmall",                kAll,               "but the sort needs",                                                     [](CCall &call) { --call.m_WorkingBufferSize; }             },
	{"WorkingBufferOfNoSize",                kAll,               "working buffer has 0 bytes, but the sort needs",
     [](CCall &call) { call.m_WorkingBufferSize = 0; }                                                                                                                                                 },
	{"WorkingBufferMisaligned",              kAll,               "working buffer starts at 8 modulo 16",
     [](CCall &call) { call.m_WorkingBuffer = BytesPast<void>(call.m_WorkingBuffer, 8); }                                                                                                              },
	{"WorkingBufferBeyondAddresses",         kAll,               "bytes, but the address space ends after 96",
     [](CCall &call) { call.m_WorkingBuffer = BytesBeforeTheEnd<void>(96); }                                                                                                                           },

 // Shared memory.
	{"WorkingBufferOnOutput",                kAll,               "working buffer overlaps the output",
     [](CCall &call) { LayWorkingBuffer(call, call.m_Output); }                                                                                                                                        },
	{"WorkingBufferOnSorter",                kAll,               "working buffer overlaps the sorter",
     [](CCall &call) { LayWorkingBuffer(call, &call.m_Sorter); }                                                                                                                                       },
	{"WorkingBufferOnRenderedCounts",        kAll,               "working buffer overlaps the rendered counts",
     [](CCall &call) { LayWorkingBuffer(call, call.m_Counts); }                                                                                                                                        },
	{"WorkingBufferOnSourcePages",           kAll,               "working buffer overlaps the pages'",
     [](CCall &call) { LayWorkingBuffer(call, SourcePages(call)); }                                                                                                                                    },
	{"WorkingBufferOnEnabledPages",          kAll,               "working buffer overlaps the pages' enabled bytes",
     [](CCall &call) { LayWorkingBuffer(call, call.m_Enableds); }                                                                                                                                      },
	{"WorkingBufferOnSource",                kAll,               "of page 0 by",                                                           [](CCall &call) { LayWorkingBuffer(call, Source(call, 0)); }},
	{"WorkingBufferOnIndexList",             kLists,             "working buffer overlaps the index list",
     [](CCall &call) { LayWorkingBuffer(call, call.m_Entries); }                                                                                                                                       },
	{"WorkingBufferOnQuadCenters",           kQuads,             "working buffer overlaps the quad centres",
     [](CCall &call) { LayWorkingBuffer(call, QuadCenters(call)); }                                                                                                                                    },
	{"WorkingBufferOnPagePatterns",          kTriangles,         "working buffer overlaps the pages' index patterns",
     [](CCall &call) { LayWorkingBuffer(call, call.m_Patterns); }                                                                                                                                      },
	{"WorkingBufferOnVertexCounts",          kTriangles,         "working buffer overlaps the pages' vertex counts",
     [](CCall &call) { LayWorkingBuffer(call, call.m_VertexCounts); }                                                                                                                                  },
	{"OutputOnSorter",                       kAll,               "output overlaps the sorter",                                             [](CCall &call) { LayOutput(call, &call.m_Sorter); }        },
	{"OutputOnRenderedCounts",               kAll,               "output overlaps the rendered counts",
     [](CCall &call) { LayOutput(call, call.m_Counts); }                                                                                                                                               },
	{"OutputOnSourcePages",                  kAll,               "output overlaps the pages'",
     [](CCall &call) { LayOutput(call, SourcePages(call)); }                                                                                                                                           },
	{"OutputOnEnabledPages",                 kAll,               "output overlaps the pages' enabled bytes",
     [](CCall &call) { LayOutput(call, call.m_Enableds); }                                                                                                                                             },
	{"OutputOnSource",                       kAll,               "of page 3 by",                                                           [](CCall &call) { LayOutput(call, Source(call, 3)); }       },
	{"OutputOnIndexList",                    kLists,             "output overlaps the index list",
     [](CCall &call) { LayOutput(call, call.m_Entries); }                                                                                                                                              },
	{"OutputOnQuadCenters",                  kQuads,             "output overlaps the quad centres",
     [](CCall &call) { LayOutput(call, QuadCenters(call)); }                                                                                                                                           },
	{"OutputOnPagePatterns",                 kTriangles,         "output overlaps the pages' index patterns",
     [](CCall &call) { LayOutput(call, call.m_Patterns); }                                                                                                                                             },
	{"OutputOnVertexCounts",                 kTriangles,         "output overlaps the pages' vertex counts",
     [](CCall &call) { LayOutput(call, call.m_VertexCounts); }                                                                                                                                         },
	{"OutputOnAPagesPattern",                kTriangles,         "output overlaps the index pattern of page 2",
     [](CCall &call) { LayOutput(call, call.m_Patterns[2].Data()); }                                                                                                                                   },
};

constexpr SVariant kVariants[] = {
	{false, false, true },
	{false, true,  true },
	{true,  false, true },
	{true,  true,  false},
	{false, false, false},
};

std::string Describe(ECallGeometry geometry, const SVariant &variant)
{
	constexpr const char *kNames[] = {"constant geometry", "index list", "quads", "triangles"};
	return std::string(kNames[geometry]) + (variant.m_16Bit ? ", 16 bits" : ", 32 bits") +
	       (variant.m_ByPosition ? ", by position" : ", by value") +
	       (variant.m_HasEnableds ? "" : ", without enabled bytes");
}

void Prepare(CCall &call, const SVariant &variant)
{
	call.m_ByPosition = variant.m_ByPosition;
	if (variant.m_16Bit)
		call.Output16();
	if (!variant.m_HasEnableds)
		call.m_Enableds[2] = {};
}

// Every violation's sentence, in a line each.
std::string ViolationsOf(const CCall &call)
{
	const auto collect = [](const SSortFinding &finding, void *userData)
	{
		if (finding.m_Kind == SortFinding_Violation)
			*static_cast<std::string *>(userData) += std::string(finding.m_Sentence) + "\n";
	};
	std::string sentences;
	call.Validate(collect, &sentences);
	return sentences;
}
} // namespace

TEST(CheckedSort, BrokenCalls_AreRefusedInWordsAndTouchNothing)
{
	u32 kindCount = 0;
	for (const SBreakage &breakage : kBreakages)
	{
		for (const ECallGeometry geometry : kCallGeometries)
		{
			if ((breakage.m_Geometries >> geometry & 1) == 0)
				continue;
			++kindCount;
			for (const SVariant &variant : kVariants)
			{
				SCOPED_TRACE(std::string(breakage.m_Name) + ": " + Describe(geometry, variant));
				CCall call(geometry);
				Prepare(call, variant);
				{
					const CReportRecorder viewsOfWrongStrides;
					breakage.m_Break(call);
				}
				call.SetUp();
				EXPECT_NE(ViolationsOf(call).find(breakage.m_Words), std::string::npos) << ViolationsOf(call);
				EXPECT_TRUE(IsRefused(call));
			}
		}
	}
	EXPECT_GE(kindCount, 150u);
}

TEST(CheckedSort, SoundCalls_SortLikeTheBareSort)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		for (const SVariant &variant : kVariants)
		{
			SCOPED_TRACE(Describe(geometry, variant));
			CCall bare(geometry);
			Prepare(bare, variant);
			bare.SetUp();
			CCall checked(geometry);
			Prepare(checked, variant);
			checked.SetUp();

			CReportRecorder reports;
			CWarningRecorder warnings;
			bare.Sort();
			const std::vector<std::string> bareReports = reports.Texts();
			const u32 bareHazards = warnings.Hazards();
			reports.Clear();
			SFindings findings;
			EXPECT_EQ(checked.SortChecked(&Collect, &findings), 0u) << testing::PrintToString(findings.m_Sentences);
			EXPECT_EQ(reports.Texts(), bareReports);
			EXPECT_EQ(warnings.Hazards(), 2 * bareHazards);

			const std::size_t outputSize = std::size_t(bare.m_OutputCount) * (variant.m_16Bit ? 2 : 4);
			EXPECT_EQ(std::memcmp(checked.m_Output, bare.m_Output, outputSize), 0);
			EXPECT_EQ(std::memcmp(checked.m_WorkingBuffer, bare.m_WorkingBuffer, bare.m_WorkingBufferSize), 0);
			EXPECT_TRUE(checked.SurroundingsIntact());
		}
	}
}

TEST(CheckedSort, RandomlyDamagedCalls_AreRefusedOrSort)
{
	u32 sortedCount = 0;
	constexpr u32 kCaseCount = 3000;
	for (u64 seed = 1; seed <= kCaseCount && !HasFailure(); ++seed)
	{
		Model::CRandom random(seed);
		const CReportRecorder viewsOfWrongStrides;
		CCall call(kCallGeometries[random.Below(4)]);
		call.m_ByPosition = random.Chance(50);
		if (random.Chance(50))
			call.Output16();
		for (u32 damages = random.Between(1, 3); damages != 0; --damages)
			Damage(call, random);
		call.SetUp();
		sortedCount += call.Validate(null, null) == 0;
		EXPECT_TRUE(IsRefusedOrSorts(call)) << "seed " << seed;
	}
	EXPECT_GT(sortedCount, kCaseCount / 10);
	EXPECT_LT(sortedCount, kCaseCount / 2);
}

// Advice does not keep a call from being sorted.
TEST(CheckedSort, CallsToAdviseOn_Sort)
{
	const CWarningRecorder quiet;
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_OutputCount = 3 * u32(call.m_Pattern.size());
		call.SetUp();
		SFindings findings;
		EXPECT_EQ(call.SortChecked(&Collect, &findings), 0u) << geometry;
		EXPECT_EQ(findings.m_Sentences.size(), 1u) << geometry;
		EXPECT_NE(*static_cast<const u32 *>(call.m_Output), 0xCDCDCDCDu) << geometry;
	}
}

TEST(CheckedSort, WithoutAWorkingBuffer_TakesABlockAndGivesItBack)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_WorkingBuffer = null;
		call.m_WorkingBufferSize = 0;
		call.SetUp();
		const CAllocationRecorder allocations;
		EXPECT_EQ(call.SortChecked(null, null), 0u) << geometry;
		ASSERT_EQ(allocations.Allocations().size(), 1u) << geometry;
		EXPECT_TRUE(allocations.Allocations()[0].m_Freed) << geometry;
		EXPECT_NE(*static_cast<const u32 *>(call.m_Output), 0xCDCDCDCDu) << geometry;
	}
}

TEST(CheckedSort, WithoutAnyBlockToBeHad_Returns0AndWritesNothing)
{
	for (const ECallGeometry geometry : kCallGeometries)
	{
		CCall call(geometry);
		call.m_WorkingBuffer = null;
		call.m_WorkingBufferSize = 0;
		call.SetUp();
		const std::vector<unsigned char> before = call.Contents();
		const CAllocationRecorder refusing(true);
		const CExpectReports noReports;
		SFindings findings;
		EXPECT_EQ(call.SortChecked(&Collect, &findings), 0u) << geometry;
		EXPECT_EQ(findings.m_Sentences.size(), 1u) << geometry; // advice to give one
		EXPECT_EQ(refusing.Allocations().size(), 1u) << geometry;
		EXPECT_EQ(call.Contents(), before) << geometry;
	}
}

TEST(CheckedSort, SorterThatIsNotSetUp_IsRefused)
{
	const CExpectReports noReports;
	const CAllocationRecorder allocations;
	CTriangleSorter sorter;
	EXPECT_EQ(SortPointsChecked(sorter, null, 0, null, null), 3u);
	EXPECT_EQ(SortTrianglesChecked(sorter, null, 0, null, null), 3u);
	EXPECT_TRUE(allocations.Allocations().empty());
}
