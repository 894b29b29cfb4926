// The radix sort: order by every digit, stability, what it leaves in its input, and that its stack frame is all that
// it uses.

#include "ge_mesh_triangle_sorter.h"

#include "kr_sort.h"

#include "diagnostics.h"
#include "fill_calls.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <pthread.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
typedef TContiguousBaseIterator<SIndexAndDepth> CIterator;
typedef std::vector<Model::SRecord> CRecords;

struct SSorted
{
	CRecords m_Output;
	CRecords m_Input; // afterwards
};

void RunSort11(SIndexAndDepth *input, u32 count, SIndexAndDepth *output)
{
	const SSortKeyExtractor_TriangleIndexAndDepth keyExtractor{};
	const CIterator first(input);
	TRadixSort<Sort_InBuffer>::Sort11(first, first + int(count), CIterator(output), keyExtractor);
}

// The input ends where memory ends, the output starts where it starts.
SSorted Sorted(const CRecords &records)
{
	const u32 count = u32(records.size());
	const std::size_t size = count * sizeof(SIndexAndDepth);
	const CGuardedMemory input(size, FlushAddressMod16(8, count, 8));
	const CGuardedMemory output(size, 0, CGuardedMemory::FlushStart);
	if (count != 0)
		std::memcpy(input.Data(), records.data(), size);
	RunSort11(input.As<SIndexAndDepth>(), count, output.As<SIndexAndDepth>());
	EXPECT_TRUE(input.SurroundingsIntact());
	EXPECT_TRUE(output.SurroundingsIntact());
	return {ReadRecords(output.Data(), count), ReadRecords(input.Data(), count)};
}

CRecords RecordsOfKeys(const std::vector<u32> &keys)
{
	CRecords records;
	for (const u32 key : keys)
		records.push_back({key, u32(records.size())});
	return records;
}

// Random keys of the bits in mask: few bits, many ties.
CRecords RandomRecords(u32 count, u32 mask, std::uint64_t seed)
{
	Model::CRandom random(seed);
	std::vector<u32> keys(count);
	for (u32 &key : keys)
		key = random.Next() & mask;
	return RecordsOfKeys(keys);
}

// Against the standard library and, for what is left in the input, the model.
void ExpectStablySorted(const CRecords &records)
{
	CRecords expected = records;
	std::stable_sort(expected.begin(), expected.end(),
		[](const Model::SRecord &a, const Model::SRecord &b) { return a.m_Key < b.m_Key; });
	CRecords left = records;
	const CRecords ofModel = Model::RadixSort(left);
	const SSorted sorted = Sorted(records);
	EXPECT_TRUE(SameRecords(expected, sorted.m_Output));
	EXPECT_TRUE(SameRecords(ofModel, sorted.m_Output));
	EXPECT_TRUE(SameRecords(left, sorted.m_Input)) << "of the input";
}
} // namespace

TEST(RadixSort, NoRecords_LeavesTheOutput)
{
	CGuardedMemory output(16);
	output.Protect();
	SIndexAndDepth input = {1, 2};
	RunSort11(&input, 0, output.As<SIndexAndDepth>());
	RunSort11(null, 0, null);
	EXPECT_EQ(output.Data()[0], CGuardedMemory::kInitialByte);
	EXPECT_EQ(input.m_Depth, 1u);
	EXPECT_EQ(input.m_Index, 2u);
}

TEST(RadixSort, OneRecord_IsCopied)
{
	const CRecords one = {
		{0xDEADBEEFu, 77},
	};
	const SSorted sorted = Sorted(one);
	EXPECT_TRUE(SameRecords(one, sorted.m_Output));
	EXPECT_TRUE(SameRecords(one, sorted.m_Input));
}

// Whatever their digits are, every pass moves every record to where it was.
TEST(RadixSort, EqualKeys_KeepTheirOrder)
{
	for (const u32 key : {0u, 0x7FFu, 0x800u, 0x003FFFFFu, 0x00400000u, 0x80000000u, 0xFFFFFFFFu})
	{
		const CRecords records = RecordsOfKeys(std::vector<u32>(333, key));
		const SSorted sorted = Sorted(records);
		EXPECT_TRUE(SameRecords(records, sorted.m_Output)) << std::hex << key;
		EXPECT_TRUE(SameRecords(records, sorted.m_Input)) << std::hex << key;
	}
}

