// What of a cloud a picture shows: its body with all its limbs, and not what floats around it.

#include "cloud_fit.h"
#include "deterministic.h"
#include <gtest/gtest.h>

using namespace Viewer;

namespace
{
class CCloud
{
public:
	// Points spread through a box.
	void AddBox(u32 count, const CFloat3 &low, const CFloat3 &high)
	{
		for (u32 i = 0; i < count; ++i)
			m_Positions.push_back(CFloat3(m_Random.Between(low.x(), high.x()), m_Random.Between(low.y(), high.y()),
				m_Random.Between(low.z(), high.z())));
	}

	std::vector<CFloat3> m_Positions;

private:
	CRandom m_Random{1};
};
} // namespace

TEST(CloudFit, OnePoint_IsItsOwnBody)
{
	const SCloudFit fit = FitCloud({CFloat3(3.0f, 4.0f, 5.0f)});
	EXPECT_EQ(fit.m_Centre[0], 3.0);
	EXPECT_EQ(fit.m_Radius, 0.0);
	EXPECT_EQ(fit.m_FarCount, 0u);
}

TEST(CloudFit, CloudWithoutFloaters_IsShownWhole)
{
	CCloud cloud;
	cloud.AddBox(20000, CFloat3(-1.0f, -1.0f, -1.0f), CFloat3(1.0f, 1.0f, 1.0f));
	const SCloudFit fit = FitCloud(cloud.m_Positions);
	EXPECT_NEAR(fit.m_Centre[1], 0.0, 0.01);
	EXPECT_NEAR(fit.m_Radius, 1.7, 0.05); // a corner is at 1.73
	EXPECT_EQ(fit.m_FarCount, 0u);
}

// A seat, a back and four legs that have a hundredth of the points between them; floaters up to fifty widths away.
TEST(CloudFit, ChairAmongFloaters_IsShownWithItsFeet)
{
	CCloud cloud;
	cloud.AddBox(30000, CFloat3(-0.5f, 0.45f, -0.5f), CFloat3(0.5f, 0.55f, 0.5f));
	cloud.AddBox(30000, CFloat3(-0.5f, 0.55f, -0.5f), CFloat3(0.5f, 1.2f, -0.4f));
	for (const float x : {-0.45f, 0.45f})
		for (const float z : {-0.45f, 0.45f})
			cloud.AddBox(150, CFloat3(x - 0.03f, 0.0f, z - 0.03f), CFloat3(x + 0.03f, 0.45f, z + 0.03f));
	const u64 chairCount = cloud.m_Positions.size();
	cloud.AddBox(2500, CFloat3(-50.0f, -50.0f, -50.0f), CFloat3(50.0f, 50.0f, 50.0f));

	const SCloudFit fit = FitCloud(cloud.m_Positions);
	EXPECT_NEAR(fit.m_Centre[1], 0.6, 0.03);
	EXPECT_GT(fit.m_Radius, 0.9); // half of the diagonal is 0.93
	EXPECT_LT(fit.m_Radius, 1.1);
	EXPECT_NEAR(double(fit.m_FarCount), double(cloud.m_Positions.size() - chairCount), 10.0);
}

TEST(CloudFit, TwoBodies_AreBothShown)
{
	CCloud cloud;
	cloud.AddBox(10000, CFloat3(-2.0f, 0.0f, 0.0f), CFloat3(-1.0f, 1.0f, 1.0f));
	cloud.AddBox(5000, CFloat3(1.0f, 0.0f, 0.0f), CFloat3(2.0f, 1.0f, 1.0f));
	const SCloudFit fit = FitCloud(cloud.m_Positions);
	EXPECT_NEAR(fit.m_Centre[0], 0.0, 0.05);
	EXPECT_EQ(fit.m_FarCount, 0u);
}

// Every point far from every other: nothing hangs together, and all but a hundredth is shown.
TEST(CloudFit, ScatteredPoints_AreShownButForTheFarthest)
{
	CCloud cloud;
	cloud.AddBox(300, CFloat3(-1.0f, -1.0f, -1.0f), CFloat3(1.0f, 1.0f, 1.0f));
	const SCloudFit fit = FitCloud(cloud.m_Positions);
	EXPECT_GT(fit.m_Radius, 1.2);
	EXPECT_LT(fit.m_Radius, 1.8);
	EXPECT_LE(fit.m_FarCount, 4u);
}
