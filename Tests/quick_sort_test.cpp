// The quick sort, exact to the order of equal keys, on arrays that end where memory ends; and the entry point that
// chooses between it and the radix sort.

#include "ge_mesh_triangle_sorter.h"

#include "kr_sort.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include "lane_width.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef TContiguousBaseIterator<SIndexAndDepth> CIterator;
typedef std::vector<Model::SRecord> CRecords;

CRecords RecordsOfKeys(const std::vector<u32> &keys)
{
	CRecords records;
	for (const u32 key : keys)
		records.push_back({key, u32(records.size())});
	return records;
}

std::vector<u32> Indices(const CRecords &records)
{
	std::vector<u32> indices;
	for (const Model::SRecord &record : records)
		indices.push_back(record.m_Index);
	return indices;
}

CGuardedMemory LayOut(const CRecords &records, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd)
{
	const u32 count = u32(records.size());
	const std::size_t alignment = flush == CGuardedMemory::FlushEnd ? FlushAddressMod16(8, count, 8) : 0;
	CGuardedMemory memory(count * sizeof(SIndexAndDepth), alignment, flush);
	if (count != 0)
		std::memcpy(memory.Data(), records.data(), count * sizeof(SIndexAndDepth));
	return memory;
}

CRecords QuickSorted(const CRecords &records, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd)
{
	const CGuardedMemory memory = LayOut(records, flush);
	const CIterator first(memory.As<SIndexAndDepth>());
	QuickSort(first, first + int(records.size()));
	EXPECT_TRUE(memory.SurroundingsIntact());
	return ReadRecords(memory.Data(), records.size());
}

void ExpectAsModel(const CRecords &records)
{
	CRecords expected = records;
	Model::QuickSort(expected);
	EXPECT_TRUE(std::is_sorted(expected.begin(), expected.end(),
		[](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Key < b.m_Key; }));
	EXPECT_TRUE(SameRecords(expected, QuickSorted(records, CGuardedMemory::FlushEnd)));
	EXPECT_TRUE(SameRecords(expected, QuickSorted(records, CGuardedMemory::FlushStart)));
}

// Sort's output, and its input afterwards; a record's room behind the output stays as it was.
struct SSorted
{
	CRecords m_Output;
	CRecords m_Input;
};
SSorted Sorted(const CRecords &records)
{
	const u32 count = u32(records.size());
	const CGuardedMemory input = LayOut(records);
	const CGuardedMemory output(count * sizeof(SIndexAndDepth), count % 2 * 8);
	const CIterator first(input.As<SIndexAndDepth>());
	Sort<SSortKeyExtractor_TriangleIndexAndDepth, CIterator>(
		first, first + int(count), CIterator(output.As<SIndexAndDepth>()));
	EXPECT_TRUE(input.SurroundingsIntact());
	EXPECT_TRUE(output.SurroundingsIntact());
	return {ReadRecords(output.Data(), count), ReadRecords(input.Data(), count)};
}

// What quick sorts stumble over. Indices number the records, so that every exchange shows.
const struct
{
	const char *m_Name;
	u32 (*m_Key)(u32 i, u32 count);
} kPatterns[] = {
	{"Sorted",        [](u32 i, u32) { return i; }                                                },
	{"Reversed",      [](u32 i, u32 count) { return count - i; }                                  },
	{"Equal",         [](u32,   u32) { return 7u; }                                               },
	{"OrganPipe",     [](u32 i, u32 count) { return std::min(i, count - i); }                     },
	{"Valley",        [](u32 i, u32 count) { return std::max(i, count - i); }                     },
	{"Sawtooth",      [](u32 i, u32) { return i % 5; }                                            },
	{"LongSawtooth",  [](u32 i, u32) { return i % 37; }                                           },
	{"Plateaus",      [](u32 i, u32) { return i / 9; }                                            },
	{"ReversedPairs", [](u32 i, u32) { return i ^ 1u; }                                           },
	{"MinimumLast",   [](u32 i, u32 count) { return i + 1 == count ? 0 : i + 5; }                 },
	{"MaximumFirst",  [](u32 i, u32) { return i == 0 ? 0xFFFFFFFFu : i; }                         },
	{"Alternating",   [](u32 i, u32) { return i % 2 * 0x80000000u; }                              },
	{"Extremes",      [](u32 i, u32) { return i % 3 * 0x7FFFFFFFu; }                              },
	{"Clamped",       [](u32 i, u32 count) { return std::min(std::max(i, count / 4), count / 2); }},
};

