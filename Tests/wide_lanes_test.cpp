// The functions for wide and for 128-bit registers, called directly: each against plain loops, and how the host chooses
// among them.

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"
#include "kr_first_answer.h"
#include "kr_sort.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include "lane_width.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
#include <string>
#include <vector>

using namespace Vexmoor;

namespace
{
class WideLanesTest : public Support::LaneWidthTest
{
protected:
	std::mt19937 m_Random{20261};
};

template<typename _Counter>
constexpr bool kNarrow = sizeof(_Counter) < sizeof(u32);
template<typename _Counter>
constexpr u64 kMostCounted = u64(1) << 8 * sizeof(_Counter);

// How many records a range of digits has: of narrow counters, as many as they count at most or fewer, one by one; of
// others any numbers, whose sums wrap around.
template<typename _Counter>
std::vector<u32> DigitCounts(u32 digitCount, std::mt19937 &random)
{
	std::vector<u32> counts(digitCount);
	const u32 first = u32(random()) % digitCount;
	const u32 usedCount = 1 + u32(random()) % (digitCount - first);
	if constexpr (kNarrow<_Counter>)
	{
		const u32 most = u32(kMostCounted<_Counter>);
		for (u32 left = random() % 2 != 0 ? most : u32(random()) % most; left != 0; --left)
			++counts[first + u32(random()) % usedCount];
	}
	else
	{
		std::generate_n(counts.begin() + first, usedCount, [&] { return u32(random()) >> (random() % 32); });
	}
	return counts;
}

template<typename _Counter, typename _SumCounters>
void ExpectExclusivePrefixSums(std::mt19937 &random, bool withOthers, const _SumCounters &sumCounters)
{
	constexpr u32 kStep = SortLanes::kStepInBytes / sizeof(_Counter);
	for (u32 count = kStep; count <= 2048; count += kStep)
	{
		const std::vector<u32> digitCounts = DigitCounts<_Counter>(count, random);
		std::vector<_Counter> counters(count + 2, _Counter(0xCD)); // at any address, and no counter beside them
		std::vector<_Counter> others(count + 1);
		std::vector<_Counter> expected = counters;
		u64 sum = 0;
		u32 specifiedCount = count; // what follows a narrow sum that is 0 again is left open
		for (u32 i = 0; i < count; ++i)
		{
			const u32 other = withOthers ? u32(random() % (u64(digitCounts[i]) + 1)) : 0;
			others[i + 1] = _Counter(other);
			counters[i + 1] = _Counter(digitCounts[i] - other);
			expected[i + 1] = _Counter(sum);
			if (kNarrow<_Counter> && sum == kMostCounted<_Counter>)
				specifiedCount = std::min(specifiedCount, i + 1);
			sum += digitCounts[i];
		}

		sumCounters(counters.data() + 1, withOthers ? others.data() + 1 : nullptr, count);

		for (u32 i = specifiedCount; i < count; ++i)
			expected[i + 1] = counters[i + 1];
		ASSERT_EQ(counters, expected) << count << " counters of " << sizeof(_Counter) << " bytes";
	}
}

TEST_P(WideLanesTest, SumCountersGivesExclusivePrefixSums)
{
	const auto sum = [](auto *counters, const auto *, u32 count) { SortLanes::SumCounters(counters, count); };
	ExpectExclusivePrefixSums<u8>(m_Random, false, sum);
	ExpectExclusivePrefixSums<u16>(m_Random, false, sum);
	ExpectExclusivePrefixSums<u32>(m_Random, false, sum);
}

TEST_P(WideLanesTest, SumSparseCountersGivesExclusivePrefixSumsAsWell)
{
	const auto sum = [](auto *counters, const auto *others, u32 count)
	{ SortLanes::SumSparseCounters(counters, others, count); };
	for (const bool withOthers : {false, true})
	{
		ExpectExclusivePrefixSums<u8>(m_Random, withOthers, sum);
		ExpectExclusivePrefixSums<u16>(m_Random, withOthers, sum);
		ExpectExclusivePrefixSums<u32>(m_Random, withOthers, sum);
	}
}

// Up to 256 records: a sum of 256 is 0, and what follows it is left open. The rows around keep their bytes.
TEST_P(WideLanesTest, SumColumnsGivesExclusivePrefixSumsDownTheColumns)
{
	constexpr u32 kColumns = SortLanes::kColumns;
	constexpr u8 kUntouched = 0xCD;
	alignas(16) u8 counters[66 * kColumns];
	alignas(16) u8 others[64 * kColumns];
	for (u32 run = 0; run < 128; ++run)
	{
		const u32 rowCount = run / 2 + 1;
		const bool withOthers = run % 2 != 0;
		const std::vector<u32> digitCounts = DigitCounts<u8>(rowCount * kColumns, m_Random);
		const auto slotOf = [=](u32 digit) { return digit % rowCount * kColumns + digit / rowCount; };
		std::fill(std::begin(counters), std::end(counters), kUntouched);
		for (u32 digit = 0; digit < digitCounts.size(); ++digit)
		{
			const u32 other = withOthers ? u32(m_Random()) % (digitCounts[digit] + 1) : 0;
			others[slotOf(digit)] = u8(other);
			counters[kColumns + slotOf(digit)] = u8(digitCounts[digit] - other);
		}
		SortLanes::SumColumns(counters + kColumns, withOthers ? others : nullptr, rowCount);
		u32 sum = 0;
		for (u32 digit = 0; digit < digitCounts.size() && sum < 256; ++digit)
		{
			ASSERT_EQ(counters[kColumns + slotOf(digit)], sum) << "digit " << digit << " of " << rowCount << " rows";
			sum += digitCounts[digit];
		}
		for (u32 i = 0; i < kColumns; ++i)
			ASSERT_TRUE(counters[i] == kUntouched && counters[(rowCount + 1) * kColumns + i] == kUntouched);
	}
}

TEST_P(WideLanesTest, CountLowerKeysRanksEveryCountAndTies)
{
	constexpr u32 kUntouched = 0xCDCDCDCDu;
	constexpr u32 kMaxCount = SortLanes::kMaxRankedCount;
	SIndexAndDepth records[kMaxCount];
	alignas(16) u32 ranks[kMaxCount];
	for (u32 count = 0; count <= kMaxCount; ++count)
	{
		for (const u32 range : {3u, 100u, 0xFFFFFFFFu})
		{
			for (SIndexAndDepth &record : records)
				record = {u32(m_Random()) % range - range / 2, u32(m_Random())};
			if (range > 3)
				records[count / 2].m_Depth = 0xFFFFFFFFu; // as high as what fills up a step
			std::fill(std::begin(ranks), std::end(ranks), kUntouched);
			SortLanes::CountLowerKeys(records, count, ranks);
			for (u32 i = 0; i < count; ++i)
			{
				const auto lower = std::count_if(records, records + count,
					[&](const SIndexAndDepth &record) { return record.m_Depth < records[i].m_Depth; });
				ASSERT_EQ(ranks[i], u32(lower)) << "record " << i << " of " << count;
			}
			constexpr u32 kStep = SortLanes::kRanksPerStep;
			for (u32 i = (count + kStep - 1) / kStep * kStep; i < kMaxCount; ++i)
				ASSERT_EQ(ranks[i], kUntouched) << "rank " << i << ", after the last step of " << count;
		}
	}
}

// The model in plain floats; volatile, so that no flag of a host's fuses or reorders the sums.
u32 DistanceKey(const CFloat3 &position, const CFloat3 &camera)
{
	const volatile float x = position.x() - camera.x();
	const volatile float y = position.y() - camera.y();
	const volatile float z = position.z() - camera.z();
	const volatile float xx = x * x;
	const volatile float yy = y * y;
	const volatile float zz = z * z;
	const volatile float xxyy = xx + yy;
	const float len2 = xxyy + zz;
	u32 bits;
	std::memcpy(&bits, &len2, sizeof(bits));
	return ~bits;
}

namespace
{
	typedef std::vector<u64> CRecords; // the key in the low half, which lies first in memory

