#pragma once

// A formatted text that copies share: what a message with arguments is built into.

#include "vx_defs.h"

#include "kr_refptr.h"

#include <string>

namespace Vexmoor
{
/// An immutable, reference-counted string.
class VX_API CString
{
public:
	CString() = default;

	/// Builds a string as printf would.
	static CString Format(const char *format, ...) VX_PRINTF_LIKE(1, 2);

	/// The text, null-terminated; an empty text for a string that was never built. Valid while a copy lives.
	const char *Data() const { return m_Container != null ? m_Container->m_Text.c_str() : ""; }

private:
	struct VX_LOCAL SContainer final : CRefCountedObject
	{
		std::string m_Text;
	};

	TRefPtr<SContainer> m_Container;
};
} // namespace Vexmoor
