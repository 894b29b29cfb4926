// Random valid input for differential tests. The same seed and options give the same scene with every compiler and
// every flag: all draws are integers, floats are put together from bits.
// A scene says how its views lie in memory (strides, addresses modulo 16) and leaves it to the test to lay them out.
#pragma once

#include "reference_model.h"

namespace Model
{
// splitmix64 (S. Vigna, 2015): a counter, scrambled.
class CRandom
{
public:
	explicit CRandom(std::uint64_t seed)
		: m_State(seed)
	{
	}

	std::uint64_t Next64();
	u32 Next();
	u32 Below(u32 bound);           // [0, bound), 0 for bound 0
	u32 Between(u32 low, u32 high); // both included
	bool Chance(u32 percent);

private:
	std::uint64_t m_State;
};

struct SRange // both included
{
	u32 m_Min;
	u32 m_Max;
};

struct SSceneOptions
{
	SRange m_PageCount = {1, 8};
	SRange m_ParticlesPerPage = {0, 60}; // of the views, disabled ones included

	// How often each kind of page comes up, relative to the others.
	u32 m_WeightEmpty = 2;                   // nothing rendered: no views, views alone, or all bytes 0
	u32 m_WeightFull = 3;                    // no enabled bytes
	u32 m_WeightFullWithBytes = 1;           // every byte set
	u32 m_WeightPartlyDisabled = 4;          // as many bytes set as particles rendered
	u32 m_WeightPartlyRendered = 1;          // no enabled bytes, more particles in the views than rendered
	u32 m_WeightPartlyRenderedWithBytes = 1; // more bytes set than particles rendered
	u32 m_DisabledPercent = 30;              // of the particles of a page with disabled ones

	std::vector<u32> m_PositionStrides = {0, 12, 12, 12, 16, 20};
	std::vector<u32> m_ValueStrides = {0, 4, 4, 4, 8};
	bool m_Misaligned = true; // views and output at any address their elements allow, else at 16-byte boundaries

	u32 m_HostilePercent = 4;     // of the floats: NaNs with payloads, infinities, denormals, signed zeros, huge ones
	u32 m_EqualPercent = 25;      // of the floats: one of four values, so that many keys are equal
	bool m_HostileCamera = false; // the camera gets hostile floats too

	std::optional<EIndexType> m_IndexType; // drawn when empty
	std::optional<ESortType> m_SortType;
	std::optional<EGeometry> m_Geometry;     // of point scenes: one of the first three
	SRange m_Width = {1, 20};                // indices of a pattern; 0 only reaches 16-bit expansion calls
	SRange m_Quads = {1, 15};                // of a particle with quad centres
	SRange m_TrianglesPerParticle = {1, 16}; // of geometry per page
	SRange m_VerticesPerParticle = {1, 8};   // at most 255

	u32 m_VertexCutPercent = 25;      // of the scenes: too few vertices for all particles
	u32 m_SmallOutputPercent = 25;    // of the scenes: too few indices for all particles
	u32 m_InvalidEntryPercent = 5;    // of the entries of an index list
	u32 m_FillerTrianglePercent = 20; // of the triangle scenes: room for more triangles than the pages draw
	bool m_Overflow = false; // indices beyond the index type; not for 32-bit constant geometry or geometry per page
};

SPage RandomPage(CRandom &random, const SSceneOptions &options);
std::vector<u32> RandomPattern(CRandom &random, u32 width, u32 verticesPerParticle); // width 1: a single 0

SScene RandomPointScene(std::uint64_t seed, const SSceneOptions &options);
SScene RandomTriangleScene(std::uint64_t seed, const SSceneOptions &options);

// Arguments of one call of the static fill functions, either of each overload: as many records as the page renders.
struct SFillCall
{
	u32 m_RecordCount;
	u32 m_RecordsAddressMod16; // 0 or 8; 0 without records
	SPage m_Page;
	SFloat3 m_Camera;
	u32 m_IndexStart;
	u32 m_IndexIncrement;
	std::vector<u32> m_IndexList;
	u32 m_IndexListAddressMod16;
	u32 m_MaxVertexId;
};
SFillCall RandomFillCall(std::uint64_t seed, const SSceneOptions &options);

// Arguments of one call of ExpandIndices; the number of records is drawn from the particles per page.
struct SExpandCall
{
	EIndexType m_IndexType;
	std::vector<u32> m_Pattern;
	std::vector<SRecord> m_Records;
	u32 m_OutputAddressMod16;
};
SExpandCall RandomExpandCall(std::uint64_t seed, const SSceneOptions &options);

// One line for a failure message.
std::string Describe(const SScene &scene);
} // namespace Model
