#pragma once

// A sort of up to 256 records by two sorting networks, for targets of simd/lanes.h with two groups. A sorting network
// compares the same places whatever the keys, so no branch is mispredicted, and no counter is cleared and summed. A
// file that includes this has said before what it is compiled for, and includes what is not lanes before that.
//
// A network sorts words of 32 bits: some bits of a record's key, and behind them its place, which makes words distinct
// and the sort stable. The first network sorts by the low 22 bits of the keys. The second one begins with the records
// in that order and sorts by the high 10 bits, as the last pass of the radix sort (kr_sort_radix.h) does.
//
//   bits           31 to 30   29 to 18   17 to 8   7 to 0
//   first word     0          the low 22 bits      place in the records
//   second word    0          0          high 10   place among the records in the first order
//
// Words lie in rows, a register to a row. They are sorted down columns, and in the end one column follows the other:
//
//             lane 0   lane 1        lane 7
//   row 0     word 0   word 16       word 112      16 rows, which are 128 words
//   row 1     word 1   word 17       word 113
//   ...
//   row 15    word 15  word 31       word 127

#include "vx_compiler.h"
#include "vx_defs.h"

#include "kr_sort_few.h"
#include "kr_sort_lanes.h"

#include <cstring>
#include <utility>

namespace Vexmoor
{
namespace SortLanes
{
	// Rows make four blocks of equal height. The rows of a block fit the registers of a processor with 16 of them.
	constexpr u32 kBlocks = 4;
	constexpr u32 kMinBlockRows = 4;
	constexpr u32 kMaxBlockRows = 8;
	static_assert(kMaxNetworkCount == kBlocks * kMaxBlockRows * 8, "in registers of eight lanes");

	// Blocks of any words are sorted by SortingNetwork (kr_sort_few.h): in every lane the lower word of two rows goes
	// to the first of both. What a merge leaves is bitonic: an ascending sequence with a descending one behind it, or a
	// rotation of such a pair. These networks, for blocks of 4 to 8 rows, sort that in fewer comparisons. If the number
	// of rows is even, they compare the halves and go on in each half. Those for five and seven rows were found by
	// trying comparisons on all bitonic sequences of zeros and ones: a network that sorts these sorts all bitonic
	// sequences (D. Knuth, The Art of Computer Programming, volume 3, 5.3.4).
	constexpr const char *BitonicNetwork(u32 rows)
	{
		constexpr const char *kNetworks[] = {
			"02 13 01 23",
			"03 01 23 24 02 12 24 34",
			"03 14 25 02 35 01 34 12 45",
			"46 03 04 12 15 01 26 24 12 35 34 56",
			"04 15 26 37 02 13 46 57 01 23 45 67",
		};
		return kNetworks[rows - 4];
	}

	template<typename _Lanes>
	static VX_INLINE u32 *RowAt(u32 *words, u32 row)
	{
		return words + ureg(row) * _Lanes::kLanes;
	}

	// Compares the rows whose numbers are the digits at text.
	template<typename _Lanes>
	static VX_INLINE void CompareRows(typename _Lanes::Register *rows, const char *text)
	{
		_Lanes::SortTwo(rows[text[0] - '0'], rows[text[1] - '0']);
	}

	// Sorts one block in registers. The template writes all comparisons out, because an array whose elements a loop
	// chooses would lie in memory.
	template<typename _Lanes, std::size_t... _Rows, std::size_t... _Comparisons>
	static VX_INLINE void SortBlock(
		u32 *block, const char *network, std::index_sequence<_Rows...>, std::index_sequence<_Comparisons...>)
	{
		typename _Lanes::Register rows[] = {_Lanes::Load(RowAt<_Lanes>(block, _Rows))...};
		(CompareRows<_Lanes>(rows, network + _Comparisons * kTextPerComparison), ...);
		(_Lanes::Store(RowAt<_Lanes>(block, _Rows), rows[_Rows]), ...);
	}