TEST(RadixSort, KeysThatDifferInOneBit_AreOrderedByIt)
{
	for (u32 bit = 0; bit < 32; ++bit)
	{
		SCOPED_TRACE(bit);
		for (const u32 others : {0u, 0xFFFFFFFFu, 0x55555555u})
		{
			std::vector<u32> keys;
			for (u32 i = 0; i < 64; ++i)
				keys.push_back(i % 3 == 0 ? others | 1u << bit : others & ~(1u << bit));
			const SSorted sorted = Sorted(RecordsOfKeys(keys));
			for (u32 i = 0; i < 64; ++i)
			{
				// 22 of the 64 have the bit; each half keeps its order.
				const u32 index = i < 42 ? i / 2 * 3 + i % 2 + 1 : (i - 42) * 3;
				ASSERT_EQ(sorted.m_Output[i].m_Index, index) << i;
			}
		}
	}
}

// Both sides of each digit's ends, and of the sign bit.
TEST(RadixSort, KeysAroundEveryPowerOfTwo_AreOrdered)
{
	std::vector<u32> keys = {0xFFFFFFFFu, 0xFFC00000u, 0xFFBFFFFFu};
	for (u32 bit = 32; bit-- > 0;)
		keys.insert(keys.end(), {(1u << bit) + 1, 1u << bit, (1u << bit) - 1});
	ExpectStablySorted(RecordsOfKeys(keys));
}

TEST(RadixSort, EveryValueOfADigit_HasItsPlace)
{
	const struct
	{
		u32 m_Shift, m_Values;
	} digits[] = {
		{0,  2048},
		{11, 2048},
		{22, 1024},
	};
	for (const auto &digit : digits)
	{
		SCOPED_TRACE(digit.m_Shift);
		std::vector<u32> keys;
		for (u32 i = 0; i < 2 * digit.m_Values; ++i)
			keys.push_back((i * 1021 % digit.m_Values) << digit.m_Shift); // 1021 is odd: every value, twice
		ExpectStablySorted(RecordsOfKeys(keys));
	}
}

TEST(RadixSort, EverySizeUpTo300_MatchesStableSort)
{
	for (u32 count = 0; count <= 300; ++count)
	{
		SCOPED_TRACE(count);
		for (const u32 mask : {0xFFFFFFFFu, 0x00000007u, 0x00400801u, 0xC0000000u})
			ExpectStablySorted(RandomRecords(count, mask, count));
		if (HasFailure())
			return;
	}
}

// Counters are as narrow as the count allows: all that one counts lies in one digit, or all but a last record beyond
// it.
TEST(RadixSort, SizesAroundEveryCounterWidth_MatchStableSort)
{
	for (const u32 count : {255u, 256u, 257u, 1023u, 1024u, 1025u, 65535u, 65536u, 65537u})
	{
		SCOPED_TRACE(count);
		ExpectStablySorted(RandomRecords(count, 0xFFFFFFFFu, count));
		for (const u32 last : {0x1FE003FEu, 0x1FE003FFu, 0x1FE00BFEu, 0x20E003FEu})
		{
			std::vector<u32> keys(count, 0x1FE003FEu);
			keys[count / 2] = last;
			ExpectStablySorted(RecordsOfKeys(keys));
		}
	}
}

// A pass whose records share their digit moves them in one block. One record alone has another digit: the first, whose
// digit is the one that is asked for, the last, or one between them. Where 8 or 16 bits count all records, they wrap to
// 0.
TEST(RadixSort, DigitOfAllRecordsButOne_MatchesStableSort)
{
	for (const u32 count : {110u, 111u, 255u, 256u, 257u, 1000u, 65535u, 65536u, 65537u})
	{
		for (const u32 key : {0u, 0x9F000000u, 0xFFFFFFFFu})
		{
			for (const u32 bit : {0u, 10u, 11u, 21u, 22u, 31u})
			{
				SCOPED_TRACE(::testing::Message() << count << " records, key " << key << ", bit " << bit);
				for (const u32 place : {0u, 1u, count / 2, count - 2, count - 1})
				{
					std::vector<u32> keys(count, key);
					keys[place] ^= 1u << bit;
					ExpectStablySorted(RecordsOfKeys(keys));
				}
				if (HasFailure())
					return;
			}
		}
	}
}

