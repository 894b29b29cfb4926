// Read from the end up: ReadPlyHeader reads the lines with CHeaderReader, and then compares the counts with the file's
// size.

#include "ply_header.h"

#include "failure.h"
#include "text.h"
#include <algorithm>
#include <charconv>

namespace Viewer
{
namespace
{
	struct STypeName
	{
		const char *m_Name;
		EPlyType m_Type;
	};

	constexpr STypeName kTypeNames[] = {
		{"char",    EPlyType::Int8   },
		{"int8",    EPlyType::Int8   },
		{"uchar",   EPlyType::Uint8  },
		{"uint8",   EPlyType::Uint8  },
		{"short",   EPlyType::Int16  },
		{"int16",   EPlyType::Int16  },
		{"ushort",  EPlyType::Uint16 },
		{"uint16",  EPlyType::Uint16 },
		{"int",     EPlyType::Int32  },
		{"int32",   EPlyType::Int32  },
		{"uint",    EPlyType::Uint32 },
		{"uint32",  EPlyType::Uint32 },
		{"float",   EPlyType::Float32},
		{"float32", EPlyType::Float32},
		{"double",  EPlyType::Float64},
		{"float64", EPlyType::Float64},
	};

	constexpr SPlyTypeTraits kTypes[] = {
		{1, true,  -128.0,        127.0       },
		{1, true,  0.0,           255.0       },
		{2, true,  -32768.0,      32767.0     },
		{2, true,  0.0,           65535.0     },
		{4, true,  -2147483648.0, 2147483647.0},
		{4, true,  0.0,           4294967295.0},
		{4, false, 0.0,           0.0         },
		{8, false, 0.0,           0.0         },
	};

	constexpr size_t kMaxElements = 100;
	constexpr size_t kMaxProperties = 1000; // of an element; splats have 62

	class CHeaderReader
	{
	public:
		explicit CHeaderReader(std::string_view file)
			: m_File(file)
		{
		}

		SPlyHeader Read()
		{
			ReadMagic();
			while (ReadLine())
			{
			}
			if (!m_HasFormat)
				FailHere("the header ends without a 'format'");
			CheckElement();
			m_Header.m_Size = m_At;
			return m_Header;
		}

	private:
		// The first line also shows how lines end.
		void ReadMagic()
		{
			const std::string_view start = m_File.substr(0, m_File.find_first_of("\r\n"));
			std::string_view line = start;
			if (TakePlyWord(line) != "ply" || !TakePlyWord(line).empty() || start.size() == m_File.size())
				FailAtByte(0, "a PLY file starts with a line 'ply', this one with " + Quoted(m_File.substr(0, 16)));
			const bool isReturn = m_File[start.size()] == '\r';
			const bool isFollowed = start.size() + 1 < m_File.size() && m_File[start.size() + 1] == '\n';
			m_Header.m_LineEnd = isReturn && !isFollowed ? '\r' : '\n';
			m_At = start.size() + 1 + (isReturn && isFollowed ? 1 : 0);
			m_Header.m_LineCount = 1;
		}

		// False: it was the last.
		bool ReadLine()
		{
			++m_Header.m_LineCount;
			const size_t end = m_File.find(m_Header.m_LineEnd, m_At);
			if (end == std::string_view::npos)
				FailHere("the file ends before 'end_header'");
			m_Line = m_File.substr(m_At, end - m_At);
			m_At = end + 1;

			const std::string_view keyword = TakePlyWord(m_Line);
			if (keyword == "comment" || keyword == "obj_info")
				return true;
			if (keyword == "format")
				ReadFormat();
			else if (keyword == "element")
				ReadElement();
			else if (keyword == "property")
				ReadProperty();
			else if (keyword != "end_header")
				FailHere(Quoted(keyword) + " is no keyword of a PLY header");
			const std::string_view rest = TakePlyWord(m_Line);
			if (!rest.empty())
				FailHere(Quoted(rest) + " is one word too many");
			return keyword != "end_header";
		}

		void ReadFormat()
		{
			if (m_HasFormat || !m_Header.m_Elements.empty())
				FailHere("'format' stands once, before the elements");
			const std::string_view format = TakePlyWord(m_Line);
			if (format == "ascii")
				m_Header.m_Format = EPlyFormat::Ascii;
			else if (format == "binary_little_endian")
				m_Header.m_Format = EPlyFormat::LittleEndian;
			else if (format == "binary_big_endian")
				m_Header.m_Format = EPlyFormat::BigEndian;
			else
				FailHere("'format' takes ascii, binary_little_endian or binary_big_endian, not " + Quoted(format));
			const std::string_view version = TakePlyWord(m_Line);
			if (version != "1.0")
				FailHere("the version is 1.0 in every PLY file, not " + Quoted(version));
			m_HasFormat = true;
		}

		void ReadElement()
		{
			CheckElement();
			SPlyElement element;
			element.m_Name = Name("element");
			const std::string_view count = TakePlyWord(m_Line);
			const char *const end = count.data() + count.size();
			const auto [stop, error] = std::from_chars(count.data(), end, element.m_Count);
			if (error != std::errc() || stop != end)
				FailHere("the element " + Quoted(element.m_Name) + " has a count of " + Quoted(count) +
						 ", which is no whole number of 64 bits");
			for (const SPlyElement &other : m_Header.m_Elements)
				if (other.m_Name == element.m_Name)
					FailHere("there are two elements " + Quoted(element.m_Name));
			if (m_Header.m_Elements.size() == kMaxElements)
				FailHere("there are more than " + std::to_string(kMaxElements) + " elements");
			m_Header.m_Elements.push_back(element);
		}

