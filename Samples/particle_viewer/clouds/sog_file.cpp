// .sog files: a zip archive of lossless images, in which pixel i is splat i, row after row, and of meta.json:
//
//   version  2
//   count    how many splats
//   means    'mins' and 'maxs' of three logarithms; two images, of the high and the low byte of a fraction
//   scales   a 'codebook' of 256 natural logarithms; an image of three entries of it
//   quats    an image: three components but the largest, from -sqrt(1/2) to sqrt(1/2); 252 and which of w, x, y, z
//   sh0      a 'codebook' of 256 coefficients of the constant spherical harmonic; an image: three entries, and alpha
//   shN      where there are others: 'bands', their degree; a palette of 'count' sets of coefficients, each an entry of
//            a 'codebook'; an image of the palette, 64 sets a row, and one that says which set a splat has

#include "cloud_file.h"
#include "smallest_three.h"
#include "splat_number.h"
#include "text.h"
#include "unpacking.h"
#include "webp_image.h"
#include "zip_archive.h"
#include <cmath>
#include <nlohmann/json.hpp>

namespace Viewer
{
namespace
{
	using CJson = nlohmann::json;

	constexpr u64 kMaxMetaSize = 1 << 20;
	constexpr u64 kCodebookSize = 256;
	constexpr u64 kMaxPaletteSize = 1 << 16; // a splat's label has 16 bits
	constexpr u64 kSetsPerRow = 64;
	constexpr u64 kBytesPerPixel = 4;
	constexpr u64 kImageCount = 5; // without spherical harmonics beyond the constant
	constexpr u8 kFirstMode = 252;

	[[noreturn]] void FailInMeta(const std::string &what)
	{
		throw CFailure("'meta.json': " + what + ".");
	}

	/// Values of meta.json, each of which may be missing or of another type.
	class CMeta
	{
	public:
		explicit CMeta(const std::string &text)
			: m_Root(CJson::parse(text, nullptr, false))
		{
			if (!m_Root.is_object())
				FailInMeta("it is no JSON object");
		}

		bool Has(const char *group) const { return m_Root.contains(group); }

		u64 Number(const char *group, const char *name, u64 low, u64 high) const
		{
			const CJson &value = Value(group, name);
			if (!value.is_number_unsigned() || value.get<u64>() < low || value.get<u64>() > high)
				FailInMeta(Path(group, name) + " is no whole number from " + Grouped(low) + " to " + Grouped(high));
			return value.get<u64>();
		}

		std::vector<double> Numbers(const char *group, const char *name, size_t count) const
		{
			const CJson &value = Value(group, name);
			std::vector<double> numbers;
			if (value.is_array())
				for (const CJson &number : value)
					if (number.is_number() && IsFiniteFloat(number.get<double>()))
						numbers.push_back(number.get<double>());
			if (numbers.size() != count || value.size() != count)
				FailInMeta(Path(group, name) + " is no list of " + Grouped(count) + " numbers");
			return numbers;
		}

		std::vector<std::string> Files(const char *group, size_t count) const
		{
			const CJson &value = Value(group, "files");
			std::vector<std::string> names;
			if (value.is_array())
				for (const CJson &name : value)
					if (name.is_string())
						names.push_back(name.get<std::string>());
			if (names.size() != count || value.size() != count)
				FailInMeta(Path(group, "files") + " is no list of " + Grouped(count) + " names");
			return names;
		}

	private:
		static std::string Path(const char *group, const char *name)
		{
			return Quoted(*group == 0 ? name : std::string(group) + "." + name);
		}

		const CJson &Value(const char *group, const char *name) const
		{
			const CJson &object = *group == 0 ? m_Root : Member(m_Root, group);
			return Member(object, name);
		}

		static const CJson &Member(const CJson &object, const char *name)
		{
			static const CJson kNone;
			const auto found = object.find(name);
			return found != object.end() ? *found : kNone;
		}

		CJson m_Root;
	};

