// The four-lane value's ways to memory: which bytes each access touches, and what an unaligned address reports before
// it is used. Lanes carry arbitrary bits, NaNs among them, and are compared as integers.

#include "simd/sse/simd_vector.h"
#include "vx_defs.h"

#include "diagnostics.h"
#include "guarded_memory.h"
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

using namespace Vexmoor;
using namespace Support;

namespace
{
// A signalling NaN, a denormal, minus zero and a plain value: lanes move bits, whatever they mean.
constexpr u32 kLanes[4] = {0x7F800001u, 0x00000001u, 0x80000000u, 0x3F800000u};

struct SLanes
{
	u32 m_Bits[4];

	explicit SLanes(const Float4 &value) { std::memcpy(m_Bits, &value, sizeof(m_Bits)); }
	bool operator==(const SLanes &other) const { return std::memcmp(m_Bits, other.m_Bits, sizeof(m_Bits)) == 0; }
};

Float4 FromBits(u32 lane0, u32 lane1, u32 lane2, u32 lane3)
{
	return _mm_setr_epi32(s32(lane0), s32(lane1), s32(lane2), s32(lane3));
}

Float4 TestValue()
{
	return FromBits(kLanes[0], kLanes[1], kLanes[2], kLanes[3]);
}

CGuardedMemory NumberedBytes(u32 size)
{
	CGuardedMemory memory(size);
	for (u32 i = 0; i < size; ++i)
		memory.Data()[i] = u8(i);
	return memory;
}

// True when the block holds the value at the offset and its initial bytes elsewhere.
bool HoldsOnly(const CGuardedMemory &memory, std::size_t offset, std::size_t size)
{
	bool holds = std::memcmp(memory.Data() + offset, kLanes, size) == 0;
	for (std::size_t i = 0; i < memory.Size(); ++i)
		holds = holds && ((i >= offset && i < offset + size) || memory.Data()[i] == CGuardedMemory::kInitialByte);
	return holds && memory.SurroundingsIntact();
}

#if VX_ASSERTIONS
struct SAccessReported
{
};

// Notes the first report and leaves the access there: an aligned instruction would fault at the address.
class CLeaveAtReport
{
public:
	CLeaveAtReport()
	{
		Assert::SetReportHandler(
			[](const Assert::SReport &report, void *self) -> int
			{
				static_cast<CLeaveAtReport *>(self)->m_Report = {report.m_File, report.m_Function, report.m_Line,
					report.m_ConditionText, report.m_ExpandedConditionText, report.m_Message};
				throw SAccessReported();
			},
			this);
	}
	~CLeaveAtReport() { FailAtReports(); }

	SRecordedReport m_Report;
};

void ExpectAlignmentReport(
	const SRecordedReport &report, const char *function, const char *side, u32 alignment, const void *address)
{
	char condition[64], message[128];
	std::snprintf(condition, sizeof(condition), "::Mem::IsAligned<0x%02X>((_%s))", alignment, side);
	std::snprintf(message, sizeof(message), "Unaligned memory! %p should be %u-bytes aligned.", address, alignment);
	EXPECT_EQ(report.m_ConditionText, std::string("VX_NAMESPACE") + condition);
	EXPECT_EQ(report.m_ExpandedConditionText, std::string("Vexmoor") + condition);
	EXPECT_EQ(report.m_Message, message);
	EXPECT_EQ(report.m_File, "../../Runtime/vx_maths/include/simd/sse/simd_vector.h");
	EXPECT_NE(report.m_Function.find(function), std::string::npos) << report.m_Function;
}

template<typename _Access>
void ExpectReportsOffAlignment(const char *function, const char *side, u32 alignment, const _Access &access)
{
	alignas(16) u8 memory[96] = {};
	for (sreg misalignment = 1; misalignment < sreg(alignment); ++misalignment)
	{
		// By the pointer, by the offset, by both: the address that is accessed counts, and is the one shown.
		const sreg pointers[] = {misalignment, 0, 1, 32};
		for (const sreg pointer : pointers)
		{
			SCOPED_TRACE(testing::Message() << function << " at " << misalignment << ", pointer at " << pointer);
			CLeaveAtReport leave;
			EXPECT_THROW(access(memory + pointer, 16 + misalignment - pointer), SAccessReported);
			ExpectAlignmentReport(leave.m_Report, function, side, alignment, memory + 16 + misalignment);
		}
	}
}
#endif
} // namespace

