#pragma once

// Everything that sorts records, one type each. All of them get the same records; a type whose algorithm wants them in
// another form has FromRecord make that form before the clock starts, which only flatters the peers.

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"
#include "kr_sort.h"

#include "bench_memory.h"
#include "vqsort_target.h"
#include <OgreRadixSort.h>
#include <algorithm>
#include <boost/sort/pdqsort/pdqsort.hpp>
#include <boost/sort/spreadsort/spreadsort.hpp>
#include <vector>

namespace VexmoorBench
{
/// Records as they are.
struct SSortsRecords
{
	typedef SIndexAndDepth Element;
	static Element FromRecord(const SIndexAndDepth &record) { return record; }
	static SIndexAndDepth ToRecord(const Element &element) { return element; }

	/// False where keys may end up a quantisation step out of order.
	static constexpr bool kExact = true;
	/// Whether the result is in the second buffer.
	static constexpr bool kOutOfPlace = false;

	void Prepare(u32) {}
};

struct CVexmoorSort : SSortsRecords
{
	static constexpr const char *kName = "vexmoor";
	static constexpr bool kOutOfPlace = true;

	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *out)
	{
		typedef TContiguousBaseIterator<SIndexAndDepth> Iterator;
		Sort<SSortKeyExtractor_TriangleIndexAndDepth, Iterator>(records, records + count, out);
	}
};

/// The same where registers have four lanes, as on processors without AVX2.
struct CVexmoorSort4 : CVexmoorSort
{
	static constexpr const char *kName = "vexmoor_4_lanes";

	~CVexmoorSort4() { Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Avx512); }
	void Prepare(u32) { Cpu::SetMaxInstructionSet(Cpu::InstructionSet_Baseline); }
};

struct CStdSort : SSortsRecords
{
	static constexpr const char *kName = "std_sort";
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *) { std::sort(records, records + count); }
};

struct CStdStableSort : SSortsRecords
{
	static constexpr const char *kName = "std_stable_sort";
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *) { std::stable_sort(records, records + count); }
};

struct CSpreadsort : SSortsRecords
{
	static constexpr const char *kName = "spreadsort";
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *)
	{
		boost::sort::spreadsort::integer_sort(records, records + count,
			[](const SIndexAndDepth &record, unsigned shift) { return record.m_Depth >> shift; });
	}
};

/// The branchless form: the library picks it by itself for numbers only, and it is the faster one for records too.
struct CPdqsort : SSortsRecords
{
	static constexpr const char *kName = "pdqsort";
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *)
	{
		boost::sort::pdqsort_branchless(
			records, records + count, [](const SIndexAndDepth &a, const SIndexAndDepth &b) { return a < b; });
	}
};

/// The key in the upper half of a word, the index in the lower one.
inline u64 WordFromRecord(const SIndexAndDepth &record)
{
	return u64(record.m_Depth) << 32 | record.m_Index;
}

template<EVqsortTarget _Target>
struct CVqsort
{
	static constexpr const char *kName = _Target == EVqsortTarget::Best ? "vqsort_best" : "vqsort_avx2";
	static constexpr bool kExact = true;
	static constexpr bool kOutOfPlace = false;

	typedef u64 Element;
	static Element FromRecord(const SIndexAndDepth &record) { return WordFromRecord(record); }
	static SIndexAndDepth ToRecord(const Element &element) { return {u32(element >> 32), u32(element)}; }

	void Prepare(u32) { SelectVqsortTarget(_Target); }
	void Run(u64 *words, u32 count, u64 *) { VqsortWords(words, count); }
};

/// A vector whose iterators are pointers, for the sort that takes ranges of its own container only.
template<typename _Type>
class CPointerVector
{
public:
	typedef _Type *iterator;
	void assign(iterator first, iterator last) { m_Elements.assign(first, last); }
	iterator begin() { return m_Elements.data(); }
	iterator end() { return m_Elements.data() + m_Elements.size(); }

private:
	std::vector<_Type> m_Elements;
};

/// Its buffers live as long as the sorter, as its makers advise.
struct COgreRadixSort : SSortsRecords
{
	static constexpr const char *kName = "ogre_radix";
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *)
	{
		m_Sorter.sort(records, records + count, [](const SIndexAndDepth &record) { return record.m_Depth; });
	}

private:
	Ogre::RadixSort<CPointerVector<SIndexAndDepth>, SIndexAndDepth, u32> m_Sorter;
};

/// What viewers of Gaussian splats do: the key range cut into 65,536 equal steps, one counting sort over the steps. The
/// order is approximate: keys of one step stay as they came.
struct CCountingSort16 : SSortsRecords
{
	static constexpr const char *kName = "counting_16bit";
	static constexpr bool kExact = false;
	static constexpr bool kOutOfPlace = true;
	static constexpr u32 kSteps = 1u << 16;

	void Prepare(u32 count)
	{
		m_Positions.resize(kSteps);
		m_Steps.resize(count);
	}
	void Run(SIndexAndDepth *records, u32 count, SIndexAndDepth *out)
	{
		u32 lowest = ~0u;
		u32 highest = 0;
		for (u32 i = 0; i < count; ++i)
		{
			lowest = std::min(lowest, records[i].m_Depth);
			highest = std::max(highest, records[i].m_Depth);
		}
		const u64 stepsPerKey = (u64(kSteps) << 32) / (u64(highest - lowest) + 1);
		std::fill(m_Positions.begin(), m_Positions.end(), 0u);
		for (u32 i = 0; i < count; ++i)
		{
			m_Steps[i] = u16((u64(records[i].m_Depth - lowest) * stepsPerKey) >> 32);
			++m_Positions[m_Steps[i]];
		}
		u32 sum = 0;
		for (u32 &position : m_Positions)
		{
			const u32 stepCount = position;
			position = sum;
			sum += stepCount;
		}
		for (u32 i = 0; i < count; ++i)
			out[m_Positions[m_Steps[i]]++] = records[i];
	}

private:
	std::vector<u32> m_Positions;
	std::vector<u16> m_Steps;
};
} // namespace VexmoorBench
