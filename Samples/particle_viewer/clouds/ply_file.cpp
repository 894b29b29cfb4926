// Read from the end up: CPlyFile reads the header with CHeaderReader, and the body through one of two classes that take
// rows apart, CAsciiBody and CBinaryBody.

#include "ply_file.h"

#include "failure.h"
#include "text.h"
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

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

	struct STypeTraits
	{
		u32 m_Size;
		double m_Lowest; // of the whole numbers that an integer type holds
		double m_Largest;
	};

	constexpr STypeTraits kTypes[] = {
		{1, -128.0,        127.0       },
		{1, 0.0,           255.0       },
		{2, -32768.0,      32767.0     },
		{2, 0.0,           65535.0     },
		{4, -2147483648.0, 2147483647.0},
		{4, 0.0,           4294967295.0},
		{4, 0.0,           0.0         },
		{8, 0.0,           0.0         },
	};

	constexpr size_t kMaxElements = 100;
	constexpr size_t kMaxProperties = 1000; // of an element; splats have 62

	const STypeTraits &Traits(EPlyType type)
	{
		return kTypes[size_t(type)];
	}

	bool IsInteger(EPlyType type)
	{
		return type != EPlyType::Float32 && type != EPlyType::Float64;
	}

	// Takes the next word off a line; there is none in an empty one.
	std::string_view TakeWord(std::string_view &line)
	{
		constexpr const char *kBlanks = " \t\r\v\f";
		line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
		const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
		line.remove_prefix(word.size());
		return word;
	}

	std::string Line(u64 number)
	{
		return "line " + Grouped(number);
	}

	std::string Byte(u64 offset)
	{
		return "byte " + Grouped(offset);
	}

	[[noreturn]] void Fail(const std::string &where, const std::string &what)
	{
		throw CFailure(where + ": " + what + ".");
	}

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
			if (TakeWord(line) != "ply" || !TakeWord(line).empty() || start.size() == m_File.size())
				Fail(Byte(0), "a PLY file starts with a line 'ply', this one with " + Quoted(m_File.substr(0, 16)));
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

			const std::string_view keyword = TakeWord(m_Line);
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
			const std::string_view rest = TakeWord(m_Line);
			if (!rest.empty())
				FailHere(Quoted(rest) + " is one word too many");
			return keyword != "end_header";
		}

		void ReadFormat()
		{
			if (m_HasFormat || !m_Header.m_Elements.empty())
				FailHere("'format' stands once, before the elements");
			const std::string_view format = TakeWord(m_Line);
			if (format == "ascii")
				m_Header.m_Format = EPlyFormat::Ascii;
			else if (format == "binary_little_endian")
				m_Header.m_Format = EPlyFormat::LittleEndian;
			else if (format == "binary_big_endian")
				m_Header.m_Format = EPlyFormat::BigEndian;
			else
				FailHere("'format' takes ascii, binary_little_endian or binary_big_endian, not " + Quoted(format));
			const std::string_view version = TakeWord(m_Line);
			if (version != "1.0")
				FailHere("the version is 1.0 in every PLY file, not " + Quoted(version));
			m_HasFormat = true;
		}

		void ReadElement()
		{
			CheckElement();
			SPlyElement element;
			element.m_Name = Name("element");
			const std::string_view count = TakeWord(m_Line);
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
			std::string_view type = TakeWord(m_Line);
			if (type == "list")
			{
				property.m_CountType = Type(TakeWord(m_Line));
				if (!IsInteger(*property.m_CountType))
					FailHere("a list's count is of a type of whole numbers");
				type = TakeWord(m_Line);
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
			const std::string_view name = TakeWord(m_Line);
			if (name.empty())
				FailHere("the " + std::string(keyword) + " has no name");
			return std::string(name);
		}

		[[noreturn]] void FailHere(const std::string &what) const { Fail(Line(m_Header.m_LineCount), what); }

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

	bool HasLists(const SPlyElement &element)
	{
		return std::any_of(element.m_Properties.begin(), element.m_Properties.end(),
			[](const SPlyProperty &property) { return property.m_CountType.has_value(); });
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
			const bool isFixed = !isAscii && !HasLists(element);
			const u64 rowSize = MinRowSize(element, isAscii);
			const u64 size = fileSize - offset + (isAscii ? 1 : 0); // the last line may lack its end
			const u64 fitting = size / rowSize;
			if (element.m_Count > fitting)
				Fail(Byte(offset), "the header promises " + Grouped(element.m_Count) + " of the element " +
									   Quoted(element.m_Name) + ", of " + (isFixed ? "" : "at least ") +
									   Grouped(rowSize) + " bytes each; from here on there are " +
									   (isExact ? "" : "at most ") + Grouped(fileSize - offset) + " bytes, room for " +
									   Grouped(fitting));
			offset += element.m_Count * rowSize - (isAscii ? 1 : 0);
			isExact = isExact && isFixed;
		}
	}

	/// Rows of text, one a line.
	class CAsciiBody
	{
	public:
		CAsciiBody(std::string_view file, const SPlyHeader &header)
			: m_Rest(file.substr(header.m_Size))
			, m_LineEnd(header.m_LineEnd)
			, m_LineNumber(header.m_LineCount)
		{
		}

		void BeginElement(const SPlyElement &element)
		{
			m_Element = &element;
			m_Words.resize(element.m_Properties.size());
			m_RowCount = 0;
		}

		void SkipRows()
		{
			for (u64 row = 0; row < m_Element->m_Count; ++row)
				NextRow();
		}

		void NextRow()
		{
			TakeLine();
			++m_RowCount;
			std::string_view line = m_Line;
			for (u32 i = 0; i < m_Words.size(); ++i)
			{
				const SPlyProperty &property = m_Element->m_Properties[i];
				m_Words[i] = Word(line, property);
				if (property.m_CountType)
					SkipList(line, property, Number(m_Words[i], *property.m_CountType, property));
			}
			const std::string_view rest = TakeWord(line);
			if (!rest.empty())
				Fail(Line(m_LineNumber), Row() + " goes on after its values, with " + Quoted(rest));
		}

		double Value(u32 property) const
		{
			const SPlyProperty &described = m_Element->m_Properties[property];
			return Number(m_Words[property], described.m_Type, described);
		}

		std::string Where() const { return Line(m_LineNumber); }

		void EndFile()
		{
			const size_t more = m_Rest.find_first_not_of(" \t\r\n\v\f");
			if (more == std::string_view::npos)
				return;
			m_LineNumber += u64(std::count(m_Rest.begin(), m_Rest.begin() + std::ptrdiff_t(more), m_LineEnd));
			Fail(Line(m_LineNumber + 1), "the file goes on after all that its header promises");
		}

	private:
		std::string Row() const { return Quoted(m_Element->m_Name) + " " + Grouped(m_RowCount - 1); }

		// Empty lines are none.
		void TakeLine()
		{
			std::string_view word;
			do
			{
				if (m_Rest.empty())
					Fail(Line(m_LineNumber),
						"the file ends after " + Grouped(m_RowCount) + " of the " + Grouped(m_Element->m_Count) +
							" that its header promises of the element " + Quoted(m_Element->m_Name));
				m_Line = m_Rest.substr(0, m_Rest.find(m_LineEnd));
				m_Rest.remove_prefix(std::min(m_Line.size() + 1, m_Rest.size()));
				++m_LineNumber;
				std::string_view line = m_Line;
				word = TakeWord(line);
			} while (word.empty());
		}

		std::string_view Word(std::string_view &line, const SPlyProperty &property) const
		{
			const std::string_view word = TakeWord(line);
			if (word.empty())
				Fail(Line(m_LineNumber), Row() + " ends before its " + Quoted(property.m_Name));
			return word;
		}

		void SkipList(std::string_view &line, const SPlyProperty &property, double count) const
		{
			if (count < 0.0)
				Fail(Line(m_LineNumber), Row() + " has a negative count of " + Quoted(property.m_Name));
			for (u64 i = 0; i < u64(count); ++i)
				Word(line, property);
		}

		double Number(std::string_view word, EPlyType type, const SPlyProperty &property) const
		{
			const char *const end = word.data() + word.size();
			double number = 0.0;
			const bool hasPlus = word[0] == '+'; // which from_chars does not know
			const char *const start = word.data() + (hasPlus ? 1 : 0);
			const auto [stop, error] = std::from_chars(start, end, number);
			if ((hasPlus && word.substr(1, 1) == "-") || error != std::errc() || stop != end)
				Fail(Line(m_LineNumber), Row() + " has a " + Quoted(property.m_Name) + " of " + Quoted(word) +
											 ", which is no number of its type");
			if (IsInteger(type) &&
				!(number >= Traits(type).m_Lowest && number <= Traits(type).m_Largest && number == std::floor(number)))
				Fail(Line(m_LineNumber), Row() + " has a " + Quoted(property.m_Name) + " of " + Quoted(word) +
											 ", which is no whole number of its type");
			return type == EPlyType::Float32 ? RoundedToFloat(number) : number;
		}

		// As the binary formats would have it.
		static double RoundedToFloat(double number)
		{
			const bool overflows = std::abs(number) > double(std::numeric_limits<float>::max());
			return overflows ? number : double(float(number));
		}

		std::string_view m_Rest;
		char m_LineEnd;
		u64 m_LineNumber;
		std::string_view m_Line;
		const SPlyElement *m_Element = null;
		u64 m_RowCount = 0;                    // of the row to come
		std::vector<std::string_view> m_Words; // per property its value, or a list's count
	};

	/// Rows of bytes: all of one size, or, with lists, of as many as each says.
	class CBinaryBody
	{
	public:
		CBinaryBody(std::string_view file, const SPlyHeader &header)
			: m_File(file)
			, m_IsBigEndian(header.m_Format == EPlyFormat::BigEndian)
			, m_Next(header.m_Size)
		{
		}

		void BeginElement(const SPlyElement &element)
		{
			m_Element = &element;
			m_RowNumber = 0;
			m_Offsets.resize(element.m_Properties.size());
			m_FixedSize = 0;
			if (HasLists(element))
				return;
			u64 offset = 0;
			for (u32 i = 0; i < m_Offsets.size(); ++i)
			{
				m_Offsets[i] = offset;
				offset += Traits(element.m_Properties[i].m_Type).m_Size;
			}
			m_FixedSize = offset;
			if (m_FixedSize != 0 && element.m_Count > (m_File.size() - m_Next) / m_FixedSize)
				FailShort();
		}

		void SkipRows()
		{
			if (m_FixedSize != 0)
				m_Next += m_Element->m_Count * m_FixedSize;
			else
				for (u64 row = 0; row < m_Element->m_Count; ++row)
					NextRow();
		}

		void NextRow()
		{
			m_Row = m_Next;
			if (m_FixedSize != 0)
				m_Next += m_FixedSize;
			else
				WalkRow();
			++m_RowNumber;
		}

		double Value(u32 property) const
		{
			return Load(m_Row + m_Offsets[property], m_Element->m_Properties[property].m_Type);
		}

		std::string Where() const { return Byte(m_Row); }

		void EndFile() const
		{
			if (m_Next != m_File.size())
				Fail(Byte(m_Next), "the file goes on after all that its header promises, up to " + Byte(m_File.size()));
		}

	private:
		void WalkRow()
		{
			for (u32 i = 0; i < m_Offsets.size(); ++i)
			{
				const SPlyProperty &property = m_Element->m_Properties[i];
				m_Offsets[i] = m_Next - m_Row;
				if (!property.m_CountType)
				{
					Advance(1, property.m_Type);
					continue;
				}
				const u64 start = m_Next;
				Advance(1, *property.m_CountType);
				const double count = Load(start, *property.m_CountType);
				if (count < 0.0)
					Fail(Byte(start), Quoted(m_Element->m_Name) + " " + Grouped(m_RowNumber) +
										  " has a negative count of " + Quoted(property.m_Name));
				Advance(u64(count), property.m_Type);
			}
		}

		void Advance(u64 count, EPlyType type)
		{
			const u64 size = Traits(type).m_Size;
			if (count > (m_File.size() - m_Next) / size)
				FailShort();
			m_Next += count * size;
		}

		[[noreturn]] void FailShort() const
		{
			Fail(Byte(m_File.size()),
				"the file ends after " +
					Grouped(m_FixedSize != 0 ? (m_File.size() - m_Next) / m_FixedSize : m_RowNumber) + " of the " +
					Grouped(m_Element->m_Count) + " that its header promises of the element " +
					Quoted(m_Element->m_Name));
		}

		double Load(u64 offset, EPlyType type) const
		{
			switch (type)
			{
			case EPlyType::Int8:
				return double(std::int8_t(Bits(offset, 1)));
			case EPlyType::Int16:
				return double(std::int16_t(Bits(offset, 2)));
			case EPlyType::Int32:
				return double(s32(Bits(offset, 4)));
			case EPlyType::Float32:
				return double(FromBits<float>(u32(Bits(offset, 4))));
			case EPlyType::Float64:
				return FromBits<double>(Bits(offset, 8));
			default:
				return double(Bits(offset, Traits(type).m_Size));
			}
		}

		u64 Bits(u64 offset, u32 size) const
		{
			u64 bits = 0;
			for (u32 i = 0; i < size; ++i)
				bits = bits << 8 | u8(m_File[offset + (m_IsBigEndian ? i : size - 1 - i)]);
			return bits;
		}

		template<typename _Float, typename _Bits>
		static _Float FromBits(_Bits bits)
		{
			static_assert(sizeof(_Float) == sizeof(_Bits), "one for the other");
			_Float number;
			std::memcpy(&number, &bits, sizeof(number));
			return number;
		}

		std::string_view m_File;
		bool m_IsBigEndian;
		const SPlyElement *m_Element = null;
		u64 m_FixedSize = 0;        // of a row; 0 where rows have lists
		u64 m_RowNumber = 0;        // of the row to come
		u64 m_Row = 0;              // where the last row starts
		u64 m_Next = 0;             // and where it ends
		std::vector<u64> m_Offsets; // of each property in its row
	};
} // namespace

