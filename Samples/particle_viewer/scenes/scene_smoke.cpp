// Smoke and embers over a fire: a draw call of billboards whose pages are full, partly filled, thinned by deaths and
// empty. Smoke lives equally long, so its pages die from the front; embers go out at random, so each of their pages has
// disabled particles.

#include "deterministic.h"
#include "pooled_scene.h"
#include "scene.h"
#include "smoke_light.h"
#include "sprites.h"
#include "turbulence.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u32 kParticlesPerPage = 4096;
	constexpr float kSecondsPerStep = 1.0f / 30.0f;
	constexpr u32 kWarmUpStepCount = 240; // longer than anything lives
	constexpr u32 kRefillSteps = 10;      // before the end of the warm-up, births stop being rationed

	enum EKind : u32
	{
		Kind_Wisp,
		Kind_Puff,
		Kind_Ember,
		Kind_Count
	};

	struct SEmitter
	{
		float m_Share; // of all particles
		u32 m_MinLifetime;
		u32 m_MaxLifetime;
		float m_SourceRadius;
	};

	constexpr SEmitter kEmitters[Kind_Count] = {
		{0.88f, 190, 190, 0.40f}, // wisps
		{0.04f, 205, 205, 0.34f}, // puffs
		{0.08f, 40,  200, 0.46f}, // embers
	};

	float SmoothStep(float low, float high, float x)
	{
		const float t = std::clamp((x - low) / (high - low), 0.0f, 1.0f);
		return t * t * (3.0f - 2.0f * t);
	}

	/// A random number from 0 to 1 that a particle keeps; each salt gives another.
	float Trait(const SParticle &particle, u32 salt)
	{
		return float(Mix(u64(particle.m_Random) << 8 | salt) >> 40) * (1.0f / 16777216.0f);
	}

	class CSmokeScene final : public CPooledScene
	{
	public:
		CSmokeScene(u32 particleCount, u32 seed)
			: CPooledScene(Kind_Count, kParticlesPerPage, kWarmUpStepCount)
			, m_ParticleCount(particleCount)
			, m_Random(seed)
			, m_Turbulence(Mix(seed))
			, m_SizeScale(std::cbrt(100000.0f / float(particleCount)))
		{
			m_SizeScale = std::clamp(m_SizeScale, 0.4f, 3.0f);
		}

		void Simulate() override
		{
			for (u32 kind = 0; kind < Kind_Count; ++kind)
			{
				Emit(EKind(kind));
				Move(EKind(kind));
			}
		}

		void Describe(SFrame &frame) override
		{
			UpdateLight();
			UpdateBillboards();
			SetBillboards(frame, m_Billboards);
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::Storage,    "unsorted.png",    "unsorted"                },
				{EOrder::ByPosition, "by_position.png", "by position, pages mixed"},
				{EOrder::ByValue,    "sorted.png",      "sorted by value"         },
			};
		}

	private:
		u32 Target(EKind kind) const
		{
			const u32 wisps = u32(float(m_ParticleCount) * kEmitters[Kind_Wisp].m_Share);
			const u32 puffs = u32(float(m_ParticleCount) * kEmitters[Kind_Puff].m_Share);
			return kind == Kind_Wisp ? wisps : kind == Kind_Puff ? puffs : m_ParticleCount - wisps - puffs;
		}

		void Emit(EKind kind)
		{
			const SEmitter &emitter = kEmitters[kind];
			const u32 meanLifetime = (emitter.m_MinLifetime + emitter.m_MaxLifetime) / 2;
			const u32 births = BirthCount(kind, Target(kind), meanLifetime, kRefillSteps);
			for (u32 i = 0; i < births; ++i)
			{
				SParticle particle;
				particle.m_Lifetime =
					emitter.m_MinLifetime + m_Random.Below(emitter.m_MaxLifetime - emitter.m_MinLifetime + 1);
				particle.m_Random = m_Random.Next();
				m_Pools[kind].Add(BirthPlace(emitter.m_SourceRadius), particle);
			}
		}

		// Sums of random numbers lie close to a bell curve: denser in the middle, round from above.
		CFloat3 BirthPlace(float radius)
		{
			const auto axis = [&]()
			{
				const float sum = m_Random.Unit() + m_Random.Unit() + m_Random.Unit() + m_Random.Unit();
				return (sum * 0.5f - 1.0f) * radius;
			};
			const float x = axis();
			const float y = axis() * 0.5f;
			const float z = axis();
			return CFloat3(x - 1.15f, y, z);
		}

		void Move(EKind kind)
		{
			const float time = float(m_Step) * kSecondsPerStep;
			m_Pools[kind].ForEachAlive(
				[&](CFloat3 &position, const SParticle &particle)
				{
					CFloat3 velocity = Wind(position, time);
					AddFlight(velocity, particle, kind == Kind_Ember ? 0.8f : 0.36f);
					for (u32 axis = 0; axis < 3; ++axis)
						position[axis] = position[axis] + velocity[axis] * kSecondsPerStep;
				});
		}

		// Hot gas rises fast, cools, and leans with the wind towards the right and the viewer; eddies grow with height.
		CFloat3 Wind(const CFloat3 &position, float time) const
		{
			const float height = position.y() > 0.0f ? position.y() : 0.0f;
			const float strength = 0.15f + 0.10f * height;
			const float lift = 0.80f / (1.0f + 0.36f * height);
			const CFloat3 eddies = Eddies(position, 0.9f, 0.45f * time);
			const CFloat3 billows = Eddies(position, 2.3f, 1.30f * time);
			const CFloat3 curls = Eddies(position, 5.1f, 2.70f * time);
			const CFloat3 drift(0.05f + 0.26f * height, lift, 0.10f * height);
			CFloat3 wind;
			for (u32 axis = 0; axis < 3; ++axis)
				wind[axis] = drift[axis] + strength * (eddies[axis] + 0.65f * billows[axis] + 0.40f * curls[axis]);
			return wind;
		}

		CFloat3 Eddies(const CFloat3 &position, float frequency, float rise) const
		{
			return m_Turbulence.Velocity(
				CFloat3(position.x() * frequency, position.y() * frequency - rise, position.z() * frequency));
		}

		// Every particle is thrown its own way, embers farther than smoke, and slowed down by the air.
		static void AddFlight(CFloat3 &velocity, const SParticle &particle, float speed)
		{
			const float slowed = speed / (1.0f + 0.012f * float(particle.m_Age));
			velocity.x() = velocity.x() + (Trait(particle, 1) - 0.50f) * slowed;
			velocity.y() = velocity.y() + (Trait(particle, 2) - 0.35f) * slowed;
			velocity.z() = velocity.z() + (Trait(particle, 3) - 0.50f) * slowed;
		}

		SCamera Camera() const override
		{
			const float turns = 0.07f * SineOfTurns(float(m_Step) / 400.0f);
			SCamera camera;
			camera.m_Target = CFloat3(0.25f, 1.80f, 0.0f);
			camera.m_Position = CFloat3(camera.m_Target.x() + 5.4f * SineOfTurns(turns), 1.40f,
				camera.m_Target.z() + 5.4f * CosineOfTurns(turns));
			return camera;
		}

		struct SLook
		{
			float m_Radius;
			float m_Opacity;
		};

		SLook Look(EKind kind, const SParticle &particle) const
		{
			const float age = float(particle.m_Age) / float(particle.m_Lifetime);
			const float shown = SmoothStep(0.0f, 0.06f, age) * (1.0f - SmoothStep(0.45f, 1.0f, age));
			if (kind == Kind_Wisp)
				return {(0.036f + 0.088f * age) * (0.7f + 0.6f * Trait(particle, 4)) * m_SizeScale, 0.25f * shown};
			return {(0.11f + 0.24f * age) * (0.7f + 0.6f * Trait(particle, 4)), 0.20f * shown};
		}

		void UpdateLight()
		{
			m_Light.Clear();
			for (const EKind kind : {Kind_Wisp, Kind_Puff})
				m_Pools[kind].ForEachAlive(
					[&](const CFloat3 &position, const SParticle &particle)
					{
						const SLook look = Look(kind, particle);
						m_Light.AddSmoke(position, look.m_Opacity * look.m_Radius * look.m_Radius);
					});
			m_Light.Spread();
		}

		void UpdateBillboards()
		{
			m_Billboards.clear();
			for (u32 kind = 0; kind < Kind_Count; ++kind)
				m_Pools[kind].ForEachAlive(
					[&](const CFloat3 &position, const SParticle &particle) {
						m_Billboards.push_back(
							kind == Kind_Ember ? Ember(position, particle) : Smoke(EKind(kind), position, particle));
					});
		}

		SBillboard Smoke(EKind kind, const CFloat3 &position, const SParticle &particle) const
		{
			const SLook look = Look(kind, particle);
			const float key = m_Light.KeyAt(position);
			const float sky = m_Light.SkyAt(position);
			const float x = position.x() + 1.15f;
			const float y = position.y() - 0.05f;
			const float fire = 0.24f / (0.13f + x * x * 1.2f + y * y * 0.85f + position.z() * position.z() * 1.2f);
			const float soot = 0.62f + 0.38f * Trait(particle, 5);
			const CFloat3 light(0.88f * key + 0.075f * sky + fire * 1.00f, 0.85f * key + 0.095f * sky + fire * 0.30f,
				0.82f * key + 0.140f * sky + fire * 0.05f);

			SBillboard billboard = Turned(position, look.m_Radius, particle);
			billboard.m_Sprite = float(particle.m_Random % kPuffCount);
			const float weight = look.m_Opacity * soot;
			billboard.m_Colour = CFloat4(light.x() * weight, light.y() * weight, light.z() * weight, look.m_Opacity);
			return billboard;
		}

		// Glows from yellow to red, flickers, and goes out; it hides next to nothing of what is behind it.
		SBillboard Ember(const CFloat3 &position, const SParticle &particle) const
		{
			const float age = float(particle.m_Age) / float(particle.m_Lifetime);
			const float flicker =
				0.75f + 0.25f * SineOfTurns(float(m_Step) * (0.03f + 0.05f * Trait(particle, 7)) + Trait(particle, 8));
			const float heat = (1.0f - age) * flicker;
			const float rarity = Trait(particle, 6) * Trait(particle, 6); // a few are much brighter than most
			const float power = 16.0f * heat * heat * (0.06f + rarity * rarity);

			SBillboard billboard = Turned(position, (0.020f + 0.040f * Trait(particle, 4)) * m_SizeScale, particle);
			billboard.m_Sprite = float(kGlowSprite);
			billboard.m_Colour =
				CFloat4(power, power * (0.16f + 0.34f * heat), power * (0.02f + 0.10f * heat * heat), 0.35f * heat);
			return billboard;
		}

		static SBillboard Turned(const CFloat3 &position, float radius, const SParticle &particle)
		{
			const float turns = Trait(particle, 9) + (Trait(particle, 10) - 0.5f) * 0.006f * float(particle.m_Age);
			SBillboard billboard = {};
			billboard.m_Position = position;
			billboard.m_Radius = radius;
			billboard.m_Cosine = CosineOfTurns(turns);
			billboard.m_Sine = SineOfTurns(turns);
			return billboard;
		}

		u32 m_ParticleCount;
		CRandom m_Random;
		CTurbulence m_Turbulence;
		CSmokeLight m_Light;
		float m_SizeScale; // fewer particles are larger, so that they fill as much of the picture

		// The frame, in the order of the pools' pages.
		std::vector<SBillboard> m_Billboards;
	};
} // namespace

std::unique_ptr<IScene> CreateSmokeScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CSmokeScene>(particleCount, seed);
}
} // namespace Viewer
