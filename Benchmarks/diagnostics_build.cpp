// The one function of each diagnostics build.

#include "diagnostics_build.h"

#include "ge_mesh_triangle_sorter.h"

#include <cstdlib>

using namespace Vexmoor;

#if VX_ASSERTIONS
	#define SORT_BILLBOARDS SortBillboards_AssertionsOn
#else
	#define SORT_BILLBOARDS SortBillboards_AssertionsOff
#endif

void SORT_BILLBOARDS(const VexmoorBench::SBillboardSort *sort)
{
	static_assert(sizeof(CFloat3) == 3 * sizeof(float), "positions are packed floats");
	if (sort->m_ScratchBytes < CTriangleSorter::GetAutogenIndicesWorkingBufferSize(sort->m_Count))
		std::abort();
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	const TStridedMemoryView<const CFloat3> page(
		reinterpret_cast<const CFloat3 *>(sort->m_Positions), sort->m_Count, sizeof(CFloat3));
	const TStridedMemoryView<const u8> noEnableds;
	const CFloat3 camera(sort->m_Camera[0], sort->m_Camera[1], sort->m_Camera[2]);

	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(TMemoryView<u32>(sort->m_Indices, sort->m_Count * 6), sort->m_Count * 4);
	sorter.Setup_InputPageCache(TMemoryView<const TStridedMemoryView<const CFloat3>>(page),
		TMemoryView<const TStridedMemoryView<const u8>>(noEnableds), TMemoryView<const u32>(sort->m_Count),
		sort->m_Count, camera);
	sorter.Setup_Geometry(TMemoryView<u32>(quad, 6), 4);
	sorter.SortPoints_AutogenIndices(sort->m_Scratch);
}