	// Runs one network over each block. How many there are is said at run time, which keeps compilers from writing out
	// the loop: a sort whose code has left the caches would wait for more of it.
	template<typename _Lanes, u32 _BlockRows, u32 _ComparisonCount>
	static VX_INLINE void SortEachBlock(u32 *words, u32 blockCount, const char *network)
	{
		for (u32 block = 0; block < blockCount; ++block)
		{
			SortBlock<_Lanes>(RowAt<_Lanes>(words, block * _BlockRows), network, std::make_index_sequence<_BlockRows>(),
				std::make_index_sequence<_ComparisonCount>());
		}
	}

	// Both networks for one height of blocks.
	struct SBlockSorts
	{
		void (*m_Sort)(u32 *words, u32 blockCount);
		void (*m_Order)(u32 *words, u32 blockCount);
	};
	template<typename _Lanes, u32 _BlockRows>
	static void SortBlocks(u32 *words, u32 blockCount)
	{
		constexpr const char *kNetwork = SortingNetwork(_BlockRows);
		SortEachBlock<_Lanes, _BlockRows, ComparisonCount(kNetwork)>(words, blockCount, kNetwork);
	}
	template<typename _Lanes, u32 _BlockRows>
	static void OrderBlocks(u32 *words, u32 blockCount)
	{
		constexpr const char *kNetwork = BitonicNetwork(_BlockRows);
		SortEachBlock<_Lanes, _BlockRows, ComparisonCount(kNetwork)>(words, blockCount, kNetwork);
	}
	template<typename _Lanes, u32 _BlockRows>
	static constexpr SBlockSorts BlockSorts()
	{
		return {&SortBlocks<_Lanes, _BlockRows>, &OrderBlocks<_Lanes, _BlockRows>};
	}

	// Of two sorted sequences, compares the lowest word of the first one with the highest word of the second one, and
	// so on. Then no word of the first is higher than a word of the second, and both are bitonic. The sequences are
	// columns of two blocks, one above the other:
	//
	//   first block     1 4 6 9        1 4 3 2
	//   second block    2 3 7 8   ->   9 6 7 8      rows 0 and 7, 1 and 6, 2 and 5, 3 and 4 were compared
	template<typename _Lanes>
	static VX_NOINLINE void MergeBlocks(u32 *words, u32 blockRows)
	{
		for (u32 firstRow = 0; firstRow < kBlocks * blockRows; firstRow += 2 * blockRows)
		{
			for (u32 i = 0; i < blockRows; ++i)
			{
				u32 *const lower = RowAt<_Lanes>(words, firstRow + i);
				u32 *const upper = RowAt<_Lanes>(words, firstRow + 2 * blockRows - 1 - i);
				auto a = _Lanes::Load(lower), b = _Lanes::Load(upper);
				_Lanes::SortTwo(a, b);
				_Lanes::Store(lower, a);
				_Lanes::Store(upper, b);
			}
		}
	}

	// Merges the first two blocks, as one sequence, with the last two. What comes next takes the same four rows, and
	// follows at once: comparing the halves of either result, after which every block is bitonic.
	template<typename _Lanes>
	static VX_NOINLINE void MergePairsOfBlocks(u32 *words, u32 blockRows)
	{
		for (u32 i = 0; i < blockRows; ++i)
		{
			u32 *const rows[] = {RowAt<_Lanes>(words, i), RowAt<_Lanes>(words, blockRows + i),
				RowAt<_Lanes>(words, 3 * blockRows - 1 - i), RowAt<_Lanes>(words, 4 * blockRows - 1 - i)};
			auto a = _Lanes::Load(rows[0]), b = _Lanes::Load(rows[1]);
			auto c = _Lanes::Load(rows[2]), d = _Lanes::Load(rows[3]);
			_Lanes::SortTwo(a, d);
			_Lanes::SortTwo(b, c);
			_Lanes::SortTwo(a, b);
			_Lanes::SortTwo(c, d);
			_Lanes::Store(rows[0], a);
			_Lanes::Store(rows[1], b);
			_Lanes::Store(rows[2], c);
			_Lanes::Store(rows[3], d);
		}
	}

