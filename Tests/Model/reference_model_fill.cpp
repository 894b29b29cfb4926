// The model's keys and its fill stage: source elements to records, slice by slice, and the walk over the page cache.

#include "reference_model.h"
#include <algorithm>
#include <cfenv>
#include <cstring>

namespace Model
{
bool operator==(const SRecord &a, const SRecord &b)
{
	return a.m_Key == b.m_Key && a.m_Index == b.m_Index;
}
bool operator!=(const SRecord &a, const SRecord &b)
{
	return !(a == b);
}
bool operator==(const SWarning &a, const SWarning &b)
{
	return a.m_Line == b.m_Line && a.m_Text == b.m_Text;
}
bool operator!=(const SWarning &a, const SWarning &b)
{
	return !(a == b);
}

// Keys.

constexpr u32 kSignBit = 0x80000000u;
constexpr u32 kExponentBits = 0x7F800000u; // of an infinity, which has nothing else beside its sign
constexpr u32 kQuietBit = 0x00400000u;
constexpr u32 kInvalidOperation = 0xFFC00000u; // what SSE makes of inf - inf or 0 * inf

static bool IsNaN(u32 bits)
{
	return (bits & ~kSignBit) > kExponentBits;
}
static bool IsInfinity(u32 bits)
{
	return (bits & ~kSignBit) == kExponentBits;
}

// A process linked with -ffast-math starts with denormals flushed to zero: undone while this lives.
class CDefaultFloatEnvironment
{
public:
	CDefaultFloatEnvironment()
	{
		std::fegetenv(&m_Saved);
		std::fesetenv(FE_DFL_ENV);
	}
	~CDefaultFloatEnvironment() { std::fesetenv(&m_Saved); }
	CDefaultFloatEnvironment(const CDefaultFloatEnvironment &) = delete;
	CDefaultFloatEnvironment &operator=(const CDefaultFloatEnvironment &) = delete;

private:
	std::fenv_t m_Saved;
};

static float FloatFromBits(u32 bits)
{
	float value;
	std::memcpy(&value, &bits, sizeof(value));
	return value;
}

static u32 BitsFromFloat(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}

// One operation, one rounding: operands and result pass through memory, so the compiler can neither see what they are
// nor merge this operation with the next, nor move it out of the environment it runs in. No operand is a NaN.
template<typename TOperation>
static u32 RoundedOnce(u32 a, u32 b, TOperation operation)
{
	volatile float first = FloatFromBits(a);
	volatile float second = FloatFromBits(b);
	volatile float result = operation(first, second);
	return BitsFromFloat(result);
}

// As SSE does it: an operand that is a NaN comes out quieted, the first one if both are.
static u32 Add(u32 a, u32 b)
{
	if (IsNaN(a))
		return a | kQuietBit;
	if (IsNaN(b))
		return b | kQuietBit;
	if (IsInfinity(a) && IsInfinity(b) && a != b)
		return kInvalidOperation;
	return RoundedOnce(a, b, [](float x, float y) { return x + y; });
}

static u32 Subtract(u32 a, u32 b)
{
	if (IsNaN(a))
		return a | kQuietBit;
	if (IsNaN(b))
		return b | kQuietBit;
	if (IsInfinity(a) && a == b)
		return kInvalidOperation;
	return RoundedOnce(a, b, [](float x, float y) { return x - y; });
}

static u32 Multiply(u32 a, u32 b)
{
	if (IsNaN(a))
		return a | kQuietBit;
	if (IsNaN(b))
		return b | kQuietBit;
	const bool oneIsZero = (a & ~kSignBit) == 0 || (b & ~kSignBit) == 0;
	if (oneIsZero && (IsInfinity(a) || IsInfinity(b)))
		return kInvalidOperation;
	return RoundedOnce(a, b, [](float x, float y) { return x * y; });
}

u32 FloatKey(u32 value)
{
	return (value & kSignBit) != 0 ? ~value : value | kSignBit;
}

u32 SquaredDistance(const SFloat3 &position, const SFloat3 &camera)
{
	const CDefaultFloatEnvironment environment;
	const u32 x = Subtract(position.m_X, camera.m_X);
	const u32 y = Subtract(position.m_Y, camera.m_Y);
	const u32 z = Subtract(position.m_Z, camera.m_Z);
	return Add(Add(Multiply(x, x), Multiply(y, y)), Multiply(z, z));
}

u32 DistanceKey(const SFloat3 &position, const SFloat3 &camera)
{
	return ~SquaredDistance(position, camera);
}

// 0.0 - 0.0 is +0.0, every other number just changes its sign, a NaN passes through.
static u32 ZeroMinus(u32 value)
{
	if (IsNaN(value))
		return value | kQuietBit;
	return (value & ~kSignBit) == 0 ? 0 : value ^ kSignBit;
}

u32 CompactedDistanceKey(const SFloat3 &position, const SFloat3 &camera)
{
	return FloatKey(ZeroMinus(SquaredDistance(position, camera)));
}

// Fill.

template<typename TSource>
static const auto &Element(const TSource &source, u32 i)
{
	return source.m_Elements.at(source.m_Stride == 0 ? 0 : i);
}

static void WarnOfStride(u32 stride, u32 packedStride, u32 line, const char *text, SWarnings &warnings)
{
	if (stride != packedStride && stride != 0)
		warnings.push_back({line, text});
}

static const char *const kUncommonPositions = "Render sort: input positions have uncommon stride";
static const char *const kUncommonValues = "Render sort: input sort-values have uncommon stride";

template<typename TSource>
static bool Compacts(u32 recordCount, const TSource &source, const std::vector<u8> &enabled)
{
	return recordCount < source.m_Elements.size() && !enabled.empty();
}

// The source elements of the records: the first enabled ones when compacting, else the first ones.
static std::vector<u32> SourceElements(u32 recordCount, const std::vector<u8> &enabled, bool compacts)
{
	std::vector<u32> elements;
	for (u32 i = 0; elements.size() < recordCount; ++i)
	{
		if (!compacts || enabled.at(i) != 0)
			elements.push_back(i);
	}
	return elements;
}

// Keys of the records in source order. The compaction path stores floats and ends in the float encoding.
static std::vector<u32> RecordKeys(
	u32 recordCount, const SPositions &positions, const SFloat3 &camera, const std::vector<u8> &enabled)
{
	const bool compacts = Compacts(recordCount, positions, enabled);
	std::vector<u32> keys;
	for (const u32 i : SourceElements(recordCount, enabled, compacts))
	{
		const SFloat3 &position = Element(positions, i);
		keys.push_back(compacts ? CompactedDistanceKey(position, camera) : DistanceKey(position, camera));
	}
	return keys;
}

static std::vector<u32> RecordKeys(u32 recordCount, const SValues &values, const std::vector<u8> &enabled)
{
	std::vector<u32> keys;
	for (const u32 i : SourceElements(recordCount, enabled, Compacts(recordCount, values, enabled)))
		keys.push_back(FloatKey(Element(values, i)));
	return keys;
}

static std::vector<SRecord> RecordsInSequence(const std::vector<u32> &keys, u32 indexStart, u32 indexIncrement)
{
	std::vector<SRecord> records;
	records.reserve(keys.size());
	for (const u32 key : keys)
		records.push_back({key, indexStart + u32(records.size()) * indexIncrement});
	return records;
}

static std::vector<SRecord> RecordsByList(
	const std::vector<u32> &keys, const u32 *indexList, u32 maxVertexId, u32 keyFar)
{
	std::vector<SRecord> records;
	for (const u32 key : keys)
	{
		const u32 index = indexList[records.size()];
		records.push_back(index < maxVertexId ? SRecord{key, index} : SRecord{keyFar, 0});
	}
	return records;
}

// What the four-lane loops do: the upper pair of each whole group is stored before the lower one.
static void SwapPairsOfGroups(std::vector<SRecord> &records, u32 firstRecord)
{
	for (std::size_t i = firstRecord; i + 4 <= records.size(); i += 4)
	{
		std::swap(records[i], records[i + 2]);
		std::swap(records[i + 1], records[i + 3]);
	}
}

std::vector<SRecord> FillNoIndices(u32 recordCount,
	u32 recordsAddressMod16,
	const SPositions &positions,
	const SFloat3 &camera,
	const std::vector<u8> &enabled,
	u32 indexStart,
	u32 indexIncrement,
	SWarnings &warnings)
{
	const std::vector<u32> keys = RecordKeys(recordCount, positions, camera, enabled);
	std::vector<SRecord> records = RecordsInSequence(keys, indexStart, indexIncrement);
	if (Compacts(recordCount, positions, enabled))
	{
		SwapPairsOfGroups(records, 0);
		return records;
	}
	// Every stride has a four-lane loop here; a head step of one record precedes it where the list is off 16 bytes.
	WarnOfStride(positions.m_Stride, 12, 1776, kUncommonPositions, warnings);
	SwapPairsOfGroups(records, recordsAddressMod16 == 0 ? 0 : 1);
	return records;
}

std::vector<SRecord> FillNoIndices(u32 recordCount,
	const SValues &values,
	const std::vector<u8> &enabled,
	u32 indexStart,
	u32 indexIncrement,
	SWarnings &warnings)
{
	const std::vector<u32> keys = RecordKeys(recordCount, values, enabled);
	std::vector<SRecord> records = RecordsInSequence(keys, indexStart, indexIncrement);
	const bool compacts = Compacts(recordCount, values, enabled); // into packed floats
	if (!compacts)
		WarnOfStride(values.m_Stride, 4, 1950, kUncommonValues, warnings);
	if (compacts || values.m_Stride == 4)
		SwapPairsOfGroups(records, 0);
	return records;
}

std::vector<SRecord> FillIndices(u32 recordCount,
	const SPositions &positions,
	const SFloat3 &camera,
	const std::vector<u8> &enabled,
	const u32 *indexList,
	u32 maxVertexId,
	SWarnings &warnings)
{
	const std::vector<u32> keys = RecordKeys(recordCount, positions, camera, enabled);
	if (Compacts(recordCount, positions, enabled))
		return RecordsByList(keys, indexList, maxVertexId, kFloatKeyFar);
	WarnOfStride(positions.m_Stride, 12, 2129, kUncommonPositions, warnings);
	return RecordsByList(keys, indexList, maxVertexId, kDistanceKeyFar);
}

std::vector<SRecord> FillIndices(u32 recordCount,
	const SValues &values,
	const std::vector<u8> &enabled,
	const u32 *indexList,
	u32 maxVertexId,
	SWarnings &warnings)
{
	const std::vector<u32> keys = RecordKeys(recordCount, values, enabled);
	if (!Compacts(recordCount, values, enabled))
		WarnOfStride(values.m_Stride, 4, 2315, kUncommonValues, warnings);
	return RecordsByList(keys, indexList, maxVertexId, kFloatKeyFar);
}

// Page cache.

SLocation LocateRendered(const std::vector<SPage> &pages, u32 renderedId)
{
	u32 pageId = 0;
	u32 passed = 0;
	while (pageId < pages.size() && passed + pages[pageId].m_RenderedCount <= renderedId)
		passed += pages[pageId++].m_RenderedCount;
	if (pageId == pages.size())
		return {pageId, 0, 0};

	const SPage &page = pages[pageId];
	const u32 offsetInRendered = renderedId - passed;
	if (page.m_Enabled.empty() || page.m_RenderedCount == page.m_Enabled.size())
		return {pageId, offsetInRendered, offsetInRendered};

	// One past the last enabled particle before the wanted one, which is then the first enabled one from there on.
	u32 offsetInPage = 0;
	for (u32 left = offsetInRendered; left > 0; ++offsetInPage)
		left -= page.m_Enabled.at(offsetInPage) != 0 ? 1 : 0;
	return {pageId, offsetInPage, offsetInRendered};
}

// A virtual source stays one: its slice repeats the same element.
template<typename TSource>
static TSource Slice(const TSource &source, u32 begin, u32 count)
{
	TSource slice = source;
	slice.m_Elements.clear();
	for (u32 i = begin; i < begin + count; ++i)
		slice.m_Elements.push_back(source.m_Elements.at(i));
	return slice;
}

static std::vector<u8> Slice(const std::vector<u8> &enabled, u32 begin, u32 count)
{
	std::vector<u8> slice;
	for (u32 i = begin; i < begin + count && !enabled.empty(); ++i)
		slice.push_back(enabled.at(i));
	return slice;
}

// How many particles of the range have their vertices inside the vertex buffer.
static u32 CountInsideVertexBuffer(const SScene &scene, u32 start, u32 count)
{
	const u32 firstVertex = scene.m_VerticesPerParticle * start;
	if (scene.m_VertexCount <= firstVertex)
		return 0;
	return std::min((scene.m_VertexCount - firstVertex) / scene.m_VerticesPerParticle, count);
}

// The records of one page: `rendered` records from rendered particle `id` on, out of `offered` source particles.
static std::vector<SRecord> FillPage(const SScene &scene,
	const SPage &page,
	u32 offsetInPage,
	u32 offered,
	u32 id,
	u32 rendered,
	u32 recordsAddressMod16,
	SWarnings &warnings)
{
	const std::vector<u8> enabled = Slice(page.m_Enabled, offsetInPage, offered);
	const u32 perParticle = scene.m_VerticesPerParticle;
	const u32 maxId = scene.m_VertexCount;
	const bool constant = scene.m_Geometry == EGeometry::Constant;
	const u32 *const list = constant ? nullptr : &scene.m_IndexList.at(id);
	if (scene.m_SortType == ESortType::ByPosition)
	{
		const SPositions source = Slice(page.m_Positions, offsetInPage, offered);
		return constant ? FillNoIndices(rendered, recordsAddressMod16, source, scene.m_Camera, enabled,
							  id * perParticle, perParticle, warnings)
		                : FillIndices(rendered, source, scene.m_Camera, enabled, list, maxId, warnings);
	}
	const SValues source = Slice(page.m_Values, offsetInPage, offered);
	return constant ? FillNoIndices(rendered, source, enabled, id * perParticle, perParticle, warnings)
	                : FillIndices(rendered, source, enabled, list, maxId, warnings);
}

std::vector<SRecord> FillSource(const SScene &scene, u32 start, u32 count, SWarnings &warnings)
{
	const bool constant = scene.m_Geometry == EGeometry::Constant;
	const u32 validCount = constant ? CountInsideVertexBuffer(scene, start, count) : count;
	const SLocation stop = LocateRendered(scene.m_Pages, start + validCount);
	SLocation at = LocateRendered(scene.m_Pages, start);

	std::vector<SRecord> records;
	while (records.size() < validCount)
	{
		const SPage &page = scene.m_Pages.at(at.m_Page);
		const u32 filled = u32(records.size());
		const u32 rendered = std::min(page.m_RenderedCount - at.m_OffsetInRendered, validCount - filled);
		if (rendered != 0) // a page with nothing to render is passed over, whatever its views
		{
			const bool byPosition = scene.m_SortType == ESortType::ByPosition;
			const std::size_t inView =
				byPosition ? page.m_Positions.m_Elements.size() : page.m_Values.m_Elements.size();
			const u32 end = at.m_Page == stop.m_Page ? stop.m_OffsetInPage : u32(inView);
			const u32 recordsAddressMod16 = filled % 2 * 8;
			const std::vector<SRecord> ofPage = FillPage(scene, page, at.m_OffsetInPage, end - at.m_OffsetInPage,
				start + filled, rendered, recordsAddressMod16, warnings);
			records.insert(records.end(), ofPage.begin(), ofPage.end());
		}
		at = {at.m_Page + 1, 0, 0};
	}
	records.resize(count, SRecord{kFloatKeyFar, 0}); // constant geometry: fillers for what the vertex buffer lacks
	return records;
}
} // namespace Model