// Records share one digit or two, and are mixed in the others.
TEST(RadixSort, DigitsThatAllRecordsShare_MatchStableSort)
{
	constexpr u32 kDigits[] = {0x000007FFu, 0x003FF800u, 0xFFC00000u};
	for (const u32 count : {110u, 256u, 257u, 1003u, 65536u, 65539u})
	{
		for (u32 mixed = 1; mixed < 8; ++mixed)
		{
			SCOPED_TRACE(::testing::Message() << count << " records, mixed digits " << mixed);
			u32 mask = 0;
			for (u32 digit = 0; digit < 3; ++digit)
				mask |= (mixed >> digit & 1) != 0 ? kDigits[digit] : 0;
			CRecords records = RandomRecords(count, mask, count + mixed);
			for (Model::SRecord &record : records)
				record.m_Key |= 0x55555555u & ~mask;
			ExpectStablySorted(records);
		}
	}
}

namespace
{
// Runs of equal keys, each from 1 to maxLength records long. The keys are of the bits in mask.
CRecords RecordsInRuns(u32 count, u32 maxLength, u32 mask, std::uint64_t seed)
{
	Model::CRandom random(seed);
	std::vector<u32> keys;
	while (keys.size() < count)
		keys.insert(keys.end(), random.Next() % maxLength + 1, random.Next() & mask);
	keys.resize(count);
	return RecordsOfKeys(keys);
}
} // namespace

// Runs are moved 8 records at a time, where 8 in a row share a digit. Their ends lie anywhere among these steps.
TEST(RadixSort, RunsOfAnyLength_MatchStableSort)
{
	for (const u32 count : {110u, 256u, 257u, 263u, 264u, 1000u, 4099u, 65536u, 65537u, 70001u})
	{
		for (const u32 maxLength : {1u, 7u, 8u, 9u, 24u, 100u, 3000u})
		{
			SCOPED_TRACE(::testing::Message() << count << " records in runs of up to " << maxLength);
			for (const u32 mask : {0xFFFFFFFFu, 0x003FFFFFu, 0x00000FFFu, 0xC0000401u})
				ExpectStablySorted(RecordsInRuns(count, maxLength, mask, count + maxLength));
			if (HasFailure())
				return;
		}
	}
}

TEST(RadixSort, RunsBeyondTheCaches_MatchStableSort)
{
	ExpectStablySorted(RecordsInRuns(2200013, 300, 0xFFFFFFFFu, 1));
}

// Equal runs of 8 begin at every multiple of 8 and beside it, whatever the steps: a record is lost or doubled if a step
// is taken for equal that is not.
TEST(RadixSort, OneKeyAmongEqualOnes_IsFoundInEveryPlaceOfAStep)
{
	for (const u32 count : {264u, 65600u})
	{
		for (u32 place = 128; place < 128 + 17; ++place)
		{
			SCOPED_TRACE(::testing::Message() << count << " records, place " << place);
			for (const u32 key : {0u, 1u, 0x800u, 0x00400000u, 0xFFFFFFFFu})
			{
				std::vector<u32> keys(count, 0x40000801u);
				keys[count - 1] = 0x40001003u; // no digit is shared by all
				keys[count - 2] = 0x80001003u;
				keys[place] = key;
				ExpectStablySorted(RecordsOfKeys(keys));
			}
		}
	}
}

// A few records are looked at before all are counted, and say how. What they say may hold for no other record.
TEST(RadixSort, LooksThatMislead_MatchStableSort)
{
	for (const u32 count : {257u, 1024u, 5000u, 65537u})
	{
		SCOPED_TRACE(count);
		CRecords alike = RandomRecords(count, 0xFFFFFFFFu, count);
		CRecords different(RecordsInRuns(count, 500, 0xFFFFFFFFu, count));
		const u32 distance = std::max(64u, count / 16);
		for (u32 look = 0; look + 8 <= count; look += distance)
		{
			for (u32 i = look; i < look + 8; ++i)
			{
				alike[i].m_Key = 0x12345678u;
				different[i].m_Key = i * 2654435761u;
			}
		}
		ExpectStablySorted(alike);
		ExpectStablySorted(different);
	}
}