TEST(SimdVector, Value_HoldsFloatOrIntegerLanesUnchanged)
{
	EXPECT_EQ(sizeof(Float4), 16u);
	EXPECT_EQ(alignof(Float4), 16u);
	const Float4 value = TestValue();
	EXPECT_EQ(std::memcmp(&value, kLanes, 16), 0);
	EXPECT_EQ(SLanes(Float4(value.Integers())), SLanes(value));
	EXPECT_EQ(SLanes(Float4(value.Floats())), SLanes(value));
}

TEST(SimdVector, LoadUnaligned_ReadsSixteenBytesFromAnyAddress)
{
	CExpectReports noReports;
	const CGuardedMemory memory = NumberedBytes(64);
	for (sreg at = 0; at <= 48; ++at)
	{
		for (const sreg offset : {sreg(0), at, sreg(-5), sreg(7)})
		{
			const Float4 value = Float4::LoadUnaligned(memory.Data() + at - offset, offset);
			EXPECT_EQ(std::memcmp(&value, memory.Data() + at, 16), 0) << at << " " << offset;
		}
	}
}

TEST(SimdVector, LoadAligned16_ReadsAtPointerPlusOffset)
{
	CExpectReports noReports;
	const CGuardedMemory memory = NumberedBytes(64);
	for (sreg at = 0; at <= 48; at += 16)
	{
		for (const sreg offset : {sreg(0), at, sreg(-16), sreg(7)}) // only the sum has to be aligned
		{
			const Float4 value = Float4::LoadAligned16(memory.Data() + at - offset, offset);
			EXPECT_EQ(std::memcmp(&value, memory.Data() + at, 16), 0) << at << " " << offset;
		}
	}
}

TEST(SimdVector, LoadAligned16Transpose_SplitsFourPairs)
{
	CExpectReports noReports;
	const CGuardedMemory memory(48);
	for (u32 i = 0; i < 12; ++i)
		memory.As<u32>()[i] = 100 + i;
	Float4 evens, odds;
	Float4::LoadAligned16_Transpose4x2_Unpack(evens, odds, memory.Data(), 0);
	EXPECT_EQ(SLanes(evens), SLanes(FromBits(100, 102, 104, 106)));
	EXPECT_EQ(SLanes(odds), SLanes(FromBits(101, 103, 105, 107)));
	Float4::LoadAligned16_Transpose4x2_Unpack(evens, odds, memory.Data() + 5, 11); // flush with the end
	EXPECT_EQ(SLanes(evens), SLanes(FromBits(104, 106, 108, 110)));
	EXPECT_EQ(SLanes(odds), SLanes(FromBits(105, 107, 109, 111)));
}

// One flush checks what lies behind the block, the other what lies before it.
TEST(SimdVector, StoreUnaligned_WritesSixteenBytesToAnyAddress)
{
	CExpectReports noReports;
	for (sreg at = 0; at <= 16; ++at)
	{
		for (const CGuardedMemory::EFlush flush : {CGuardedMemory::FlushStart, CGuardedMemory::FlushEnd})
		{
			const CGuardedMemory memory(32, 0, flush);
			TestValue().StoreUnaligned(memory.Data() + at - 3, 3);
			EXPECT_TRUE(HoldsOnly(memory, std::size_t(at), 16)) << at;
		}
	}
}

