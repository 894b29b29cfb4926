// Layers: all particles of one layer are drawn before all of the next, whatever their distances (the sky, then the
// world, then what is on the lens).
//
// In one call, the layer goes into the value's high bits. Arithmetic would not do: layer * 1000 - distance has steps of
// 0.0005 beyond 4,096, also near the camera. The bits of positive floats sort as the floats do. Here 3 bits are the
// layer's (0 to 6; 7 could make a NaN), and 28 bits are the squared distance's, all but its last 3. So distances within
// a 2,000,000th part of each other may count as equal.
//
// The other way is a call for each layer, into its part of the indices, with the distance in full and with render
// states of its own.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <cstring>

using namespace Vexmoor;

constexpr u32 kCount = 200;
constexpr u32 kLayerCount = 3;

static float LayerAndDistance(u32 layer, float squaredDistance)
{
	u32 bits;
	std::memcpy(&bits, &squaredDistance, sizeof(bits));
	bits = layer << 28 | (0x0FFFFFFFu - (bits >> 3)); // the farther, the lower
	float value;
	std::memcpy(&value, &bits, sizeof(value));
	return value;
}

// Entry i of the values is that of the particle at firstVertices[i]. Appends to the indices.
static void Sort(const std::vector<float> &values, const std::vector<u32> &firstVertices, std::vector<u32> &indices)
{
	const u32 count = u32(values.size());
	std::vector<u32> sorted(count * 6);
	const CSortKeyPage pages[] = {ViewOf(values)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(sorted), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), ViewOf(firstVertices));
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
	indices.insert(indices.end(), sorted.begin(), sorted.end());
}

int main()
{
	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CFloat3 camera(0, 0, -30);
	const auto layerOf = [](u32 particle) { return particle * 7 % kLayerCount; };

	std::vector<float> values;
	std::vector<u32> firstVertices;
	std::vector<float> valuesOfLayer[kLayerCount];
	std::vector<u32> firstVerticesOfLayer[kLayerCount];
	for (u32 i = 0; i < kCount; ++i)
	{
		const float squaredDistance = Minimal::SquaredDistance(positions[i], camera);
		values.push_back(LayerAndDistance(layerOf(i), squaredDistance));
		firstVertices.push_back(i * 4);
		valuesOfLayer[layerOf(i)].push_back(0.0f - squaredDistance);
		firstVerticesOfLayer[layerOf(i)].push_back(i * 4);
	}

	std::vector<u32> inOneCall, callByCall;
	Sort(values, firstVertices, inOneCall);
	for (u32 layer = 0; layer < kLayerCount; ++layer)
		Sort(valuesOfLayer[layer], firstVerticesOfLayer[layer], callByCall);

	const std::vector<u32> drawn = Minimal::DrawnParticles(inOneCall, 6, 4);
	u32 layer = 0;
	for (const u32 particle : drawn)
	{
		Minimal::Require(layerOf(particle) >= layer, "a particle is drawn after a higher layer's.");
		layer = layerOf(particle);
	}
	std::printf("%u particles of %u layers, in one call and call by call.\n", kCount, kLayerCount);
	Minimal::Require(drawn == Minimal::DrawnParticles(callByCall, 6, 4), "the two ways give different orders.");
	return 0;
}
