// The lanes of processors without lanes, each operation against this processor's own: any bits in, the same bits out.

#include "simd/lanes.h"
#include "simd/lanes_scalar.h"
#include "vx_defs.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

using namespace Vexmoor;

namespace
{
typedef std::array<u32, 4> Lanes;
typedef SLanesBase::Register Register;

// Some bytes and words are what comparisons and limits turn on.
class ScalarLanes : public testing::Test
{
protected:
	Lanes Any()
	{
		static constexpr u32 kSpecial[] = {0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000,
			0xFFFFFFFF, 0xFFFF8000, 0xFFFF7FFF, 0x00800080, 0xFF00FF00, 0x01010101, 0x80808080};
		Lanes lanes;
		for (u32 &lane : lanes)
			lane = m_Random() % 3 == 0 ? kSpecial[m_Random() % std::size(kSpecial)] : u32(m_Random());
		return lanes;
	}
	// Numbers between 2^-7 and 2^13, and no NaN: which of two is handed on is not the lanes' business. They are made of
	// bits: a product made here would be fused with the sum that is tested, where a host's flags allow it.
	Lanes AnyFloats()
	{
		constexpr u32 kLeastExponent = 120, kExponents = 20;
		Lanes lanes;
		for (u32 &lane : lanes)
		{
			const u32 signAndFraction = u32(m_Random()) & 0x807FFFFFu;
			lane = signAndFraction | (kLeastExponent + u32(m_Random()) % kExponents) << 23;
		}
		return lanes;
	}

	std::mt19937 m_Random{20262};
};

template<typename _Lanes>
Lanes Bits(typename _Lanes::Register r)
{
	Lanes lanes;
	_Lanes::Store(lanes.data(), r);
	return lanes;
}

constexpr u32 kRounds = 2000;

// Of an operation of one or two registers that gives a register.
#define EXPECT_SAME_LANES(_a, _b, ...)                                                                       \
	do                                                                                                       \
	{                                                                                                        \
		const auto operation = [](auto lanes, const auto &a, [[maybe_unused]] const auto &b)                 \
		{                                                                                                    \
			typedef decltype(lanes) L;                                                                       \
			return Bits<L>(__VA_ARGS__);                                                                     \
		};                                                                                                   \
		const Lanes expected = operation(SLanesBase(), SLanesBase::Load(&(_a)), SLanesBase::Load(&(_b)));    \
		const Lanes found = operation(SLanesScalar(), SLanesScalar::Load(&(_a)), SLanesScalar::Load(&(_b))); \
		ASSERT_EQ(found, expected) << #__VA_ARGS__;                                                          \
	} while (false)

TEST_F(ScalarLanes, IntegerOperations_EqualTheProcessorsOwn)
{
	for (u32 round = 0; round < kRounds; ++round)
	{
		const Lanes x = Any();
		const Lanes y = m_Random() % 4 == 0 ? x : Any();
		EXPECT_SAME_LANES(x, y, L::template Add<u8>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Add<u16>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Add<u32>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Add<u64>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Subtract<u8>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Subtract<u32>(a, b));
		EXPECT_SAME_LANES(x, y, L::And(a, b));
		EXPECT_SAME_LANES(x, y, L::Or(a, b));
		EXPECT_SAME_LANES(x, y, L::Xor(a, b));
		EXPECT_SAME_LANES(x, y, L::GreaterSigned(a, b));
		EXPECT_SAME_LANES(x, y, L::LessUnsigned(a, b));
		EXPECT_SAME_LANES(x, y, L::EqualBytes(a, b));
		EXPECT_SAME_LANES(x, y, L::Select(L::LessUnsigned(a, b), a, b));
		EXPECT_SAME_LANES(x, y, L::Where(L::LessUnsigned(a, b), a));
		EXPECT_SAME_LANES(x, y, L::PackSigned(a, b));
		EXPECT_SAME_LANES(x, y, L::template ShiftLeft<4>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftLeft<16>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftRightSigned<31>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftRightSigned<16>(a));
		EXPECT_SAME_LANES(x, y, L::Splat(L::Lane0(a)));
		EXPECT_SAME_LANES(x, y, L::Multiples(L::Lane0(a)));
		EXPECT_SAME_LANES(x, y, L::Splat(L::SumBytes(a)));
		EXPECT_SAME_LANES(x, y,
			[&]
			{
				auto low = a, high = b;
				L::SortTwo(low, high);
				return low;
			}());
		EXPECT_SAME_LANES(x, y,
			[&]
			{
				auto low = a, high = b;
				L::SortTwo(low, high);
				return high;
			}());
	}
}

TEST_F(ScalarLanes, OrdersOfElements_EqualTheProcessorsOwn)
{
	for (u32 round = 0; round < kRounds; ++round)
	{
		const Lanes x = Any();
		const Lanes y = Any();
		EXPECT_SAME_LANES(x, y, L::template Shuffle<3, 0, 2, 1>(a));
		EXPECT_SAME_LANES(x, y, L::template Shuffle<1, 1, 3, 2>(a));
		EXPECT_SAME_LANES(x, y, L::template Shuffle2<3, 0, 2, 1>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Shuffle2<1, 2, 0, 3>(a, b));
		EXPECT_SAME_LANES(x, y, L::template Shuffle16<3, 0, 1, 2, 4, 7, 5, 6>(a));
		EXPECT_SAME_LANES(x, y, L::InterleaveLow(a, b));
		EXPECT_SAME_LANES(x, y, L::InterleaveHigh(a, b));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<1>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<2>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<4>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<6>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<8>(a));
		EXPECT_SAME_LANES(x, y, L::template ShiftBytesUp<13>(a));
		EXPECT_SAME_LANES(x, y, L::template SpreadLast<u8>(a));
		EXPECT_SAME_LANES(x, y, L::template SpreadLast<u16>(a));
		EXPECT_SAME_LANES(x, y, L::template SpreadLast<u32>(a));
		EXPECT_SAME_LANES(x, y,
			[&]
			{
				auto before = a, total = a;
				L::template PrefixSums<u8>(a, before, total);
				return before;
			}());
		EXPECT_SAME_LANES(x, y,
			[&]
			{
				auto before = a, total = a;
				L::template PrefixSums<u16>(a, before, total);
				return total;
			}());
		EXPECT_SAME_LANES(x, y,
			[&]
			{
				auto before = a, total = a;
				L::template PrefixSums<u32>(a, before, total);
				return before;
			}());
	}
}