CRecords RecordsOfPattern(u32 (*key)(u32, u32), u32 count)
{
	std::vector<u32> keys;
	for (u32 i = 0; i < count; ++i)
		keys.push_back(key(i, count));
	return RecordsOfKeys(keys);
}
} // namespace

TEST(QuickSort, NoneOrOneRecord_IsLeft)
{
	QuickSort(CIterator(), CIterator());
	const CRecords expected = {
		{3, 4},
	};
	CGuardedMemory one = LayOut(expected);
	one.Protect();
	const CIterator first(one.As<SIndexAndDepth>());
	QuickSort(first, first);
	QuickSort(first, first + 1);
	EXPECT_TRUE(SameRecords(expected, ReadRecords(one.Data(), 1)));
}

TEST(QuickSort, Comparison_IsByUnsignedKeyAlone)
{
	const SIndexAndDepth low = {0x7FFFFFFFu, 9};
	const SIndexAndDepth high = {0x80000000u, 1};
	const SIndexAndDepth alsoHigh = {0x80000000u, 2};
	EXPECT_TRUE(low < high);
	EXPECT_FALSE(high < low);
	EXPECT_FALSE(high < alsoHigh);
	EXPECT_TRUE(high == alsoHigh);
	EXPECT_FALSE(low == high);
}

TEST(QuickSort, Swap_ExchangesBothFields)
{
	SIndexAndDepth a = {1, 2};
	SIndexAndDepth b = {3, 4};
	VXSwap(a, b);
	EXPECT_EQ(a.m_Depth, 3u);
	EXPECT_EQ(a.m_Index, 4u);
	EXPECT_EQ(b.m_Depth, 1u);
	EXPECT_EQ(b.m_Index, 2u);
}

// Selecting maxima, the lowest of equal ones first: equal keys do not keep their order.
TEST(QuickSort, TwelveOrFewer_AreSortedBySelectingMaxima)
{
	const struct
	{
		std::vector<u32> m_Keys;
		std::vector<u32> m_Indices;
	} cases[] = {
		{{2, 1},                               {1, 0}                                },
		{{1, 1},                               {1, 0}                                },
		{{5, 5, 5},                            {1, 2, 0}                             },
		{{2, 2, 1},                            {2, 1, 0}                             },
		{{1, 2, 2},                            {0, 2, 1}                             },
		{{4, 4, 4, 4},                         {1, 2, 3, 0}                          },
		{{3, 1, 3, 1},                         {1, 3, 2, 0}                          },
		{{9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0}},
	};
	for (const auto &row : cases)
		EXPECT_EQ(Indices(QuickSorted(RecordsOfKeys(row.m_Keys))), row.m_Indices) << row.m_Keys.size();
}

// The partition finds nothing to swap, and skipping the pivot's equals leaves nothing to sort.
TEST(QuickSort, ThirteenOrMoreEqual_StayWhereTheyAre)
{
	for (const u32 count : {13u, 14u, 27u, 109u, 1000u})
	{
		const CRecords records = RecordsOfKeys(std::vector<u32>(count, 42));
		EXPECT_TRUE(SameRecords(records, QuickSorted(records))) << count;
	}
}

// Records outside the bounds stay, and last is inside them.
TEST(QuickSort, InsertionSort_SortsBothBoundsIncluded)
{
	for (u32 lo = 0; lo < 12; ++lo)
	{
		for (u32 hi = lo; hi < 12; ++hi)
		{
			CRecords expected = RecordsOfPattern([](u32 i, u32) { return (12 - i) / 2; }, 12);
			const CGuardedMemory memory = LayOut(expected);
			const CIterator first(memory.As<SIndexAndDepth>());
			InsertionSort(first + int(lo), first + int(hi));
			Model::InsertionSort(expected, s32(lo), s32(hi));
			EXPECT_TRUE(SameRecords(expected, ReadRecords(memory.Data(), 12))) << lo << " to " << hi;
		}
	}
}