// Nearly sorted: consecutive records share their top digit but for a few, and count it together.
TEST(RadixSort, NearlySortedKeys_MatchStableSort)
{
	for (const u32 count : {257u, 1000u, 65536u, 65537u, 131072u})
	{
		SCOPED_TRACE(count);
		Model::CRandom random(count);
		std::vector<u32> keys(count);
		for (u32 i = 0; i < count; ++i)
			keys[i] = 0x40000000u + u32(std::uint64_t(i) * 0x08000000u / count) + random.Next() % 0x00040000u;
		ExpectStablySorted(RecordsOfKeys(keys));
	}
}

namespace
{
// Ten bytes at even addresses: an array of them may begin where no counter of 32 bits could.
struct SPacked
{
	u16 m_KeyLow, m_KeyHigh, m_IndexLow, m_IndexHigh, m_Rest;
};
static_assert(sizeof(SPacked) == 10 && alignof(SPacked) == 2, "no room is lost");

struct SKeyOfPacked
{
	typedef u32 SortKeyType;
	static u32 ExtractKey(const SPacked &record) { return u32(record.m_KeyHigh) << 16 | record.m_KeyLow; }
};
} // namespace

// Counters that lie in the output are aligned there, and nothing outside the output is touched.
TEST(RadixSort, RecordsAtEvenAddresses_AreSorted)
{
	constexpr u32 kCount = 66000;
	const CRecords records = RandomRecords(kCount, 0xFFFF00FFu, 5);
	CRecords left = records;
	const CRecords expected = Model::RadixSort(left);
	for (const u32 addressMod16 : {0u, 2u, 6u, 14u})
	{
		SCOPED_TRACE(addressMod16);
		const CGuardedMemory input(kCount * sizeof(SPacked), addressMod16);
		const CGuardedMemory output(kCount * sizeof(SPacked), addressMod16);
		SPacked *const in = input.As<SPacked>();
		SPacked *const out = output.As<SPacked>();
		for (u32 i = 0; i < kCount; ++i)
			in[i] = {u16(records[i].m_Key), u16(records[i].m_Key >> 16), u16(i), u16(i >> 16), u16(~i)};
		typedef TContiguousBaseIterator<SPacked> Iterator;
		TRadixSort<Sort_InBuffer>::Sort11(Iterator(in), Iterator(in) + int(kCount), Iterator(out), SKeyOfPacked{});
		for (u32 i = 0; i < kCount; ++i)
		{
			const u32 index = u32(out[i].m_IndexHigh) << 16 | out[i].m_IndexLow;
			ASSERT_EQ(index, expected[i].m_Index) << i;
			ASSERT_EQ(SKeyOfPacked::ExtractKey(out[i]), expected[i].m_Key) << i;
			ASSERT_EQ(out[i].m_Rest, u16(~index)) << i;
			ASSERT_EQ(u32(in[i].m_IndexHigh) << 16 | in[i].m_IndexLow, left[i].m_Index) << i;
		}
		EXPECT_TRUE(input.SurroundingsIntact());
		EXPECT_TRUE(output.SurroundingsIntact());
	}
}

TEST(RadixSort, LargeSizes_MatchStableSort)
{
	const struct
	{
		u32 m_Count, m_Mask;
	} cases[] = {
		{2047,    0xFFFFFFFFu},
        {4099,    0x003FF800u}, // the second digit alone
		{65536,   0xFFC00000u}, // the third
		{300000,  0xFFFFFFFFu},
        {70001,   0x000F00F0u},
        {786432,  0xFFFFFFFFu},
		{786433,  0xFFFFFFFFu}, // away from the core, where destinations are fetched ahead
		{800003,  0x80FFFFFFu}, // the same, with few top digits
		{2100003, 0xFFFFFFFFu}, // beyond the caches
		{2200011, 0x80FFFFFFu}, // the same, with few top digits
	};
	for (const auto &row : cases)
	{
		SCOPED_TRACE(row.m_Count);
		ExpectStablySorted(RandomRecords(row.m_Count, row.m_Mask, row.m_Count));
	}
}

