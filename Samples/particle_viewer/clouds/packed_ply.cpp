// A splat's four words, with the high bits first:
//
//   packed_position, packed_scale   11 bits of x, 10 of y, 11 of z: fractions of the way from the chunk's minimum to
//                                   its maximum; scales are natural logarithms
//   packed_rotation                 2 bits that say which of w, x, y, z is the largest, then 10 for each other one, in
//                                   that order, from -sqrt(1/2) to sqrt(1/2)
//   packed_color                    8 bits each of red, green, blue and alpha; of the first three, fractions of what
//                                   the chunk spans where it says that, and colours otherwise
//
// An element 'sh' has a row per splat, 8 bits a coefficient of spherical harmonics, from -4 to 4.

#include "packed_ply.h"

#include "ply_body.h"
#include "smallest_three.h"
#include "splat_number.h"
#include "text.h"
#include <iterator>

namespace Viewer
{
namespace
{
	constexpr u32 kSplatsPerChunk = 256;
	constexpr const char *kWords[] = {"packed_position", "packed_rotation", "packed_scale", "packed_color"};
	constexpr const char *kBounds[] = {"min_x", "min_y", "min_z", "max_x", "max_y", "max_z", "min_scale_x",
		"min_scale_y", "min_scale_z", "max_scale_x", "max_scale_y", "max_scale_z"};
	constexpr const char *kColourBounds[] = {"min_r", "min_g", "min_b", "max_r", "max_g", "max_b"};

	/// Minima and maxima of three numbers.
	struct SSpan
	{
		double m_Min[3] = {0.0, 0.0, 0.0};
		double m_Max[3] = {1.0, 1.0, 1.0};

		double At(u32 axis, double share) const { return m_Min[axis] + (m_Max[axis] - m_Min[axis]) * share; }
	};

	struct SChunk
	{
		SSpan m_Positions;
		SSpan m_LogScales;
		SSpan m_Colours;
		std::string m_Complaint; ///< What is wrong with it, and where; or "".
	};

	struct SWords
	{
		u32 m_Position, m_Rotation, m_Scale, m_Colour;
	};

	double Share(u32 word, u32 shift, u32 bits)
	{
		const u32 largest = (1u << bits) - 1;
		return double(word >> shift & largest) / double(largest);
	}

	void Unpack111011(u32 word, const SSpan &span, double *to)
	{
		to[0] = span.At(0, Share(word, 21, 11));
		to[1] = span.At(1, Share(word, 11, 10));
		to[2] = span.At(2, Share(word, 0, 11));
	}

	void UnpackRotation(u32 word, double *to)
	{
		double others[3];
		for (u32 i = 0; i < 3; ++i)
			others[i] = (Share(word, 20 - 10 * i, 10) - 0.5) * kSqrt2;
		ExpandSmallestThree(word >> 30, others, to);
	}

	SCloudPoint Point(const SWords &words, const SChunk &chunk)
	{
		SCloudPoint point;
		Unpack111011(words.m_Position, chunk.m_Positions, point.m_Position);
		Unpack111011(words.m_Scale, chunk.m_LogScales, point.m_LogScales);
		UnpackRotation(words.m_Rotation, point.m_Rotation);
		for (u32 channel = 0; channel < 3; ++channel)
			point.m_Colour[channel] = chunk.m_Colours.At(channel, Share(words.m_Colour, 24 - 8 * channel, 8));
		point.m_Colour[3] = Share(words.m_Colour, 0, 8);
		return point;
	}

	// The first and the last step stand for the ends of the range, the others for their middles.
	float Coefficient(double step)
	{
		const double share = step == 0.0 ? 0.0 : step == 255.0 ? 1.0 : (step + 0.5) / 256.0;
		return float((share - 0.5) * 8.0);
	}

