// The order of the library on this machine, for comparison with that of a browser:
//
//   native_order position FILE X Y Z   of positions in a file, packed floats, seen from a camera
//   native_order value FILE            of values in a file, floats
//
// Writes the numbers of the particles in drawing order, 32 bits each, to the standard output.

#include "ge_mesh_triangle_sorter.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace Vexmoor;

static std::vector<float> ReadFloats(const char *path)
{
	std::vector<float> floats;
	std::FILE *const file = std::fopen(path, "rb");
	if (file == nullptr)
		return floats;
	float number;
	while (std::fread(&number, sizeof(number), 1, file) == 1)
		floats.push_back(number);
	std::fclose(file);
	return floats;
}

int main(int argc, char **argv)
{
	const bool byPosition = argc == 6 && std::strcmp(argv[1], "position") == 0;
	const bool byValue = argc == 3 && std::strcmp(argv[1], "value") == 0;
	const std::vector<float> floats = byPosition || byValue ? ReadFloats(argv[2]) : std::vector<float>();
	if (floats.empty())
	{
		std::fprintf(
			stderr, "native_order: takes \"position FILE X Y Z\" or \"value FILE\", and the file has floats in it.\n");
		return 2;
	}

	// Views are kept, not copied: both pages live until the sort.
	const u32 count = u32(floats.size() / (byPosition ? 3 : 1));
	const TStridedMemoryView<const CFloat3> positions(
		reinterpret_cast<const CFloat3 *>(floats.data()), count, sizeof(CFloat3));
	const TStridedMemoryView<const float> values(floats.data(), count, sizeof(float));
	const TStridedMemoryView<const u8> noneDisabled;
	std::vector<u32> indices(count);
	u32 pattern[] = {0};

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices.data(), count), count);
	if (byPosition)
		sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positions),
			CTriangleSorter::CEnabledPages(noneDisabled), CTriangleSorter::CRenderedCounts(count), count,
			CFloat3(std::strtof(argv[3], nullptr), std::strtof(argv[4], nullptr), std::strtof(argv[5], nullptr)));
	else
		sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(values),
			CTriangleSorter::CEnabledPages(noneDisabled), CTriangleSorter::CRenderedCounts(count), count);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);
	sorter.SortPoints_AutogenIndices(nullptr);
	return std::fwrite(indices.data(), sizeof(u32), count, stdout) == count ? 0 : 2;
}