TEST(QuickSort, Patterns_AreSortedAsTheModelDoes)
{
	for (const auto &pattern : kPatterns)
	{
		for (u32 count = 0; count <= 300; ++count)
		{
			SCOPED_TRACE(testing::Message() << pattern.m_Name << " of " << count);
			ExpectAsModel(RecordsOfPattern(pattern.m_Key, count));
			if (HasFailure())
				return;
		}
	}
}

TEST(QuickSort, LargePatterns_AreSortedAsTheModelDoes)
{
	for (const auto &pattern : kPatterns)
	{
		SCOPED_TRACE(pattern.m_Name);
		ExpectAsModel(RecordsOfPattern(pattern.m_Key, 5000));
	}
}

// Partitions as lopsided as a median of three allows, and so a quadratic number of comparisons. The larger part is the
// one that waits, so the stack holds.
TEST(QuickSort, MedianOfThreeKiller_StaysWithinTheStack)
{
	for (const u32 count : {64u, 110u, 1024u, 4096u})
	{
		std::vector<u32> keys(count);
		const u32 half = count / 2;
		for (u32 i = 0; i < half; ++i)
		{
			keys[i] = i % 2 == 0 ? i + 1 : half + i + (half % 2 == 0 ? 0 : 1);
			keys[half + i] = (i + 1) * 2;
		}
		ExpectAsModel(RecordsOfKeys(keys));
	}
}

// Thousands of arrays, most with few distinct keys. VEXMOOR_TEST_SEED runs one alone.
TEST(QuickSort, RandomArrays_AreSortedAsTheModelDoes)
{
	const char *const alone = std::getenv("VEXMOOR_TEST_SEED");
	const std::uint64_t first = alone != nullptr ? std::strtoull(alone, nullptr, 0) : 1;
	const std::uint64_t last = alone != nullptr ? first : 4000;
	for (std::uint64_t seed = first; seed <= last; ++seed)
	{
		Model::CRandom random(seed);
		const u32 count = random.Below(301);
		// A fifth of the arrays have keys all different, the others from a single one to a quarter of their size.
		const u32 kinds = random.Chance(20) ? 0xFFFFFFFFu : random.Between(1, 2 + count / 4);
		const u32 scale = random.Chance(50) ? 1 : 0x01000001u;
		std::vector<u32> keys(count);
		for (u32 &key : keys)
			key = random.Below(kinds) * scale;
		ExpectAsModel(RecordsOfKeys(keys));
		ASSERT_FALSE(HasFailure()) << "seed " << seed << ", " << count
								   << " records; run alone with VEXMOOR_TEST_SEED=" << seed
								   << " --gtest_filter=QuickSort.RandomArrays_AreSortedAsTheModelDoes";
	}
}

TEST(SortEntryPoint, NoRecords_WritesNothing)
{
	Sort<SSortKeyExtractor_TriangleIndexAndDepth, CIterator>(CIterator(), CIterator(), CIterator());
	CGuardedMemory memory(16);
	memory.Protect();
	const CIterator first(memory.As<SIndexAndDepth>());
	Sort<SSortKeyExtractor_TriangleIndexAndDepth, CIterator>(first, first, first);
	EXPECT_EQ(memory.Data()[0], CGuardedMemory::kInitialByte);
}

// The copy is what is sorted: the input stays, the output is written as far as there are records.
TEST(SortEntryPoint, UpTo109Records_QuickSortsACopy)
{
	for (u32 count = 1; count <= 109; ++count)
	{
		const CRecords records = RecordsOfPattern([](u32 i, u32) { return i * 7 % 10; }, count);
		CRecords expected = records;
		Model::QuickSort(expected);
		const SSorted sorted = Sorted(records);
		EXPECT_TRUE(SameRecords(expected, sorted.m_Output)) << count;
		EXPECT_TRUE(SameRecords(records, sorted.m_Input)) << count << ", of the input";
	}
}