	/// Collects the rows of the elements, which may stand in any order, and makes splats of them.
	class CPackedPly
	{
	public:
		CPackedPly(const SPlyHeader &header, const SCloudOptions &options)
			: m_Header(header)
			, m_Options(options)
			, m_Vertices(*header.FindElement("vertex"))
		{
			RequireChunks();
			FindHarmonics();
		}

		SPointCloud Read(std::string_view file)
		{
			const SPlyElement &chunks = *m_Header.FindElement("chunk");
			std::vector<SPlyRequest> requests = {
				{&chunks, Find(chunks, ChunkNames()),   [this](const SPlyRow &row) { AddChunk(row); }},
				{&m_Vertices,       WordProperties(),        [this](const SPlyRow &row) { AddVertex(row); }},
			};
			if (m_HarmonicDegree != 0)
				requests.push_back(
					{m_Harmonics, HarmonicProperties(), [this](const SPlyRow &row) { AddHarmonics(row); }});
			ReadPlyBody(file, m_Header, requests);
			return Splats();
		}

	private:
		typedef std::vector<std::string> CNames;

		void RequireChunks()
		{
			const SPlyElement *const chunks = m_Header.FindElement("chunk");
			const u64 chunkCount = (m_Vertices.m_Count + kSplatsPerChunk - 1) / kSplatsPerChunk;
			if (chunks == null)
				throw CFailure(
					"the header: its vertices are packed, and there is no element 'chunk' that says what in.");
			if (chunks->m_Count != chunkCount)
				throw CFailure("the header: " + Grouped(m_Vertices.m_Count) + " splats, 256 in a chunk, take " +
							   Grouped(chunkCount) + " chunks, not " + Grouped(chunks->m_Count) + ".");
			m_HasColourSpans = chunks->FindNumber(kColourBounds[0]).has_value();
		}

		void FindHarmonics()
		{
			m_Harmonics = m_Header.FindElement("sh");
			if (m_Harmonics == null)
				return;
			const size_t count = m_Harmonics->m_Properties.size();
			while (m_HarmonicDegree < kMaxHarmonicDegree && 3 * HarmonicCount(m_HarmonicDegree) < count)
				++m_HarmonicDegree;
			if (count != 3 * HarmonicCount(m_HarmonicDegree) || m_Harmonics->m_Count != m_Vertices.m_Count)
				throw CFailure("the header: the element 'sh' has a row of 9, 24 or 45 numbers for each of the " +
							   Grouped(m_Vertices.m_Count) + " splats, and here " + Grouped(m_Harmonics->m_Count) +
							   " rows of " + Grouped(count) + ".");
		}

		CNames ChunkNames() const
		{
			CNames names(std::begin(kBounds), std::end(kBounds));
			if (m_HasColourSpans)
				names.insert(names.end(), std::begin(kColourBounds), std::end(kColourBounds));
			return names;
		}

		static std::vector<u32> Find(const SPlyElement &element, const CNames &names)
		{
			std::vector<u32> properties;
			for (const std::string &name : names)
			{
				const std::optional<u32> property = element.FindNumber(name);
				if (!property)
					throw CFailure("the header: packed splats have a number " + Quoted(name) + " in the element " +
								   Quoted(element.m_Name) + ", and there is none here.");
				properties.push_back(*property);
			}
			return properties;
		}

		std::vector<u32> WordProperties() const
		{
			const std::vector<u32> properties = Find(m_Vertices, {std::begin(kWords), std::end(kWords)});
			RequireType(m_Vertices, properties, EPlyType::Uint32, "uint");
			return properties;
		}

		std::vector<u32> HarmonicProperties() const
		{
			CNames names;
			for (u32 i = 0; i < 3 * HarmonicCount(m_HarmonicDegree); ++i)
				names.push_back("f_rest_" + std::to_string(i));
			const std::vector<u32> properties = Find(*m_Harmonics, names);
			RequireType(*m_Harmonics, properties, EPlyType::Uint8, "uchar");
			return properties;
		}

