// The basis that shaders run, against what defines spherical harmonics; and half floats, which coefficients are kept
// in.

#include "half.h"
#include "harmonics.h"
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <string>

using namespace Viewer;

namespace
{
// P_l^m(x), with the phase (-1)^m, by the recurrences in l.
double Legendre(int l, int m, double x)
{
	double diagonal = 1.0;
	for (int i = 1; i <= m; ++i)
		diagonal *= -double(2 * i - 1) * std::sqrt(1.0 - x * x);
	double before = 0.0;
	double value = diagonal;
	for (int i = m + 1; i <= l; ++i)
	{
		const double next = (double(2 * i - 1) * x * value - double(i + m - 1) * before) / double(i - m);
		before = value;
		value = next;
	}
	return value;
}

double Factorial(int n)
{
	return n < 2 ? 1.0 : n * Factorial(n - 1);
}

// The real spherical harmonics of the angles from the z axis and around it: sines for negative m, cosines for positive
// ones.
double Harmonic(int l, int m, double theta, double phi)
{
	const int order = std::abs(m);
	const double length = std::sqrt(double(2 * l + 1) / (4.0 * M_PI) * Factorial(l - order) / Factorial(l + order));
	const double around = m < 0   ? std::sqrt(2.0) * std::sin(order * phi)
	                      : m > 0 ? std::sqrt(2.0) * std::cos(order * phi)
	                              : 1.0;
	return length * Legendre(l, order, std::cos(theta)) * around;
}

TEST(HarmonicBasis, AnyDirection_IsWhatLegendresPolynomialsSay)
{
	for (int i = 0; i <= 20; ++i)
		for (int j = 0; j < 40; ++j)
		{
			const double theta = M_PI * i / 20.0;
			const double phi = 2.0 * M_PI * j / 40.0;
			float basis[16];
			HarmonicBasis(float(std::sin(theta) * std::cos(phi)), float(std::sin(theta) * std::sin(phi)),
				float(std::cos(theta)), basis);
			EXPECT_EQ(basis[0], 1.0f);
			for (int l = 1; l <= 3; ++l)
				for (int m = -l; m <= l; ++m)
					EXPECT_NEAR(basis[l * l + l + m], Harmonic(l, m, theta, phi), 3e-6)
						<< "degree " << l << ", order " << m << ", at " << theta << ", " << phi;
		}
}

TEST(HarmonicBasis, CodeForShaders_IsTheWholeFunction)
{
	const std::string code = kHarmonicBasisCode;
	EXPECT_EQ(code.compare(0, 19, "void HarmonicBasis("), 0);
	EXPECT_NE(code.find("out float basis[16]"), std::string::npos);
	EXPECT_EQ(code.back(), '}');
}

TEST(Half, EveryHalf_ComesBackFromItsFloat)
{
	for (u32 bits = 0; bits < 0x10000; ++bits)
	{
		const float number = FromHalf(u16(bits));
		if (std::isnan(number))
			EXPECT_TRUE(std::isnan(FromHalf(ToHalf(number))));
		else
			EXPECT_EQ(ToHalf(number), bits) << number;
	}
}

TEST(Half, KnownNumbers_HaveTheirBits)
{
	EXPECT_EQ(ToHalf(1.0f), 0x3C00);
	EXPECT_EQ(ToHalf(-2.0f), 0xC000);
	EXPECT_EQ(ToHalf(65504.0f), 0x7BFF);
	EXPECT_EQ(ToHalf(0x1p-24f), 0x0001);
	EXPECT_EQ(ToHalf(1.0f / 3.0f), 0x3555);
	EXPECT_EQ(ToHalf(std::numeric_limits<float>::infinity()), 0x7C00);
}

// Between two neighbours, the nearer one; in the middle, the even one.
TEST(Half, BetweenTwoHalves_IsRoundedToTheNearerOne)
{
	for (u32 bits = 0; bits < 0x7BFF; ++bits)
	{
		const float low = FromHalf(u16(bits));
		const float high = FromHalf(u16(bits + 1));
		const float middle = 0.5f * (low + high);
		EXPECT_EQ(ToHalf(std::nextafter(middle, low)), bits);
		EXPECT_EQ(ToHalf(std::nextafter(middle, high)), bits + 1);
		EXPECT_EQ(ToHalf(middle), bits + (bits & 1));
	}
	EXPECT_EQ(ToHalf(65519.0f), 0x7BFF);
	EXPECT_EQ(ToHalf(65520.0f), 0x7C00);
}
} // namespace
