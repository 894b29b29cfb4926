#pragma once

// The bytes of a fuzzed input, one after another. Beyond the end there are zeros, so that every input means something
// and each byte that is added or changed changes what follows as little as possible.

#include "reference_model.h"
#include <cstddef>

namespace Fuzz
{
using Model::u32;
using Model::u8;

class CByteReader
{
public:
	CByteReader(const u8 *data, std::size_t size)
		: m_Next(data)
		, m_End(data + size)
	{
	}

	u32 Byte() { return m_Next != m_End ? *m_Next++ : 0; }
	u32 Half()
	{
		const u32 low = Byte();
		return low | Byte() << 8;
	}
	u32 Word()
	{
		const u32 low = Half();
		return low | Half() << 16;
	}
	/// [0, bound) from one byte: a bound above 256 is out of its reach.
	u32 Below(u32 bound) { return Byte() % bound; }
	bool Flag() { return Byte() % 2 != 0; }

private:
	const u8 *m_Next;
	const u8 *m_End;
};
} // namespace Fuzz