TEST(SimdVector, AlignedStores_WriteSixteenBytesAtPointerPlusOffset)
{
	CExpectReports noReports;
	for (sreg at = 0; at <= 32; at += 16)
	{
		for (const sreg offset : {sreg(0), at, sreg(-16), sreg(7)})
		{
			SCOPED_TRACE(testing::Message() << at << " " << offset);
			const CGuardedMemory stored(48), streamed(48, 0, CGuardedMemory::FlushStart);
			TestValue().StoreAligned16(stored.Data() + at - offset, offset);
			EXPECT_TRUE(HoldsOnly(stored, std::size_t(at), 16));
			TestValue().StreamAligned16(static_cast<volatile void *>(streamed.Data() + at - offset), offset);
			Float4::WriteBarrier();
			EXPECT_TRUE(HoldsOnly(streamed, std::size_t(at), 16));
		}
	}
}

// Eight bytes and no more, also where they straddle a 16-byte boundary.
TEST(SimdVector, StreamFloat2_WritesTheTwoLowLanesAtFourByteAddresses)
{
	CExpectReports noReports;
	for (sreg at = 0; at <= 12; at += 4)
	{
		for (const sreg offset : {sreg(0), at, sreg(-16), sreg(7)})
		{
			SCOPED_TRACE(testing::Message() << at << " " << offset);
			const CGuardedMemory memory(20, 12); // starts at 12 modulo 16, ends with its page
			const CGuardedMemory atStart(24, 0, CGuardedMemory::FlushStart);
			TestValue().StreamFloat2(static_cast<volatile void *>(memory.Data() + at - offset), offset);
			EXPECT_TRUE(HoldsOnly(memory, std::size_t(at), 8));
			TestValue().StreamFloat2(static_cast<volatile void *>(atStart.Data() + at - offset), offset);
			EXPECT_TRUE(HoldsOnly(atStart, std::size_t(at), 8));
		}
	}
}

#if VX_ASSERTIONS
TEST(SimdVector, UnalignedAddresses_AreReportedBeforeTheAccess)
{
	ExpectReportsOffAlignment(
		"LoadAligned16(", "src", 16, [](const u8 *p, sreg offset) { return Float4::LoadAligned16(p, offset); });
	ExpectReportsOffAlignment(
		"StoreAligned16(", "dst", 16, [](u8 *p, sreg offset) { TestValue().StoreAligned16(p, offset); });
	ExpectReportsOffAlignment(
		"StreamAligned16(", "dst", 16, [](u8 *p, sreg offset) { TestValue().StreamAligned16(p, offset); });
	ExpectReportsOffAlignment(
		"StreamFloat2(", "dst", 4, [](u8 *p, sreg offset) { TestValue().StreamFloat2(p, offset); });
	ExpectReportsOffAlignment("LoadAligned16", "src", 16,
		[](const u8 *p, sreg offset)
		{
			Float4 evens, odds;
			Float4::LoadAligned16_Transpose4x2_Unpack(evens, odds, p, offset);
		});
}

// The access goes on after its report. An aligned instruction faults, as it would without one; two ordinary 4-byte
// stores do not.
TEST(SimdVector, StreamFloat2OffAlignment_StillWrites)
{
	const CGuardedMemory memory(12, 4);
	CReportRecorder recorder;
	TestValue().StreamFloat2(memory.Data(), 2);
	EXPECT_EQ(recorder.Reports().size(), 1u);
	EXPECT_TRUE(HoldsOnly(memory, 2, 8));
}
#endif

TEST(SimdVector, AlignedAddresses_ReportNothing)
{
	CExpectReports noReports;
	alignas(16) u32 memory[8] = {};
	EXPECT_EQ(SLanes(Float4::LoadAligned16(memory, 16)), SLanes(FromBits(0, 0, 0, 0)));
	TestValue().StreamFloat2(memory + 3);
	EXPECT_EQ(memory[3], kLanes[0]);
	EXPECT_EQ(memory[4], kLanes[1]);
	EXPECT_EQ(memory[5], 0u);
}