	void SortByKeyBits(CRecords &records, u32 bits)
	{
		std::stable_sort(
			records.begin(), records.end(), [bits](u64 a, u64 b) { return (u32(a) & bits) < (u32(b) & bits); });
	}

	CRecords RecordsAt(const Support::CGuardedMemory &memory, u32 count)
	{
		CRecords records(count);
		std::memcpy(records.data(), memory.Data(), count * sizeof(u64));
		return records;
	}
} // namespace

// Both orders of every count, in memory that ends with the last record or begins with the first, at multiples of 8.
// Keys are random, equal in the bits of one of the two sorts or in all, or equal by chance.
TEST_P(WideLanesTest, NetworksSortEveryCountStablyByBothParts)
{
	constexpr u32 kLowBits = 0x003FFFFFu;
	const bool haveNetworks = Cpu::LaneCount() > 4;
	for (u32 count = 1; count <= SortLanes::kMaxNetworkCount; ++count)
	{
		for (const u32 mask : {0xFFFFFFFFu, kLowBits, ~kLowBits, 0x00C00003u, 0u})
		{
			SCOPED_TRACE(::testing::Message() << count << " records, mixed bits " << mask);
			CRecords records(count);
			for (u32 i = 0; i < count; ++i)
				records[i] = u64(i) << 32 | (u32(m_Random()) & mask) | (0x9ABCDEF0u & ~mask);
			CRecords expectedByLowBits = records;
			SortByKeyBits(expectedByLowBits, kLowBits);
			CRecords expected = records;
			SortByKeyBits(expected, ~0u);

			const std::size_t size = count * sizeof(u64);
			const Support::CGuardedMemory input(size, size % 16);
			const Support::CGuardedMemory byLowBits(size, size % 16);
			const Support::CGuardedMemory sorted(size, 0, Support::CGuardedMemory::FlushStart);
			std::memcpy(input.Data(), records.data(), size);
			ASSERT_EQ(SortLanes::SortByNetwork(input.Data(), count, byLowBits.Data(), sorted.Data()), haveNetworks);
			if (!haveNetworks)
				return;
			ASSERT_EQ(RecordsAt(input, count), records) << "the input is left";
			ASSERT_EQ(RecordsAt(byLowBits, count), expectedByLowBits);
			ASSERT_EQ(RecordsAt(sorted, count), expected);
			SortLanes::SortByNetwork(input.Data(), count, input.Data(), sorted.Data());
			ASSERT_EQ(RecordsAt(input, count), expectedByLowBits) << "in place";
			ASSERT_EQ(RecordsAt(sorted, count), expected) << "in place";
			ASSERT_TRUE(input.SurroundingsIntact() && byLowBits.SurroundingsIntact() && sorted.SurroundingsIntact());
		}
	}
}

// Distinct keys, keys of which two are equal, and keys that agree in their low or high bits alone, in memory that ends
// with the last record or begins with the first.
TEST_P(WideLanesTest, NetworksFindOutWhetherKeysAreDistinct)
{
	constexpr u32 kLowBits = 0x003FFFFFu;
	const bool haveNetworks = Cpu::LaneCount() > 4;
	bool areDistinct = true;
	for (u32 count = 1; count <= SortLanes::kMaxRankedCount; ++count)
	{
		for (u32 variant = 0; variant < 24; ++variant)
		{
			SCOPED_TRACE(::testing::Message() << count << " records, variant " << variant);
			CRecords records(count);
			const u32 first = u32(m_Random()) % count, second = u32(m_Random()) % count;
			for (u32 i = 0; i < count; ++i)
			{
				const u32 byHighBits = (i * 9 + variant) << 22 | 0x00345678u;
				records[i] = u64(i) << 32 | (variant % 4 == 0 ? byHighBits : (u32(m_Random()) << 7 | i));
			}
			const u32 sharedBits = variant % 4 == 2 ? kLowBits : variant % 8 >= 3 && variant % 8 != 5 ? ~0u : 0;
			records[first] = (records[first] & ~u64(sharedBits)) | (records[second] & sharedBits);
			CRecords expected = records;
			SortByKeyBits(expected, ~0u);
			const bool areExpectedDistinct = std::adjacent_find(expected.begin(), expected.end(),
												 [](u64 a, u64 b) { return u32(a) == u32(b); }) == expected.end();

			const std::size_t size = count * sizeof(u64);
			const Support::CGuardedMemory input(size, size % 16);
			const Support::CGuardedMemory sorted(size, 0, Support::CGuardedMemory::FlushStart);
			std::memcpy(input.Data(), records.data(), size);
			ASSERT_EQ(SortLanes::SortDistinctByNetwork(input.Data(), count, sorted.Data(), areDistinct), haveNetworks);
			if (!haveNetworks)
				return;
			ASSERT_EQ(areDistinct, areExpectedDistinct);
			ASSERT_EQ(RecordsAt(input, count), records) << "the input is left";
			ASSERT_EQ(RecordsAt(sorted, count), expected);
			ASSERT_TRUE(input.SurroundingsIntact() && sorted.SurroundingsIntact());
		}
	}
	CRecords records(SortLanes::kMaxRankedCount + 1, 1);
	CRecords sorted(records.size(), 2);
	const Support::CExpectReports reports({"count <= kMaxRankedCount"});
	EXPECT_TRUE(SortLanes::SortDistinctByNetwork(records.data(), u32(records.size()), sorted.data(), areDistinct));
	EXPECT_FALSE(areDistinct);
	EXPECT_TRUE(SortLanes::SortDistinctByNetwork(records.data(), 0, sorted.data(), areDistinct));
	EXPECT_TRUE(areDistinct) << "no two of no records have equal keys";
	EXPECT_EQ(sorted, CRecords(sorted.size(), 2));
}

TEST_P(WideLanesTest, MoreRecordsThanNetworksTake_AreReportedAndLeft)
{
	const bool haveNetworks = Cpu::LaneCount() > 4;
	CRecords records(SortLanes::kMaxNetworkCount + 1, 1);
	CRecords sorted(records.size(), 2);
	const Support::CExpectReports reports(
		haveNetworks ? std::vector<std::string>{"count <= kMaxNetworkCount"} : std::vector<std::string>());
	for (const u32 count : {u32(records.size()), 0u})
		EXPECT_EQ(SortLanes::SortByNetwork(records.data(), count, records.data(), sorted.data()), haveNetworks);
	EXPECT_EQ(records, CRecords(records.size(), 1));
	EXPECT_EQ(sorted, CRecords(sorted.size(), 2));
}

TEST_P(WideLanesTest, FillPutsEveryRecordOfEveryCountInItsPlace)
{
	const CFloat3 camera(1.5f, -2.25f, 100.0f);
	for (u32 count = 0; count < 100; ++count)
	{
		std::vector<CFloat3> positions;
		std::vector<u32> entries;
		for (u32 i = 0; i < count; ++i)
		{
			const auto coordinate = [&] { return float(s32(m_Random())) * 1e-6f; };
			positions.emplace_back(coordinate(), coordinate(), coordinate());
			entries.push_back(u32(m_Random()) % 1000);
		}
		std::vector<SIndexAndDepth> inSequence(count + 2);
		std::vector<SIndexAndDepth> byList(count + 2);
		const TStridedMemoryView<const CFloat3> view(positions.data(), count, sizeof(CFloat3));
		CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
			TMemoryView<SIndexAndDepth>(inSequence.data(), count), view, camera, {}, 7, 3);
		CTriangleSorter::FillSortingIndirectionsListPoint_Indices(
			TMemoryView<SIndexAndDepth>(byList.data(), count), view, camera, {}, entries.data(), 500);

		for (u32 i = 0; i < count; ++i)
		{
			const u32 key = DistanceKey(positions[i], camera);
			const u32 place = i < (count & ~3u) ? i ^ 2 : i; // a group of four is stored 2, 3, 0, 1
			ASSERT_EQ(inSequence[place].m_Depth, key) << i << " of " << count;
			ASSERT_EQ(inSequence[place].m_Index, 7 + i * 3) << i << " of " << count;
			const bool valid = entries[i] < 500;
			ASSERT_EQ(byList[i].m_Depth, valid ? key : 0x807FFFFFu) << i << " of " << count;
			ASSERT_EQ(byList[i].m_Index, valid ? entries[i] : 0u) << i << " of " << count;
		}
		for (u32 i = count; i < count + 2; ++i)
			ASSERT_EQ(inSequence[i].m_Index + inSequence[i].m_Depth + byList[i].m_Index + byList[i].m_Depth, 0u);
	}
}

