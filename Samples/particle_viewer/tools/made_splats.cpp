#include "made_splats.h"

#include "vx_maths_vector.h"

#include "deterministic.h"
#include "harmonics.h"
#include "point_cloud.h"
#include <algorithm>
#include <cmath>
#include <numeric>

namespace Viewer
{
namespace
{
	constexpr float kTurn = 6.2831853f;

	struct SVector
	{
		float m_X, m_Y, m_Z;
	};

	SVector operator+(const SVector &a, const SVector &b)
	{
		return {a.m_X + b.m_X, a.m_Y + b.m_Y, a.m_Z + b.m_Z};
	}
	SVector operator*(const SVector &a, float b)
	{
		return {a.m_X * b, a.m_Y * b, a.m_Z * b};
	}
	SVector Cross(const SVector &a, const SVector &b)
	{
		return {a.m_Y * b.m_Z - a.m_Z * b.m_Y, a.m_Z * b.m_X - a.m_X * b.m_Z, a.m_X * b.m_Y - a.m_Y * b.m_X};
	}
	float Dot(const SVector &a, const SVector &b)
	{
		return a.m_X * b.m_X + a.m_Y * b.m_Y + a.m_Z * b.m_Z;
	}
	SVector Normalized(const SVector &a)
	{
		return a * (1.0f / std::sqrt(Dot(a, a)));
	}

	struct SPoint
	{
		SVector m_Position;
		SVector m_Axes[3]; // right-handed
		SVector m_Scales;  // standard deviations along them
		SVector m_Colour;
		float m_Alpha;
		float m_Age;
	};

	struct SQuaternion
	{
		float m_W, m_X, m_Y, m_Z;
	};

	// By the largest of the four, so that nothing is divided by little.
	SQuaternion Rotation(const SVector axes[3])
	{
		const SVector &a = axes[0];
		const SVector &b = axes[1];
		const SVector &c = axes[2];
		const float squares[] = {1.0f + a.m_X + b.m_Y + c.m_Z, 1.0f + a.m_X - b.m_Y - c.m_Z,
			1.0f - a.m_X + b.m_Y - c.m_Z, 1.0f - a.m_X - b.m_Y + c.m_Z};
		const float wx = b.m_Z - c.m_Y;
		const float wy = c.m_X - a.m_Z;
		const float wz = a.m_Y - b.m_X;
		const float xy = a.m_Y + b.m_X;
		const float xz = c.m_X + a.m_Z;
		const float yz = b.m_Z + c.m_Y;
		const SQuaternion candidates[] = {
			{squares[0], wx,         wy,         wz        },
            {wx,         squares[1], xy,         xz        },
            {wy,         xy,         squares[2], yz        },
            {wz,         xz,         yz,         squares[3]}
        };
		const SQuaternion &q = candidates[std::max_element(squares, squares + 4) - squares];
		const float scale = 1.0f / std::sqrt(q.m_W * q.m_W + q.m_X * q.m_X + q.m_Y * q.m_Y + q.m_Z * q.m_Z);
		return {q.m_W * scale, q.m_X * scale, q.m_Y * scale, q.m_Z * scale};
	}

	SVector KnotAt(float turn)
	{
		const float around = 2.0f * turn * kTurn;
		const float across = 3.0f * turn * kTurn;
		const float radius = 1.0f + 0.42f * std::cos(across);
		return {radius * std::cos(around), radius * std::sin(around), 0.5f * std::sin(across)};
	}

