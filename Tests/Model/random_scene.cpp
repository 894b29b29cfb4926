// Draws pages, geometries and calls that keep the rules a caller of the library is given. No expression draws twice:
// compilers differ in the order in which they evaluate operands.

#include "random_scene.h"

#include <algorithm>

namespace Model
{
using u64 = std::uint64_t;

u64 CRandom::Next64()
{
	m_State += 0x9E3779B97F4A7C15u;
	u64 z = m_State;
	z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
	z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
	return z ^ (z >> 31);
}

u32 CRandom::Next()
{
	return u32(Next64() >> 32);
}

u32 CRandom::Below(u32 bound)
{
	return u32((u64(Next()) * bound) >> 32);
}

u32 CRandom::Between(u32 low, u32 high)
{
	return low + u32((u64(Next()) * (u64(high) - low + 1)) >> 32);
}

bool CRandom::Chance(u32 percent)
{
	return Below(100) < percent;
}

static u32 Draw(CRandom &random, const SRange &range)
{
	return random.Between(range.m_Min, range.m_Max);
}

// Floats.

static u32 HostileFloat(CRandom &random)
{
	const u32 sign = random.Below(2) << 31;
	switch (random.Below(8))
	{
	case 0:
		return sign | 0x7FC00000u | random.Below(0x00400000u); // quiet NaN
	case 1:
		return sign | 0x7F800000u | random.Between(1, 0x003FFFFFu); // signalling NaN
	case 2:
		return sign | 0x7F800000u; // infinity
	case 3:
		return sign | random.Between(1, 0x007FFFFFu); // denormal
	case 4:
		return sign; // zero
	case 5:
		return sign | 0x7F000000u | random.Below(0x00800000u); // huge: its square is infinite
	case 6:
		return sign | random.Between(30u << 23, (80u << 23) - 1); // its square is a denormal or 0
	default:
		return random.Next();
	}
}

static u32 RandomFloat(CRandom &random, const SSceneOptions &options, bool hostile = true)
{
	if (hostile && random.Chance(options.m_HostilePercent))
		return HostileFloat(random);
	if (random.Chance(options.m_EqualPercent))
	{
		constexpr u32 kFewValues[] = {0x00000000u, 0x3F800000u, 0xBF800000u, 0x40A00000u}; // 0, 1, -1, 5
		return kFewValues[random.Below(4)];
	}
	const u32 sign = random.Below(2) << 31;
	return sign | random.Between(121u << 23, (138u << 23) - 1); // 2^-6 to 2^11
}

static SFloat3 RandomFloat3(CRandom &random, const SSceneOptions &options, bool hostile = true)
{
	// Now and then a whole position from few values, or equal distances would be rare.
	SSceneOptions ofThis = options;
	if (random.Chance(options.m_EqualPercent))
		ofThis.m_EqualPercent = 100;
	const u32 x = RandomFloat(random, ofThis, hostile);
	const u32 y = RandomFloat(random, ofThis, hostile);
	const u32 z = RandomFloat(random, ofThis, hostile);
	return {x, y, z};
}

// Pages.

enum class EPageKind
{
	Empty,
	Full,
	FullWithBytes,
	PartlyDisabled,
	PartlyRendered,
	PartlyRenderedWithBytes
};

static EPageKind RandomPageKind(CRandom &random, const SSceneOptions &options)
{
	const u32 weights[] = {options.m_WeightEmpty, options.m_WeightFull, options.m_WeightFullWithBytes,
		options.m_WeightPartlyDisabled, options.m_WeightPartlyRendered, options.m_WeightPartlyRenderedWithBytes};
	u32 total = 0;
	for (const u32 weight : weights)
		total += weight;
	u32 at = random.Below(total);
	u32 kind = 0;
	while (at >= weights[kind])
		at -= weights[kind++];
	return EPageKind(kind);
}

static u32 RandomAddress(CRandom &random, const SSceneOptions &options, u32 elementAlignment)
{
	if (!options.m_Misaligned || random.Chance(40))
		return 0;
	return elementAlignment * random.Below(16 / elementAlignment);
}

static std::vector<u8> RandomBytes(CRandom &random, u32 count, u32 zeroPercent)
{
	std::vector<u8> bytes;
	for (u32 i = 0; i < count; ++i)
		bytes.push_back(u8(random.Chance(zeroPercent) ? 0 : random.Between(1, 255)));
	return bytes;
}

static u32 CountSet(const std::vector<u8> &bytes)
{
	return u32(bytes.size()) - u32(std::count(bytes.begin(), bytes.end(), u8(0)));
}

SPage RandomPage(CRandom &random, const SSceneOptions &options)
{
	const EPageKind kind = RandomPageKind(random, options);
	u32 count = Draw(random, options.m_ParticlesPerPage);

	SPage page;
	switch (kind)
	{
	case EPageKind::Empty:
		if (random.Chance(33))
			count = 0;
		else if (random.Chance(50))
			page.m_Enabled = RandomBytes(random, count, 100);
		break;
	case EPageKind::Full:
		page.m_RenderedCount = count;
		break;
	case EPageKind::FullWithBytes:
		page.m_Enabled = RandomBytes(random, count, 0);
		page.m_RenderedCount = count;
		break;
	case EPageKind::PartlyDisabled:
		page.m_Enabled = RandomBytes(random, count, options.m_DisabledPercent);
		page.m_RenderedCount = CountSet(page.m_Enabled);
		break;
	case EPageKind::PartlyRendered:
		page.m_RenderedCount = random.Below(count + 1);
		break;
	case EPageKind::PartlyRenderedWithBytes:
		page.m_Enabled = RandomBytes(random, count, options.m_DisabledPercent);
		page.m_RenderedCount = random.Below(CountSet(page.m_Enabled) + 1);
		break;
	}

	page.m_Positions.m_Stride = options.m_PositionStrides.at(random.Below(u32(options.m_PositionStrides.size())));
	page.m_Values.m_Stride = options.m_ValueStrides.at(random.Below(u32(options.m_ValueStrides.size())));
	for (u32 i = 0; i < count; ++i)
	{
		std::vector<SFloat3> &positions = page.m_Positions.m_Elements;
		std::vector<u32> &values = page.m_Values.m_Elements;
		const bool repeatsPosition = page.m_Positions.m_Stride == 0 && i != 0;
		const bool repeatsValue = page.m_Values.m_Stride == 0 && i != 0;
		positions.push_back(repeatsPosition ? SFloat3(positions[0]) : RandomFloat3(random, options));
		values.push_back(repeatsValue ? u32(values[0]) : RandomFloat(random, options));
	}
	page.m_Positions.m_AddressMod16 = RandomAddress(random, options, 4);
	page.m_Values.m_AddressMod16 = RandomAddress(random, options, 4);
	page.m_EnabledAddressMod16 = RandomAddress(random, options, 1);
	return page;
}

static std::vector<SPage> RandomPages(CRandom &random, const SSceneOptions &options)
{
	std::vector<SPage> pages(Draw(random, options.m_PageCount));
	for (SPage &page : pages)
		page = RandomPage(random, options);
	return pages;
}

// Geometry.

std::vector<u32> RandomPattern(CRandom &random, u32 width, u32 verticesPerParticle)
{
	std::vector<u32> pattern(width);
	for (u32 &entry : pattern)
		entry = width == 1 ? 0 : random.Below(verticesPerParticle);
	return pattern;
}

// Vertices past which a 16-bit index may lie: the last index that every loop writes exactly is 0xFFFE. A list entry is
// the base of a particle that may stick out of the vertex buffer, so lists keep their distance.
constexpr u32 kMaxVertices16 = 0xFFFF;
constexpr u32 kMaxVertices16OfList = 0xFF00;
constexpr u32 kMaxVertices16Overflowing = 0x30000;

static u32 RandomVerticesPerParticle(CRandom &random, const SSceneOptions &options, EIndexType indexType, u32 particles)
{
	if (options.m_Overflow && indexType == EIndexType::U16)
		return random.Between(0x8000, kMaxVertices16Overflowing) / std::max(particles, 1u) + 1;
	return std::max(Draw(random, options.m_VerticesPerParticle), 1u);
}

static u32 RandomVertexCount(CRandom &random, const SSceneOptions &options, const SScene &scene, u32 needed)
{
	u32 count = random.Chance(options.m_VertexCutPercent) ? random.Below(needed + 1) : needed + random.Below(20);
	const bool hasList =
		scene.m_Geometry == EGeometry::IndexList || scene.m_Geometry == EGeometry::IndexListAndQuadCenters;
	if (scene.m_IndexType == EIndexType::U16 && !options.m_Overflow)
		count = std::min(count, hasList ? kMaxVertices16OfList : kMaxVertices16);
	if (scene.m_IndexType == EIndexType::U32 && options.m_Overflow && scene.m_Geometry == EGeometry::IndexList)
		count = 0xFFFFFFFFu;
	return count;
}

static u32 RandomCapacity(CRandom &random, const SSceneOptions &options, u32 needed)
{
	if (random.Chance(options.m_SmallOutputPercent))
		return random.Below(needed + 1);
	return random.Chance(50) ? needed : needed + random.Below(50);
}

static u32 RandomListEntry(CRandom &random, const SSceneOptions &options, u32 vertexCount, u32 verticesPerParticle)
{
	if (vertexCount == 0 || random.Chance(options.m_InvalidEntryPercent))
		return random.Chance(50) ? vertexCount : random.Between(vertexCount, 0xFFFFFFFFu);
	if (random.Chance(5))
		return vertexCount - 1;
	const u32 entry = random.Below(vertexCount);
	return random.Chance(80) ? entry - entry % verticesPerParticle : entry;
}

static void AddOutputAndInput(SScene &scene, CRandom &random, const SSceneOptions &options)
{
	scene.m_IndexType = options.m_IndexType.value_or(random.Chance(50) ? EIndexType::U16 : EIndexType::U32);
	scene.m_SortType = options.m_SortType.value_or(random.Chance(50) ? ESortType::ByPosition : ESortType::ByValue);
	scene.m_OutputAddressMod16 = RandomAddress(random, options, scene.m_IndexType == EIndexType::U16 ? 2 : 4);
	scene.m_Camera = RandomFloat3(random, options, options.m_HostileCamera);
	scene.m_Pages = RandomPages(random, options);
	for (const SPage &page : scene.m_Pages)
		scene.m_ParticleCount += page.m_RenderedCount;
}

SScene RandomPointScene(u64 seed, const SSceneOptions &options)
{
	CRandom random(seed);
	SScene scene;
	AddOutputAndInput(scene, random, options);

	scene.m_Geometry = options.m_Geometry.value_or(EGeometry(random.Below(3)));
	const u32 perParticle = RandomVerticesPerParticle(random, options, scene.m_IndexType, scene.m_ParticleCount);
	u32 width = std::max(Draw(random, options.m_Width), 1u);
	if (scene.m_Geometry == EGeometry::IndexListAndQuadCenters) // with a rest of less than a quad at times
	{
		width = Draw(random, options.m_Quads) * 6;
		width += random.Chance(25) ? random.Below(6) : 0;
	}
	scene.m_VerticesPerParticle = perParticle;
	scene.m_Pattern = RandomPattern(random, width, perParticle);
	scene.m_VertexCount = RandomVertexCount(random, options, scene, scene.m_ParticleCount * perParticle);
	scene.m_IndexCapacity = RandomCapacity(random, options, scene.m_ParticleCount * width);

	if (scene.m_Geometry != EGeometry::Constant)
	{
		for (u32 i = 0; i < scene.m_ParticleCount; ++i)
			scene.m_IndexList.push_back(RandomListEntry(random, options, scene.m_VertexCount, perParticle));
		scene.m_IndexListAddressMod16 = RandomAddress(random, options, 4);
	}
	if (scene.m_Geometry == EGeometry::IndexListAndQuadCenters)
	{
		const u32 lastParticle = std::max(scene.m_VertexCount, 1u) / perParticle;
		for (u32 i = 0; i < (lastParticle + 1) * 16; ++i)
		{
			const SFloat3 center = RandomFloat3(random, options);
			scene.m_QuadCenters.push_back({center.m_X, center.m_Y, center.m_Z, random.Next()});
		}
	}
	return scene;
}

SScene RandomTriangleScene(u64 seed, const SSceneOptions &options)
{
	CRandom random(seed);
	SScene scene;
	AddOutputAndInput(scene, random, options);

	scene.m_Geometry = EGeometry::PerPage;
	u32 vertices = 0;
	for (SPage &page : scene.m_Pages)
	{
		const u32 perParticle = RandomVerticesPerParticle(random, options, scene.m_IndexType, scene.m_ParticleCount);
		const u32 width = Draw(random, options.m_TrianglesPerParticle) * 3;
		page.m_VerticesPerParticle = perParticle;
		page.m_Pattern = RandomPattern(random, width, perParticle);
		vertices += page.m_RenderedCount * perParticle;
		scene.m_TriangleIndexCount += page.m_RenderedCount * width;
	}
	if (random.Chance(options.m_FillerTrianglePercent))
		scene.m_TriangleIndexCount += random.Below(20) * 3;
	scene.m_VertexCount = RandomVertexCount(random, options, scene, vertices);
	scene.m_IndexCapacity = RandomCapacity(random, options, scene.m_TriangleIndexCount);
	return scene;
}

// Calls of the static functions.

SFillCall RandomFillCall(u64 seed, const SSceneOptions &options)
{
	CRandom random(seed);
	SFillCall call = {};
	call.m_Page = RandomPage(random, options);
	call.m_RecordCount = call.m_Page.m_RenderedCount;
	if (call.m_Page.m_Enabled.empty()) // more particles than records are the walker's business then, not this call's
	{
		call.m_Page.m_Positions.m_Elements.resize(call.m_RecordCount);
		call.m_Page.m_Values.m_Elements.resize(call.m_RecordCount);
	}
	call.m_RecordsAddressMod16 = call.m_RecordCount == 0 ? 0 : random.Below(2) * 8;
	call.m_Camera = RandomFloat3(random, options, options.m_HostileCamera);
	call.m_IndexStart = random.Chance(10) ? random.Next() : random.Below(1000);
	call.m_IndexIncrement = random.Chance(10) ? random.Next() : random.Below(20);
	call.m_MaxVertexId = random.Chance(5) ? 0 : random.Between(1, 0x10000);
	for (u32 i = 0; i < call.m_RecordCount; ++i)
		call.m_IndexList.push_back(RandomListEntry(random, options, call.m_MaxVertexId, 1));
	call.m_IndexListAddressMod16 = RandomAddress(random, options, 4);
	return call;
}

SExpandCall RandomExpandCall(u64 seed, const SSceneOptions &options)
{
	CRandom random(seed);
	SExpandCall call = {};
	call.m_IndexType = options.m_IndexType.value_or(random.Chance(50) ? EIndexType::U16 : EIndexType::U32);
	const bool is16 = call.m_IndexType == EIndexType::U16;
	const u32 width = Draw(random, options.m_Width);
	const u32 perParticle = std::max(Draw(random, options.m_VerticesPerParticle), 1u);
	call.m_Pattern = RandomPattern(random, is16 ? width : std::max(width, 1u), perParticle);

	u32 baseBound = is16 ? kMaxVertices16 - perParticle + 1 : 0x01000000u;
	if (options.m_Overflow)
		baseBound = is16 ? kMaxVertices16Overflowing : 0xFFFFFFFFu;
	call.m_Records.resize(Draw(random, options.m_ParticlesPerPage));
	for (SRecord &record : call.m_Records)
	{
		const u32 base = random.Chance(10) ? baseBound - 1 : random.Below(baseBound);
		const bool anyBits = options.m_Overflow && random.Chance(10);
		record = {random.Next(), anyBits ? random.Next() : base};
	}
	call.m_OutputAddressMod16 = RandomAddress(random, options, is16 ? 2 : 4);
	return call;
}

std::string Describe(const SScene &scene)
{
	const auto number = [](const char *name, std::size_t value) { return std::string(name) + std::to_string(value); };
	std::string text = scene.m_IndexType == EIndexType::U16 ? "u16" : "u32";
	text += scene.m_SortType == ESortType::ByPosition ? " by position" : " by value";
	text += number(", geometry ", std::size_t(scene.m_Geometry) + 1);
	text += number(", particles ", scene.m_ParticleCount);
	text += number(" in pages ", scene.m_Pages.size());
	text += number(", width ", scene.m_Pattern.size());
	text += number(", vertices per particle ", scene.m_VerticesPerParticle);
	text += number(", vertices ", scene.m_VertexCount);
	text += number(", triangle indices ", scene.m_TriangleIndexCount);
	text += number(", capacity ", scene.m_IndexCapacity);
	text += number(", output address mod 16 ", scene.m_OutputAddressMod16);
	return text;
}
} // namespace Model
