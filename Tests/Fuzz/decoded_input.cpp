#include "decoded_input.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace Fuzz
{
using Model::CRandom;
using Model::EGeometry;
using Model::EIndexType;
using Model::SFloat3;
using Model::SPage;
using Model::SScene;

// One page is enough for the radix sort, six for every kind of neighbour.
constexpr u32 kMaxPages = 6;
constexpr u32 kMaxParticlesPerPage = 130;
constexpr u32 kMaxParticles = 200;

void Announce(const std::string &call)
{
	static const bool s_Describe = std::getenv("VEXMOOR_FUZZ_DESCRIBE") != nullptr;
	if (s_Describe)
		std::fprintf(stderr, "%s\n", call.c_str());
}

// Floats.

constexpr u32 kSpecialFloats[] = {
	0x00000000u, 0x80000000u, 0x3F800000u, 0xBF800000u, // 0, -0, 1, -1
	0x7F800000u, 0xFF800000u, 0x7FC12345u, 0xFFC54321u, // infinities and quiet NaNs
	0x7F812345u, 0xFF954321u, 0x00000001u, 0x80123456u, // signalling NaNs and denormals
	0x00800000u, 0x7F7FFFFFu, 0x20000000u, 0x5F800000u, // the smallest and largest, squares at either end
};

// A byte that names a special float, or how to make one: all bits, or a sign, a few exponents and a mantissa that
// rounding has to cut.
static u32 ReadFloat(CByteReader &reader)
{
	const u32 code = reader.Byte();
	if (code < 16)
		return kSpecialFloats[code];
	if (code == 255)
		return reader.Word();
	return (code & 0x80u) << 24 | (120 + code % 16) << 23 | code * 0x00003581u;
}

namespace
{
	// Many floats, in one of the ways that a byte chooses.
	class CFloats
	{
	public:
		explicit CFloats(CByteReader &reader)
			: m_Reader(reader)
			, m_Kind(EKind(reader.Below(4)))
			, m_Random(m_Kind == EKind::Bytes ? 0 : reader.Byte())
		{
		}

		u32 Next()
		{
			switch (m_Kind)
			{
			case EKind::Bytes:
				return ReadFloat(m_Reader);
			case EKind::Finite:
				return m_Random.Below(2) << 31 | m_Random.Between(121u << 23, (138u << 23) - 1);
			case EKind::Special:
				return kSpecialFloats[m_Random.Below(16)];
			default:
				return m_Random.Next();
			}
		}
		SFloat3 Next3()
		{
			const u32 x = Next();
			const u32 y = Next();
			const u32 z = Next();
			return {x, y, z};
		}

	private:
		enum class EKind
		{
			Bytes,
			Finite,
			Special,
			AnyBits
		};

		CByteReader &m_Reader;
		const EKind m_Kind;
		CRandom m_Random;
	};
} // namespace

static SFloat3 ReadFloat3(CByteReader &reader)
{
	const u32 x = ReadFloat(reader);
	const u32 y = ReadFloat(reader);
	const u32 z = ReadFloat(reader);
	return {x, y, z};
}

// Pages.

static std::vector<u8> ReadEnabled(CByteReader &reader, u32 count)
{
	const u32 kind = reader.Below(4);
	std::vector<u8> enabled;
	if (kind == 0) // no bytes: none is disabled
		return enabled;
	if (kind == 1) // eight particles to a byte
	{
		u32 bits = 0;
		for (u32 i = 0; i < count; ++i)
		{
			bits = i % 8 == 0 ? reader.Byte() : bits >> 1;
			enabled.push_back(bits % 2 != 0 ? u8(0x80 >> i % 8) : u8(0));
		}
		return enabled;
	}
	CRandom random(reader.Byte());
	const u32 disabledPercent = reader.Below(101);
	for (u32 i = 0; i < count; ++i)
		enabled.push_back(random.Chance(disabledPercent) ? u8(0) : u8(random.Between(1, 255)));
	return enabled;
}

static u32 CountOffered(const SPage &page, u32 count)
{
	if (page.m_Enabled.empty())
		return count;
	return count - u32(std::count(page.m_Enabled.begin(), page.m_Enabled.end(), u8(0)));
}

static SPage ReadPage(CByteReader &reader, u32 maxCount)
{
	constexpr u32 kPositionStrides[] = {12, 12, 12, 16, 20, 24, 13, 0};
	constexpr u32 kValueStrides[] = {4, 4, 4, 8, 12, 16, 5, 0};
	SPage page;
	const u32 count = std::min(reader.Below(kMaxParticlesPerPage + 1), maxCount);
	page.m_Enabled = ReadEnabled(reader, count);

	// All that are enabled are rendered, or some of them.
	const u32 notRendered = reader.Byte();
	const u32 offered = CountOffered(page, count);
	page.m_RenderedCount = notRendered < 128 ? offered : offered - std::min(offered, notRendered - 128);

	const u32 layout = reader.Byte();
	page.m_Positions.m_Stride = kPositionStrides[layout % 8];
	page.m_Values.m_Stride = kValueStrides[layout % 8];
	page.m_Positions.m_AddressMod16 = page.m_Values.m_AddressMod16 = layout / 8 % 4 * 4;
	page.m_EnabledAddressMod16 = reader.Below(16);

	CFloats floats(reader);
	for (u32 i = 0; i < count; ++i)
	{
		const bool repeats = layout % 8 == 7 && i != 0; // a stride of 0
		const SFloat3 position = repeats ? page.m_Positions.m_Elements[0] : floats.Next3();
		page.m_Positions.m_Elements.push_back(position);
		page.m_Values.m_Elements.push_back(position.m_X);
	}
	return page;
}

// Scenes.

static u32 ReadWidth(CByteReader &reader)
{
	constexpr u32 kOwnWorkers[] = {1, 3, 6, 12};
	const u32 code = reader.Byte();
	return code < 128 ? kOwnWorkers[code % 4] : code % 32 + 1;
}

static std::vector<u32> ReadPattern(CByteReader &reader, u32 width, u32 verticesPerParticle)
{
	std::vector<u32> pattern(width, 0);
	if (width == 1)
		return pattern;
	CRandom random(reader.Byte());
	for (u32 &entry : pattern)
		entry = random.Below(verticesPerParticle);
	return pattern;
}

// Just enough, more, or less than is needed.
static u32 ReadBudget(CByteReader &reader, u32 needed)
{
	const u32 code = reader.Byte();
	if (code < 64)
		return needed;
	if (code < 128)
		return needed + code - 64;
	if (code < 192)
		return needed - std::min(needed, code - 128);
	return u32(std::uint64_t(needed) * (code - 192) / 64);
}

// The last 16-bit index that every loop writes exactly is 0xFFFE. A list entry is the base of a particle that may stick
// out of the vertex buffer, so lists keep their distance.
static u32 MaxVertexCount(EIndexType indexType, bool hasList)
{
	if (indexType == EIndexType::U32)
		return 0x01000000u;
	return hasList ? 0xFF00u : 0xFFFFu;
}

// Entries at the start of a particle or anywhere, and among them some at and beyond the vertex count.
static std::vector<u32> ReadIndexList(CByteReader &reader, u32 count, u32 vertexCount, u32 verticesPerParticle)
{
	CRandom random(reader.Byte());
	const u32 invalidPercent = reader.Below(128);
	std::vector<u32> list;
	for (u32 i = 0; i < count; ++i)
	{
		const bool invalid =
			vertexCount == 0 || random.Chance(invalidPercent < 64 ? invalidPercent / 8 : invalidPercent);
		const u32 valid = random.Below(vertexCount);
		const u32 start = valid - valid % verticesPerParticle;
		const u32 beyond = random.Chance(50) ? vertexCount : random.Between(vertexCount, 0xFFFFFFFFu);
		list.push_back(invalid ? beyond : random.Chance(70) ? start : valid);
	}
	return list;
}

static void ReadPointGeometry(CByteReader &reader, SScene &scene)
{
	const bool hasQuads = scene.m_Geometry == EGeometry::IndexListAndQuadCenters;
	const bool hasList = scene.m_Geometry != EGeometry::Constant;
	u32 width = ReadWidth(reader);
	if (hasQuads) // up to 15, and now and then the rest of one
		width = (width % 15 + 1) * 6 + (reader.Flag() ? reader.Below(6) : 0);
	scene.m_VerticesPerParticle = reader.Below(255) + 1;
	scene.m_Pattern = ReadPattern(reader, width, scene.m_VerticesPerParticle);
	scene.m_VertexCount = std::min(ReadBudget(reader, scene.m_ParticleCount * scene.m_VerticesPerParticle),
		MaxVertexCount(scene.m_IndexType, hasList));
	scene.m_IndexCapacity = ReadBudget(reader, scene.m_ParticleCount * width);
	if (hasList)
	{
		scene.m_IndexList =
			ReadIndexList(reader, scene.m_ParticleCount, scene.m_VertexCount, scene.m_VerticesPerParticle);
		scene.m_IndexListAddressMod16 = reader.Below(4) * 4;
	}
	if (hasQuads)
	{
		const u32 lastParticle = std::max(scene.m_VertexCount, 1u) / scene.m_VerticesPerParticle;
		CFloats floats(reader);
		for (u32 i = 0; i < (lastParticle + 1) * 16; ++i)
		{
			const SFloat3 center = floats.Next3();
			scene.m_QuadCenters.push_back({center.m_X, center.m_Y, center.m_Z, i});
		}
	}
}

static void ReadTriangleGeometry(CByteReader &reader, SScene &scene)
{
	u32 vertices = 0;
	for (SPage &page : scene.m_Pages)
	{
		page.m_VerticesPerParticle = reader.Below(255) + 1;
		const u32 width = (reader.Below(6) + 1) * 3;
		page.m_Pattern = ReadPattern(reader, width, page.m_VerticesPerParticle);
		vertices += page.m_RenderedCount * page.m_VerticesPerParticle;
		scene.m_TriangleIndexCount += page.m_RenderedCount * width;
	}
	scene.m_TriangleIndexCount += reader.Flag() ? reader.Below(20) * 3 : 0; // triangles that no page draws
	scene.m_VertexCount = std::min(ReadBudget(reader, vertices), MaxVertexCount(scene.m_IndexType, false));
	scene.m_IndexCapacity = ReadBudget(reader, scene.m_TriangleIndexCount);
}

SScene ReadScene(CByteReader &reader)
{
	SScene scene;
	scene.m_Geometry = EGeometry(reader.Below(4));
	scene.m_IndexType = reader.Flag() ? EIndexType::U16 : EIndexType::U32;
	scene.m_SortType = reader.Flag() ? Model::ESortType::ByValue : Model::ESortType::ByPosition;
	const u32 bytesPerIndex = scene.m_IndexType == EIndexType::U16 ? 2 : 4;
	scene.m_OutputAddressMod16 = reader.Below(16 / bytesPerIndex) * bytesPerIndex;
	scene.m_Camera = ReadFloat3(reader);

	const u32 pageCount = reader.Below(kMaxPages) + 1;
	u32 particlesLeft = kMaxParticles;
	for (u32 i = 0; i < pageCount; ++i)
	{
		scene.m_Pages.push_back(ReadPage(reader, particlesLeft));
		particlesLeft -= u32(scene.m_Pages.back().m_Values.m_Elements.size());
		scene.m_ParticleCount += scene.m_Pages.back().m_RenderedCount;
	}
	if (scene.m_Geometry == EGeometry::PerPage)
		ReadTriangleGeometry(reader, scene);
	else
		ReadPointGeometry(reader, scene);
	return scene;
}

SHost ReadHost(CByteReader &reader)
{
	using Support::CGuardedMemory;
	const u32 bits = reader.Byte();
	SHost host;
	host.m_Layout.m_Flush = bits % 2 == 0 ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart;
	host.m_Layout.m_RenderedCountStride = (bits >> 1) % 2 == 0 ? 4 : 8;
	host.m_Layout.m_PageViewStride = (bits >> 2) % 2 == 0 ? 16 : 48;
	host.m_Layout.m_SorterAllocates = (bits >> 3) % 4 == 3;
	host.m_FloatMode = bits >> 5;
	return host;
}

// Calls of the static functions.

Model::SFillCall ReadFillCall(CByteReader &reader)
{
	Model::SFillCall call = {};
	call.m_Page = ReadPage(reader, kMaxParticlesPerPage);
	call.m_RecordCount = call.m_Page.m_RenderedCount;
	if (call.m_Page.m_Enabled.empty()) // more particles than records are the page walk's business then
	{
		call.m_Page.m_Positions.m_Elements.resize(call.m_RecordCount);
		call.m_Page.m_Values.m_Elements.resize(call.m_RecordCount);
	}
	call.m_RecordsAddressMod16 = call.m_RecordCount == 0 ? 0 : reader.Below(2) * 8;
	call.m_Camera = ReadFloat3(reader);
	call.m_IndexStart = reader.Flag() ? reader.Word() : reader.Byte();
	call.m_IndexIncrement = reader.Flag() ? reader.Word() : reader.Byte();
	call.m_MaxVertexId = reader.Flag() ? reader.Half() : reader.Word();
	call.m_IndexList = ReadIndexList(reader, call.m_RecordCount, call.m_MaxVertexId, 1);
	call.m_IndexListAddressMod16 = reader.Below(4) * 4;
	return call;
}

Model::SExpandCall ReadExpandCall(CByteReader &reader)
{
	constexpr u32 kMaxEntry = 255;
	Model::SExpandCall call = {};
	const bool is16 = reader.Flag();
	call.m_IndexType = is16 ? EIndexType::U16 : EIndexType::U32;
	call.m_OutputAddressMod16 = is16 ? reader.Below(8) * 2 : reader.Below(4) * 4;
	const u32 width = is16 && reader.Byte() == 1 ? 0 : ReadWidth(reader);
	call.m_Pattern = ReadPattern(reader, width, kMaxEntry + 1);

	u32 count = reader.Below(100);
	if (width == 12 && !is16 && call.m_OutputAddressMod16 == 8) // needs a record
		count = std::max(count, 1u);
	const u32 baseBound = is16 ? 0xFFFEu - kMaxEntry : 0xFFFFFFFEu - kMaxEntry;
	CRandom random(reader.Byte());
	for (u32 i = 0; i < count; ++i)
	{
		const u32 base = random.Chance(10) ? baseBound : random.Below(random.Chance(50) ? 1000 : baseBound);
		call.m_Records.push_back({random.Next(), base});
	}
	return call;
}

SQuadCall ReadQuadCall(CByteReader &reader)
{
	SQuadCall call = {};
	const bool is16 = reader.Flag();
	call.m_IndexType = is16 ? EIndexType::U16 : EIndexType::U32;
	call.m_OutputAddressMod16 = is16 ? reader.Below(8) * 2 : reader.Below(4) * 4;
	call.m_Camera = ReadFloat3(reader);
	const u32 width = reader.Below(16) * 6 + (reader.Flag() ? reader.Below(6) : 0);
	call.m_Pattern = ReadPattern(reader, width, 255);

	// As many particles as have centres, and bases anywhere in them.
	const u32 particleCount = reader.Below(12) + 1;
	const u32 maxPerParticle = is16 ? 0xFE00u / 12 : 0x01000000u;
	call.m_VerticesPerParticle = std::min(reader.Flag() ? reader.Word() : reader.Byte(), maxPerParticle - 1) + 1;
	const u32 recordCount = reader.Below(24);
	CRandom random(reader.Byte());
	for (u32 i = 0; i < recordCount; ++i)
	{
		const u32 base = random.Below(particleCount * call.m_VerticesPerParticle);
		call.m_Records.push_back({random.Next(), base});
	}
	CFloats floats(reader);
	for (u32 i = 0; i < particleCount * 16; ++i)
	{
		const SFloat3 center = floats.Next3();
		call.m_Centers.push_back({center.m_X, center.m_Y, center.m_Z, random.Next()});
	}
	return call;
}

std::vector<Model::SRecord> ReadRecords(CByteReader &reader)
{
	const u32 count = reader.Byte();
	const u32 kind = reader.Below(4);
	CRandom random(kind == 0 ? 0 : reader.Byte());
	const u32 mask = kind == 1 ? 0x01010101u * reader.Byte() : 0xFFFFFFFFu;
	const u32 exchangedPercent = kind >= 2 ? reader.Below(50) : 0;
	std::vector<Model::SRecord> records;
	for (u32 i = 0; i < count; ++i)
	{
		u32 key = 0;
		if (kind == 0)
			key = 0x01010101u * reader.Byte();
		else if (kind == 1 || random.Chance(exchangedPercent))
			key = random.Next() & mask;
		else
			key = (kind == 2 ? i : count - i) << 20;
		records.push_back({key, i});
	}
	return records;
}
} // namespace Fuzz