// Keys all different, with both ends of their range, and the same with one of them twice. Where no two keys are equal
// there is one order; where two are, it is the quick sort's.
TEST(SortEntryPoint, DifferentKeys_AreSortedAsWellAsEqualOnes)
{
	for (u32 count = 2; count <= 130; ++count)
	{
		for (u32 variant = 0; variant < 4; ++variant)
		{
			SCOPED_TRACE(testing::Message() << count << ", variant " << variant);
			Model::CRandom random(count);
			std::vector<u32> keys(count);
			for (u32 i = 0; i < count; ++i)
				keys[i] = random.Below(0x01000000u) * 256 + i;
			keys[count / 2] = 0xFFFFFFFFu;
			keys[count / 3] = variant % 2 == 0 ? 0 : 0x80000000u;
			if (variant >= 2)
				keys[count - 1] = keys[random.Below(count)];
			CRecords left = RecordsOfKeys(keys);
			const SSorted sorted = Sorted(left);
			EXPECT_TRUE(SameRecords(Model::Sort(left), sorted.m_Output));
			EXPECT_TRUE(SameRecords(left, sorted.m_Input));
		}
		if (HasFailure())
			return;
	}
}

// The shortcut takes every array of distinct keys, or its speed is lost unseen, and leaves every other one alone.
TEST(SortEntryPoint, CountingRankSort_SortsDistinctKeysAndNoOthers)
{
	for (u32 count = 1; count <= 109; ++count)
	{
		Model::CRandom random(count);
		std::vector<u32> keys(count);
		for (u32 i = 0; i < count; ++i)
			keys[i] = random.Below(0x01000000u) * 256 + i;
		CRecords expected = RecordsOfKeys(keys);
		const CGuardedMemory distinct = LayOut(expected);
		const CGuardedMemory output(count * sizeof(SIndexAndDepth), count % 2 * 8);
		const CIterator sorted(output.As<SIndexAndDepth>());
		EXPECT_TRUE(CountingRankSort(CIterator(distinct.As<SIndexAndDepth>()), count, sorted));
		std::sort(expected.begin(), expected.end(),
			[](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Key < b.m_Key; });
		EXPECT_TRUE(SameRecords(expected, ReadRecords(output.Data(), count))) << count;

		if (count == 1)
			continue;
		keys[random.Below(count - 1)] = keys[count - 1];
		const CGuardedMemory withEqual = LayOut(RecordsOfKeys(keys));
		EXPECT_FALSE(CountingRankSort(CIterator(withEqual.As<SIndexAndDepth>()), count, sorted));
		EXPECT_TRUE(SameRecords(expected, ReadRecords(output.Data(), count))) << count << ", left alone";
	}
}

// Stable, and the input is left in the intermediate order.
TEST(SortEntryPoint, From110RecordsOn_RadixSorts)
{
	for (const u32 count : {110u, 111u, 250u, 1000u})
	{
		const CRecords records = RecordsOfPattern([](u32 i, u32) { return i * 7 % 10 * 0x00400001u; }, count);
		CRecords left = records;
		const CRecords expected = Model::RadixSort(left);
		const SSorted sorted = Sorted(records);
		EXPECT_TRUE(SameRecords(expected, sorted.m_Output)) << count;
		EXPECT_TRUE(SameRecords(left, sorted.m_Input)) << count << ", of the input";
	}
}

// On either side of the threshold the keys come out alike; only equal keys lie differently.
TEST(SortEntryPoint, Threshold_ShowsInTheOrderOfEqualKeysAlone)
{
	// Four keys over and over: stable means that indices ascend under each of them.
	CRecords records = RecordsOfPattern([](u32 i, u32) { return i % 4; }, 110);
	const CRecords by110 = Sorted(records).m_Output;
	records.pop_back();
	const CRecords by109 = Sorted(records).m_Output;
	const auto byKey = [](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Key < b.m_Key; };
	const auto byKeyAndIndex = [](const Model::SRecord &a, const Model::SRecord &b)
	{ return a.m_Key != b.m_Key ? a.m_Key < b.m_Key : a.m_Index < b.m_Index; };
	EXPECT_TRUE(std::is_sorted(by109.begin(), by109.end(), byKey));
	EXPECT_FALSE(std::is_sorted(by109.begin(), by109.end(), byKeyAndIndex));
	EXPECT_TRUE(std::is_sorted(by110.begin(), by110.end(), byKeyAndIndex));
}

