// What the sorts do in lanes: checks, and the way to the processor's own functions.

#include "vx_assert.h"

#include "kr_cpu.h"
#include "kr_sort_lanes.h"

#include "include/pv_sort_lanes.h"

namespace Vexmoor
{
namespace SortLanes
{
	static VX_INLINE const SKernels &Kernels()
	{
		static constexpr const SKernels *kKernels[] = {
			&kKernels_Baseline,
#if VX_X86
			&kKernels_Avx2,
			&kKernels_Avx512,
#endif
		};
		return *kKernels[Cpu::InstructionSet()];
	}

	template<typename _Counter>
	static VX_INLINE void AssertWholeSteps([[maybe_unused]] u32 count)
	{
		VX_ASSERT(count * sizeof(_Counter) % kStepInBytes == 0);
	}

	void SumCounters(u8 *counters, u32 count)
	{
		AssertWholeSteps<u8>(count);
		Kernels().m_SumCounters8(counters, count);
	}

	void SumCounters(u16 *counters, u32 count)
	{
		AssertWholeSteps<u16>(count);
		Kernels().m_SumCounters16(counters, count);
	}

	void SumCounters(u32 *counters, u32 count)
	{
		AssertWholeSteps<u32>(count);
		Kernels().m_SumCounters32(counters, count);
	}

	void SumSparseCounters(u8 *counters, const u8 *others, u32 count)
	{
		AssertWholeSteps<u8>(count);
		Kernels().m_SumSparseCounters8(counters, others, count);
	}

	void SumSparseCounters(u16 *counters, const u16 *others, u32 count)
	{
		AssertWholeSteps<u16>(count);
		Kernels().m_SumSparseCounters16(counters, others, count);
	}

	void SumSparseCounters(u32 *counters, const u32 *others, u32 count)
	{
		AssertWholeSteps<u32>(count);
		Kernels().m_SumSparseCounters32(counters, others, count);
	}

	void SumColumns(u8 *counters, const u8 *others, u32 rowCount)
	{
		Kernels().m_SumColumns(counters, others, rowCount);
	}

	bool SumsFasterInColumns()
	{
		return Kernels().m_SumsFasterInColumns;
	}

	VX_HOT_CODE u32 MaxCountWorthRanking()
	{
		return Kernels().m_MaxCountWorthRanking;
	}

	VX_HOT_CODE void CountLowerKeys(const void *records, u32 count, u32 *ranks)
	{
		VX_ASSERT(count <= kMaxRankedCount);
		if (count > kMaxRankedCount)
			return;
		Kernels().m_CountLowerKeys(static_cast<const u8 *>(records), count, ranks);
	}

	bool SortByNetwork(const void *records, u32 count, void *byLowBits, void *sorted)
	{
		const SKernels &kernels = Kernels();
		if (kernels.m_SortByNetwork == nullptr)
			return false;
		VX_ASSERT(count <= kMaxNetworkCount);
		if (count != 0 && count <= kMaxNetworkCount)
			kernels.m_SortByNetwork(
				static_cast<const u8 *>(records), count, static_cast<u8 *>(byLowBits), static_cast<u8 *>(sorted));
		return true;
	}

	bool SortDistinctByNetwork(const void *records, u32 count, void *sorted, bool &areDistinct)
	{
		const SKernels &kernels = Kernels();
		if (kernels.m_SortDistinctByNetwork == nullptr)
			return false;
		VX_ASSERT(count <= kMaxRankedCount);
		areDistinct = count == 0;
		if (count != 0 && count <= kMaxRankedCount)
			areDistinct =
				kernels.m_SortDistinctByNetwork(static_cast<const u8 *>(records), count, static_cast<u8 *>(sorted));
		return true;
	}
} // namespace SortLanes
} // namespace Vexmoor
