#pragma once

// PLY files: the header, and the vertices of the body in ASCII or either byte order. A file is trusted in nothing: each
// count is held against the bytes that are there before anything is made of it, and the whole body is walked, so that a
// file that was cut short, or has been changed on its way, is refused and not drawn in part.

#include "vx_defs.h"

#include <functional>
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
};

struct SPlyHeader
{
	EPlyFormat m_Format = EPlyFormat::Ascii;
	std::vector<SPlyElement> m_Elements;
	char m_LineEnd = '\n'; ///< Which a '\r' may precede; or '\r' alone.
	u64 m_LineCount = 0;
	u64 m_Size = 0; ///< In bytes: where the body starts.
};

/// A failure's sentence starts with the place in the file: "line 3: ..." or "byte 276: ...".
class CPlyFile
{
public:
	/// Reads and checks the header. The file stays where it is while this lives. There is an element "vertex", and no
	/// element has more rows than the file has bytes for.
	explicit CPlyFile(std::string_view file);

	const SPlyElement &Vertices() const { return m_Header.m_Elements[m_VertexElement]; }
	/// The vertex property of that name which is one number, not a list.
	std::optional<u32> FindNumber(std::string_view name) const;
	/// The largest value of an integer type; 1 for a float's: what full light is in a colour of that type.
	static double FullScale(EPlyType type);

	/// Receives a vertex's values of the properties asked for, all finite in 32 bits; says what is wrong with them, or null.
	typedef std::function<const char *(const double *values)> CbVertex;

	/// Reads the body from end to end.
	void ReadVertices(const std::vector<u32> &properties, const CbVertex &onVertex) const;

private:
	template<typename _Body>
	void ReadBody(_Body &body, const std::vector<u32> &properties, const CbVertex &onVertex) const;

	std::string_view m_File;
	SPlyHeader m_Header;
	size_t m_VertexElement = 0;
};
} // namespace Viewer
