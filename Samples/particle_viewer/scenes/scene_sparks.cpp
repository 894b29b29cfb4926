// A fountain of sparks, each with a ribbon of glow and smoke behind it. A particle is the stretch of a ribbon that one
// step left behind. Particles lie in pages as they were born, those of all ribbons in turn; vertices lie ribbon by
// ribbon, since neighbouring stretches share them. The index list says where a particle's are.

#include "band.h"
#include "deterministic.h"
#include "pooled_scene.h"
#include "scene.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u32 kParticlesPerPage = 1024;
	constexpr u32 kMinStretches = 24; // of a nozzle's ribbons
	constexpr u32 kMaxStretches = 56;
	constexpr u32 kWarmUpStepCount = 180; // longer than any ribbon lasts
	constexpr float kSecondsPerStep = 1.0f / 30.0f;
	constexpr float kGravity = 3.2f;

	/// What throws one spark after the other. It leaves a stretch of ribbon in every step, and each lasts as many steps
	/// as there are stretches: their number stays the same, and those that lie behind are the current spark's and then
	/// the last one's.
	struct SNozzle
	{
		u32 m_StretchCount;
		u32 m_FirstVertex;
		u32 m_BirthStep;
		u32 m_LastStep; // of the current spark; not before the last one's ribbon has gone
		CFloat3 m_Position;
		CFloat3 m_Velocity;
		CFloat3 m_LastEnd; // where the last spark went out
	};

	float Mixed(float a, float b, float t)
	{
		return a + (b - a) * t;
	}

	class CSparksScene final : public CPooledScene
	{
	public:
		CSparksScene(u32 particleCount, u32 seed)
			: CPooledScene(1, kParticlesPerPage, kWarmUpStepCount)
			, m_Random(seed)
			, m_Pattern(BandPattern(1))
		{
			for (u32 left = particleCount; left > 0;)
				left -= AddNozzle(left);
		}

		void Simulate() override
		{
			for (u32 i = 0; i < m_Nozzles.size(); ++i)
			{
				SNozzle &nozzle = m_Nozzles[i];
				if (m_Step == nozzle.m_LastStep)
					ThrowSpark(nozzle);
				SParticle particle;
				particle.m_Lifetime = nozzle.m_StretchCount;
				particle.m_Random = i;
				m_Pools[0].Add(nozzle.m_Position, particle);
				Fly(nozzle);
			}
		}

		void Describe(SFrame &frame) override
		{
			UpdateBands();

			frame.m_IndexPattern = TMemoryView<u32>(m_Pattern.data(), u32(m_Pattern.size()));
			frame.m_IndexList = TMemoryView<const u32>(m_IndexList.data(), u32(m_IndexList.size()));
			frame.m_VertexKind = EVertices::Bands;
			frame.m_BandVertices = TMemoryView<const SBandVertex>(m_Vertices.data(), u32(m_Vertices.size()));
			frame.m_VertexCount = u32(m_Vertices.size());
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::Storage, "unsorted.png", "unsorted"                    },
				{EOrder::ByValue, "sorted.png",   "sorted through an index list"},
			};
		}

	private:
		// Two ribbons, of the current spark and of the last one, have a point more than stretches each.
		static u32 PointCount(const SNozzle &nozzle) { return nozzle.m_StretchCount + 2; }

		u32 AddNozzle(u32 mostStretches)
		{
			SNozzle nozzle = {};
			nozzle.m_StretchCount =
				std::min(kMinStretches + m_Random.Below(kMaxStretches - kMinStretches + 1), mostStretches);
			nozzle.m_FirstVertex = u32(m_Vertices.size());
			ThrowSpark(nozzle);
			nozzle.m_LastStep = 1 + m_Random.Below(kMaxStretches); // nozzles do not keep time with each other
			m_Vertices.resize(m_Vertices.size() + PointCount(nozzle) * 2);
			m_Nozzles.push_back(nozzle);
			return nozzle.m_StretchCount;
		}

		void ThrowSpark(SNozzle &nozzle)
		{
			nozzle.m_LastEnd = nozzle.m_Position;
			nozzle.m_BirthStep = m_Step;
			nozzle.m_LastStep = m_Step + nozzle.m_StretchCount + 4 + m_Random.Below(24);
			nozzle.m_Position = CFloat3(m_Random.Between(-0.06f, 0.06f), 0.02f, m_Random.Between(-0.06f, 0.06f));
			const float turns = m_Random.Unit();
			const float outward = 0.25f + 1.75f * std::sqrt(m_Random.Unit());
			nozzle.m_Velocity =
				CFloat3(outward * CosineOfTurns(turns), m_Random.Between(2.0f, 4.6f), outward * SineOfTurns(turns));
		}

		// Sparks fall, are slowed down by the air, and bounce.
		static void Fly(SNozzle &nozzle)
		{
			CFloat3 &velocity = nozzle.m_Velocity;
			for (u32 axis = 0; axis < 3; ++axis)
			{
				velocity[axis] = velocity[axis] * 0.985f;
				nozzle.m_Position[axis] = nozzle.m_Position[axis] + velocity[axis] * kSecondsPerStep;
			}
			velocity.y() = velocity.y() - kGravity * kSecondsPerStep;
			if (nozzle.m_Position.y() < 0.0f)
			{
				nozzle.m_Position.y() = 0.0f;
				velocity.y() = velocity.y() * -0.5f;
			}
		}

		SCamera Camera() const override
		{
			const float turns = 0.06f * SineOfTurns(float(m_Step) / 400.0f);
			SCamera camera;
			camera.m_Target = CFloat3(0.0f, 1.15f, 0.0f);
			camera.m_Position = CFloat3(4.2f * SineOfTurns(turns), 1.5f, 4.2f * CosineOfTurns(turns));
			return camera;
		}

		// Stretches of the current spark come after those of the last one and its end.
		u32 PointOf(const SNozzle &nozzle, u32 age) const
		{
			const bool current = age <= m_Step - 1 - nozzle.m_BirthStep;
			return nozzle.m_StretchCount - 1 - age + (current ? 1 : 0);
		}

		void UpdateBands()
		{
			m_Points.resize(m_Vertices.size() / 2);
			m_IndexList.clear();
			m_Pools[0].ForEachAlive(
				[&](const CFloat3 &position, const SParticle &particle)
				{
					const SNozzle &nozzle = m_Nozzles[particle.m_Random];
					const u32 vertex = nozzle.m_FirstVertex + PointOf(nozzle, particle.m_Age) * 2;
					m_Points[vertex / 2] = Point(nozzle, position, particle.m_Age);
					m_IndexList.push_back(vertex);
				});
			for (const SNozzle &nozzle : m_Nozzles)
				UpdateRibbons(nozzle);
		}

		void UpdateRibbons(const SNozzle &nozzle)
		{
			SBandPoint *const points = &m_Points[nozzle.m_FirstVertex / 2];
			const u32 age = m_Step - nozzle.m_BirthStep; // of the current ribbon's first stretch, and one more
			const u32 currentCount = std::min(age, nozzle.m_StretchCount);
			const u32 lastCount = nozzle.m_StretchCount - currentCount;
			points[lastCount] = Point(nozzle, nozzle.m_LastEnd, std::min(age, nozzle.m_StretchCount));
			points[nozzle.m_StretchCount + 1] = Point(nozzle, nozzle.m_Position, 0);
			const auto write = [&](u32 first, u32 count)
			{
				WriteBand(&m_Vertices[nozzle.m_FirstVertex + first * 2], points[first].m_Position,
					TMemoryView<const SBandPoint>(points + first, count), points[first + count - 1].m_Position);
			};
			write(0, lastCount + 1);
			write(lastCount + 1, currentCount + 1);
		}

		// White-hot at the spark, then red, then smoke that spreads, thins out, and is lit by the fountain.
		static SBandPoint Point(const SNozzle &nozzle, const CFloat3 &position, u32 age)
		{
			const float spent = float(age) / float(nozzle.m_StretchCount);
			const float cooling = 1.0f - std::min(spent * 1.7f, 1.0f);
			const float heat = cooling * cooling * cooling;
			const float alpha = 0.96f * std::min(1.0f, (1.0f - spent) * 2.5f);
			const float lit = alpha * 0.075f / (0.16f + Dot(position, position));
			const float shade = alpha * 0.030f;
			return {position, Mixed(0.008f, 0.050f, spent),
				CFloat4(6.0f * heat * heat + 0.30f * heat + 1.00f * lit + 0.8f * shade,
					2.6f * heat * heat + 0.06f * heat + 0.62f * lit + 1.0f * shade,
					0.7f * heat * heat + 0.01f * heat + 0.36f * lit + 1.7f * shade, alpha)};
		}

		CRandom m_Random;
		std::vector<SNozzle> m_Nozzles;
		std::vector<u32> m_Pattern;

		// The frame: pages and index list in the order of the pool's pages, points and vertices nozzle by nozzle.
		std::vector<u32> m_IndexList;
		std::vector<SBandPoint> m_Points;
		std::vector<SBandVertex> m_Vertices;
	};
} // namespace

std::unique_ptr<IScene> CreateSparksScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CSparksScene>(particleCount, seed);
}
} // namespace Viewer