// What the second pass leaves behind: bits 22 and up have not been looked at.
TEST(RadixSort, Input_IsLeftInOrderOfTheLow22Bits)
{
	const SSorted sorted = Sorted(RecordsOfKeys({0x00400001u, 0x00000002u, 0xFFC00000u, 0x00800001u, 0x003FFFFFu}));
	const CRecords expected = {
		{0xFFC00000u, 2},
		{0x00400001u, 0},
		{0x00800001u, 3},
		{0x00000002u, 1},
		{0x003FFFFFu, 4},
	};
	EXPECT_TRUE(SameRecords(expected, sorted.m_Input));
}

TEST(RadixSort, Index_NeverTakesPart)
{
	const CRecords records = {
		{5, 0xFFFFFFFFu},
		{5, 0          },
		{4, 0x80000000u},
		{5, 7          },
	};
	EXPECT_TRUE(SameRecords({records[2], records[0], records[1], records[3]}, Sorted(records).m_Output));
}

template<u32 _Bitcount, typename _Counter>
static void ExpectPrefixSums()
{
	constexpr u32 kCount = 1u << _Bitcount;
	const auto countOf = [](u32 i) { return sizeof(_Counter) < 4 ? u32(i % 13 == 5) : i * 2654435761u; };
	const CGuardedMemory memory(kCount * sizeof(_Counter));
	_Counter *const counters = memory.As<_Counter>();
	for (u32 i = 0; i < kCount; ++i)
		counters[i] = _Counter(countOf(i));
	TRadixSort<Sort_InBuffer>::SumCounters<_Bitcount>(counters);
	u32 sum = 0; // wraps, as counters of 32 bits do
	for (u32 i = 0; i < kCount; ++i)
	{
		ASSERT_EQ(counters[i], _Counter(sum)) << i;
		sum += countOf(i);
	}
	EXPECT_TRUE(memory.SurroundingsIntact());
}

TEST(RadixSort, SumCounters_AreExclusivePrefixSums)
{
	ExpectPrefixSums<11, u8>();
	ExpectPrefixSums<10, u8>();
	ExpectPrefixSums<11, u16>();
	ExpectPrefixSums<10, u16>();
	ExpectPrefixSums<11, u32>();
	ExpectPrefixSums<10, u32>();
}

// The histograms take 22,016 bytes of the caller's stack, however wide their counters are, and sorting networks take
// less. A thread on a painted stack shows how deep a sort goes.
TEST(RadixSort, Histograms_LieOnTheStack)
{
	constexpr std::size_t kStackSize = 256 * 1024;
	constexpr unsigned char kPaint = 0x5A;
	const CGuardedMemory stack(kStackSize, 0, CGuardedMemory::FlushStart);

	struct SThread
	{
		SIndexAndDepth m_Input[2000], m_Output[2000];
		u32 m_Count;
	};
	const auto depth = [&stack](u32 count)
	{
		std::memset(stack.Data(), kPaint, kStackSize);
		SThread thread = {};
		thread.m_Count = count;
		pthread_attr_t attributes;
		pthread_attr_init(&attributes);
		pthread_attr_setstack(&attributes, stack.Data(), kStackSize);
		pthread_t id;
		const int failed = pthread_create(
			&id, &attributes,
			[](void *p) -> void *
			{
				SThread *const self = static_cast<SThread *>(p);
				if (self->m_Count != 0)
					RunSort11(self->m_Input, self->m_Count, self->m_Output);
				return nullptr;
			},
			&thread);
		EXPECT_EQ(failed, 0);
		if (failed == 0)
			pthread_join(id, nullptr);
		pthread_attr_destroy(&attributes);
		std::size_t untouched = 0;
		while (untouched < kStackSize && stack.Data()[untouched] == kPaint)
			++untouched;
		return kStackSize - untouched;
	};

	const CAllocationRecorder allocations;
	const std::size_t without = depth(0);
	for (const u32 count : {256u, 1000u, 2000u})
	{
		const std::size_t with = depth(count);
		EXPECT_GE(with, count > SortLanes::kMaxNetworkCount ? 22016u : 1024u) << count;
		EXPECT_LE(with, without + 22016u + 4096u) << count; // alignment to 64 bytes and the frames around
	}
	EXPECT_TRUE(allocations.Allocations().empty());
}