CPlyFile::CPlyFile(std::string_view file)
	: m_File(file)
	, m_Header(CHeaderReader(file).Read())
{
	const std::vector<SPlyElement> &elements = m_Header.m_Elements;
	const auto found = std::find_if(
		elements.begin(), elements.end(), [](const SPlyElement &element) { return element.m_Name == "vertex"; });
	if (found == elements.end())
		Fail(Line(m_Header.m_LineCount), "the header ends without an element 'vertex'");
	m_VertexElement = size_t(found - elements.begin());
	CheckCounts(m_Header, m_File.size());
}

std::optional<u32> CPlyFile::FindNumber(std::string_view name) const
{
	const std::vector<SPlyProperty> &properties = Vertices().m_Properties;
	for (u32 i = 0; i < properties.size(); ++i)
		if (properties[i].m_Name == name && !properties[i].m_CountType)
			return i;
	return std::nullopt;
}

double CPlyFile::FullScale(EPlyType type)
{
	return IsInteger(type) ? Traits(type).m_Largest : 1.0;
}

void CPlyFile::ReadVertices(const std::vector<u32> &properties, const CbVertex &onVertex) const
{
	if (m_Header.m_Format == EPlyFormat::Ascii)
	{
		CAsciiBody body(m_File, m_Header);
		ReadBody(body, properties, onVertex);
	}
	else
	{
		CBinaryBody body(m_File, m_Header);
		ReadBody(body, properties, onVertex);
	}
}

template<typename _Body>
void CPlyFile::ReadBody(_Body &body, const std::vector<u32> &properties, const CbVertex &onVertex) const
{
	std::vector<double> values(properties.size());
	for (const SPlyElement &element : m_Header.m_Elements)
	{
		body.BeginElement(element);
		if (&element != &Vertices())
		{
			body.SkipRows();
			continue;
		}
		for (u64 vertex = 0; vertex < element.m_Count; ++vertex)
		{
			body.NextRow();
			for (size_t i = 0; i < properties.size(); ++i)
			{
				values[i] = body.Value(properties[i]);
				if (!(std::abs(values[i]) <= double(std::numeric_limits<float>::max())))
					Fail(body.Where(), "vertex " + Grouped(vertex) + " has no finite " +
										   Quoted(element.m_Properties[properties[i]].m_Name));
			}
			const char *const complaint = onVertex(values.data());
			if (complaint != null)
				Fail(body.Where(), "vertex " + Grouped(vertex) + " " + complaint);
		}
	}
	body.EndFile();
}
} // namespace Viewer
