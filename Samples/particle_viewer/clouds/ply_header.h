#pragma once

// The header of a PLY file: which elements there are, how many rows each has, and which numbers make a row.

#include "vx_defs.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

enum class EPlyFormat
{
	Ascii,
	LittleEndian,
	BigEndian
};

enum class EPlyType
{
	Int8,
	Uint8,
	Int16,
	Uint16,
	Int32,
	Uint32,
	Float32,
	Float64
};

struct SPlyTypeTraits
{
	u32 m_Size; ///< In bytes.
	bool m_IsInteger;
	double m_Lowest; ///< Of the whole numbers that an integer type holds.
	double m_Largest;
};

const SPlyTypeTraits &Traits(EPlyType type);

struct SPlyProperty
{
	std::string m_Name;
	EPlyType m_Type = EPlyType::Float32; ///< Of the value, or of each value of a list.
	std::optional<EPlyType> m_CountType; ///< A list has one.
};

struct SPlyElement
{
	std::string m_Name;
	u64 m_Count = 0;
	std::vector<SPlyProperty> m_Properties;

	bool HasLists() const;
	/// The property of that name which is one number, not a list.
	std::optional<u32> FindNumber(std::string_view name) const;
};

struct SPlyHeader
{
	EPlyFormat m_Format = EPlyFormat::Ascii;
	std::vector<SPlyElement> m_Elements;
	char m_LineEnd = '\n'; ///< Which a '\r' may precede; or '\r' alone.
	u64 m_LineCount = 0;
	u64 m_Size = 0; ///< In bytes: where the body starts.

	/// Null where there is none of that name.
	const SPlyElement *FindElement(std::string_view name) const;
};

/// Reads and checks the header of a file. No element of it has more rows than the file has bytes for.
SPlyHeader ReadPlyHeader(std::string_view file);

// What the readers of header and body share.

/// Takes the next word off a line; there is none in an empty one.
std::string_view TakePlyWord(std::string_view &line);
/// Throws the CFailure "line 3: it is broken." or "byte 276: it is broken.".
[[noreturn]] void FailAtLine(u64 line, const std::string &what);
[[noreturn]] void FailAtByte(u64 offset, const std::string &what);
} // namespace Viewer