		// An element is complete where the next one or the end follows.
		void CheckElement() const
		{
			if (m_Header.m_Elements.empty())
				return;
			const SPlyElement &element = m_Header.m_Elements.back();
			if (element.m_Properties.empty() && element.m_Count != 0)
				FailHere("the element " + Quoted(element.m_Name) + " ends without a property");
		}

		void ReadProperty()
		{
			if (m_Header.m_Elements.empty())
				FailHere("there is a property before the first element");
			SPlyProperty property;
			std::string_view type = TakePlyWord(m_Line);
			if (type == "list")
			{
				property.m_CountType = Type(TakePlyWord(m_Line));
				if (!Traits(*property.m_CountType).m_IsInteger)
					FailHere("a list's count is of a type of whole numbers");
				type = TakePlyWord(m_Line);
			}
			property.m_Type = Type(type);
			property.m_Name = Name("property");

			std::vector<SPlyProperty> &properties = m_Header.m_Elements.back().m_Properties;
			for (const SPlyProperty &other : properties)
				if (other.m_Name == property.m_Name)
					FailHere("there are two properties " + Quoted(property.m_Name));
			if (properties.size() == kMaxProperties)
				FailHere("there are more than " + Grouped(kMaxProperties) + " properties");
			properties.push_back(property);
		}

		EPlyType Type(std::string_view name) const
		{
			for (const STypeName &type : kTypeNames)
				if (name == type.m_Name)
					return type.m_Type;
			FailHere(Quoted(name) + " is no type of a PLY file");
		}

		std::string Name(const char *keyword)
		{
			const std::string_view name = TakePlyWord(m_Line);
			if (name.empty())
				FailHere("the " + std::string(keyword) + " has no name");
			return std::string(name);
		}

		[[noreturn]] void FailHere(const std::string &what) const { FailAtLine(m_Header.m_LineCount, what); }

		std::string_view m_File;
		size_t m_At = 0;
		std::string_view m_Line;
		bool m_HasFormat = false;
		SPlyHeader m_Header;
	};

	// The least that a row takes: in ASCII, a letter and a blank for each value.
	u64 MinRowSize(const SPlyElement &element, bool isAscii)
	{
		u64 size = 0;
		for (const SPlyProperty &property : element.m_Properties)
			size += isAscii ? 2 : Traits(property.m_CountType.value_or(property.m_Type)).m_Size;
		return size;
	}

	void CheckCounts(const SPlyHeader &header, u64 fileSize)
	{
		const bool isAscii = header.m_Format == EPlyFormat::Ascii;
		u64 offset = header.m_Size;
		bool isExact = !isAscii; // no list and no text before: this is where the element starts
		for (const SPlyElement &element : header.m_Elements)
		{
			if (element.m_Count == 0)
				continue;
			const bool isFixed = !isAscii && !element.HasLists();
			const u64 rowSize = MinRowSize(element, isAscii);
			const u64 size = fileSize - offset + (isAscii ? 1 : 0); // the last line may lack its end
			const u64 fitting = size / rowSize;
			if (element.m_Count > fitting)
				FailAtByte(offset, "the header promises " + Grouped(element.m_Count) + " of the element " +
									   Quoted(element.m_Name) + ", of " + (isFixed ? "" : "at least ") +
									   Grouped(rowSize) + " bytes each; from here on there are " +
									   (isExact ? "" : "at most ") + Grouped(fileSize - offset) + " bytes, room for " +
									   Grouped(fitting));
			offset += element.m_Count * rowSize - (isAscii ? 1 : 0);
			isExact = isExact && isFixed;
		}
	}
} // namespace

const SPlyTypeTraits &Traits(EPlyType type)
{
	return kTypes[size_t(type)];
}

bool SPlyElement::HasLists() const
{
	return std::any_of(m_Properties.begin(), m_Properties.end(),
		[](const SPlyProperty &property) { return property.m_CountType.has_value(); });
}

std::optional<u32> SPlyElement::FindNumber(std::string_view name) const
{
	for (u32 i = 0; i < m_Properties.size(); ++i)
		if (m_Properties[i].m_Name == name && !m_Properties[i].m_CountType)
			return i;
	return std::nullopt;
}

const SPlyElement *SPlyHeader::FindElement(std::string_view name) const
{
	for (const SPlyElement &element : m_Elements)
		if (element.m_Name == name)
			return &element;
	return null;
}

std::string_view TakePlyWord(std::string_view &line)
{
	constexpr const char *kBlanks = " \t\r\v\f";
	line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
	const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
	line.remove_prefix(word.size());
	return word;
}

void FailAtLine(u64 line, const std::string &what)
{
	throw CFailure("line " + Grouped(line) + ": " + what + ".");
}

void FailAtByte(u64 offset, const std::string &what)
{
	throw CFailure("byte " + Grouped(offset) + ": " + what + ".");
}

SPlyHeader ReadPlyHeader(std::string_view file)
{
	const SPlyHeader header = CHeaderReader(file).Read();
	CheckCounts(header, file.size());
	return header;
}
} // namespace Viewer
