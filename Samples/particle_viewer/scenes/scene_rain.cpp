// Rain at night around three lamps: a million drops, for seeing what a sort costs when there are many. Drops fall at
// speeds of their own and so reach the ground in any order: pages that are dying have disabled particles.

#include "deterministic.h"
#include "pooled_scene.h"
#include "scene.h"
#include "sprites.h"
#include "turbulence.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u32 kParticlesPerPage = 4096;
	constexpr u32 kMinLifetime = 14; // steps from the clouds to the ground
	constexpr u32 kMaxLifetime = 22;
	constexpr u32 kMeanLifetime = (kMinLifetime + kMaxLifetime) / 2;
	constexpr u32 kWarmUpStepCount = 2 * kMaxLifetime;
	constexpr u32 kRefillSteps = 2; // before the end of the warm-up, births stop being rationed
	constexpr float kTop = 4.0f;
	constexpr float kWind = 0.16f; // sideways for each unit down

	struct SLamp
	{
		CFloat3 m_Position;
		CFloat3 m_Light;
	};

	const SLamp kLamps[] = {
		{CFloat3(-2.1f, 1.9f, -0.6f), CFloat3(1.00f, 0.50f, 0.12f)},
		{CFloat3(0.4f,  1.5f, -4.2f), CFloat3(1.60f, 0.90f, 0.35f)},
		{CFloat3(2.5f,  2.1f, -1.6f), CFloat3(0.16f, 0.55f, 1.10f)},
	};

	class CRainScene final : public CPooledScene
	{
	public:
		CRainScene(u32 particleCount, u32 seed)
			: CPooledScene(1, kParticlesPerPage, kWarmUpStepCount)
			, m_ParticleCount(particleCount)
			, m_Random(seed)
			, m_Turbulence(Mix(seed))
			, m_SizeScale(std::clamp(std::sqrt(1000000.0f / float(particleCount)), 0.7f, 6.0f))
		{
		}

		void Simulate() override
		{
			const u32 births = BirthCount(0, m_ParticleCount, kMeanLifetime, kRefillSteps);
			for (u32 i = 0; i < births; ++i)
				AddDrop();
			m_Pools[0].ForEachAlive(
				[](CFloat3 &position, const SParticle &particle)
				{
					const float fall = kTop / float(particle.m_Lifetime);
					position.x() = position.x() + fall * kWind;
					position.y() = position.y() - fall;
				});
		}

		void Describe(SFrame &frame) override
		{
			m_Billboards.clear();
			m_Pools[0].ForEachAlive([this](const CFloat3 &position, const SParticle &particle)
				{ m_Billboards.push_back(Drop(position, particle)); });
			SetBillboards(frame, m_Billboards);
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::Storage, "unsorted.png", "unsorted"       },
				{EOrder::ByValue, "sorted.png",   "sorted by value"},
			};
		}

	private:
		// It rains in gusts: a drop whose place is dry gets another one, once.
		void AddDrop()
		{
			CFloat3 place = CloudPlace();
			if (m_Turbulence.Velocity(CFloat3(place.x(), 0.45f * float(m_Step), place.z())).y() < 0.0f)
				place = CloudPlace();
			SParticle particle;
			particle.m_Lifetime = kMinLifetime + m_Random.Below(kMaxLifetime - kMinLifetime + 1);
			particle.m_Random = m_Random.Next();
			m_Pools[0].Add(place, particle);
		}

		CFloat3 CloudPlace()
		{
			const float x = m_Random.Between(-5.2f, 4.4f);
			const float y = kTop + m_Random.Between(0.0f, kTop / float(kMeanLifetime));
			const float z = m_Random.Between(-7.0f, 3.4f);
			return CFloat3(x, y, z);
		}

		SCamera Camera() const override
		{
			const float turns = 0.03f * SineOfTurns(float(m_Step) / 400.0f);
			SCamera camera;
			camera.m_Target = CFloat3(0.0f, 1.7f, -1.5f);
			camera.m_Position = CFloat3(6.0f * SineOfTurns(turns), 1.3f, 6.0f * CosineOfTurns(turns) - 1.5f);
			return camera;
		}

		// A streak that mirrors the lamps and, dark against them, hides a little of what is behind it.
		SBillboard Drop(const CFloat3 &position, const SParticle &particle) const
		{
			constexpr float kOpacity = 0.24f;
			const float size = float(particle.m_Random >> 8) / 16777216.0f;
			CFloat3 light(0.022f, 0.028f, 0.042f);
			for (const SLamp &lamp : kLamps)
			{
				const CFloat3 offset = Subtract(position, lamp.m_Position);
				const float squared = Dot(offset, offset);
				const float strength = 0.42f / (0.03f + squared * (0.7f + squared));
				for (u32 channel = 0; channel < 3; ++channel)
					light[channel] = light[channel] + strength * lamp.m_Light[channel];
			}

			SBillboard drop = {};
			const float weight = kOpacity * (0.4f + 1.2f * size);
			drop.m_Position = position;
			drop.m_Radius = (0.035f + 0.045f * size) * m_SizeScale;
			drop.m_Colour = CFloat4(light.x() * weight, light.y() * weight, light.z() * weight, kOpacity);
			drop.m_Cosine = 1.0f;
			drop.m_Sine = kWind;
			drop.m_Sprite = float(kDropSprite);
			drop.m_Slimness = 0.90f;
			return drop;
		}

		u32 m_ParticleCount;
		CRandom m_Random;
		CTurbulence m_Turbulence;
		float m_SizeScale; // fewer drops are larger, so that they fill as much of the picture

		// The frame, in the order of the pool's pages.
		std::vector<SBillboard> m_Billboards;
	};
} // namespace

std::unique_ptr<IScene> CreateRainScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CRainScene>(particleCount, seed);
}
} // namespace Viewer