	// A ribbed tube. Its splats are tiles: longer along the tube than around it, and thin.
	SPoint KnotPoint(CRandom &random, float size)
	{
		const float turn = random.Unit();
		const float angle = random.Unit() * kTurn;
		const SVector middle = KnotAt(turn);
		const SVector along = Normalized(KnotAt(turn + 0.0005f) + middle * -1.0f);
		const SVector side = Normalized(Cross(along, {0.0f, 0.0f, 1.0f}));
		const SVector outward = side * std::cos(angle) + Cross(side, along) * std::sin(angle);
		const float ribs = std::cos(angle * 3.0f + turn * kTurn * 18.0f);

		const float lit = 0.30f + 0.70f * std::max(0.0f, Dot(outward, Normalized({-0.4f, 0.7f, 0.6f})));
		const float shine = std::pow(std::max(0.0f, Dot(outward, Normalized({0.3f, 0.6f, 0.75f}))), 24.0f);
		const float ridge = 0.5f + 0.5f * ribs;
		const float hue = turn * kTurn;
		const SVector tint = {
			0.55f + 0.42f * std::cos(hue), 0.45f + 0.30f * std::cos(hue - 1.9f), 0.62f + 0.38f * std::cos(hue - 3.6f)};
		SPoint point = {};
		point.m_Position = middle + outward * (0.235f + 0.022f * ribs);
		point.m_Axes[0] = along;
		point.m_Axes[1] = Cross(outward, along);
		point.m_Axes[2] = outward;
		point.m_Scales = {2.2f * size, 1.1f * size, 0.12f * size};
		point.m_Colour = tint * (lit * (0.55f + 0.45f * ridge)) + SVector{0.8f, 0.8f, 0.8f} * shine;
		point.m_Alpha = 0.35f + 0.55f * ridge;
		point.m_Age = turn;
		return point;
	}

	SPoint Ball(const SVector &position, float scale, const SVector &colour, float alpha, float age)
	{
		return {
			position, {{1.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f}},
             {scale,              scale,              scale             },
             colour,
			alpha, age
        };
	}

	// Between -2 and 2, and mostly near 0.
	float Bell(CRandom &random)
	{
		return random.Unit() + random.Unit() + random.Unit() + random.Unit() - 2.0f;
	}

	SPoint BulgeStar(CRandom &random, float size)
	{
		const float radius = 0.20f * std::abs(Bell(random));
		const float angle = random.Unit() * kTurn;
		const SVector position = {radius * std::cos(angle), 0.10f * Bell(random), radius * std::sin(angle)};
		return Ball(position, 0.9f * size, {1.0f, 0.86f, 0.62f}, 0.5f, radius);
	}

	// Dust lies on the inner side of two arms, in flakes along them; stars on the outer one.
	SPoint ArmPoint(CRandom &random, float size, bool isDust)
	{
		const float radius = 0.12f + 0.95f * random.Unit() * random.Unit() + 0.10f * random.Unit();
		const float arm = random.Below(2) == 0 ? 0.0f : 0.5f;
		const float spread = (0.05f + 0.03f / (radius + 0.1f)) * Bell(random) + (isDust ? -0.03f : 0.02f);
		const float angle = (arm + 0.55f * std::log(radius + 0.05f) + spread) * kTurn;
		const SVector position = {
			radius * std::cos(angle), (isDust ? 0.012f : 0.028f) * Bell(random), radius * std::sin(angle)};
		if (isDust)
		{
			SPoint dust = Ball(position, 0.0f, {0.16f, 0.085f, 0.055f}, 0.30f, radius);
			dust.m_Axes[0] = {-std::sin(angle), 0.0f, std::cos(angle)};
			dust.m_Axes[1] = {0.0f, 1.0f, 0.0f};
			dust.m_Axes[2] = Cross(dust.m_Axes[0], dust.m_Axes[1]);
			dust.m_Scales = {7.0f * size, 1.2f * size, 2.6f * size};
			return dust;
		}
		if (random.Unit() < 0.012f)
			return Ball(position, 2.6f * size, {1.0f, 0.42f, 0.60f}, 0.35f, radius);
		const float heat = random.Unit();
		const float blue = std::min(1.0f, radius * 1.3f) * heat;
		const SVector colour = SVector{1.0f, 0.72f, 0.50f} * (1.0f - blue) + SVector{0.55f, 0.72f, 1.0f} * blue;
		return Ball(position, (0.35f + 0.5f * heat * heat) * size, colour, 0.25f + 0.65f * heat, radius);
	}

	SPoint GalaxyPoint(CRandom &random, float size)
	{
		const float kind = random.Unit();
		return kind < 0.16f ? BulgeStar(random, size) : ArmPoint(random, size, kind > 0.80f);
	}

