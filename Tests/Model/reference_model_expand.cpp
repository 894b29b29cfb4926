// The model's expansion stage. For indices that fit the output type every worker writes the pattern plus the record's
// base; beyond that each loop has its own way to lose the upper bits, and those are modelled one by one.

#include "reference_model.h"
#include <algorithm>
#include <stdexcept>

namespace Model
{
using u64 = std::uint64_t;

// 32-bit output.

// The plain rule, which all vector loops of 32-bit output follow.
static void AppendSums(std::vector<u32> &out, const std::vector<u32> &pattern, u32 base)
{
	for (const u32 entry : pattern)
		out.push_back(entry + base);
}

// Two entries and two bases in one 64-bit addition: a carry out of the lower sum reaches the upper one.
static void AppendPackedPairs(std::vector<u32> &out, const std::vector<u32> &pattern, u32 base)
{
	const u64 bases = u64(base) | u64(base) << 32;
	for (std::size_t j = 0; j + 2 <= pattern.size(); j += 2)
	{
		const u64 sum = (u64(pattern[j]) | u64(pattern[j + 1]) << 32) + bases;
		out.push_back(u32(sum));
		out.push_back(u32(sum >> 32));
	}
}

static std::vector<u32> ExpandU32(
	const std::vector<u32> &pattern, const std::vector<SRecord> &records, u32 outputAddressMod16, SWarnings &warnings)
{
	const std::string slow = "Render sort: Index stream expansion (U32): sub-optimal path ";
	const bool aligned16 = outputAddressMod16 % 16 == 0;
	const bool aligned8 = outputAddressMod16 % 8 == 0;

	std::size_t packed = 0; // how many records, at the end of the list, go through the packed scalar loop
	switch (pattern.size())
	{
	case 0:
		return {};
	case 1:
		if (!aligned16)
			warnings.push_back({556, slow + "[1]: Unaligned dst memory"});
		break;
	case 3:
		if (!aligned16)
			warnings.push_back({328, slow + "[6]: Unaligned dst memory"});
		break;
	case 6:
		if (!aligned16)
			warnings.push_back({248, slow + "[6]: Unaligned dst memory"});
		packed = aligned16 ? records.size() % 2 : records.size();
		break;
	case 12:
		if (!aligned8)
			warnings.push_back({477, slow + "[16]: Unaligned dst memory"});
		packed = aligned8 ? 0 : records.size();
		break;
	default:
		warnings.push_back({579, slow + "[" + std::to_string(pattern.size()) + "]"});
		break;
	}

	std::vector<u32> out;
	for (std::size_t r = 0; r < records.size(); ++r)
	{
		if (pattern.size() == 1)
			out.push_back(records[r].m_Index); // width 1 never adds its entry
		else if (r + packed < records.size())
			AppendSums(out, pattern, records[r].m_Index);
		else
			AppendPackedPairs(out, pattern, records[r].m_Index);
	}
	return out;
}

// 16-bit output.

static u32 Low16(u32 value)
{
	return value & 0xFFFFu;
}

// A lane of the pack with signed saturation.
static u32 PackSaturated(u32 lane)
{
	return Low16(u32(std::clamp(s32(lane), -0x8000, 0x7FFF)));
}

// The vector loop of width 1: what exceeds 0x7FFF, compared as signed, is made negative and then packed.
static u32 NarrowBase(u32 base)
{
	return PackSaturated(s32(base) > 0x7FFF ? base | 0xFFFF0000u : base);
}

// Width 3, eight records: their 24 offsets are packed by twos without a mask, so that the upper half of each even
// one is OR-ed into the odd one beside it; then come 16-bit additions.
static void AppendLeakyBlock(std::vector<u32> &out, const std::vector<u32> &pattern, const SRecord *records)
{
	for (u32 lane = 0; lane < 24; lane += 2)
	{
		const u32 even = records[lane / 3].m_Index;
		const u32 odd = records[(lane + 1) / 3].m_Index;
		const u32 pair = even | odd << 16;
		out.push_back(Low16(pattern[lane % 3] + Low16(pair)));
		out.push_back(Low16(pattern[(lane + 1) % 3] + (pair >> 16)));
	}
}

// Width 6, vector loop: the largest entry is moved to 0x7FFF and the bases the other way before both are packed, so
// that the pack saturates only where base + largest entry exceeds 0xFFFE.
static void AppendBiasedSums(std::vector<u32> &out, const std::vector<u32> &pattern, u32 base)
{
	s32 largest = s32(pattern[0]);
	for (const u32 entry : pattern)
		largest = std::max(largest, s32(entry));
	const u32 offsetter = u32(largest) - 0x7FFFu;
	for (const u32 entry : pattern)
		out.push_back(Low16(PackSaturated(entry - offsetter) + PackSaturated(base + offsetter)));
}

// Entries by twos or by fours in one 32- or 64-bit addition: carries and the upper half of the base pass into the
// next lane.
static void AppendPackedWords(std::vector<u32> &out, const std::vector<u32> &pattern, u32 base, u32 lanesPerWord)
{
	const u32 basePair = base | base << 16;
	const u64 bases = u64(basePair) | u64(basePair) << 32; // 32-bit words use the lower half
	for (std::size_t j = 0; j < pattern.size(); j += lanesPerWord)
	{
		u64 sum = bases;
		for (u32 lane = 0; lane < lanesPerWord; ++lane)
			sum += u64(Low16(pattern[j + lane])) << (16 * lane);
		for (u32 lane = 0; lane < lanesPerWord; ++lane)
			out.push_back(Low16(u32(sum >> (16 * lane))));
	}
}

static std::vector<u32> ExpandU16(
	const std::vector<u32> &pattern, const std::vector<SRecord> &records, u32 outputAddressMod16, SWarnings &warnings)
{
	if (pattern.empty() || records.empty())
		return {};

	const std::string slow = "Render sort: Index stream expansion (U16): sub-optimal path ";
	const bool aligned16 = outputAddressMod16 % 16 == 0;

	u32 recordsPerBlock = 0; // of the vector loop; 0: there is none for this width
	switch (pattern.size())
	{
	case 1:
		recordsPerBlock = 8;
		if (!aligned16)
			warnings.push_back({1148, slow + "[1]: Unaligned dst memory"});
		break;
	case 3:
		recordsPerBlock = 8;
		if (!aligned16) // this site borrows the text of the 32-bit width 6
			warnings.push_back(
				{925, "Render sort: Index stream expansion (U32): sub-optimal path [6]: Unaligned dst memory"});
		break;
	case 6:
		recordsPerBlock = 4;
		if (!aligned16)
			warnings.push_back({840, slow + "[6]: Unaligned dst memory"});
		break;
	case 12:
		break;
	default:
		warnings.push_back({1200, slow + "[" + std::to_string(pattern.size()) + "]"});
		break;
	}
	const bool vectors = aligned16 && recordsPerBlock != 0;
	const std::size_t inVectors = vectors ? records.size() / recordsPerBlock * recordsPerBlock : 0;

	std::vector<u32> out;
	for (std::size_t r = 0; r < records.size(); ++r)
	{
		const u32 base = records[r].m_Index;
		const bool vector = r < inVectors;
		if (pattern.size() == 1)
			out.push_back(vector ? NarrowBase(base) : Low16(base));
		else if (pattern.size() == 3 && vector)
		{
			if (r % recordsPerBlock == 0)
				AppendLeakyBlock(out, pattern, &records[r]);
		}
		else if (pattern.size() == 6 && vector)
			AppendBiasedSums(out, pattern, base);
		else if (pattern.size() == 6)
			AppendPackedWords(out, pattern, base, 2);
		else if (pattern.size() == 12)
			AppendPackedWords(out, pattern, base, 4);
		else
		{
			for (const u32 entry : pattern)
				out.push_back(Low16(entry + base));
		}
	}
	return out;
}

std::vector<u32> ExpandIndices(EIndexType indexType,
	const std::vector<u32> &pattern,
	const std::vector<SRecord> &records,
	u32 outputAddressMod16,
	SWarnings &warnings)
{
	return indexType == EIndexType::U32 ? ExpandU32(pattern, records, outputAddressMod16, warnings)
	                                    : ExpandU16(pattern, records, outputAddressMod16, warnings);
}

// Quads inside a particle.

constexpr u32 kIndicesPerQuad = 6;
constexpr u32 kCentersPerParticle = 16;
constexpr u32 kQuadNumberBits = 0xFu;

// Quad numbers of one particle, farthest first; where the keys agree above their low four bits, in quad order.
static std::vector<u32> QuadOrder(
	u32 quadCount, u32 particle, const std::vector<SFloat4> &quadCenters, const SFloat3 &camera)
{
	std::vector<u32> keys;
	for (u32 quad = 0; quad < quadCount; ++quad)
	{
		const SFloat4 &center = quadCenters.at(std::size_t(particle) * kCentersPerParticle + quad);
		const u32 key = DistanceKey({center.m_X, center.m_Y, center.m_Z}, camera);
		keys.push_back((key & ~kQuadNumberBits) | quad);
	}
	std::sort(keys.begin(), keys.end()); // no two are equal
	for (u32 &key : keys)
		key &= kQuadNumberBits;
	return keys;
}

std::vector<std::optional<u32>> ExpandAndSortIndices(EIndexType indexType,
	const std::vector<u32> &pattern,
	const std::vector<SFloat4> &quadCenters,
	const SFloat3 &camera,
	const std::vector<SRecord> &records,
	u32 verticesPerParticle,
	SWarnings &warnings)
{
	const bool u16Output = indexType == EIndexType::U16;
	const u32 quadCount = u32(pattern.size()) / kIndicesPerQuad;
	if (quadCount > kCentersPerParticle)
		throw std::invalid_argument("more quads than centres per particle");

	std::vector<std::optional<u32>> out(records.size() * pattern.size());
	if (out.empty())
		return out;
	warnings.push_back({u16Output ? 1277u : 1346u, "Render sort: Very slow tube quad sorter"});
	if (quadCount == 0)
		return out; // verticesPerParticle may be 0 then

	for (std::size_t r = 0; r < records.size(); ++r)
	{
		const u32 base = u16Output ? Low16(records[r].m_Index) : records[r].m_Index;
		std::size_t at = r * pattern.size();
		for (const u32 quad : QuadOrder(quadCount, base / verticesPerParticle, quadCenters, camera))
		{
			for (u32 vertex = 0; vertex < kIndicesPerQuad; ++vertex)
			{
				const u32 sum = pattern[quad * kIndicesPerQuad + vertex] + base;
				out[at++] = u16Output ? Low16(sum) : sum;
			}
		}
	}
	return out;
}
} // namespace Model
