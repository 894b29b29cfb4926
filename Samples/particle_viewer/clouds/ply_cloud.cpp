// What the properties of a PLY file's vertices mean: points with or without colours, or splats as they come out of
// training.

#include "cloud_file.h"
#include "packed_ply.h"
#include "ply_body.h"
#include "text.h"
#include <cmath>

namespace Viewer
{
namespace
{
	/// Which properties are read, and where each stands among the values of a vertex.
	class CColumns
	{
	public:
		CColumns(const SPlyElement &vertices, const std::string &sortBy)
			: m_Vertices(vertices)
		{
			Require("a point", {"x", "y", "z"});
			m_HasShapes = HasAny({"f_dc_0", "scale_0", "rot_0"});
			if (m_HasShapes)
				Require("a splat", {"f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1", "scale_2", "rot_0",
									   "rot_1", "rot_2", "rot_3"});
			else
				AddColours();
			if (m_HasShapes)
				AddHarmonics();
			if (!sortBy.empty())
				AddSortValue(sortBy);
		}

		const std::vector<u32> &Properties() const { return m_Properties; }
		CPointCloudBuilder::SContents Contents() const
		{
			return {m_HasColours || m_HasShapes, m_HasShapes, m_HasSortValues, m_HarmonicDegree};
		}

		/// The first of a row's values that is no finite number of 32 bits, or null.
		const SPlyProperty *FindNotFinite(const double *values) const
		{
			for (const u32 property : m_Properties)
				if (!IsFiniteFloat(*values++))
					return &m_Vertices.m_Properties[property];
			return null;
		}

		/// Valid until the next one is asked for.
		SCloudPoint Point(const double *values)
		{
			SCloudPoint point;
			const auto take = [&values](auto *to, u32 count)
			{
				for (u32 i = 0; i < count; ++i)
					to[i] = std::decay_t<decltype(*to)>(*values++);
			};
			take(point.m_Position, 3);
			if (m_HasShapes)
			{
				take(point.m_Colour, 4);
				take(point.m_LogScales, 3);
				take(point.m_Rotation, 4);
				for (u32 channel = 0; channel < 3; ++channel)
					point.m_Colour[channel] = 0.5 + kHarmonic0 * point.m_Colour[channel];
				point.m_Colour[3] = 1.0 / (1.0 + std::exp(-point.m_Colour[3]));
				take(m_Harmonics, 3 * HarmonicCount(m_HarmonicDegree));
				point.m_Harmonics = m_Harmonics;
			}
			if (m_HasColours)
				take(point.m_Colour, 3);
			if (m_HasAlpha)
				take(point.m_Colour + 3, 1);
			for (u32 channel = 0; channel < 4 && !m_HasShapes; ++channel)
				point.m_Colour[channel] *= m_ColourScales[channel];
			if (m_HasSortValues)
				take(&point.m_SortValue, 1);
			return point;
		}

	private:
		typedef std::vector<const char *> CNames;

		bool HasAny(const CNames &names) const
		{
			for (const char *name : names)
				if (m_Vertices.FindNumber(name))
					return true;
			return false;
		}
		bool HasAll(const CNames &names) const
		{
			for (const char *name : names)
				if (!m_Vertices.FindNumber(name))
					return false;
			return true;
		}

		void Add(const char *name) { m_Properties.push_back(*m_Vertices.FindNumber(name)); }

		void Require(const char *what, const CNames &names)
		{
			for (const char *name : names)
			{
				if (!m_Vertices.FindNumber(name))
					throw CFailure("the header: " + std::string(what) + " has to have a number " + Quoted(name) +
								   ", and the vertices here have none.");
				Add(name);
			}
		}

		// Scanners and modellers do not agree on names.
		void AddColours()
		{
			const CNames candidates[] = {
				{"red",         "green",         "blue"        },
                {"r",           "g",             "b"           },
                {"diffuse_red", "diffuse_green", "diffuse_blue"}
            };
			for (const CNames &names : candidates)
			{
				if (m_HasColours || !HasAll(names))
					continue;
				m_HasColours = true;
				for (u32 channel = 0; channel < 3; ++channel)
					AddChannel(names[channel], channel);
			}
			m_HasAlpha = HasAny({"alpha"});
			if (m_HasAlpha)
				AddChannel("alpha", 3);
		}

