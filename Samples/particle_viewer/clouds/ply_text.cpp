// Rows of text. Each word is checked against the type that the header gives it.

#include "ply_body.h"
#include "text.h"
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace Viewer
{
namespace
{
	/// Rows of text, one a line.
	class CTextBody final : public IPlyBody
	{
	public:
		CTextBody(std::string_view file, const SPlyHeader &header)
			: m_Rest(file.substr(header.m_Size))
			, m_LineEnd(header.m_LineEnd)
			, m_LineNumber(header.m_LineCount)
		{
		}

		void BeginElement(const SPlyElement &element) override
		{
			m_Element = &element;
			m_Words.resize(element.m_Properties.size());
			m_RowCount = 0;
		}

		void SkipRows() override
		{
			for (u64 row = 0; row < m_Element->m_Count; ++row)
				NextRow();
		}

		void ReadRow(const std::vector<u32> &properties, double *values) override
		{
			NextRow();
			for (const u32 property : properties)
				*values++ = Value(property);
		}

		std::string Where() const override { return "line " + Grouped(m_LineNumber); }

		void EndFile() override
		{
			const size_t more = m_Rest.find_first_not_of(" \t\r\n\v\f");
			if (more == std::string_view::npos)
				return;
			m_LineNumber += u64(std::count(m_Rest.begin(), m_Rest.begin() + std::ptrdiff_t(more), m_LineEnd));
			FailAtLine(m_LineNumber + 1, "the file goes on after all that its header promises");
		}

	private:
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
			const std::string_view rest = TakePlyWord(line);
			if (!rest.empty())
				FailAtLine(m_LineNumber, Row() + " goes on after its values, with " + Quoted(rest));
		}

		double Value(u32 property) const
		{
			const SPlyProperty &described = m_Element->m_Properties[property];
			return Number(m_Words[property], described.m_Type, described);
		}

		std::string Row() const { return Quoted(m_Element->m_Name) + " " + Grouped(m_RowCount - 1); }

		// Empty lines are none.
		void TakeLine()
		{
			std::string_view word;
			do
			{
				if (m_Rest.empty())
					FailAtLine(m_LineNumber,
						"the file ends after " + Grouped(m_RowCount) + " of the " + Grouped(m_Element->m_Count) +
							" that its header promises of the element " + Quoted(m_Element->m_Name));
				m_Line = m_Rest.substr(0, m_Rest.find(m_LineEnd));
				m_Rest.remove_prefix(std::min(m_Line.size() + 1, m_Rest.size()));
				++m_LineNumber;
				std::string_view line = m_Line;
				word = TakePlyWord(line);
			} while (word.empty());
		}

		std::string_view Word(std::string_view &line, const SPlyProperty &property) const
		{
			const std::string_view word = TakePlyWord(line);
			if (word.empty())
				FailAtLine(m_LineNumber, Row() + " ends before its " + Quoted(property.m_Name));
			return word;
		}

		void SkipList(std::string_view &line, const SPlyProperty &property, double count) const
		{
			if (count < 0.0)
				FailAtLine(m_LineNumber, Row() + " has a negative count of " + Quoted(property.m_Name));
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
				FailAtLine(m_LineNumber, Row() + " has a " + Quoted(property.m_Name) + " of " + Quoted(word) +
											 ", which is no number of its type");
			if (Traits(type).m_IsInteger &&
				!(number >= Traits(type).m_Lowest && number <= Traits(type).m_Largest && number == std::floor(number)))
				FailAtLine(m_LineNumber, Row() + " has a " + Quoted(property.m_Name) + " of " + Quoted(word) +
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
} // namespace

std::unique_ptr<IPlyBody> OpenPlyText(std::string_view file, const SPlyHeader &header)
{
	return std::make_unique<CTextBody>(file, header);
}
} // namespace Viewer
