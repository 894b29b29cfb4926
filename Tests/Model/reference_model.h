// The sorter once more, slowly and in scalar code: every function states what the library has to write, bit for bit.
// Tests hand the same scene to both and compare. Floats travel as their bits, so that a NaN's payload survives and no
// compiler flag (contraction, reassociation, finite-only maths, flushed denormals) can change a result.
// It needs the standard library alone. Input must keep the rules a caller of the library is given; where it does not,
// a checked access throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Model
{
using u8 = std::uint8_t;
using u32 = std::uint32_t;
using s32 = std::int32_t;

struct SFloat3
{
	u32 m_X, m_Y, m_Z; // float bits
};

struct SFloat4
{
	u32 m_X, m_Y, m_Z, m_W; // float bits
};

// The sort record: ordered ascending by the unsigned key, never by the index.
struct SRecord
{
	u32 m_Key;
	u32 m_Index;
};
bool operator==(const SRecord &a, const SRecord &b);
bool operator!=(const SRecord &a, const SRecord &b);

// One raise of a log-once warning: the site line inside its key, and the message.
struct SWarning
{
	u32 m_Line;
	std::string m_Text;
};
bool operator==(const SWarning &a, const SWarning &b);
bool operator!=(const SWarning &a, const SWarning &b);

// In the order of the raises, repetitions included: each is one touch of its entry in the collection.
using SWarnings = std::vector<SWarning>;

// Source elements, one per particle of the view (disabled ones included). With stride 0 the view is virtual: the
// element at 0 stands for all of them, and the size is still the view's count. The address of the first byte modulo 16
// is for the code that lays the view out in memory: it never shows in a result.
struct SPositions
{
	std::vector<SFloat3> m_Elements;
	u32 m_Stride = 12;
	u32 m_AddressMod16 = 0;
};

struct SValues
{
	std::vector<u32> m_Elements; // float bits
	u32 m_Stride = 4;
	u32 m_AddressMod16 = 0;
};

struct SPage
{
	SPositions m_Positions;
	SValues m_Values;
	std::vector<u8> m_Enabled; // empty: no enabled bytes, no particle disabled
	u32 m_EnabledAddressMod16 = 0;
	u32 m_RenderedCount = 0;

	// For geometry per page only.
	std::vector<u32> m_Pattern;
	u32 m_VerticesPerParticle = 0;
};

enum class EIndexType
{
	U16,
	U32
};

enum class ESortType
{
	ByPosition,
	ByValue
};

enum class EGeometry
{
	Constant,
	IndexList,
	IndexListAndQuadCenters,
	PerPage
};

// Everything the set-up calls of one draw call describe.
struct SScene
{
	EIndexType m_IndexType = EIndexType::U32;
	u32 m_IndexCapacity = 0;
	u32 m_OutputAddressMod16 = 0;
	u32 m_VertexCount = 0;

	ESortType m_SortType = ESortType::ByPosition;
	SFloat3 m_Camera = {0, 0, 0};
	std::vector<SPage> m_Pages;
	u32 m_ParticleCount = 0;

	EGeometry m_Geometry = EGeometry::Constant;
	std::vector<u32> m_Pattern;
	u32 m_VerticesPerParticle = 0;
	std::vector<u32> m_IndexList; // per rendered particle
	u32 m_IndexListAddressMod16 = 0;
	std::vector<SFloat4> m_QuadCenters; // 16 per particle, whatever the number of quads
	u32 m_TriangleIndexCount = 0;       // geometry per page: the working buffer's index count, a multiple of 3
};

// Keys.

// Single precision, each operation rounded to nearest on its own, denormals kept. An operand that is a NaN comes out
// quieted, the first one if both are; inf - inf gives 0xFFC00000.
u32 FloatKey(u32 value);                                                  // ascending keys, ascending values
u32 SquaredDistance(const SFloat3 &position, const SFloat3 &camera);      // (x*x + y*y) + z*z of position - camera
u32 DistanceKey(const SFloat3 &position, const SFloat3 &camera);          // farthest first
u32 CompactedDistanceKey(const SFloat3 &position, const SFloat3 &camera); // float key of 0.0 - squared distance

constexpr u32 kDistanceKeyFar = 0x807FFFFFu; // distance key of +infinity
constexpr u32 kFloatKeyFar = 0x007FFFFFu;    // float key of -infinity

// Fill: one slice of source data into recordCount records.

// All four return the records in memory order. With fewer records than source elements the enabled ones are
// compacted; where there are no enabled bytes then, the first elements are taken on the direct path.

// Record k has the base indexStart + k * indexIncrement. A group of four lies in the order 2, 3, 0, 1 of the
// source: groups start at the first 16-byte boundary for positions (recordsAddressMod16 is 0 or 8), at the first
// record for packed or compacted values, and values of another stride are not grouped.
std::vector<SRecord> FillNoIndices(u32 recordCount,
	u32 recordsAddressMod16,
	const SPositions &positions,
	const SFloat3 &camera,
	const std::vector<u8> &enabled,
	u32 indexStart,
	u32 indexIncrement,
	SWarnings &warnings);
std::vector<SRecord> FillNoIndices(u32 recordCount,
	const SValues &values,
	const std::vector<u8> &enabled,
	u32 indexStart,
	u32 indexIncrement,
	SWarnings &warnings);

// Record k has the base indexList[k]; an entry from maxVertexId on gives the far key of the path and base 0. Source
// order throughout.
std::vector<SRecord> FillIndices(u32 recordCount,
	const SPositions &positions,
	const SFloat3 &camera,
	const std::vector<u8> &enabled,
	const u32 *indexList,
	u32 maxVertexId,
	SWarnings &warnings);
std::vector<SRecord> FillIndices(u32 recordCount,
	const SValues &values,
	const std::vector<u8> &enabled,
	const u32 *indexList,
	u32 maxVertexId,
	SWarnings &warnings);

// Page cache.

struct SLocation
{
	u32 m_Page;             // the page count: one past the last rendered particle
	u32 m_OffsetInPage;     // counts all particles
	u32 m_OffsetInRendered; // counts rendered particles
};
SLocation LocateRendered(const std::vector<SPage> &pages, u32 renderedId);

// Records of the rendered particles [start, start + count) for constant geometry or geometry by index list, the
// first of them on a 16-byte boundary.
std::vector<SRecord> FillSource(const SScene &scene, u32 start, u32 count, SWarnings &warnings);

// Order.

// Neither is stable: what becomes of the order of equal keys is part of what they model.
void InsertionSort(std::vector<SRecord> &records, s32 lo, s32 hi); // selects maxima; both bounds inclusive
void QuickSort(std::vector<SRecord> &records);                     // its small-range sort is the one above

// Stable. The input is left in the order of the low 22 key bits, stable too.
std::vector<SRecord> RadixSort(std::vector<SRecord> &input);

// The sort entry point: up to 109 records quick sort and an unchanged input, from 110 on radix sort.
std::vector<SRecord> Sort(std::vector<SRecord> &input);

// Expand.

// Outputs of ExpandIndices, records.size() * pattern.size() of them; 16-bit ones are below 0x10000. They include
// what the workers' loops do with sums beyond the index type. A 32-bit worker warns of an unaligned destination even
// where there is no record.
std::vector<u32> ExpandIndices(EIndexType indexType,
	const std::vector<u32> &pattern,
	const std::vector<SRecord> &records,
	u32 outputAddressMod16,
	SWarnings &warnings);

// Outputs of ExpandAndSortIndices; what it leaves untouched is empty. At most 16 quads.
std::vector<std::optional<u32>> ExpandAndSortIndices(EIndexType indexType,
	const std::vector<u32> &pattern,
	const std::vector<SFloat4> &quadCenters,
	const SFloat3 &camera,
	const std::vector<SRecord> &records,
	u32 verticesPerParticle,
	SWarnings &warnings);

// Triangles.

// One record per triangle from one per particle: block t holds triangle t of every particle.
std::vector<SRecord> WidenToTriangles(
	const std::vector<SRecord> &particles, u32 trianglesPerParticle, u32 triangleOffset);

// Whole triangles of the source, in the order of the records.
std::vector<u32> GatherTriangles(const std::vector<SRecord> &records, const std::vector<u32> &sourceIndices);

// Drivers.

struct SSortResult
{
	std::vector<std::optional<u32>> m_Output; // one per index of the capacity; empty: not written
	std::vector<SRecord> m_Filled;            // record array 1 when the sort begins
	std::vector<SRecord> m_Sorted;            // record array 0 afterwards
	std::vector<SRecord> m_Scratch;           // record array 1 afterwards
	std::vector<u32> m_TriangleIndices;       // the unsorted triangle list of a triangle sort
	u32 m_ReadOffset = 0;                     // the first sorted record that is written
	u32 m_WriteCount = 0;                     // particles, or triangles, that the output holds
	SWarnings m_Warnings;
};
SSortResult PointSort(const SScene &scene);    // the first three geometries, a pattern that is not empty
SSortResult TriangleSort(const SScene &scene); // geometry per page
} // namespace Model
