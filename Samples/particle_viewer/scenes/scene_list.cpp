// One table: a scene with an entry here can be asked for by name, and stands in the help.

#include "scene_list.h"

#include "failure.h"

namespace Viewer
{
namespace
{
	const char *const kSmoke = "billboards: smoke and embers, in pages with and without disabled particles\n"
							   "unsorted.png, by_position.png, sorted.png, comparison.png";
	const char *const kDebris =
		"shards and glass, a mesh per page, sorted triangle by triangle under their particle's key\n"
		"unsorted.png, sorted.png, comparison.png";
	const char *const kInterleave =
		"long shards that pass over and under each other: under their particle's key, and by the\n"
		"depth of every triangle\n"
		"per_particle.png, per_triangle.png, comparison.png";
	const char *const kSparks = "sparks with ribbons of glow and smoke, sorted through an index list\n"
								"unsorted.png, sorted.png, comparison.png";
	const char *const kTubes =
		"tubes of fire that turn to smoke, fifteen quads each: tubes sorted, and the quads inside each\n"
		"unsorted.png, whole_tubes.png, sorted.png, comparison.png";
	const char *const kRain = "a million drops of rain around three lamps: what a large sort costs\n"
							  "unsorted.png, sorted.png, comparison.png";

	constexpr size_t kMaxKindCount = 200; // for which there is room from the start, so that pointers stay valid

	std::vector<SSceneKind> MakeKinds()
	{
		std::vector<SSceneKind> kinds = {
			{"smoke",      100000,  2500000, CreateSmokeScene,      kSmoke,      24},
			{"debris",     1200,    200000,  CreateDebrisScene,     kDebris,     24},
			{"interleave", 26,      400,     CreateInterleaveScene, kInterleave, 24},
			{"sparks",     14000,   2000000, CreateSparksScene,     kSparks,     24},
			{"tubes",      100,     50000,   CreateTubesScene,      kTubes,      24},
			{"rain",       1000000, 2500000, CreateRainScene,       kRain,       4 },
		};
		kinds.reserve(kMaxKindCount);
		return kinds;
	}

	std::vector<SSceneKind> &Kinds()
	{
		static std::vector<SSceneKind> kinds = MakeKinds();
		return kinds;
	}
} // namespace

const std::vector<SSceneKind> &SceneKinds()
{
	return Kinds();
}

const SSceneKind *AddSceneKind(const SSceneKind &kind)
{
	if (Kinds().size() == kMaxKindCount)
		throw CFailure("So many files have been opened that there is no room for another.");
	Kinds().push_back(kind);
	return &Kinds().back();
}

const SSceneKind *FindSceneKind(const std::string &name)
{
	for (const SSceneKind &kind : SceneKinds())
		if (name == kind.m_Name)
			return &kind;
	return null;
}

std::string SceneNames()
{
	const std::vector<SSceneKind> &kinds = SceneKinds();
	std::string names = kinds.front().m_Name;
	for (size_t i = 1; i < kinds.size(); ++i)
		names += (i + 1 == kinds.size() ? " or " : ", ") + std::string(kinds[i].m_Name);
	return names;
}
} // namespace Viewer