	/// The spherical harmonics that splats share.
	struct SPalette
	{
		u32 m_Degree = 0;
		u64 m_Count = 0;
		std::vector<float> m_Coefficients; // per set all of red, then of green, then of blue
		SImage m_Labels;                   // the low byte in red, the high one in green

		u64 Label(u64 splat) const { return m_Labels.Pixel(splat)[0] | u64(m_Labels.Pixel(splat)[1]) << 8; }
		const float *Set(u64 label) const { return &m_Coefficients[label * 3 * HarmonicCount(m_Degree)]; }
	};

	class CSogFile
	{
	public:
		explicit CSogFile(std::string_view file)
			: m_FileSize(file.size())
			, m_Archive(file)
			, m_Meta(m_Archive.Read("meta.json", kMaxMetaSize))
		{
			m_Meta.Number("", "version", 2, 2);
			m_Count = m_Meta.Number("", "count", 1, 0xFFFFFFFF);
			RequirePlausibleSize("'meta.json': 'count' " + Grouped(m_Count) + " of splats in images of " +
									 Grouped(kImageCount * kBytesPerPixel) + " bytes a splat, which",
				m_Count * kImageCount * kBytesPerPixel, m_FileSize);

			m_Mins = m_Meta.Numbers("means", "mins", 3);
			m_Maxs = m_Meta.Numbers("means", "maxs", 3);
			m_ScaleCodebook = m_Meta.Numbers("scales", "codebook", kCodebookSize);
			m_ColourCodebook = m_Meta.Numbers("sh0", "codebook", kCodebookSize);
			const std::vector<std::string> means = m_Meta.Files("means", 2);
			m_LowMeans = ReadSplatImage(means[0]);
			m_HighMeans = ReadSplatImage(means[1]);
			m_Scales = ReadSplatImage(m_Meta.Files("scales", 1)[0]);
			m_Rotations = ReadSplatImage(m_Meta.Files("quats", 1)[0]);
			m_Colours = ReadSplatImage(m_Meta.Files("sh0", 1)[0]);
			if (m_Meta.Has("shN"))
				ReadPalette();
		}

		u64 Count() const { return m_Count; }
		u32 HarmonicDegree() const { return m_Palette.m_Degree; }

		/// What is wrong with a splat, or "".
		std::string Complaint(u64 splat) const
		{
			const u8 mode = m_Rotations.Pixel(splat)[3];
			if (mode < kFirstMode)
				return "has a rotation whose largest component is " + Grouped(mode) + ", which is none of 252 to 255";
			if (HarmonicDegree() != 0 && m_Palette.Label(splat) >= m_Palette.m_Count)
				return "has set " + Grouped(m_Palette.Label(splat)) + " of spherical harmonics, of which there are " +
				       Grouped(m_Palette.m_Count);
			for (u32 axis = 0; axis < 3; ++axis)
				if (!IsFiniteFloat(Position(splat, axis)))
					return "has no finite position";
			return "";
		}

		SCloudPoint Splat(u64 splat) const
		{
			SCloudPoint point;
			for (u32 i = 0; i < 3; ++i)
			{
				point.m_Position[i] = Position(splat, i);
				point.m_LogScales[i] = m_ScaleCodebook[m_Scales.Pixel(splat)[i]];
				point.m_Colour[i] = 0.5 + kHarmonic0 * m_ColourCodebook[m_Colours.Pixel(splat)[i]];
			}
			point.m_Colour[3] = double(m_Colours.Pixel(splat)[3]) / 255.0;
			const u8 *const rotation = m_Rotations.Pixel(splat);
			double others[3];
			for (u32 i = 0; i < 3; ++i)
				others[i] = (double(rotation[i]) / 255.0 - 0.5) * kSqrt2;
			ExpandSmallestThree(rotation[3] - kFirstMode, others, point.m_Rotation);
			if (HarmonicDegree() != 0)
				point.m_Harmonics = m_Palette.Set(m_Palette.Label(splat));
			return point;
		}