	// Columns are merged by comparing lanes of the same row, so one of two columns has to ascend and the other one has
	// to descend. A column descends if its words are complemented while it is sorted. A mask complements the lanes
	// whose numbers lack a bit; a mask of several bits complements the lanes that lack an odd number of them:
	//
	//   lane               0   1   2   3   4   5   6   7
	//   bit 1              ~       ~       ~       ~
	//   bit 2              ~   ~           ~   ~
	//   bit 4              ~   ~   ~   ~
	//   bits 2 and 4               ~   ~   ~   ~
	//   all three          ~           ~       ~   ~
	template<u32 _Lanes>
	struct alignas(32) TLaneMask
	{
		u32 m_Lanes[_Lanes];
	};
	template<u32 _LaneCount, u32 _Bits>
	static constexpr TLaneMask<_LaneCount> MaskOfComplemented()
	{
		TLaneMask<_LaneCount> mask = {};
		for (u32 lane = 0; lane < _LaneCount; ++lane)
		{
			for (u32 bit = 1; bit < _LaneCount; bit *= 2)
				mask.m_Lanes[lane] ^= (_Bits & bit) != 0 && (lane & bit) == 0 ? ~0u : 0;
		}
		return mask;
	}
	template<typename _Lanes, u32 _Bits>
	static VX_INLINE typename _Lanes::Register Complement(typename _Lanes::Register r)
	{
		static constexpr TLaneMask<_Lanes::kLanes> kMask = MaskOfComplemented<_Lanes::kLanes, _Bits>();
		return _Lanes::Xor(r, _Lanes::Load(kMask.m_Lanes));
	}

	// Compares every lane with the one at a distance of _Distance, and goes on with half the distance. Of two such
	// lanes one is complemented. Each keeps the higher one of its word and the complement of the other lane's word, so
	// the complemented lane gets the lower word of both. Then lanes are complemented for what comes next.
	//
	//   lane                     0         1
	//   has                      ~a        b
	//   other's, complemented    ~b        a
	//   keeps                    ~lower    higher
	template<typename _Lanes, u32 _Distance>
	static VX_INLINE typename _Lanes::Register CompareLanes(typename _Lanes::Register r)
	{
		if constexpr (_Distance == 0)
		{
			return r;
		}
		else
		{
			const auto others = _Lanes::Xor(_Lanes::template SwapLanes<_Distance>(r), _Lanes::Splat(~0u));
			const auto kept = _Lanes::HigherSigned(r, others);
			return CompareLanes<_Lanes, _Distance / 2>(Complement<_Lanes, _Distance | _Distance / 2>(kept));
		}
	}

	// Merges sequences of _Distance columns each into sequences of twice as many. Then compares the halves of columns,
	// and the halves of each half, after which every block is bitonic.
	template<typename _Lanes, u32 _Distance>
	static VX_NOINLINE void MergeColumns(u32 *words, u32 blockRows)
	{
		for (u32 i = 0; i < blockRows; ++i)
		{
			u32 *const row = RowAt<_Lanes>(words, i);
			const ureg stride = ureg(blockRows) * _Lanes::kLanes;
			auto a = CompareLanes<_Lanes, _Distance>(_Lanes::Load(row));
			auto b = CompareLanes<_Lanes, _Distance>(_Lanes::Load(row + stride));
			auto c = CompareLanes<_Lanes, _Distance>(_Lanes::Load(row + 2 * stride));
			auto d = CompareLanes<_Lanes, _Distance>(_Lanes::Load(row + 3 * stride));
			_Lanes::SortTwo(a, c);
			_Lanes::SortTwo(b, d);
			_Lanes::SortTwo(a, b);
			_Lanes::SortTwo(c, d);
			_Lanes::Store(row, a);
			_Lanes::Store(row + stride, b);
			_Lanes::Store(row + 2 * stride, c);
			_Lanes::Store(row + 3 * stride, d);
		}
	}