	constexpr float kStrengths[3][3] = {
  // per channel, of the degrees 1 to 3
		{0.22f,  -0.16f, 0.10f },
        {0.04f,  0.12f,  -0.12f},
        {-0.20f, 0.18f,  0.10f }
    };

	// Colours that shimmer: sums of the polynomials of Legendre of the cosine between the line of sight and the normal.
	// By the addition theorem, the coefficients of one are the basis in the normal's direction, but for a factor.
	void AddShimmer(const SVector &normal, u32 degree, std::vector<float> &harmonics)
	{
		float basis[16];
		HarmonicBasis(normal.m_X, normal.m_Y, normal.m_Z, basis);
		for (const float(&strengths)[3] : kStrengths)
			for (u32 l = 1; l <= degree; ++l)
			{
				const float towards = l % 2 == 1 ? -1.0f : 1.0f; // the eye looks against the normal
				const float factor = towards * strengths[l - 1] * 2.0f * kTurn / float(2 * l + 1);
				for (u32 i = l * l; i < (l + 1) * (l + 1); ++i)
					harmonics.push_back(factor * basis[i]);
			}
	}

	template<typename _MakePoint>
	SMadeSplats Make(u32 count, float scale, u32 degree, const _MakePoint &makePoint)
	{
		CRandom random(1);
		const float size = scale / std::sqrt(float(count)); // all together cover as much
		SMadeSplats splats;
		splats.m_HarmonicDegree = degree;
		for (u32 i = 0; i < count; ++i)
		{
			const SPoint point = makePoint(random, size);
			const SQuaternion q = Rotation(point.m_Axes);
			const auto &[position, axes, scales, colour, alpha, age] = point;
			splats.m_Splats.push_back({
				{position.m_X, position.m_Y, position.m_Z},
                {q.m_W,        q.m_X,        q.m_Y,        q.m_Z},
				{scales.m_X,            scales.m_Y,               scales.m_Z     },
                {colour.m_X,            colour.m_Y,               colour.m_Z},
                alpha, age
            });
			AddShimmer(axes[2], degree, splats.m_Harmonics);
		}
		return splats;
	}

} // namespace

const float *SMadeSplats::Harmonics(size_t splat) const
{
	return m_Harmonics.data() + splat * 3 * HarmonicCount(m_HarmonicDegree);
}

SMadeSplats MakeKnot(u32 count, u32 harmonicDegree)
{
	return Make(count, 2.2f, harmonicDegree, KnotPoint);
}

SMadeSplats MakeGalaxy(u32 count, u32 harmonicDegree)
{
	return Make(count, 1.6f, harmonicDegree, GalaxyPoint);
}

// Ten bits of each number, interleaved (G. Morton, 1966).
u32 PlaceOnCurve(const float numbers[3])
{
	constexpr float kReach = 2.0f; // of what is made here
	u32 place = 0;
	for (u32 axis = 0; axis < 3; ++axis)
	{
		const u32 cell = u32(std::clamp((numbers[axis] + kReach) / (2.0f * kReach) * 1024.0f, 0.0f, 1023.0f));
		for (u32 bit = 0; bit < 10; ++bit)
			place |= (cell >> bit & 1) << (3 * bit + axis);
	}
	return place;
}

void OrderAlongCurve(SMadeSplats &splats)
{
	std::vector<u32> order(splats.m_Splats.size());
	std::iota(order.begin(), order.end(), 0u);
	std::stable_sort(order.begin(), order.end(),
		[&splats](u32 a, u32 b)
		{ return PlaceOnCurve(splats.m_Splats[a].m_Position) < PlaceOnCurve(splats.m_Splats[b].m_Position); });
	SMadeSplats ordered;
	ordered.m_HarmonicDegree = splats.m_HarmonicDegree;
	const u32 perSplat = 3 * HarmonicCount(splats.m_HarmonicDegree);
	for (const u32 splat : order)
	{
		ordered.m_Splats.push_back(splats.m_Splats[splat]);
		const float *const harmonics = splats.Harmonics(splat);
		ordered.m_Harmonics.insert(ordered.m_Harmonics.end(), harmonics, harmonics + perSplat);
	}
	splats = std::move(ordered);
}
} // namespace Viewer
