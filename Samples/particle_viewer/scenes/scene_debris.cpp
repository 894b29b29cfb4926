// A burst of tumbling debris: three kinds of translucent shards and a glass tetrahedron, each kind in pages of its own,
// each page with its kind's mesh. Two kinds break at random ages, so their pages have disabled particles.

#include "deterministic.h"
#include "pooled_scene.h"
#include "scene.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u32 kParticlesPerPage = 256;
	constexpr u32 kWarmUpStepCount = 260;
	constexpr u32 kRefillSteps = 10; // before the end of the warm-up, births stop being rationed
	constexpr float kSecondsPerStep = 1.0f / 30.0f;

	enum EKind : u32
	{
		Kind_Blade,
		Kind_Fan,
		Kind_Splinter,
		Kind_Glass,
		Kind_Count
	};

	struct SMesh
	{
		std::vector<CFloat3> m_Vertices;
		std::vector<u32> m_Indices;
	};

	struct SMaterial
	{
		float m_Share; // of all particles
		u32 m_MinLifetime;
		u32 m_MaxLifetime;
		float m_Size;
		float m_Shine;
		CFloat4 m_Colour;
	};

	const SMaterial kMaterials[Kind_Count] = {
		{0.36f, 60,  240, 0.25f, 0.5f, CFloat4(0.02f, 0.30f, 0.46f, 0.72f)},
		{0.24f, 240, 240, 0.19f, 0.4f, CFloat4(0.80f, 0.24f, 0.02f, 0.76f)},
		{0.26f, 60,  240, 0.21f, 0.5f, CFloat4(0.46f, 0.03f, 0.16f, 0.72f)},
		{0.14f, 240, 240, 0.17f, 1.0f, CFloat4(0.30f, 0.50f, 0.62f, 0.16f)},
	};

	SMesh Mesh(EKind kind)
	{
		switch (kind)
		{
		case Kind_Blade:
			return {
				{{-0.16f, -0.9f, 0.0f}, {0.22f, -0.5f, 0.06f}, {0.06f, 1.0f, 0.0f}, {-0.20f, 0.2f, -0.06f}},
				{ 0, 1,                                        2,                   0,                      2, 3}
            };
		case Kind_Fan:
			return {
				{{0.0f, 0.05f, 0.18f}, {-0.8f, -0.5f, 0.0f}, {0.4f, -0.8f, 0.0f}, {0.9f, 0.3f, 0.0f},
                 {-0.2f, 0.9f, 0.0f}},
				{ 0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 1}
            };
		case Kind_Splinter:
			return {
				{{0.0f, 1.2f, 0.0f}, {0.26f, 0.0f, 0.0f}, {-0.13f, 0.1f, 0.22f}, {-0.13f, -0.1f, -0.22f},
                 {0.0f, -1.0f, 0.0f}},
				{ 0, 2, 1, 0, 3, 2, 0, 1, 3, 4, 1, 2, 4, 2, 3, 4, 3, 1}
            };
		default:
			return {
				{{0.0f, 0.95f, 0.0f}, {0.9f, -0.32f, 0.0f}, {-0.45f, -0.32f, 0.78f}, {-0.45f, -0.32f, -0.78f}},
				{ 0, 2, 1, 0, 3, 2, 0, 1, 3, 1, 2, 3}
            };
		}
	}

	/// A number from 0 to 1 that a particle keeps; each salt gives another.
	float Trait(const SParticle &particle, u32 salt)
	{
		return float(Mix(u64(particle.m_Random) << 8 | salt) >> 40) * (1.0f / 16777216.0f);
	}

	CFloat3 Direction(const SParticle &particle, u32 salt)
	{
		const float height = 2.0f * Trait(particle, salt) - 1.0f;
		const float radius = std::sqrt(1.0f - height * height);
		const float turns = Trait(particle, salt + 1);
		return CFloat3(radius * CosineOfTurns(turns), height, radius * SineOfTurns(turns));
	}

	/// Turns a vector about a unit axis (O. Rodrigues).
	CFloat3 Turned(const CFloat3 &vector, const CFloat3 &axis, float turns)
	{
		const float cosine = CosineOfTurns(turns);
		const float sine = SineOfTurns(turns);
		const CFloat3 across = Cross(axis, vector);
		const float along = Dot(axis, vector) * (1.0f - cosine);
		return CFloat3(vector.x() * cosine + across.x() * sine + axis.x() * along,
			vector.y() * cosine + across.y() * sine + axis.y() * along,
			vector.z() * cosine + across.z() * sine + axis.z() * along);
	}

	class CDebrisScene final : public CPooledScene
	{
	public:
		CDebrisScene(u32 particleCount, u32 seed)
			: CPooledScene(Kind_Count, kParticlesPerPage, kWarmUpStepCount)
			, m_ParticleCount(particleCount)
			, m_Random(seed)
		{
			for (u32 kind = 0; kind < Kind_Count; ++kind)
				m_Meshes[kind] = Mesh(EKind(kind));
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
			const u32 pageCount = frame.m_RenderedCounts.Count();
			UpdatePatterns();
			UpdateVertices();

			frame.m_PagePatterns = TMemoryView<const CTriangleSorter::CIndexPattern>(m_PagePatterns.data(), pageCount);
			frame.m_PageVerticesPerParticle = TMemoryView<const u32>(m_PageVerticesPerParticle.data(), pageCount);
			frame.m_VertexKind = EVertices::Mesh;
			frame.m_MeshVertices = TMemoryView<const SMeshVertex>(m_Vertices.data(), u32(m_Vertices.size()));
			frame.m_VertexCount = u32(m_Vertices.size());
		}

		std::vector<SPictureOfOrder> Pictures() const override
		{
			return {
				{EOrder::Storage, "unsorted.png", "unsorted"               },
				{EOrder::ByValue, "sorted.png",   "sorted, a mesh per page"},
			};
		}

	private:
		u32 Target(EKind kind) const
		{
			u32 before = 0;
			for (u32 other = 0; other < Kind_Glass; ++other)
			{
				const u32 target = u32(float(m_ParticleCount) * kMaterials[other].m_Share);
				if (other == kind)
					return target;
				before += target;
			}
			return m_ParticleCount - before;
		}

		void Emit(EKind kind)
		{
			const SMaterial &material = kMaterials[kind];
			const u32 meanLifetime = (material.m_MinLifetime + material.m_MaxLifetime) / 2;
			const u32 births = BirthCount(kind, Target(kind), meanLifetime, kRefillSteps);
			for (u32 i = 0; i < births; ++i)
			{
				SParticle particle;
				particle.m_Lifetime =
					material.m_MinLifetime + m_Random.Below(material.m_MaxLifetime - material.m_MinLifetime + 1);
				particle.m_Random = m_Random.Next();
				m_Pools[kind].Add(CFloat3(), particle);
			}
		}

		// Thrown out in all directions, slowed down by the air.
		void Move(EKind kind)
		{
			m_Pools[kind].ForEachAlive(
				[](CFloat3 &position, const SParticle &particle)
				{
					const CFloat3 direction = Direction(particle, 1);
					const float speed = (0.5f + 1.1f * Trait(particle, 3)) / (1.0f + 0.05f * float(particle.m_Age));
					position.x() = position.x() + direction.x() * speed * kSecondsPerStep * 1.8f;
					position.y() = position.y() + direction.y() * speed * kSecondsPerStep;
					position.z() = position.z() + direction.z() * speed * kSecondsPerStep;
				});
		}

		SCamera Camera() const override
		{
			const float turns = 0.10f * SineOfTurns(float(m_Step) / 400.0f);
			SCamera camera;
			camera.m_Position = CFloat3(4.4f * SineOfTurns(turns), 0.9f, 4.4f * CosineOfTurns(turns));
			return camera;
		}

		void UpdatePatterns()
		{
			m_PagePatterns.clear();
			m_PageVerticesPerParticle.clear();
			for (u32 kind = 0; kind < Kind_Count; ++kind)
			{
				const CPagePool &pool = m_Pools[kind];
				SMesh &mesh = m_Meshes[kind];
				for (u32 page = 0; page < pool.PageCount(); ++page)
				{
					m_PagePatterns.emplace_back(TMemoryView<u32>(mesh.m_Indices.data(), u32(mesh.m_Indices.size())));
					m_PageVerticesPerParticle.push_back(u32(mesh.m_Vertices.size()));
				}
			}
		}

		void UpdateVertices()
		{
			m_Vertices.clear();
			for (u32 kind = 0; kind < Kind_Count; ++kind)
				m_Pools[kind].ForEachAlive([&](const CFloat3 &position, const SParticle &particle)
					{ AddPiece(EKind(kind), position, particle); });
		}

		void AddPiece(EKind kind, const CFloat3 &position, const SParticle &particle)
		{
			const SMaterial &material = kMaterials[kind];
			const float age = float(particle.m_Age);
			const float left = float(particle.m_Lifetime - particle.m_Age);
			const float grown = std::min({1.0f, (age + 1.0f) / 30.0f, left / 30.0f});
			const float size = material.m_Size * grown * (0.5f + 0.9f * Trait(particle, 4));
			const CFloat3 axis = Direction(particle, 5);
			const float turns = Trait(particle, 7) + (Trait(particle, 8) - 0.5f) * 0.02f * age;
			const float core = 1.1f / (0.25f + Dot(position, position) * 1.6f);
			const float shade = 0.25f + 0.35f * Trait(particle, 9) + core;

			SMeshVertex vertex;
			vertex.m_Shine = material.m_Shine;
			vertex.m_Colour = CFloat4(material.m_Colour.x() * shade + 0.08f * core,
				material.m_Colour.y() * shade + 0.03f * core, material.m_Colour.z() * shade, material.m_Colour.w());
			for (const CFloat3 &corner : m_Meshes[kind].m_Vertices)
			{
				const CFloat3 offset = Turned(corner, axis, turns);
				vertex.m_Position = CFloat3(position.x() + offset.x() * size, position.y() + offset.y() * size,
					position.z() + offset.z() * size);
				m_Vertices.push_back(vertex);
			}
		}

		u32 m_ParticleCount;
		CRandom m_Random;
		SMesh m_Meshes[Kind_Count];

		// The frame, in the order of the pools' pages.
		std::vector<SMeshVertex> m_Vertices;
		std::vector<CTriangleSorter::CIndexPattern> m_PagePatterns;
		std::vector<u32> m_PageVerticesPerParticle;
	};
} // namespace

std::unique_ptr<IScene> CreateDebrisScene(u32 particleCount, u32 seed)
{
	return std::make_unique<CDebrisScene>(particleCount, seed);
}
} // namespace Viewer
