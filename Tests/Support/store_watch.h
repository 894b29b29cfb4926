#pragma once

// Memory in which every access of a call is seen: which bytes each instruction stores, in which order, and whether any
// is read. It holds for any build, as it watches the machine and not the source.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace Support
{
/// Why no access can be watched here, in a sentence; null where it can: on Linux with an x86-64 processor, and without
/// sanitizers, valgrind or an emulator in between.
const char *WhyStoresGoUnseen();

/// Runs call with an address that is address modulo 64, and watches the expected.size() bytes from there on, with a
/// page before and after. Holds if call writes every expected byte exactly once, in ascending order, leaves the bytes
/// without a value and those around alone, and reads none of them. One thread at a time.
/// streamedByteCount  if given, receives how many bytes were written by streaming stores
testing::AssertionResult WritesFrontToBack(const std::vector<std::optional<std::uint8_t>> &expected,
	std::size_t address,
	const std::function<void(void *output)> &call,
	std::size_t *streamedByteCount = nullptr);

/// As above, for indices; call takes an _Index *.
template<typename _Index, typename _Call>
testing::AssertionResult WritesIndicesFrontToBack(const std::vector<std::optional<std::uint32_t>> &expected,
	std::size_t address,
	const _Call &call,
	std::size_t *streamedByteCount = nullptr)
{
	std::vector<std::optional<std::uint8_t>> bytes;
	for (const std::optional<std::uint32_t> &index : expected)
	{
		for (std::size_t byte = 0; byte < sizeof(_Index); ++byte)
			bytes.push_back(index ? std::optional<std::uint8_t>(std::uint8_t(*index >> 8 * byte)) : std::nullopt);
	}
	return WritesFrontToBack(
		bytes, address, [&call](void *output) { call(static_cast<_Index *>(output)); }, streamedByteCount);
}
} // namespace Support
