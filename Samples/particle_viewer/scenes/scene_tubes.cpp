// Comets that corkscrew about and leave tubes of fire behind, which turn to smoke. A particle is one turn of a
// corkscrew, fifteen quads that pass behind and before each other: particles are sorted, and the quads inside each as
// well. Every comet has as many places for vertices as it has turns; the index list says which place a particle has,
// and the quads' centres lie by place.

#include "band.h"
#include "deterministic.h"
#include "pooled_scene.h"
#include "scene.h"
#include "turbulence.h"
#include <algorithm>

namespace Viewer
{
namespace
{
	constexpr u32 kParticlesPerPage = 64;
	constexpr u32 kQuadCount = 15;
	constexpr u32 kPointCount = kQuadCount + 1;
	constexpr u32 kVerticesPerParticle = kPointCount * 2;
	constexpr u32 kCentreSlots = 16; // per particle, as the sorter has them
	constexpr float kTurnsPerStretch = 1.5f;
	constexpr u32 kStepsPerStretch = 8;
	constexpr u32 kMinStretches = 16; // of a comet
	constexpr u32 kMaxStretches = 24;
	constexpr u32 kWarmUpStepCount = (kMaxStretches + 2) * kStepsPerStretch; // longer than any turn lasts

	/// A turn is born whenever one is complete, and each lasts as long as a comet takes for all of its turns: their
	/// number stays the same.
	struct SComet
	{
		u32 m_StretchCount;
		u32 m_FirstPlace;
		u32 m_Delay;    // in steps: comets do not keep time with each other
		float m_Phase;  // in turns about the middle
		float m_Radius; // of its way about the middle
		float m_Height; // of the middle of its way
		float m_Heave;  // how much it goes up and down
		float m_Hurry;  // turns about the middle in a step
	};

	// Multiples of the golden ratio, without their whole parts: any number of them is spread well.
	float SpreadShare(u32 i)
	{
		const float multiple = 0.61803f * float(i % 1000);
		return multiple - float(u32(multiple));
	}

	float Mixed(float a, float b, float t)
	{
		return a + (b - a) * t;
	}

	class CTubesScene final : public CPooledScene
	{
	public:
		CTubesScene(u32 particleCount, u32 seed)
			: CPooledScene(1, kParticlesPerPage, kWarmUpStepCount)
			, m_Random(seed)
			, m_Turbulence(Mix(seed))
			, m_Pattern(BandPattern(kQuadCount))
			, m_Vertices(u64(particleCount) * kVerticesPerParticle)
			, m_QuadCentres(u64(particleCount) * kCentreSlots)
		{
			for (u32 left = particleCount; left > 0; left -= m_Comets.back().m_StretchCount)
				AddComet(left);
		}

		void Simulate() override
		{
			for (u32 i = 0; i < m_Comets.size(); ++i)
			{
				if (m_Step % kStepsPerStretch != m_Comets[i].m_Delay)
					continue;
				SParticle particle;
				particle.m_Lifetime = m_Comets[i].m_StretchCount * kStepsPerStretch;
				particle.m_Random = i;
				m_Pools[0].Add(CFloat3(), particle);
			}
			m_Pools[0].ForEachAlive(
				[this](CFloat3 &position, const SParticle &particle)
				{
					const float middle = float(m_Step - particle.m_Age) + 0.5f * kStepsPerStretch;
					const SComet &comet = m_Comets[particle.m_Random];
					position = Drifted(OnWay(comet, middle), Spent(comet, middle));
				});
		}

		void Describe(SFrame &frame) override
		{
			UpdateTubes();

			frame.m_IndexPattern = TMemoryView<u32>(m_Pattern.data(), u32(m_Pattern.size()));
			frame.m_VerticesPerParticle = kVerticesPerParticle;
			frame.m_IndexList = TMemoryView<const u32>(m_IndexList.data(), u32(m_IndexList.size()));
			frame.m_QuadCentres = TMemoryView<const CFloat4>(m_QuadCentres.data(), u32(m_QuadCentres.size()));
			frame.m_VertexKind = EVertices::Bands;
			frame.m_BandVertices = TMemoryView<const SBandVertex>(m_Vertices.data(), u32(m_Vertices.size()));
			frame.m_VertexCount = u32(m_Vertices.size());
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::Storage,    "unsorted.png",    "unsorted"              },
				{EOrder::WholeTubes, "whole_tubes.png", "tubes sorted"          },
				{EOrder::ByValue,    "sorted.png",      "tubes and quads sorted"},
			};
		}

	private:
		void AddComet(u32 mostStretches)
		{
			SComet comet;
			comet.m_StretchCount =
				std::min(kMinStretches + m_Random.Below(kMaxStretches - kMinStretches + 1), mostStretches);
			comet.m_FirstPlace = m_Comets.empty() ? 0 : m_Comets.back().m_FirstPlace + m_Comets.back().m_StretchCount;
			comet.m_Delay = m_Random.Below(kStepsPerStretch);
			comet.m_Phase = m_Random.Unit();
			comet.m_Radius = m_Random.Between(0.9f, 1.5f);
			comet.m_Height = -0.85f + 1.4f * SpreadShare(u32(m_Comets.size()));
			comet.m_Heave = m_Random.Between(0.05f, 0.25f);
			comet.m_Hurry = (m_Comets.size() % 2 == 0 ? 0.0085f : -0.0085f) / comet.m_Radius;
			m_Comets.push_back(comet);
		}