	private:
		// Positions are kept as logarithms, so that what is near has finer steps than what is far.
		double Position(u64 splat, u32 axis) const
		{
			const u32 step = u32(m_HighMeans.Pixel(splat)[axis]) << 8 | m_LowMeans.Pixel(splat)[axis];
			const double logarithm = m_Mins[axis] + (m_Maxs[axis] - m_Mins[axis]) * (double(step) / 65535.0);
			return std::copysign(std::expm1(std::abs(logarithm)), logarithm);
		}

		// A pixel per splat; the last rows may be filled up.
		SImage ReadSplatImage(const std::string &name) const
		{
			constexpr u64 kMaxFill = 1 << 16;
			const u64 maxCount = 2 * m_Count + kMaxFill;
			return ReadWebp(name, m_Archive.Read(name, MaxImageSize(maxCount)), m_Count, maxCount);
		}

		/// An image that does not compress takes a little more than its pixels.
		static u64 MaxImageSize(u64 pixelCount) { return pixelCount * kBytesPerPixel + (1 << 16); }

		void ReadPalette()
		{
			m_Palette.m_Degree = u32(m_Meta.Number("shN", "bands", 1, kMaxHarmonicDegree));
			m_Palette.m_Count = m_Meta.Number("shN", "count", 1, kMaxPaletteSize);
			const std::vector<double> codebook = m_Meta.Numbers("shN", "codebook", kCodebookSize);
			const std::vector<std::string> files = m_Meta.Files("shN", 2);
			const u32 count = HarmonicCount(m_Palette.m_Degree);
			const u64 width = kSetsPerRow * count;
			const u64 minHeight = (m_Palette.m_Count + kSetsPerRow - 1) / kSetsPerRow;
			const u64 maxHeight = kMaxPaletteSize / kSetsPerRow;
			const SImage sets = ReadWebp(files[0], m_Archive.Read(files[0], MaxImageSize(width * maxHeight)),
				width * minHeight, width * maxHeight);
			if (sets.m_Width != width)
				throw CFailure("the image " + Quoted(files[0]) + " is " + Grouped(sets.m_Width) +
							   " pixels wide; 64 sets of " + Grouped(count) + " coefficients take " + Grouped(width) +
							   ".");
			m_Palette.m_Labels = ReadSplatImage(files[1]);

			for (u64 set = 0; set < m_Palette.m_Count; ++set)
			{
				const u64 first = set / kSetsPerRow * width + set % kSetsPerRow * count;
				for (u32 channel = 0; channel < 3; ++channel)
					for (u32 i = 0; i < count; ++i)
						m_Palette.m_Coefficients.push_back(float(codebook[sets.Pixel(first + i)[channel]]));
			}
		}

		u64 m_FileSize;
		CZipArchive m_Archive;
		CMeta m_Meta;
		u64 m_Count;
		std::vector<double> m_Mins, m_Maxs;
		std::vector<double> m_ScaleCodebook;
		std::vector<double> m_ColourCodebook;
		SImage m_LowMeans, m_HighMeans, m_Scales, m_Rotations, m_Colours;
		SPalette m_Palette;
	};
} // namespace

SPointCloud ReadSogCloud(std::string_view file, const SCloudOptions &options)
{
	const CSogFile splats(file);
	const CSplatNumber sortNumber(options.m_SortBy);
	CPointCloudBuilder builder(
		splats.Count(), {true, true, !options.m_SortBy.empty(), splats.HarmonicDegree()}, options.m_SkipBad);
	for (u64 splat = 0; splat < splats.Count(); ++splat)
	{
		std::string complaint = splats.Complaint(splat);
		if (complaint.empty())
		{
			SCloudPoint point = splats.Splat(splat);
			point.m_SortValue = sortNumber.Of(point);
			const char *const refusal = builder.Add(point);
			complaint = refusal != null ? refusal : "";
		}
		if (!complaint.empty())
			builder.LeaveOut("splat " + Grouped(splat) + " " + complaint);
	}
	SPointCloud cloud = builder.Finish();
	cloud.m_YPointsDown = true;
	return cloud;
}
} // namespace Viewer
