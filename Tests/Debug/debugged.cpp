// What the debuggers' printers are tried on: stops with one of everything in scope.

#include "ge_mesh_triangle_sorter.h"

#include "simd/sse/simd_vector.h"

#include <cstring>

using namespace Vexmoor;

static SIndexAndDepth RecordOfBits(u32 index, u32 key)
{
	return {key, index};
}

extern "C" void stop_here();
extern "C" __attribute__((noinline)) void stop_here()
{
	__asm__ volatile("" ::: "memory");
}

int main()
{
	u32 numbers[] = {7, 8, 9};
	const TMemoryView<u32> view(numbers, 3);
	const TMemoryView<const u32> emptyView;

	const CFloat3 positions[] = {
		{1, 2,    3 },
        {4, 5.5f, -6}
    };
	const float interleaved[] = {0.5f, 0, 1.5f, 0};
	const TStridedMemoryView<const CFloat3> packed(positions, 2, 12);
	const TStridedMemoryView<const float> strided(interleaved, 2, 8);
	const TStridedMemoryView<const float> repeated(interleaved, 1000, 0);
	const TStridedMemoryView<const u8> emptyStrided;

	CTriangleSorter::CIndexPattern pattern;
	pattern = view;
	const CFloat4 colour(0, 0.25f, 0.5f, 1);
	const Float4 lanes = Float4::LoadUnaligned(interleaved);

	const SIndexAndDepth byDistance = RecordOfBits(12, ~0x41440000u);                  // squared distance 12.25
	const SIndexAndDepth byValue = RecordOfBits(3, ~0xC0100000u);                      // value -2.25
	const SIndexAndDepth farthest = RecordOfBits(0, 0x807FFFFFu);                      // infinite distance
	const SIndexAndDepth notANumber = RecordOfBits(1, 0x00000000u);                    // the lowest NaN
	const SIndexAndDepth byPositiveValue = RecordOfBits(5, 0x80000000u ^ 0x3F800000u); // value 1

	const u32 renderedCounts[] = {2};
	const TStridedMemoryView<const u8> allEnabled;
	u32 output[6] = {};
	CTriangleSorter unset;
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(output, 6), 6);
	sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(packed), CTriangleSorter::CEnabledPages(allEnabled),
		CTriangleSorter::CRenderedCounts(renderedCounts, 1, 4), 2, CFloat3(0, 0, 1));
	u32 triangle[] = {0, 1, 2};
	sorter.Setup_Geometry(TMemoryView<u32>(triangle, 3), 3);

	CTriangleSorter triangles = sorter;
	u16 output16[6] = {};
	const u32 vertexCounts[] = {3};
	triangles.Setup_OutputIndexBuffer(TMemoryView<u16>(output16, 6), 1);
	triangles.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(strided), CTriangleSorter::CEnabledPages(allEnabled),
		CTriangleSorter::CRenderedCounts(renderedCounts, 1, 4), 2);
	triangles.Setup_Geometry(
		TMemoryView<const CTriangleSorter::CIndexPattern>(&pattern, 1), TMemoryView<const u32>(vertexCounts, 1), 6);

	stop_here();
	static_cast<void>(emptyView.Empty() && emptyStrided.Empty() && repeated.Empty());
	static_cast<void>(std::memcmp(&colour, &lanes, 16) + int(unset.GetTriIndicesWorkingBufferSize(0)));
	static_cast<void>(byDistance < byValue || farthest < notANumber || byPositiveValue < byValue);
	return 0;
}