		void AddChannel(const char *name, u32 channel)
		{
			Add(name);
			const SPlyTypeTraits &type = Traits(m_Vertices.m_Properties[m_Properties.back()].m_Type);
			m_ColourScales[channel] = type.m_IsInteger ? 1.0 / type.m_Largest : 1.0;
		}

		// f_rest_0 and so on: all coefficients of red, then of green, then of blue.
		void AddHarmonics()
		{
			u32 count = 0;
			for (; m_Vertices.FindNumber("f_rest_" + std::to_string(count)); ++count)
				Add(("f_rest_" + std::to_string(count)).c_str());
			while (m_HarmonicDegree < kMaxHarmonicDegree && 3 * HarmonicCount(m_HarmonicDegree) < count)
				++m_HarmonicDegree;
			if (count != 3 * HarmonicCount(m_HarmonicDegree))
				throw CFailure(
					"the header: a splat has 9, 24 or 45 numbers 'f_rest_0' and so on, or none; here there " +
					("are " + Grouped(count)) + ".");
		}

		void AddSortValue(const std::string &name)
		{
			if (!m_Vertices.FindNumber(name))
				throw CFailure("the header: there is no property " + Quoted(name) + " to sort by; there are " +
							   NumericProperties() + ".");
			m_HasSortValues = true;
			Add(name.c_str());
		}

		std::string NumericProperties() const
		{
			std::string names;
			for (const SPlyProperty &property : m_Vertices.m_Properties)
				if (!property.m_CountType)
					names += (names.empty() ? "" : ", ") + Quoted(property.m_Name);
			return names;
		}

		const SPlyElement &m_Vertices;
		std::vector<u32> m_Properties;
		double m_ColourScales[4] = {1.0, 1.0, 1.0, 1.0};
		float m_Harmonics[3 * HarmonicCount(kMaxHarmonicDegree)] = {};
		u32 m_HarmonicDegree = 0;
		bool m_HasShapes = false;
		bool m_HasColours = false;
		bool m_HasAlpha = false;
		bool m_HasSortValues = false;
	};

	SPointCloud ReadPlainCloud(
		std::string_view file, const SPlyHeader &header, const SPlyElement &vertices, const SCloudOptions &options)
	{
		CColumns columns(vertices, options.m_SortBy);
		CPointCloudBuilder builder(vertices.m_Count, columns.Contents(), options.m_SkipBad);
		const auto addVertex = [&builder, &columns](const SPlyRow &row)
		{
			std::string complaint;
			const SPlyProperty *const notFinite = columns.FindNotFinite(row.m_Values);
			if (notFinite != null)
				complaint = "has no finite " + Quoted(notFinite->m_Name);
			else if (const char *const refusal = builder.Add(columns.Point(row.m_Values)))
				complaint = refusal;
			if (!complaint.empty())
				builder.LeaveOut(row.m_Body.Where() + ": vertex " + Grouped(row.m_Number) + " " + complaint);
		};
		ReadPlyBody(file, header,
			{
				{&vertices, columns.Properties(), addVertex}
        });
		SPointCloud cloud = builder.Finish();
		cloud.m_YPointsDown = !cloud.m_Shapes.empty();
		return cloud;
	}
} // namespace

SPointCloud ReadPlyCloud(std::string_view file, const SCloudOptions &options)
{
	const SPlyHeader header = ReadPlyHeader(file);
	const SPlyElement *const vertices = header.FindElement("vertex");
	if (vertices == null)
		FailAtLine(header.m_LineCount, "the header ends without an element 'vertex'");
	return IsPackedPly(header) ? ReadPackedPly(file, header, options)
	                           : ReadPlainCloud(file, header, *vertices, options);
}
} // namespace Viewer