	// The bits of the mask that words come with.
	constexpr u32 kAllBits = 1 | 2 | 4;

	// Sorts words that are complemented with kAllBits. Afterwards none are.
	//
	//   what is merged             sequences then ascend in     lanes complemented then
	//   rows of a block            blocks of a column           0, 3, 5, 6
	//   two blocks, and twice two  columns                      0, 3, 5, 6
	//   two columns                pairs of columns             2, 3, 4, 5
	//   twice two columns          halves                       0, 1, 2, 3
	//   twice four columns         all columns                  none
	//
	// After each merge the blocks are bitonic, and are put in order.
	template<typename _Lanes>
	static VX_NOINLINE void SortWords(u32 *words, u32 blockRows)
	{
		static constexpr SBlockSorts kBlockSorts[] = {BlockSorts<_Lanes, 4>(), BlockSorts<_Lanes, 5>(),
			BlockSorts<_Lanes, 6>(), BlockSorts<_Lanes, 7>(), BlockSorts<_Lanes, 8>()};
		const SBlockSorts &blocks = kBlockSorts[blockRows - kMinBlockRows];
		blocks.m_Sort(words, kBlocks);
		MergeBlocks<_Lanes>(words, blockRows);
		blocks.m_Order(words, kBlocks);
		MergePairsOfBlocks<_Lanes>(words, blockRows);
		blocks.m_Order(words, kBlocks);
		MergeColumns<_Lanes, 1>(words, blockRows);
		blocks.m_Order(words, kBlocks);
		MergeColumns<_Lanes, 2>(words, blockRows);
		blocks.m_Order(words, kBlocks);
		MergeColumns<_Lanes, 4>(words, blockRows);
		blocks.m_Order(words, kBlocks);
	}

	// Which bits of the keys a network sorts by.
	enum EKeyBits
	{
		kLow22Bits,
		kHigh10Bits
	};
	constexpr u32 kPlaceBits = 8;
	constexpr u32 kPlaceMask = (1u << kPlaceBits) - 1;

	// Lanes compare as signed. No record's word uses the two highest bits, so a word with this one is higher than all.
	constexpr u32 kFillBit = 0x40000000u;

	// Words as the head of this file has them, their places left 0.
	template<typename _Lanes, EKeyBits _Bits>
	static VX_INLINE typename _Lanes::Register KeyBitsOfWords(typename _Lanes::Register keys)
	{
		if constexpr (_Bits == kLow22Bits)
			return _Lanes::And(_Lanes::template ShiftLeft<kPlaceBits>(keys), _Lanes::Splat(0x003FFFFFu << kPlaceBits));
		else
			return _Lanes::And(
				_Lanes::template ShiftRightSigned<22 - kPlaceBits>(keys), _Lanes::Splat(0x000003FFu << kPlaceBits));
	}

	// The words that fill up rows. Each has its place where records have key bits, so that no two of them agree there.
	template<typename _Lanes>
	static VX_INLINE typename _Lanes::Register FillWords(typename _Lanes::Register places)
	{
		return _Lanes::Or(_Lanes::template ShiftLeft<kPlaceBits>(places), _Lanes::Splat(kFillBit));
	}

