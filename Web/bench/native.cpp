// The same sort in a native program, with 128-bit registers alone, as WebAssembly has them. bench.mjs starts it, and
// has it sort in turns with the sorts in node:
//
//   native POSITIONS   positions as packed floats, in a file
//   input              a line for each turn: how many sorts, and the camera of each, three numbers
//   output             a line for each turn: nanoseconds of processor time of all sorts, a hash of the last indices

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

using namespace Vexmoor;

// As hash in bench.mjs.
static u32 Hash(const std::vector<u32> &indices)
{
	u32 hash = 2166136261u;
	for (const u32 index : indices)
		hash = (hash ^ index) * 16777619u;
	return hash;
}

static bool ReadPositions(const char *path, std::vector<CFloat3> &positions)
{
	std::FILE *const file = std::fopen(path, "rb");
	if (file == nullptr)
		return false;
	CFloat3 position(0.0f, 0.0f, 0.0f);
	while (std::fread(&position, sizeof(position), 1, file) == 1)
		positions.push_back(position);
	std::fclose(file);
	return true;
}

static long long ProcessorTime()
{
	timespec time;
	clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
	return time.tv_sec * 1000000000ll + time.tv_nsec;
}

int main(int argc, char **argv)
{
	std::vector<CFloat3> positions;
	if (argc != 2 || !ReadPositions(argv[1], positions))
	{
		std::fprintf(stderr, "native: takes one file of positions, which has to be there\n");
		return 2;
	}
	Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Baseline);
	const u32 count = u32(positions.size());
	std::vector<u32> indices(count);
	u32 pattern[] = {0};
	void *const scratch =
		std::aligned_alloc(64, (CTriangleSorter::GetAutogenIndicesWorkingBufferSize(count) + 63) / 64 * 64);

	const TStridedMemoryView<const CFloat3> page(positions.data(), count, sizeof(CFloat3));
	const TStridedMemoryView<const u8> enableds;
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(indices.data(), count), count);
	sorter.Setup_Geometry(TMemoryView<u32>(pattern, 1), 1);

	u32 sortCount;
	while (std::scanf("%" SCNu32, &sortCount) == 1)
	{
		std::vector<CFloat3> cameras;
		for (u32 i = 0; i < sortCount; ++i)
		{
			float x, y, z;
			if (std::scanf("%f %f %f", &x, &y, &z) != 3)
				return 2;
			cameras.emplace_back(x, y, z);
		}
		const long long begin = ProcessorTime();
		for (const CFloat3 &camera : cameras)
		{
			sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(&page, 1, sizeof(page)),
				CTriangleSorter::CEnabledPages(&enableds, 1, sizeof(enableds)),
				CTriangleSorter::CRenderedCounts(&count, 1, sizeof(count)), count, camera);
			sorter.SortPoints_AutogenIndices(scratch);
		}
		const long long end = ProcessorTime();
		std::printf("%lld %" PRIu32 "\n", end - begin, Hash(indices));
		std::fflush(stdout);
	}
	return 0;
}