		// A comet circles about the middle and goes up and down.
		static CFloat3 OnWay(const SComet &comet, float step)
		{
			const float turns = comet.m_Phase + comet.m_Hurry * step;
			return CFloat3(1.35f * comet.m_Radius * CosineOfTurns(turns),
				comet.m_Height + comet.m_Heave * SineOfTurns(2.0f * turns + comet.m_Phase),
				comet.m_Radius * SineOfTurns(turns));
		}

		// How much of its life is over, from 0 to 1, for what a comet left behind at a step.
		float Spent(const SComet &comet, float step) const
		{
			const float age = float(m_Step) - step;
			return std::clamp(age / float(comet.m_StretchCount * kStepsPerStretch), 0.0f, 1.0f);
		}

		// Hot gas rises, and is stirred the more the older it is.
		CFloat3 Drifted(const CFloat3 &start, float spent) const
		{
			const CFloat3 eddies =
				m_Turbulence.Velocity(CFloat3(start.x() * 1.1f, start.y() * 1.1f - 2.0f * spent, start.z() * 1.1f));
			const float stirred = 0.20f * spent;
			return CFloat3(start.x() + eddies.x() * stirred, start.y() + eddies.y() * stirred + 0.55f * spent * spent,
				start.z() + eddies.z() * stirred);
		}

		SBandPoint Point(const SComet &comet, float step) const
		{
			const CFloat3 middle = OnWay(comet, step);
			const float turns = step * (kTurnsPerStretch / float(kStepsPerStretch));
			const float spent = Spent(comet, step);
			const float radius = 0.15f + 0.15f * spent;
			const CFloat3 start(middle.x() + radius * CosineOfTurns(turns), middle.y() + radius * SineOfTurns(turns),
				middle.z() + 0.5f * radius * SineOfTurns(turns + 0.1f));
			return {Drifted(start, spent), Mixed(0.042f, 0.110f, spent), Colour(spent)};
		}

		// From white-hot to red to smoke.
		static CFloat4 Colour(float spent)
		{
			const float cooling = 1.0f - std::min(spent * 1.7f, 1.0f);
			const float heat = cooling * cooling;
			const float alpha = 0.97f * std::min(1.0f, (1.0f - spent) * 2.4f);
			const float smoke = 0.09f * alpha;
			return CFloat4(1.8f * heat + smoke, 1.1f * heat * heat + 0.06f * heat + smoke,
				0.35f * heat * heat * heat * heat + 1.3f * smoke, alpha);
		}

		SCamera Camera() const override
		{
			const float turns = 0.05f * SineOfTurns(float(m_Step) / 400.0f);
			SCamera camera;
			camera.m_Target = CFloat3(0.0f, -0.02f, 0.0f);
			camera.m_Position = CFloat3(4.1f * SineOfTurns(turns), 1.2f, 4.1f * CosineOfTurns(turns));
			return camera;
		}

		void UpdateTubes()
		{
			m_IndexList.clear();
			m_Pools[0].ForEachAlive(
				[&](const CFloat3 &, const SParticle &particle)
				{
					const SComet &comet = m_Comets[particle.m_Random];
					const u32 birth = m_Step - 1 - particle.m_Age;
					const u32 place = comet.m_FirstPlace + birth / kStepsPerStretch % comet.m_StretchCount;
					m_IndexList.push_back(place * kVerticesPerParticle);
					UpdateStretch(comet, birth, place);
				});
		}

		// A turn that is not complete yet ends where its comet is.
		void UpdateStretch(const SComet &comet, u32 birth, u32 place)
		{
			const auto point = [&](float i)
			{ return Point(comet, std::min(float(birth) + i * kStepsPerStretch / kQuadCount, float(m_Step))); };
			SBandPoint points[kPointCount];
			for (u32 i = 0; i < kPointCount; ++i)
				points[i] = point(float(i));
			WriteBand(&m_Vertices[place * kVerticesPerParticle], point(-1.0f).m_Position,
				TMemoryView<const SBandPoint>(points, kPointCount), point(float(kPointCount)).m_Position);

			for (u32 quad = 0; quad < kQuadCount; ++quad)
			{
				const CFloat3 &a = points[quad].m_Position;
				const CFloat3 &b = points[quad + 1].m_Position;
				m_QuadCentres[place * kCentreSlots + quad] =
					CFloat4(0.5f * (a.x() + b.x()), 0.5f * (a.y() + b.y()), 0.5f * (a.z() + b.z()), 1.0f);
			}
		}

		CRandom m_Random;
		CTurbulence m_Turbulence;
		std::vector<SComet> m_Comets;
		std::vector<u32> m_Pattern;

		// The frame: pages and index list in the order of the pool's pages, vertices and quad centres by place.
		std::vector<u32> m_IndexList;
		std::vector<SBandVertex> m_Vertices;
		std::vector<CFloat4> m_QuadCentres;
	};
} // namespace

std::unique_ptr<IScene> CreateTubesScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CTubesScene>(particleCount, seed);
}
} // namespace Viewer
