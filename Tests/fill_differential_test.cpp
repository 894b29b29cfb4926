// The four fill functions against the model on random input, bit for bit, in memory that ends where each view does.
// VEXMOOR_TEST_SEED=n runs case n alone.

#include "diagnostics.h"
#include "fill_calls.h"
#include <cstdlib>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
struct SSuite
{
	const char *m_Name;
	EFill m_Fill;
};

class FillDifferential : public testing::TestWithParam<SSuite>
{
protected:
	void RunCases(const char *test, const Model::SSceneOptions &options, std::uint64_t cases)
	{
		const char *const alone = std::getenv("VEXMOOR_TEST_SEED");
		const std::uint64_t first = alone != nullptr ? std::strtoull(alone, nullptr, 0) : 1;
		const std::uint64_t last = alone != nullptr ? first : cases;
		const EFill fill = GetParam().m_Fill;
		for (std::uint64_t seed = first; seed <= last; ++seed)
		{
			const Model::SFillCall call = Model::RandomFillCall(seed, options);
			const bool flushEnd = seed % 4 != 0; // now and then before the start
			ExpectAsModel(fill, call, flushEnd ? CGuardedMemory::FlushEnd : CGuardedMemory::FlushStart);
			ASSERT_FALSE(HasFailure()) << "seed " << seed << ": " << call.m_RecordCount << " records of "
									   << call.m_Page.m_Values.m_Elements.size() << " particles, stride "
									   << (IsByPosition(fill) ? call.m_Page.m_Positions.m_Stride
															  : call.m_Page.m_Values.m_Stride)
									   << "; run alone with VEXMOOR_TEST_SEED=" << seed
									   << " --gtest_filter='*FillDifferential." << test << "/" << GetParam().m_Name
									   << "'";
		}
	}
};

const SSuite kSuites[] = {
	{"PositionsInSequence", EFill::PositionsInSequence},
	{"ValuesInSequence",    EFill::ValuesInSequence   },
	{"PositionsByList",     EFill::PositionsByList    },
	{"ValuesByList",        EFill::ValuesByList       },
};
} // namespace

TEST_P(FillDifferential, SmallPages_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_ParticlesPerPage = {0, 40};
	options.m_PositionStrides = {0, 12, 12, 12, 16, 20, 24, 32};
	options.m_ValueStrides = {0, 4, 4, 4, 8, 12};
	RunCases("SmallPages_MatchTheModel", options, 1500);
}

TEST_P(FillDifferential, PagesUpTo300_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_ParticlesPerPage = {40, 300};
	RunCases("PagesUpTo300_MatchTheModel", options, 300);
}

// NaNs with payloads, infinities, denormals and signed zeros, in the camera as well.
TEST_P(FillDifferential, HostileFloats_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_ParticlesPerPage = {0, 60};
	options.m_HostilePercent = 60;
	options.m_HostileCamera = true;
	RunCases("HostileFloats_MatchTheModel", options, 600);
}

// Compaction from many particles to few, far records among them.
TEST_P(FillDifferential, MostlyDisabled_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_ParticlesPerPage = {1, 120};
	options.m_WeightFull = 0;
	options.m_WeightPartlyDisabled = 12;
	options.m_DisabledPercent = 85;
	options.m_InvalidEntryPercent = 40;
	RunCases("MostlyDisabled_MatchTheModel", options, 600);
}

INSTANTIATE_TEST_SUITE_P(AllFunctions,
	FillDifferential,
	testing::ValuesIn(kSuites),
	[](const testing::TestParamInfo<SSuite> &suite) { return suite.param.m_Name; });

// One large page for each function, beyond what the others cover.
TEST(FillDifferentialLarge, FiftyThousandParticles_MatchTheModel)
{
	Model::SSceneOptions options;
	options.m_ParticlesPerPage = {50000, 50003};
	options.m_WeightEmpty = 0;
	for (u32 i = 0; i < 8; ++i)
	{
		const EFill fill = kSuites[i % 4].m_Fill;
		SCOPED_TRACE(testing::Message() << kSuites[i % 4].m_Name << ", seed " << i);
		ExpectAsModel(fill, Model::RandomFillCall(i, options));
	}
}
