#pragma once

// What the targets do that fuzz a sort.

#include "kr_cpu.h"

#include "byte_reader.h"
#include "decoded_input.h"
#include "host_float_mode.h"
#include "random_scene.h"
#include "scene_memory.h"
#include <cstdio>
#include <cstdlib>
#include <string>

namespace Fuzz
{
/// Says what is wrong and ends the process: libFuzzer keeps the input.
[[noreturn]] inline void Fail(const std::string &message)
{
	std::fprintf(stderr, "%s\n", message.c_str());
	std::abort();
}

/// Every instruction set sees every input sooner or later: which one follows from the input's size.
inline void ChooseInstructionSet(std::size_t inputSize)
{
	Vexmoor::Cpu::SetMaxInstructionSet(Vexmoor::Cpu::EInstructionSet(inputSize % 3));
}

/// Reads a draw call of any geometry, lays it out and sorts it as this host does, and ends the process unless indices,
/// reports and warnings are the reference model's.
inline void SortLikeTheModel(CByteReader &reader, const SHost &host)
{
	const Model::SScene scene = ReadScene(reader);
	Announce(Describe(scene));
	const CHostFloatMode floatMode(host.m_FloatMode);
	const testing::AssertionResult result = Support::SortsLikeTheModel(scene, host.m_Layout);
	if (!result)
		Fail(result.message() + ("\n" + Describe(scene)));
}
} // namespace Fuzz
