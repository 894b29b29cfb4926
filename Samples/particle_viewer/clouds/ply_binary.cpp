// Rows of bytes. Rows without lists all have one size, so their total is compared with the file's size before they are
// read.

#include "ply_body.h"
#include "text.h"
#include <cstring>

namespace Viewer
{
namespace
{
	/// Rows of bytes: all of one size, or, with lists, of as many as each says.
	class CBinaryBody final : public IPlyBody
	{
	public:
		CBinaryBody(std::string_view file, const SPlyHeader &header)
			: m_File(file)
			, m_IsBigEndian(header.m_Format == EPlyFormat::BigEndian)
			, m_Next(header.m_Size)
		{
		}

		void BeginElement(const SPlyElement &element) override
		{
			m_Element = &element;
			m_RowNumber = 0;
			m_Offsets.resize(element.m_Properties.size());
			m_FixedSize = 0;
			if (element.HasLists())
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

		void SkipRows() override
		{
			if (m_FixedSize != 0)
				m_Next += m_Element->m_Count * m_FixedSize;
			else
				for (u64 row = 0; row < m_Element->m_Count; ++row)
					NextRow();
		}

		void ReadRow(const std::vector<u32> &properties, double *values) override
		{
			NextRow();
			for (const u32 property : properties)
				*values++ = Value(property);
		}

		std::string Where() const override { return "byte " + Grouped(m_Row); }

		void EndFile() override
		{
			if (m_Next != m_File.size())
				FailAtByte(m_Next,
					"the file goes on after all that its header promises, up to byte " + Grouped(m_File.size()));
		}

	private:
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
					FailAtByte(start, Quoted(m_Element->m_Name) + " " + Grouped(m_RowNumber) +
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
			FailAtByte(
				m_File.size(), "the file ends after " +
								   Grouped(m_FixedSize != 0 ? (m_File.size() - m_Next) / m_FixedSize : m_RowNumber) +
								   " of the " + Grouped(m_Element->m_Count) +
								   " that its header promises of the element " + Quoted(m_Element->m_Name));
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

std::unique_ptr<IPlyBody> OpenPlyBinary(std::string_view file, const SPlyHeader &header)
{
	return std::make_unique<CBinaryBody>(file, header);
}
} // namespace Viewer