	// Makes the words of all records, fills them up to wordCount with FillWords, and complements them as SortWords
	// takes them. Returns false if the records agree in these bits of their keys: then they are in order.
	template<typename _Lanes, EKeyBits _Bits>
	static VX_NOINLINE bool MakeWords(const u8 *records, u32 count, u32 *words, u32 wordCount)
	{
		typedef typename _Lanes::Register Register;
		u32 firstKey;
		std::memcpy(&firstKey, records, sizeof(firstKey));
		const Register firstBits = KeyBitsOfWords<_Lanes, _Bits>(_Lanes::Splat(firstKey));
		Register differing = _Lanes::Splat(0);
		Register places = _Lanes::Multiples(1);
		u32 i = 0;
		for (; i + _Lanes::kLanes <= count; i += _Lanes::kLanes)
		{
			const Register bits = KeyBitsOfWords<_Lanes, _Bits>(_Lanes::LoadEvenLanes(records + i * kRankedSize));
			differing = _Lanes::Or(differing, _Lanes::Xor(bits, firstBits));
			_Lanes::Store(words + i, Complement<_Lanes, kAllBits>(_Lanes::Or(bits, places)));
			places = _Lanes::template Add<u32>(places, _Lanes::Splat(_Lanes::kLanes));
		}
		if (i < count)
		{
			const Register areRecords = _Lanes::GreaterSigned(_Lanes::Splat(count), places);
			const Register keys = _Lanes::LoadEvenLanesWhere(records + i * kRankedSize, areRecords);
			const Register bits = KeyBitsOfWords<_Lanes, _Bits>(keys);
			differing = _Lanes::Or(differing, _Lanes::And(_Lanes::Xor(bits, firstBits), areRecords));
			const Register filled = _Lanes::Select(areRecords, _Lanes::Or(bits, places), FillWords<_Lanes>(places));
			_Lanes::Store(words + i, Complement<_Lanes, kAllBits>(filled));
			i += _Lanes::kLanes;
			places = _Lanes::template Add<u32>(places, _Lanes::Splat(_Lanes::kLanes));
		}
		for (; i < wordCount; i += _Lanes::kLanes)
		{
			_Lanes::Store(words + i, Complement<_Lanes, kAllBits>(FillWords<_Lanes>(places)));
			places = _Lanes::template Add<u32>(places, _Lanes::Splat(_Lanes::kLanes));
		}
		return !_Lanes::AllZero(differing);
	}

	// Copies the record that a sorted word stands for.
	static VX_INLINE void CopyRecordOf(u32 word, const u8 *source, u8 *destination)
	{
		u64 record;
		std::memcpy(&record, source + (word & kPlaceMask) * kRankedSize, sizeof(record));
		std::memcpy(destination, &record, sizeof(record));
	}

	// Copies records in the order of sorted words, down one column after the other. Columns are four blocks high, so
	// four records at a time never cross the end of a column.
	template<typename _Lanes>
	static VX_NOINLINE void CopyInOrder(const u32 *words, u32 blockRows, const u8 *source, u32 count, u8 *destination)
	{
		const u32 *column = words;
		const u32 *word = words;
		const u8 *const end = destination + ureg(count) * kRankedSize;
		for (u32 steps = count / kBlocks; steps != 0; --steps)
		{
			for (u32 k = 0; k < kBlocks; ++k)
				CopyRecordOf(word[k * _Lanes::kLanes], source, destination + k * kRankedSize);
			destination += kBlocks * kRankedSize;
			word += kBlocks * _Lanes::kLanes;
			if (word == column + ureg(kBlocks) * blockRows * _Lanes::kLanes)
				word = ++column;
		}
		for (; destination != end; destination += kRankedSize, word += _Lanes::kLanes)
			CopyRecordOf(*word, source, destination);
	}

	// True if two sorted words that follow each other agree in their key bits. Words are distinct, so they agree if
	// they differ in the place alone. Rows are compared with the next ones, and the last row with the first row one
	// lane on, where the next columns begin:
	//
	//   row 14     word 14   word 30        word 126
	//   row 15     word 15   word 31        word 127
	//   compared   word 16   word 32  ...   word 1     the word in memory behind the first row
	//
	// The last lane has no next column. It compares the highest word with word 1, which agree only if all words do that
	// lie between them.
	template<typename _Lanes>
	static VX_INLINE bool HaveEqualKeyBits(const u32 *words, u32 blockRows)
	{
		typedef typename _Lanes::Register Register;
		const u32 *const end = words + ureg(kBlocks) * blockRows * _Lanes::kLanes;
		Register leastDifference = _Lanes::Splat(~0u >> 1);
		Register row = _Lanes::Load(words);
		for (const u32 *next = words + _Lanes::kLanes; next != end; next += _Lanes::kLanes)
		{
			const Register nextRow = _Lanes::Load(next);
			Register difference = _Lanes::Xor(row, nextRow);
			_Lanes::SortTwo(leastDifference, difference);
			row = nextRow;
		}
		Register difference = _Lanes::Xor(row, _Lanes::Load(words + 1));
		_Lanes::SortTwo(leastDifference, difference);
		return !_Lanes::AllZero(_Lanes::GreaterSigned(_Lanes::Splat(kPlaceMask + 1), leastDifference));
	}

