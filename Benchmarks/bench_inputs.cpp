// The inputs: two particle shapes, five kinds of keys.

#include "bench_inputs.h"

#include "bench_random.h"
#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace VexmoorBench
{
namespace
{
	constexpr float kBallRadius = 10.0f;
	constexpr float kFrameSeconds = 1.0f / 60.0f;
	constexpr u32 kVerticesPerParticle = 4;

	CFloat3 Add(const CFloat3 &a, const CFloat3 &b, float scale)
	{
		return CFloat3(a.x() + b.x() * scale, a.y() + b.y() * scale, a.z() + b.z() * scale);
	}

	struct SParticle
	{
		CFloat3 m_Position;
		CFloat3 m_Velocity;
	};

	// Particle i of count along the plume: the first are the oldest, highest and most scattered.
	SParticle CurveParticle(u32 i, u32 count, CRandom &random)
	{
		const float age = 1.0f - float(i) / float(count);
		const float angle = 19.0f * age;
		const float radius = 0.5f + 4.0f * age;
		const CFloat3 centre(radius * std::cos(angle), 18.0f * age - 9.0f, radius * std::sin(angle));
		const CFloat3 noise = random.NextInBall();
		SParticle particle;
		particle.m_Position = Add(centre, noise, 0.1f + 2.0f * age);
		particle.m_Velocity = Add(CFloat3(0.0f, 3.0f, 0.0f), noise, 1.0f);
		return particle;
	}

	SParticle Particle(EShape shape, u32 i, u32 count, CRandom &random)
	{
		if (shape == EShape::Curve)
			return CurveParticle(i, count, random);
		SParticle particle;
		particle.m_Position = Add(CFloat3(), random.NextInBall(), kBallRadius);
		return particle;
	}

	u32 DistanceKey(const CFloat3 &position)
	{
		return ~FloatBits(SquaredDistance(position, Camera()));
	}

	void FillNearlySorted(SIndexAndDepth *records, u32 count, CRandom &random)
	{
		struct SAged
		{
			u32 m_OldKey;
			SIndexAndDepth m_Record;
		};
		std::vector<SAged> aged;
		aged.reserve(count);
		for (u32 i = 0; i < count; ++i)
		{
			const SParticle particle = CurveParticle(i, count, random);
			const CFloat3 moved = Add(particle.m_Position, particle.m_Velocity, kFrameSeconds);
			aged.push_back({
				DistanceKey(particle.m_Position), {DistanceKey(moved), i * kVerticesPerParticle}
            });
		}
		std::stable_sort(
			aged.begin(), aged.end(), [](const SAged &a, const SAged &b) { return a.m_OldKey < b.m_OldKey; });
		for (u32 i = 0; i < count; ++i)
			records[i] = aged[i].m_Record;
	}

	void FillRecords(EKeys keys, SIndexAndDepth *records, u32 count, CRandom &random)
	{
		if (keys == EKeys::NearlySorted)
			return FillNearlySorted(records, count, random);
		for (u32 i = 0; i < count; ++i)
		{
			u32 key = 0x9F000000u;
			if (keys == EKeys::Uniform)
				key = random.Next32();
			else if (keys != EKeys::AllEqual)
				key = DistanceKey(
					Particle(keys == EKeys::Ball ? EShape::Ball : EShape::Curve, i, count, random).m_Position);
			records[i] = {key, i * kVerticesPerParticle};
		}
	}
} // namespace

const char *Name(EShape shape)
{
	return shape == EShape::Ball ? "ball" : "curve";
}

const char *Name(EKeys keys)
{
	switch (keys)
	{
	case EKeys::Uniform:
		return "uniform";
	case EKeys::Ball:
		return "ball";
	case EKeys::Curve:
		return "curve";
	case EKeys::NearlySorted:
		return "nearly_sorted";
	case EKeys::AllEqual:
		return "all_equal";
	}
	return "";
}

CFloat3 Camera()
{
	return CameraOfFrame(0);
}

CFloat3 CameraOfFrame(u32 frame)
{
	const float angle = 0.61803399f * float(frame % 4096);
	return CFloat3(25.0f * std::cos(angle), 4.0f, 25.0f * std::sin(angle));
}

const CBuffer<CFloat3> &Positions(EShape shape, u32 count)
{
	static std::map<std::pair<EShape, u32>, CBuffer<CFloat3>> kept;
	CBuffer<CFloat3> &positions = kept[{shape, count}];
	if (positions.Count() == 0)
	{
		const u32 inputCount = BatchInputCount(count);
		positions = CBuffer<CFloat3>(size_t(inputCount) * count);
		CRandom random(u64(count) * 2 + u64(shape));
		for (size_t i = 0; i < positions.Count(); ++i)
			positions[i] = Particle(shape, u32(i % count), count, random).m_Position;
	}
	return positions;
}

const CBuffer<SIndexAndDepth> &Records(EKeys keys, u32 count)
{
	static std::map<std::pair<EKeys, u32>, CBuffer<SIndexAndDepth>> kept;
	CBuffer<SIndexAndDepth> &records = kept[{keys, count}];
	if (records.Count() == 0)
	{
		records = CBuffer<SIndexAndDepth>(size_t(PoolInputCount(count)) * count);
		CRandom random(u64(count) * 8 + u64(keys));
		for (u32 input = 0; input < PoolInputCount(count); ++input)
			FillRecords(keys, records.Data() + size_t(input) * count, count, random);
	}
	return records;
}
} // namespace VexmoorBench
