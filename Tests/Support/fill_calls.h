#pragma once

// Calls of the static fill functions: their arguments laid out in guarded memory, each block as close to its guard page
// as its alignment allows, and the model's answer beside the library's.

#include "ge_mesh_triangle_sorter.h"

#include "guarded_memory.h"
#include "random_scene.h"
#include "reference_model.h"
#include <gtest/gtest.h>
#include <vector>

namespace Support
{
/// The four fill functions: what keys a record, and where its vertex base comes from.
enum class EFill
{
	PositionsInSequence,
	ValuesInSequence,
	PositionsByList,
	ValuesByList
};
bool IsByPosition(EFill fill);

/// Packed elements spread out at a stride in read-only memory; a stride of 0 lays out the first one alone.
CGuardedMemory LayOutElements(const void *elements,
	std::size_t elementSize,
	std::size_t count,
	std::size_t stride,
	std::size_t addressMod16,
	CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd);
CGuardedMemory LayOutPositions(
	const Model::SPositions &positions, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd);
CGuardedMemory LayOutValues(const Model::SValues &values, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd);

/// The address modulo 16 that puts the last byte of a strided block right before its guard page.
Vexmoor::u32 FlushAddressMod16(Vexmoor::u32 elementSize, Vexmoor::u32 count, Vexmoor::u32 stride);

Vexmoor::CFloat3 Float3FromBits(const Model::SFloat3 &bits);
std::vector<Model::SRecord> ReadRecords(const void *records, std::size_t count);
testing::AssertionResult SameRecords(
	const std::vector<Model::SRecord> &expected, const std::vector<Model::SRecord> &actual);

/// One call, ready to run.
class CFillMemory
{
public:
	CFillMemory(EFill fill, const Model::SFillCall &call, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd);

	void Run() const;
	std::vector<Model::SRecord> Records() const;
	const void *RecordsAddress() const { return m_Records.Data(); }
	bool SurroundingsIntact() const { return m_Records.SurroundingsIntact(); }

	// What the views say, where it is not what lies in memory.
	Vexmoor::u32 m_SourceCount;
	Vexmoor::u32 m_EnabledCount;
	Vexmoor::u32 m_EnabledStride = 1;

private:
	EFill m_Fill;
	Vexmoor::u32 m_RecordCount;
	Vexmoor::u32 m_SourceStride;
	Vexmoor::CFloat3 m_Camera;
	Vexmoor::u32 m_IndexStart;
	Vexmoor::u32 m_IndexIncrement;
	Vexmoor::u32 m_MaxVertexId;
	CGuardedMemory m_Source;
	CGuardedMemory m_Enabled;
	CGuardedMemory m_IndexList;
	CGuardedMemory m_Records;
};

/// The library's records of a call, and the model's.
std::vector<Model::SRecord> Filled(EFill fill, const Model::SFillCall &call);
std::vector<Model::SRecord> ModelRecords(EFill fill, const Model::SFillCall &call);
std::vector<Model::SRecord> ModelRecords(EFill fill, const Model::SFillCall &call, Model::SWarnings &warnings);

/// Finite positions and values for all particles, an index list with invalid entries among the others. Without enabled
/// bytes there is a particle per record.
Model::SFillCall MakeFillCall(Vexmoor::u32 recordCount, const std::vector<Vexmoor::u8> &enabled = {});
/// A particle per byte, a record per byte that is not 0.
Model::SFillCall MakeCompactingCall(const std::vector<Vexmoor::u8> &enabled);
/// The call with positions and values at another stride.
Model::SFillCall WithStride(Model::SFillCall call, Vexmoor::u32 stride);

/// Runs the call: the records and warnings are the model's, no other byte is written, nothing is reported.
void ExpectAsModel(EFill fill, const Model::SFillCall &call, CGuardedMemory::EFlush flush = CGuardedMemory::FlushEnd);

/// Every loop, with every number of records up to 70 and every alignment of source, records and list.
void ExpectEveryLoopAsModel(EFill fill);
/// Compaction of every number of records up to 70, with disabled particles in several places and numbers.
void ExpectEveryCompactionAsModel(EFill fill);
/// Up to 40 particles at every short stride, those among them at which elements overlap, and at some longer ones. The
/// first byte of the source is the first one after inaccessible memory, and then its last byte the last one before.
void ExpectNothingReadOutside(EFill fill);
} // namespace Support
