#pragma once

// Formatted texts: a short one that needs no heap, for messages that are built where nothing may be allocated, and one
// on the heap, which its copies share.

#include "vx_defs.h"

#include "kr_refptr.h"

#include <string>

namespace Vexmoor
{
/// A short text that lies where its object does, and allocates nothing.
class VX_API CShortString
{
public:
	static constexpr u32 kMaxLength = 127; ///< Characters, the terminating null not counted.

	/// An empty text.
	CShortString() = default;

	/// Builds a text as printf would, cut after kMaxLength characters; an empty one where printf fails.
	static CShortString Format(const char *format, ...) VX_PRINTF_LIKE(1, 2);

	/// The text, null-terminated. Valid while this object lives.
	const char *Data() const { return m_Text; }

private:
	char m_Text[kMaxLength + 1] = "";
};

/// An immutable, reference-counted string.
class VX_API CString
{
public:
	CString() = default;

	/// Builds a string as printf would. It is empty where printf fails, or where the heap has no room for it.
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