TEST_F(ScalarLanes, FloatOperations_EqualTheProcessorsOwn)
{
	for (u32 round = 0; round < kRounds; ++round)
	{
		const Lanes x = AnyFloats();
		const Lanes y = AnyFloats();
		EXPECT_SAME_LANES(x, y, L::SubtractFloats(a, b));
		EXPECT_SAME_LANES(x, y, L::MultiplyFloats(a, b));
		EXPECT_SAME_LANES(x, y, L::AddFloats(a, b));
	}
}

TEST_F(ScalarLanes, Questions_HaveTheProcessorsAnswers)
{
	for (u32 bit = 0; bit <= 128; ++bit)
	{
		Lanes none = {};
		Lanes all = {~0u, ~0u, ~0u, ~0u};
		if (bit < 128)
		{
			none[bit / 32] ^= 1u << bit % 32;
			all[bit / 32] ^= 1u << bit % 32;
		}
		EXPECT_EQ(SLanesScalar::AllZero(SLanesScalar::Load(&none)), bit == 128);
		EXPECT_EQ(SLanesScalar::AllOnes(SLanesScalar::Load(&all)), bit == 128);
		EXPECT_FALSE(SLanesScalar::AllZero(SLanesScalar::Load(&all)));
		EXPECT_FALSE(SLanesScalar::AllOnes(SLanesScalar::Load(&none)));
	}
	for (u32 lane = 0; lane < 4; ++lane)
	{
		Lanes mask = {};
		EXPECT_FALSE(SLanesScalar::Any(SLanesScalar::Load(&mask)));
		mask[lane] = ~0u;
		EXPECT_TRUE(SLanesScalar::Any(SLanesScalar::Load(&mask)));
	}
}

// What lies around what is read and written stays as it is, and nothing beyond is read: the last bytes end the array.
TEST_F(ScalarLanes, Memory_IsReadAndWrittenAtAnyAddressInItsBytesAlone)
{
	u8 bytes[40];
	for (u32 i = 0; i < sizeof(bytes); ++i)
		bytes[i] = u8(3 * i + 1);
	for (u32 offset = 0; offset < 8; ++offset)
	{
		const u8 *const p = bytes + offset;
		Lanes expected = {};
		std::memcpy(expected.data(), p, 8);
		EXPECT_EQ(Bits<SLanesScalar>(SLanesScalar::LoadTwo(p)), expected);
		std::memcpy(expected.data(), p, 12);
		EXPECT_EQ(Bits<SLanesScalar>(SLanesScalar::LoadThree(p)), expected);
		std::memcpy(expected.data(), p, 16);
		EXPECT_EQ(Bits<SLanesScalar>(SLanesScalar::Load(p)), expected);
		EXPECT_EQ(Bits<SLanesScalar>(SLanesScalar::LoadAligned(p)), expected);

		const auto expectStored = [&](auto store)
		{
			u8 untouched[40], stored[40];
			std::memset(untouched, 0xCD, sizeof(untouched));
			std::memcpy(stored, untouched, sizeof(stored));
			std::memcpy(untouched + offset, expected.data(), 16);
			store(stored + offset, SLanesScalar::Load(expected.data()));
			EXPECT_EQ(std::memcmp(stored, untouched, sizeof(stored)), 0);
		};
		expectStored(SLanesScalar::Store);
		expectStored(SLanesScalar::StoreAligned);
		expectStored(SLanesScalar::StoreInPlace);
		expectStored(SLanesScalar::Stream);
	}
}

TEST_F(ScalarLanes, WantedLanes_AreStoredSideBySide)
{
	for (u32 bits = 0; bits < 16; ++bits)
	{
		const Lanes lanes = Any();
		u8 flags[4];
		Lanes wanted = {};
		u32 wantedCount = 0;
		for (u32 lane = 0; lane < 4; ++lane)
		{
			flags[lane] = u8((bits >> lane & 1) * (1 + m_Random() % 255));
			if (flags[lane] != 0)
				wanted[wantedCount++] = lanes[lane];
		}
		ASSERT_EQ(SLanesScalar::BitsOfBytes(flags), bits);
		Lanes stored = {};
		u8 *const p = reinterpret_cast<u8 *>(stored.data());
		ASSERT_EQ(SLanesScalar::StoreWhere(p, bits, SLanesScalar::Load(lanes.data())), wantedCount);
		for (u32 i = 0; i < wantedCount; ++i)
			ASSERT_EQ(stored[i], wanted[i]);
	}
}
} // namespace
