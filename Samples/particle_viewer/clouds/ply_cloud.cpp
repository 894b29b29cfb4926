// What the properties of a PLY file's vertices mean: points with or without colours, or splats as they come out of
// training.

#include "failure.h"
#include "ply_file.h"
#include "point_cloud.h"
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
		CColumns(const CPlyFile &file, const std::string &sortBy)
			: m_File(file)
		{
			RefusePacked();
			Require("a point", {"x", "y", "z"});
			m_HasShapes = HasAny({"f_dc_0", "scale_0", "rot_0"});
			if (m_HasShapes)
				Require("a splat", {"f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1", "scale_2", "rot_0",
									   "rot_1", "rot_2", "rot_3"});
			else
				AddColours();
			if (!sortBy.empty())
				AddSortValue(sortBy);
		}

		const std::vector<u32> &Properties() const { return m_Properties; }
		CPointCloudBuilder::SContents Contents() const
		{
			return {m_HasColours || m_HasShapes, m_HasShapes, m_HasSortValues};
		}

		SCloudPoint Point(const double *values) const
		{
			SCloudPoint point;
			const auto take = [&values](double *to, u32 count)
			{
				for (u32 i = 0; i < count; ++i)
					to[i] = *values++;
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
		static constexpr double kHarmonic0 = 0.28209479177387814; // the constant spherical harmonic, 1 / (2 sqrt(pi))

		typedef std::vector<const char *> CNames;

		bool HasAny(const CNames &names) const
		{
			for (const char *name : names)
				if (m_File.FindNumber(name))
					return true;
			return false;
		}
		bool HasAll(const CNames &names) const
		{
			for (const char *name : names)
				if (!m_File.FindNumber(name))
					return false;
			return true;
		}

		void Add(const char *name) { m_Properties.push_back(*m_File.FindNumber(name)); }

		void RefusePacked() const
		{
			if (HasAny({"packed_position"}) && !HasAny({"x"}))
				throw CFailure("the header: its vertices are packed in chunks ('packed_position'), which is not read; "
							   "save it as a PLY file of plain splats.");
		}

		void Require(const char *what, const CNames &names)
		{
			for (const char *name : names)
			{
				if (!m_File.FindNumber(name))
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
			m_ColourScales[channel] =
				1.0 / CPlyFile::FullScale(m_File.Vertices().m_Properties[m_Properties.back()].m_Type);
		}

		void AddSortValue(const std::string &name)
		{
			if (!m_File.FindNumber(name))
				throw CFailure("the header: there is no property " + Quoted(name) + " to sort by; there are " +
							   NumericProperties() + ".");
			m_HasSortValues = true;
			Add(name.c_str());
		}

		std::string NumericProperties() const
		{
			std::string names;
			for (const SPlyProperty &property : m_File.Vertices().m_Properties)
				if (!property.m_CountType)
					names += (names.empty() ? "" : ", ") + Quoted(property.m_Name);
			return names;
		}

		const CPlyFile &m_File;
		std::vector<u32> m_Properties;
		double m_ColourScales[4] = {1.0, 1.0, 1.0, 1.0};
		bool m_HasShapes = false;
		bool m_HasColours = false;
		bool m_HasAlpha = false;
		bool m_HasSortValues = false;
	};
} // namespace

SPointCloud ReadPlyCloud(std::string_view bytes, const std::string &sortBy)
{
	const CPlyFile file(bytes);
	const CColumns columns(file, sortBy);
	CPointCloudBuilder builder(file.Vertices().m_Count, columns.Contents());
	file.ReadVertices(columns.Properties(),
		[&builder, &columns](const double *values) { return builder.Add(columns.Point(values)); });
	return builder.Finish();
}
} // namespace Viewer