// Which of the sorts runs, and in which registers, is a matter of speed: the result is the specified one everywhere.

namespace
{
class SortOfEveryCount : public LaneWidthTest
{
protected:
	void ExpectAsSpecified(const std::vector<u32> &keys)
	{
		const CRecords records = RecordsOfKeys(keys);
		CRecords left = records; // of the input
		CRecords expected = records;
		if (records.size() <= kMaxQuickSortCount)
			Model::QuickSort(expected);
		else
			expected = Model::RadixSort(left);
		const SSorted sorted = Sorted(records);
		EXPECT_TRUE(SameRecords(expected, sorted.m_Output)) << records.size();
		EXPECT_TRUE(SameRecords(left, sorted.m_Input)) << records.size() << ", of the input";
	}
};
} // namespace

TEST_P(SortOfEveryCount, DistinctSomeEqualAndAllEqualKeys_AreSortedAsSpecified)
{
	Model::CRandom random(GetParam());
	for (u32 count = 0; count <= 260; ++count)
	{
		std::vector<u32> keys;
		for (u32 i = 0; i < count; ++i)
			keys.push_back(random.Next() / 260 * 260 + i); // distinct: the rest of a division by 260 is i
		ExpectAsSpecified(keys);
		std::sort(keys.begin(), keys.end());
		ExpectAsSpecified(keys);

		std::vector<u32> equalTopDigits = keys;
		for (u32 &key : equalTopDigits)
			key = 0xBF800000u + key % 260;
		ExpectAsSpecified(equalTopDigits);

		std::vector<u32> equalLowDigits; // and neighbours that differ in the top digits, one by one
		for (u32 i = 0; i < count; ++i)
			equalLowDigits.push_back((i * 7 % 256) << 24 | 0x123456u);
		ExpectAsSpecified(equalLowDigits);

		if (count >= 2)
		{
			std::vector<u32> onePair = keys;
			onePair[random.Below(count - 1)] = onePair[count - 1];
			ExpectAsSpecified(onePair);
		}
		for (const u32 range : {3u, count / 2 + 1})
		{
			std::vector<u32> someEqual;
			for (u32 i = 0; i < count; ++i)
				someEqual.push_back(random.Below(range) * 0x01010101u);
			ExpectAsSpecified(someEqual);
		}
		ExpectAsSpecified(std::vector<u32>(count, 0x80000000u));
		if (HasFailure())
			return;
	}
}

// Clusters of keys that differ by very little, far from each other: sorting by the top bits alone leaves them as they
// were, and many of them to the quick sort.
TEST_P(SortOfEveryCount, ClustersOfKeys_AreSortedAsSpecified)
{
	for (u32 count = 1; count <= 130; ++count)
	{
		for (const u32 clusterCount : {1u, 2u, 30u, 90u})
		{
			SCOPED_TRACE(testing::Message() << count << " records in " << clusterCount << " clusters");
			Model::CRandom random(count * 100 + clusterCount);
			std::vector<u32> keys(count);
			for (u32 i = 0; i < count; ++i)
				keys[i] = random.Below(clusterCount) * 0x02AA0000u + (i * 151 + count) % 251;
			ExpectAsSpecified(keys);
		}
		if (HasFailure())
			return;
	}
}

INSTANTIATE_TEST_SUITE_P(Lanes, SortOfEveryCount, kLaneWidths, LaneWidthName);

// Extractors. Which keys a sort can use is decided when it is compiled.

namespace
{
// A record whose operators order it the other way round than its key does.
struct SContrary
{
	u32 m_Payload;
	u32 m_Key;

