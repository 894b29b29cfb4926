// Walks a capture section by section, as its page in Docs says.

#include "capture_places.h"

#include <cstring>

using namespace Vexmoor;

namespace Support
{
namespace
{
	class CWalk
	{
	public:
		explicit CWalk(const std::vector<u8> &capture)
			: m_Capture(capture)
		{
		}

		void Skip(u64 size) { m_Offset += (size + 3) / 4 * 4; }
		u32 Word()
		{
			u32 word;
			std::memcpy(&word, &m_Capture.at(m_Offset), sizeof(word));
			m_Offset += sizeof(word);
			return word;
		}
		void Place()
		{
			m_Places.push_back(m_Offset);
			m_Offset += sizeof(u64);
		}
		u32 ViewHead()
		{
			const u32 count = Word();
			Skip(sizeof(u32));
			Place();
			return count;
		}
		void List(u64 elementSize) { Skip(Word() * elementSize); }
		void Pages(u64 elementSize)
		{
			for (u32 left = ViewHead(); left != 0; --left)
			{
				ViewHead();
				List(elementSize);
			}
		}

		const std::vector<u64> &Places() const { return m_Places; }

	private:
		const std::vector<u8> &m_Capture;
		u64 m_Offset = 0;
		std::vector<u64> m_Places;
	};
} // namespace

std::vector<u64> PlaceOffsets(const std::vector<u8> &capture)
{
	CWalk walk(capture);
	walk.Skip(20);
	walk.Place(); // sorter
	walk.Skip(8);
	walk.Place(); // output
	walk.Skip(4);
	const bool byPosition = walk.Word() == 1;
	walk.Skip(4 + 12 + 12 + 4);
	walk.Place(); // working buffer
	walk.Skip(8);
	walk.Skip(walk.ViewHead() * sizeof(u32));
	walk.Pages(sizeof(u8));
	walk.Pages(byPosition ? 3 * sizeof(float) : sizeof(float));
	walk.List(sizeof(u32)); // pattern
	walk.Place();
	walk.List(sizeof(u32)); // index list
	walk.Place();
	walk.List(4 * sizeof(float)); // quad centres
	walk.Place();
	for (u32 left = walk.Word(); left != 0; --left)
		walk.List(sizeof(u32)); // pattern of a page
	walk.Place();
	return walk.Places();
}

u64 PlaceAt(const std::vector<u8> &capture, u64 offset)
{
	u64 place;
	std::memcpy(&place, &capture.at(offset), sizeof(place));
	return place;
}

std::vector<u8> WithoutPlaces(std::vector<u8> capture)
{
	for (const u64 offset : PlaceOffsets(capture))
	{
		const u64 remainder = PlaceAt(capture, offset) % 16;
		std::memcpy(&capture[offset], &remainder, sizeof(remainder));
	}
	std::memset(&capture[capture.size() - sizeof(u64)], 0, sizeof(u64));
	return capture;
}
} // namespace Support