INSTANTIATE_TEST_SUITE_P(Lanes, WideLanesTest, Support::kLaneWidths, Support::LaneWidthName);

// Before main() has passed on a wish of the command line's.
const u32 kInstructionSetAtStart = Cpu::InstructionSet();

TEST(Cpu, AHostThatWantsAnOlderInstructionSetIsObeyed)
{
	const Cpu::EInstructionSet before = Cpu::InstructionSet();
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx512);
	const Cpu::EInstructionSet widest = Cpu::InstructionSet();
	const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
	                    __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
	EXPECT_EQ(widest, avx512                           ? Cpu::InstructionSet_Avx512
					  : __builtin_cpu_supports("avx2") ? Cpu::InstructionSet_Avx2
													   : Cpu::InstructionSet_Baseline);
	EXPECT_EQ(kInstructionSetAtStart, widest) << "a host that says nothing gets all";
	for (const auto set : {Cpu::InstructionSet_Baseline, Cpu::InstructionSet_Avx2, Cpu::InstructionSet_Avx512})
	{
		Cpu::SetMaxInstructionSet(set);
		EXPECT_EQ(Cpu::InstructionSet(), std::min(set, widest)) << set;
	}
	Cpu::SetMaxInstructionSet(before);
}

TEST(Cpu, LaneCountsMeanInstructionSets)
{
	const Cpu::EInstructionSet before = Cpu::InstructionSet();
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx512);
	const u32 mostLanes = 4u << Cpu::InstructionSet();
	EXPECT_EQ(Cpu::LaneCount(), mostLanes);
	for (const u32 wanted : {0u, 1u, 3u, 4u, 5u, 7u, 8u, 9u, 15u, 16u, 17u, 0xFFFFFFFFu})
	{
		Cpu::SetMaxLaneCount(wanted);
		const u32 widest = wanted >= 16 ? 16 : wanted >= 8 ? 8 : 4;
		EXPECT_EQ(Cpu::LaneCount(), std::min(widest, mostLanes)) << wanted;
	}
	Cpu::SetMaxInstructionSet(before);
}

TEST(FirstAnswer, IsFoundOnce)
{
	CFirstAnswer answer;
	EXPECT_EQ(answer.Get([] { return 16u; }), 16u);
	EXPECT_EQ(answer.Get(
				  []() -> u32
				  {
					  ADD_FAILURE() << "found again";
					  return 8;
				  }),
		16u);
	answer.Set(4);
	EXPECT_EQ(answer.Get([] { return 16u; }), 4u);
}

// The host speaks after a first question has begun and before it ends, as another thread's may.
TEST(FirstAnswer, SetWhileTheFirstIsFound_Stands)
{
	CFirstAnswer answer;
	const auto findWhileTheHostSets = [&answer]
	{
		answer.Set(4);
		return 16u;
	};
	EXPECT_EQ(answer.Get(findWhileTheHostSets), 4u);
	EXPECT_EQ(answer.Get([] { return 16u; }), 4u);
}
} // namespace