	bool operator<(const SContrary &other) const { return m_Key > other.m_Key; }
	bool operator==(const SContrary &) const { return true; }
};
template<typename _Key, typename _Said = _Key>
struct TContraryKey
{
	typedef _Said SortKeyType;
	static _Key ExtractKey(const SContrary &record) { return _Key(record.m_Key); }
};
static_assert(kExtractsU32<TContraryKey<u32>, SContrary>);
static_assert(!kExtractsU32<TContraryKey<s32>, SContrary>, "signed keys would be compared as unsigned");
static_assert(!kExtractsU32<TContraryKey<u64>, SContrary>, "the upper half would be cut off");
static_assert(!kExtractsU32<TContraryKey<float>, SContrary>, "a float is no key");
static_assert(!kExtractsU32<TContraryKey<u32, u64>, SContrary>, "what is said and what is done differ");
static_assert(kExtractsU32<SSortKeyExtractor_TriangleIndexAndDepth, SIndexAndDepth>);
static_assert(kExtractsU32<SRadixSortExtractorSignedFP<float>, float>);
} // namespace

// One order for any count, on either side of the threshold between the sorts: that of the keys.
TEST(SortEntry, RecordsWhoseOperatorsDisagreeWithTheirKeys_AreSortedByKey)
{
	typedef TContiguousBaseIterator<SContrary> CContraryIterator;
	for (const u32 count : {2u, 12u, 13u, 109u, 110u, 111u, 300u})
	{
		Model::CRandom random(count);
		std::vector<SContrary> records, sorted(count);
		for (u32 i = 0; i < count; ++i)
			records.push_back({i, random.Below(count / 2)});
		Sort<TContraryKey<u32>, CContraryIterator>(records.data(), records.data() + count, sorted.data());
		const auto lowerKey = [](const SContrary &a, const SContrary &b) { return a.m_Key < b.m_Key; };
		EXPECT_TRUE(std::is_sorted(sorted.begin(), sorted.end(), lowerKey)) << count;
	}
}

// Ranks are counted in memory of a fixed size.
TEST(SortEntry, MoreRecordsThanAreRanked_AreRefused)
{
	CRecords records;
	for (u32 i = 0; i < 200; ++i)
		records.push_back({200 - i, i});
	EXPECT_TRUE(CountingRankSort(CIterator(), 0, CIterator())) << "no two of no records have equal keys";
	for (const u32 count : {SortLanes::kMaxRankedCount, SortLanes::kMaxRankedCount + 1, 200u})
	{
		const bool fits = count <= SortLanes::kMaxRankedCount;
		const CGuardedMemory input = LayOut(CRecords(records.begin(), records.begin() + count));
		const CGuardedMemory output(count * sizeof(SIndexAndDepth));
		EXPECT_EQ(
			CountingRankSort(CIterator(input.As<SIndexAndDepth>()), count, CIterator(output.As<SIndexAndDepth>())),
			fits);
		EXPECT_EQ(output.Data()[0] == CGuardedMemory::kInitialByte, !fits);

		const CGuardedMemory ranks(count * sizeof(u32));
		const CExpectReports reports(
			fits ? std::vector<std::string>() : std::vector<std::string>{"count <= kMaxRankedCount"});
		SortLanes::CountLowerKeys(input.Data(), count, ranks.As<u32>());
		EXPECT_EQ(ranks.Data()[0] == CGuardedMemory::kInitialByte, !fits);
	}
}

// The radix sort of few records counts in 8 bits, and keeps as many records between two passes.
TEST(SortEntry, MoreRecordsThanSortByTopBitsTakes_AreReportedAndLeft)
{
	CRecords records;
	for (u32 i = 0; i < 257; ++i)
		records.push_back({256 - i, i});
	const CGuardedMemory input = LayOut(records);
	const CGuardedMemory output(257 * sizeof(SIndexAndDepth));
	const CIterator first(input.As<SIndexAndDepth>());
	const CIterator sorted(output.As<SIndexAndDepth>());
	const SSortKeyExtractor_TriangleIndexAndDepth keyExtractor{};
	{
		const CExpectReports reports({"count <= kMaxCountIn8Bits"});
		TRadixSort<Sort_InBuffer>::SortByTopBits(first, 257, sorted, keyExtractor);
	}
	TRadixSort<Sort_InBuffer>::SortByTopBits(first, 0, sorted, keyExtractor);
	EXPECT_EQ(output.Data()[0], CGuardedMemory::kInitialByte);

	TRadixSort<Sort_InBuffer>::SortByTopBits(first, 256, sorted, keyExtractor);
	EXPECT_TRUE(SameRecords(records, ReadRecords(input.Data(), 257))) << "the input is left";
	records.pop_back();
	std::reverse(records.begin(), records.end());
	EXPECT_TRUE(SameRecords(records, ReadRecords(output.Data(), 256)));
}

