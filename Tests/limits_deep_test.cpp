// What limits_test.cpp leaves out: sorts of 2^25 particles and of as many as there may be, which take seconds and
// gigabytes each. They are a program of their own: Tools/limits.sh.

#include "known_order.h"
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
constexpr u32 kCount = 1u << 25;
constexpr u32 kMostPoints = (1u << 28) - 2; // whose working buffer's size is still below 2^32
constexpr u32 kMostTriangles = 153'391'688;

struct SDeepCase
{
	const char *m_Name;
	ECallGeometry m_Geometry;
	bool m_ByPosition, m_16Bit, m_HasDisabled;
	u32 m_ParticleCount, m_PageCount; // pages as large as each other, but for the last
};

class DeepLimitsTest : public testing::TestWithParam<SDeepCase>
{
};

std::vector<u32> EqualPages(u32 particleCount, u32 pageCount)
{
	std::vector<u32> counts(pageCount, particleCount / pageCount);
	counts.back() += particleCount % pageCount;
	return counts;
}
} // namespace

TEST_P(DeepLimitsTest, Sort_WritesTheKnownOrder)
{
	const SDeepCase &row = GetParam();
	SKnownCall call;
	call.m_Geometry = row.m_Geometry;
	call.m_ByPosition = row.m_ByPosition;
	call.m_16Bit = row.m_16Bit;
	call.m_HasDisabled = row.m_HasDisabled;
	call.m_PageCounts = EqualPages(row.m_ParticleCount, row.m_PageCount);
	ExpectSortsAsKnown(call);
}

// As many as 32 bits of working buffer have room for. The output holds the nearest alone, as it would take as much
// again.
TEST(DeepLimits, MostPoints_WriteTheKnownOrder)
{
	SKnownCall call;
	call.m_PageCounts = {kMostPoints};
	call.m_RoomCount = 1001; // an odd number is missing: the very nearest is lost as well
	ExpectSortsAsKnown(call);
}

TEST(DeepLimits, MostTriangles_WriteTheKnownOrder)
{
	SKnownCall call;
	call.m_Geometry = Triangles;
	call.m_PageCounts = {kMostTriangles};
	call.m_RoomCount = 1001;
	ExpectSortsAsKnown(call);
}

const SDeepCase kDeepCases[] = {
	{"BillboardsLess",         Constant,  false, false, false, kCount - 1, 1     },
	{"Billboards",             Constant,  false, false, false, kCount,     1     },
	{"BillboardsMore",         Constant,  false, false, false, kCount + 1, 1     },
	{"BillboardsSomeDisabled", Constant,  false, false, true,  kCount + 1, 65'537},
	{"PointsByPosition",       Constant,  true,  true,  false, kCount,     1     },
	{"ListLess",               List,      true,  false, false, kCount - 1, 65'535},
	{"List",                   List,      false, true,  false, kCount,     65'536},
	{"ListMore",               List,      true,  true,  true,  kCount + 1, 1     },
	{"Quads",                  Quads,     true,  true,  false, kCount,     1     },
	{"TrianglesLess",          Triangles, false, false, false, kCount - 1, 1     },
	{"Triangles",              Triangles, true,  false, true,  kCount,     65'536}, // pages of 512 keep records aligned
	{"TrianglesMore",          Triangles, false, true,  false, kCount + 1, 1     },
};
INSTANTIATE_TEST_SUITE_P(Limits,
	DeepLimitsTest,
	testing::ValuesIn(kDeepCases),
	[](const testing::TestParamInfo<SDeepCase> &row) { return std::string(row.param.m_Name); });
