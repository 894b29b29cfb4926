#pragma once

// From the bytes of a fuzzed input to a valid scene or call: every input decodes to one that keeps the rules a caller
// of the library is given, small enough to be sorted thousands of times a second. Bytes say how things lie and what is
// special about them; bulk comes from bytes too, or from a generator that a byte seeds.

#include "byte_reader.h"
#include "random_scene.h"
#include "reference_model.h"
#include "scene_memory.h"
#include <string>
#include <vector>

namespace Fuzz
{
/// Prints what is about to be called, where VEXMOOR_FUZZ_DESCRIBE is set in the environment: a finding of a sanitizer
/// speaks of addresses alone.
void Announce(const std::string &call);

Model::SScene ReadScene(CByteReader &reader); // of any geometry

/// What a draw call leaves open: how its memory lies, and the floating-point mode of the thread.
struct SHost
{
	Support::SSceneLayout m_Layout;
	u32 m_FloatMode;
};
SHost ReadHost(CByteReader &reader);

Model::SFillCall ReadFillCall(CByteReader &reader);
Model::SExpandCall ReadExpandCall(CByteReader &reader); // the output's address is a multiple of the index size

struct SQuadCall
{
	Model::EIndexType m_IndexType;
	std::vector<u32> m_Pattern;
	std::vector<Model::SFloat4> m_Centers;
	Model::SFloat3 m_Camera;
	std::vector<Model::SRecord> m_Records;
	u32 m_VerticesPerParticle;
	u32 m_OutputAddressMod16;
};
SQuadCall ReadQuadCall(CByteReader &reader);

/// Up to 255 records, numbered, with keys in and out of order and ties among them.
std::vector<Model::SRecord> ReadRecords(CByteReader &reader);
} // namespace Fuzz