// Keys agree above some bit, and by chance below others: whatever the highest bit in which they differ, it and the 23
// bits below it decide, and then the order of the input.
TEST(SortEntry, SortByTopBits_SortsStablyBy24Bits)
{
	for (u32 count = 1; count <= 256; count += 5)
	{
		for (u32 highestBit = 0; highestBit < 32; ++highestBit)
		{
			SCOPED_TRACE(testing::Message() << count << " records that differ up to bit " << highestBit);
			Model::CRandom random(count * 32 + highestBit);
			const u32 mixed = ~0u >> (31 - highestBit);
			std::vector<u32> keys(count);
			for (u32 &key : keys)
				key = (random.Below(0x10000) << 16 | random.Below(4) << 8 | random.Below(0x100)) & mixed;
			keys[0] ^= (keys[0] ^ keys[count - 1] ^ (1u << highestBit)) & 1u << highestBit;
			for (u32 &key : keys)
				key |= 0xA5A5A5A5u & ~mixed;
			const u32 droppedBits = count > 1 && highestBit > 23 ? highestBit - 23 : 0;
			CRecords records = RecordsOfKeys(keys);
			const CGuardedMemory input = LayOut(records);
			const CGuardedMemory output(count * sizeof(SIndexAndDepth), count % 2 * 8);
			TRadixSort<Sort_InBuffer>::SortByTopBits(CIterator(input.As<SIndexAndDepth>()), count,
				CIterator(output.As<SIndexAndDepth>()), SSortKeyExtractor_TriangleIndexAndDepth{});
			EXPECT_TRUE(SameRecords(records, ReadRecords(input.Data(), count))) << "the input is left";
			std::stable_sort(records.begin(), records.end(),
				[=](const Model::SRecord &a, const Model::SRecord &b)
				{ return a.m_Key >> droppedBits < b.m_Key >> droppedBits; });
			EXPECT_TRUE(SameRecords(records, ReadRecords(output.Data(), count)));
		}
		if (HasFailure())
			return;
	}
}

// Pairs of neighbours are exchanged, or a block of records is reversed: few moves put the first in order, and too many
// would be needed for the second.
TEST(SortEntry, FinishDistinct_TakesAsManyMovesAsThereAreRecords)
{
	const auto finish = [](std::vector<u32> &keys)
	{
		const CGuardedMemory memory = LayOut(RecordsOfKeys(keys));
		const bool areDistinct = FinishDistinct<SSortKeyExtractor_TriangleIndexAndDepth>(
			CIterator(memory.As<SIndexAndDepth>()), u32(keys.size()));
		const CRecords records = ReadRecords(memory.Data(), keys.size());
		for (std::size_t i = 0; i < keys.size(); ++i)
			keys[i] = records[i].m_Key;
		return areDistinct;
	};
	std::vector<u32> ascending(100), pairs(100);
	for (u32 i = 0; i < 100; ++i)
	{
		ascending[i] = 10 * i;
		pairs[i] = 10 * (i ^ 1);
	}
	EXPECT_TRUE(finish(pairs));
	EXPECT_EQ(pairs, ascending);

	// Reversing n keys takes n * (n - 1) / 2 moves: 91 for 14, and 105 for 15.
	std::vector<u32> some = ascending, many = ascending;
	std::reverse(some.begin() + 5, some.begin() + 19);
	std::reverse(many.begin() + 5, many.begin() + 20);
	EXPECT_TRUE(finish(some));
	EXPECT_EQ(some, ascending);
	EXPECT_FALSE(finish(many));

	for (const u32 place : {0u, 1u, 50u, 98u})
	{
		std::vector<u32> neighbours = ascending, apart = ascending;
		neighbours[place] = neighbours[place + 1];
		EXPECT_FALSE(finish(neighbours)) << "two neighbours are equal at " << place;
		apart[place + 1] = apart[place] + 5;
		if (place + 2 < apart.size())
		{
			apart[place + 2] = apart[place];
			EXPECT_FALSE(finish(apart)) << "two keys with a higher one between them are equal at " << place;
		}
	}
}