	// Sorts by some bits of the keys, from source to destination. Blocks are as high as the count needs, at least four
	// rows. Returns true if records may agree in these bits: only with kLow22Bits are they looked at for that.
	template<typename _Lanes, EKeyBits _Bits>
	static VX_INLINE bool SortByKeyBits(const u8 *source, u32 count, u8 *destination)
	{
		constexpr u32 kWordsPerBlockRow = kBlocks * _Lanes::kLanes;
		const u32 rows = (count + kWordsPerBlockRow - 1) / kWordsPerBlockRow;
		const u32 blockRows = rows < kMinBlockRows ? kMinBlockRows : rows;
		alignas(64) u32 words[kMaxNetworkCount];
		if (!MakeWords<_Lanes, _Bits>(source, count, words, blockRows * kWordsPerBlockRow))
		{
			std::memmove(destination, source, ureg(count) * kRankedSize);
			return true;
		}
		SortWords<_Lanes>(words, blockRows);
		CopyInOrder<_Lanes>(words, blockRows, source, count, destination);
		return _Bits != kLow22Bits || HaveEqualKeyBits<_Lanes>(words, blockRows);
	}

	// The body behind SortByNetwork (kr_sort_lanes.h). The first sort reads a copy, because the records may be where
	// its result goes.
	//
	// Memory is moved and not copied: an output over the input is reported, and spoils nothing but the result.
	template<typename _Lanes>
	static void SortByNetworkInLanes(const u8 *records, u32 count, u8 *byLowBits, u8 *sorted)
	{
		std::memmove(sorted, records, ureg(count) * kRankedSize);
		SortByKeyBits<_Lanes, kLow22Bits>(sorted, count, byLowBits);
		SortByKeyBits<_Lanes, kHigh10Bits>(byLowBits, count, sorted);
	}

	// True if two neighbours of sorted records have equal keys. One by one: loads of several records would wait for the
	// stores that CopyInOrder has just made.
	static VX_INLINE bool HaveEqualKeys(const u8 *sorted, u32 count)
	{
		for (u32 i = 1; i < count; ++i)
		{
			if (std::memcmp(sorted + (i - 1) * kRankedSize, sorted + i * kRankedSize, sizeof(u32)) == 0)
				return true;
		}
		return false;
	}

	// The body behind SortDistinctByNetwork (kr_sort_lanes.h). Equal keys agree in their low bits, so they are looked
	// for only if two keys do.
	//
	// The output has lain idle since the last frame. Stores wait for their lines in the processor's store buffer, which
	// has some 56 to 72 entries. Lines that the last records go to are fetched while they wait; the lines before them
	// are fetched here.
	template<typename _Lanes>
	static bool SortDistinctByNetworkInLanes(const u8 *records, u32 count, u8 *sorted)
	{
		constexpr u32 kWaitingStores = 64;
		constexpr u32 kRecordsPerLine = kCacheLineInBytes / kRankedSize;
		alignas(64) u8 byLowBits[kMaxRankedCount * kRankedSize];
		for (u32 i = 0; i + kWaitingStores < count; i += kRecordsPerLine)
			VX_PREFETCH_TO_WRITE(sorted + i * kRankedSize);
		const bool mayHaveEqualKeys = SortByKeyBits<_Lanes, kLow22Bits>(records, count, byLowBits);
		SortByKeyBits<_Lanes, kHigh10Bits>(byLowBits, count, sorted);
		return !mayHaveEqualKeys || !HaveEqualKeys(sorted, count);
	}
} // namespace SortLanes
} // namespace Vexmoor