		static void RequireType(
			const SPlyElement &element, const std::vector<u32> &properties, EPlyType type, const char *typeName)
		{
			for (const u32 property : properties)
				if (element.m_Properties[property].m_Type != type)
					throw CFailure("the header: in packed splats, " + Quoted(element.m_Properties[property].m_Name) +
								   " is of the type " + typeName + ".");
		}

		void AddChunk(const SPlyRow &row)
		{
			SChunk chunk;
			const CNames names = ChunkNames();
			for (size_t i = 0; i < names.size() && chunk.m_Complaint.empty(); ++i)
				if (!IsFiniteFloat(row.m_Values[i]))
					chunk.m_Complaint =
						row.m_Body.Where() + ": chunk " + Grouped(row.m_Number) + " has no finite " + Quoted(names[i]);
			const double *value = row.m_Values;
			for (SSpan *span : {&chunk.m_Positions, &chunk.m_LogScales, &chunk.m_Colours})
				if (span != &chunk.m_Colours || m_HasColourSpans)
					for (double *ends : {span->m_Min, span->m_Max})
						for (u32 axis = 0; axis < 3; ++axis)
							ends[axis] = *value++;
			m_Chunks.push_back(chunk);
		}

		void AddVertex(const SPlyRow &row)
		{
			const auto word = [&row](u32 property) { return u32(row.m_Values[property]); };
			m_Words.push_back({word(0), word(1), word(2), word(3)});
		}

		void AddHarmonics(const SPlyRow &row)
		{
			for (u32 i = 0; i < 3 * HarmonicCount(m_HarmonicDegree); ++i)
				m_Coefficients.push_back(u8(row.m_Values[i]));
		}

		SPointCloud Splats()
		{
			const CSplatNumber sortNumber(m_Options.m_SortBy);
			CPointCloudBuilder builder(
				m_Words.size(), {true, true, !m_Options.m_SortBy.empty(), m_HarmonicDegree}, m_Options.m_SkipBad);
			const u32 perSplat = 3 * HarmonicCount(m_HarmonicDegree);
			float coefficients[3 * HarmonicCount(kMaxHarmonicDegree)];
			for (u64 splat = 0; splat < m_Words.size(); ++splat)
			{
				const SChunk &chunk = m_Chunks[splat / kSplatsPerChunk];
				if (!chunk.m_Complaint.empty())
				{
					builder.LeaveOut(chunk.m_Complaint + ", and so vertex " + Grouped(splat) + " is nowhere");
					continue;
				}
				SCloudPoint point = Point(m_Words[splat], chunk);
				for (u32 i = 0; i < perSplat; ++i)
					coefficients[i] = Coefficient(m_Coefficients[splat * perSplat + i]);
				point.m_Harmonics = coefficients;
				point.m_SortValue = sortNumber.Of(point);
				if (const char *const complaint = builder.Add(point))
					builder.LeaveOut("vertex " + Grouped(splat) + " " + complaint);
			}
			SPointCloud cloud = builder.Finish();
			cloud.m_YPointsDown = true;
			return cloud;
		}

		const SPlyHeader &m_Header;
		const SCloudOptions &m_Options;
		const SPlyElement &m_Vertices;
		const SPlyElement *m_Harmonics = null;
		u32 m_HarmonicDegree = 0;
		bool m_HasColourSpans = false;
		std::vector<SChunk> m_Chunks;
		std::vector<SWords> m_Words;
		std::vector<u8> m_Coefficients;
	};
} // namespace

bool IsPackedPly(const SPlyHeader &header)
{
	const SPlyElement *const vertices = header.FindElement("vertex");
	return vertices != null && vertices->FindNumber(kWords[0]) && !vertices->FindNumber("x");
}

SPointCloud ReadPackedPly(std::string_view file, const SPlyHeader &header, const SCloudOptions &options)
{
	return CPackedPly(header, options).Read(file);
}
} // namespace Viewer