// Every way in which up to six keys can be lower than, equal to and higher than each other.
TEST(SortEntry, SortFewDistinct_SortsEveryOrderOfDistinctKeysAndNoOthers)
{
	const u32 values[] = {0, 1, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFFFFFFFu};
	for (u32 count = 0; count <= kMaxFewCount; ++count)
	{
		const CGuardedMemory input(count * sizeof(SIndexAndDepth), count % 2 * 8);
		const CGuardedMemory output(count * sizeof(SIndexAndDepth), 0, CGuardedMemory::FlushStart);
		u32 choiceCount = 1;
		for (u32 i = 0; i < count; ++i)
			choiceCount *= count;
		for (u32 choice = 0; choice < choiceCount; ++choice)
		{
			CRecords records;
			for (u32 i = 0, rest = choice; i < count; ++i, rest /= count)
				records.push_back({values[rest % count], 0xFFFFFFFFu - i});
			if (count != 0)
			{
				std::memcpy(input.Data(), records.data(), count * sizeof(SIndexAndDepth));
				std::memset(output.Data(), CGuardedMemory::kInitialByte, count * sizeof(SIndexAndDepth));
			}
			CRecords expected = records;
			std::sort(expected.begin(), expected.end(),
				[](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Key < b.m_Key; });
			const bool areDistinct = std::adjacent_find(expected.begin(), expected.end(),
										 [](const Model::SRecord &a, const Model::SRecord &b)
										 { return a.m_Key == b.m_Key; }) == expected.end();
			ASSERT_EQ(SortFewDistinct(input.Data(), count, output.Data()), areDistinct) << "choice " << choice;
			ASSERT_TRUE(SameRecords(records, ReadRecords(input.Data(), count)));
			if (areDistinct)
			{
				ASSERT_TRUE(SameRecords(expected, ReadRecords(output.Data(), count))) << "choice " << choice;
			}
			else
			{
				ASSERT_EQ(output.Data()[0], CGuardedMemory::kInitialByte) << "nothing is written";
			}
			SortFewDistinct(input.Data(), count, input.Data());
			ASSERT_TRUE(SameRecords(areDistinct ? expected : records, ReadRecords(input.Data(), count))) << "in place";
		}
		ASSERT_TRUE(input.SurroundingsIntact() && output.SurroundingsIntact());
	}
	const CExpectReports reports({"count <= kMaxFewCount"});
	EXPECT_FALSE(SortFewDistinct(nullptr, kMaxFewCount + 1, nullptr));
}

TEST(SortEntry, OutputOverInput_IsReported)
{
	for (const u32 count : {2u, 109u, 110u})
	{
		CRecords records;
		for (u32 i = 0; i < 2 * count; ++i)
			records.push_back({i, i});
		const CGuardedMemory memory = LayOut(records);
		const CIterator first(memory.As<SIndexAndDepth>());
		for (const u32 distance : {1u, count - 1, count})
		{
			for (const bool outputFirst : {false, true})
			{
				const CReportRecorder reports; // of equal keys, for one, where records have been written over
				const CIterator input = first + int(outputFirst ? distance : 0);
				const CIterator output = first + int(outputFirst ? 0 : distance);
				Sort<SSortKeyExtractor_TriangleIndexAndDepth>(input, input + int(count), output);
				const bool overlaps = VX_ASSERTIONS != 0 && distance < count;
				const std::string text = count <= kMaxQuickSortCount
				                             ? "count == 0 || AreApart(&*first, &*output, count)"
				                             : "AreApart(&*first, &*output, elementCount)";
				const std::vector<std::string> texts = reports.Texts();
				EXPECT_EQ(!texts.empty() && texts[0] == text, overlaps) << count << ", " << distance;
			}
		}
	}
}
