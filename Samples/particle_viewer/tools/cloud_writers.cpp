#include "cloud_writers.h"

#include "half.h"
#include "packers.h"
#include "point_cloud.h"
#include "smallest_three.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>

namespace Viewer
{
namespace
{
	// Bytes.

	void AppendLow(std::string &file, u32 number, u32 byteCount)
	{
		for (u32 i = 0; i < byteCount; ++i)
			file += char(number >> (8 * i) & 0xFF);
	}

	void AppendFloat(std::string &file, float number, bool bigEndian = false)
	{
		u32 bits = 0;
		std::memcpy(&bits, &number, sizeof(bits));
		for (u32 i = 0; i < 4; ++i)
			file += char(bits >> (8 * (bigEndian ? 3 - i : i)) & 0xFF);
	}

	void AppendFloats(std::string &file, const float *numbers, u32 count)
	{
		for (u32 i = 0; i < count; ++i)
			AppendFloat(file, numbers[i]);
	}

	/// The nearest of the whole numbers from 0 to `last`, of a share from 0 to 1.
	u32 Step(double share, u32 last)
	{
		return u32(std::clamp(share, 0.0, 1.0) * double(last) + 0.5);
	}

	u32 ColourByte(float share)
	{
		return u32(std::clamp(share, 0.0f, 1.0f) * 255.0f + 0.5f);
	}

	float Coefficient(float colour)
	{
		return (colour - 0.5f) / float(kHarmonic0);
	}

	u32 CoefficientCount(const SMadeSplats &splats)
	{
		return 3 * HarmonicCount(splats.m_HarmonicDegree);
	}

	// PLY files.

	std::string PlyHeader(const std::string &format, const std::string &elements)
	{
		return "ply\nformat " + format + " 1.0\n" + elements + "end_header\n";
	}

	std::string Element(
		const std::string &name, size_t count, const char *type, const std::vector<std::string> &properties)
	{
		std::string lines = "element " + name + " " + std::to_string(count) + "\n";
		for (const std::string &property : properties)
			lines += std::string("property ") + type + " " + property + "\n";
		return lines;
	}

	std::vector<std::string> HarmonicNames(const SMadeSplats &splats)
	{
		std::vector<std::string> names;
		for (u32 i = 0; i < CoefficientCount(splats); ++i)
			names.push_back("f_rest_" + std::to_string(i));
		return names;
	}

	// Packed rotations.

	/// The components but the largest, made as if that one were positive; returns which one that is.
	u32 SmallestThree(const float rotation[4], double others[3])
	{
		const u32 largest =
			u32(std::max_element(rotation, rotation + 4, [](float a, float b) { return std::abs(a) < std::abs(b); }) -
				rotation);
		const double sign = rotation[largest] < 0.0f ? -1.0 : 1.0;
		for (u32 i = 0; i < 4; ++i)
			if (i != largest)
				*others++ = sign * double(rotation[i]);
		return largest;
	}

	// Chunks of a packed PLY file.

	struct SSpan
	{
		float m_Min[3] = {INFINITY, INFINITY, INFINITY};
		float m_Max[3] = {-INFINITY, -INFINITY, -INFINITY};

		void Add(const float numbers[3])
		{
			for (u32 axis = 0; axis < 3; ++axis)
			{
				m_Min[axis] = std::min(m_Min[axis], numbers[axis]);
				m_Max[axis] = std::max(m_Max[axis], numbers[axis]);
			}
		}
		double Share(u32 axis, float number) const
		{
			const double extent = double(m_Max[axis]) - double(m_Min[axis]);
			return extent == 0.0 ? 0.0 : (double(number) - double(m_Min[axis])) / extent;
		}
		u32 Pack111011(const float numbers[3]) const
		{
			return Step(Share(0, numbers[0]), 2047) << 21 | Step(Share(1, numbers[1]), 1023) << 11 |
			       Step(Share(2, numbers[2]), 2047);
		}
	};

	struct SLogScales
	{
		float m_Numbers[3];
	};

	SLogScales LogScales(const SMadeSplat &splat)
	{
		return {std::log(splat.m_Scales[0]), std::log(splat.m_Scales[1]), std::log(splat.m_Scales[2])};
	}

	struct SChunk
	{
		SSpan m_Positions, m_LogScales, m_Colours;

		void Add(const SMadeSplat &splat)
		{
			m_Positions.Add(splat.m_Position);
			m_LogScales.Add(LogScales(splat).m_Numbers);
			m_Colours.Add(splat.m_Colour);
		}
	};

	void AppendPacked(std::string &file, const SMadeSplat &splat, const SChunk &chunk)
	{
		double others[3];
		u32 rotation = SmallestThree(splat.m_Rotation, others) << 30;
		for (u32 i = 0; i < 3; ++i)
			rotation |= Step(others[i] / kSqrt2 + 0.5, 1023) << (20 - 10 * i);
		u32 colour = ColourByte(splat.m_Alpha);
		for (u32 i = 0; i < 3; ++i)
			colour |= Step(chunk.m_Colours.Share(i, splat.m_Colour[i]), 255) << (24 - 8 * i);
		for (const u32 word : {chunk.m_Positions.Pack111011(splat.m_Position), rotation,
				 chunk.m_LogScales.Pack111011(LogScales(splat).m_Numbers), colour})
			AppendLow(file, word, 4);
	}

	// Images of a .sog file.

	u32 ImageWidth(size_t pixelCount)
	{
		return std::max(4u, (u32(std::ceil(std::sqrt(double(pixelCount)))) + 3) / 4 * 4);
	}

	typedef std::function<void(size_t splat, u8 *pixel)> CbPixel;

	/// A pixel per splat, which comes opaque and black; the last row is filled up.
	std::string SplatImage(size_t count, const CbPixel &paint)
	{
		const u32 width = ImageWidth(count);
		std::vector<u8> rgba(4 * ((count + width - 1) / width) * width);
		for (size_t i = 0; i < rgba.size() / 4; ++i)
		{
			rgba[4 * i + 3] = 255;
			if (i < count)
				paint(i, &rgba[4 * i]);
		}
		return Webp(rgba, width);
	}

	/// 256 numbers, evenly from the least to the largest of those added.
	class CCodebook
	{
	public:
		void Add(float number)
		{
			m_Min = std::min(m_Min, number);
			m_Max = std::max(m_Max, number);
		}
		u8 Find(float number) const
		{
			return u8(
				m_Max == m_Min ? 0 : Step((double(number) - double(m_Min)) / (double(m_Max) - double(m_Min)), 255));
		}
		std::vector<float> Entries() const
		{
			std::vector<float> entries;
			for (u32 i = 0; i < 256; ++i)
				entries.push_back(m_Min + (m_Max - m_Min) * float(i) / 255.0f);
			return entries;
		}

	private:
		float m_Min = INFINITY;
		float m_Max = -INFINITY;
	};

	/// Which splats have the same set of spherical harmonics.
	struct SPalette
	{
		std::vector<u32> m_Labels; // per splat
		std::vector<u32> m_Splats; // per set, the splat that it is taken from
	};

	SPalette ChoosePalette(const SMadeSplats &splats)
	{
		constexpr size_t kMaxSetCount = 65536;
		const size_t count = splats.m_Splats.size();
		const size_t perSet = (count + kMaxSetCount - 1) / kMaxSetCount;
		std::vector<u32> order(count);
		std::iota(order.begin(), order.end(), 0u);
		if (perSet > 1) // where the first three coefficients are alike, in made splats all others are
			std::stable_sort(order.begin(), order.end(),
				[&splats](u32 a, u32 b)
				{ return PlaceOnCurve(splats.Harmonics(a)) < PlaceOnCurve(splats.Harmonics(b)); });
		SPalette palette = {std::vector<u32>(count), {}};
		for (size_t i = 0; i < count; ++i)
		{
			if (i % perSet == 0)
				palette.m_Splats.push_back(order[i]);
			palette.m_Labels[order[i]] = u32(palette.m_Splats.size() - 1);
		}
		return palette;
	}

	void AddHarmonics(const SMadeSplats &splats, nlohmann::json &meta, std::map<std::string, std::string> &files)
	{
		constexpr u32 kSetsPerRow = 64;
		const u32 count = HarmonicCount(splats.m_HarmonicDegree);
		const SPalette palette = ChoosePalette(splats);
		CCodebook codebook;
		for (const float coefficient : splats.m_Harmonics)
			codebook.Add(coefficient);
		const u32 width = kSetsPerRow * count;
		std::vector<u8> rgba(4 * width * ((palette.m_Splats.size() + kSetsPerRow - 1) / kSetsPerRow), 255);
		for (size_t set = 0; set < palette.m_Splats.size(); ++set)
			for (u32 i = 0; i < count; ++i)
				for (u32 channel = 0; channel < 3; ++channel)
					rgba[4 * (set * count + i) + channel] =
						codebook.Find(splats.Harmonics(palette.m_Splats[set])[channel * count + i]);
		files["shN_centroids.webp"] = Webp(rgba, width);
		files["shN_labels.webp"] = SplatImage(splats.m_Splats.size(),
			[&palette](size_t splat, u8 *pixel)
			{
				pixel[0] = u8(palette.m_Labels[splat] & 0xFF);
				pixel[1] = u8(palette.m_Labels[splat] >> 8);
			});
		meta["shN"] = {
			{"count",    palette.m_Splats.size()                  },
            {"bands",    splats.m_HarmonicDegree                  },
            {"codebook", codebook.Entries()                       },
			{"files",    {"shN_centroids.webp", "shN_labels.webp"}}
        };
	}

	float Logarithm(float number)
	{
		return std::copysign(std::log1p(std::abs(number)), number);
	}

	/// Version 2 has a byte for each of the first three components, version 3 a word of the smallest three of x, y, z,
	/// w.
	void AppendSpzRotation(std::string &file, const float rotation[4], u32 version)
	{
		if (version < 3)
		{
			const float sign = rotation[0] < 0.0f ? -1.0f : 1.0f;
			for (u32 i = 1; i < 4; ++i)
				file += char(Step(double(sign * rotation[i]) * 0.5 + 0.5, 255));
			return;
		}
		const float xyzw[4] = {rotation[1], rotation[2], rotation[3], rotation[0]};
		double others[3];
		u32 word = SmallestThree(xyzw, others) << 30;
		for (u32 i = 0; i < 3; ++i)
			word |= (Step(std::abs(others[i]) * kSqrt2, 511) | (others[i] < 0.0 ? 0x200u : 0u)) << (20 - 10 * i);
		AppendLow(file, word, 4);
	}
} // namespace

std::string WriteSplatPly(const SMadeSplats &splats)
{
	std::vector<std::string> names = {"x", "y", "z", "f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1",
		"scale_2", "rot_0", "rot_1", "rot_2", "rot_3"};
	const std::vector<std::string> harmonics = HarmonicNames(splats);
	names.insert(names.end(), harmonics.begin(), harmonics.end());
	std::string file = PlyHeader("binary_little_endian", Element("vertex", splats.m_Splats.size(), "float", names));
	for (size_t i = 0; i < splats.m_Splats.size(); ++i)
	{
		const SMadeSplat &splat = splats.m_Splats[i];
		AppendFloats(file, splat.m_Position, 3);
		for (const float colour : splat.m_Colour)
			AppendFloat(file, Coefficient(colour));
		AppendFloat(file, std::log(splat.m_Alpha / (1.0f - splat.m_Alpha)));
		AppendFloats(file, LogScales(splat).m_Numbers, 3);
		AppendFloats(file, splat.m_Rotation, 4);
		AppendFloats(file, splats.Harmonics(i), CoefficientCount(splats));
	}
	return file;
}

std::string WritePackedPly(const SMadeSplats &splats)
{
	constexpr size_t kSplatsPerChunk = 256;
	const size_t count = splats.m_Splats.size();
	std::vector<SChunk> chunks((count + kSplatsPerChunk - 1) / kSplatsPerChunk);
	for (size_t i = 0; i < count; ++i)
		chunks[i / kSplatsPerChunk].Add(splats.m_Splats[i]);

	std::string elements = Element("chunk", chunks.size(), "float",
		{"min_x", "min_y", "min_z", "max_x", "max_y", "max_z", "min_scale_x", "min_scale_y", "min_scale_z",
			"max_scale_x", "max_scale_y", "max_scale_z", "min_r", "min_g", "min_b", "max_r", "max_g", "max_b"});
	elements +=
		Element("vertex", count, "uint", {"packed_position", "packed_rotation", "packed_scale", "packed_color"});
	if (splats.m_HarmonicDegree != 0)
		elements += Element("sh", count, "uchar", HarmonicNames(splats));
	std::string file = PlyHeader("binary_little_endian", elements);
	for (const SChunk &chunk : chunks)
		for (const SSpan *span : {&chunk.m_Positions, &chunk.m_LogScales, &chunk.m_Colours})
		{
			AppendFloats(file, span->m_Min, 3);
			AppendFloats(file, span->m_Max, 3);
		}
	for (size_t i = 0; i < count; ++i)
		AppendPacked(file, splats.m_Splats[i], chunks[i / kSplatsPerChunk]);
	for (const float coefficient : splats.m_Harmonics)
		file += char(std::clamp(s32(std::floor((double(coefficient) / 8.0 + 0.5) * 256.0)), 0, 255));
	return file;
}

std::string WriteSplat(const SMadeSplats &splats)
{
	std::string file;
	for (const SMadeSplat &splat : splats.m_Splats)
	{
		AppendFloats(file, splat.m_Position, 3);
		AppendFloats(file, splat.m_Scales, 3);
		for (const float colour : splat.m_Colour)
			file += char(ColourByte(colour));
		file += char(ColourByte(splat.m_Alpha));
		for (const float number : splat.m_Rotation)
			file += char(u32(std::clamp(number * 128.0f + 128.0f, 0.0f, 255.0f)));
	}
	return file;
}

std::string WriteSpz(const SMadeSplats &splats, u32 version)
{
	constexpr u32 kFractionBits = 12;
	const std::vector<SMadeSplat> &all = splats.m_Splats;
	std::string file = "NGSP";
	AppendLow(file, version, 4);
	AppendLow(file, u32(all.size()), 4);
	AppendLow(file, splats.m_HarmonicDegree | kFractionBits << 8, 4);
	for (const SMadeSplat &splat : all)
		for (const float number : splat.m_Position)
		{
			if (version == 1)
				AppendLow(file, ToHalf(number), 2);
			else
				AppendLow(file, u32(std::lround(std::ldexp(number, kFractionBits))), 3);
		}
	for (const SMadeSplat &splat : all)
		file += char(ColourByte(splat.m_Alpha));
	for (const SMadeSplat &splat : all)
		for (const float colour : splat.m_Colour)
			file += char(Step(double(Coefficient(colour)) * 0.15 + 0.5, 255));
	for (const SMadeSplat &splat : all)
		for (const float scale : splat.m_Scales)
			file += char(Step((std::log(double(scale)) + 10.0) * 16.0 / 255.0, 255));
	for (const SMadeSplat &splat : all)
		AppendSpzRotation(file, splat.m_Rotation, version);
	const u32 count = HarmonicCount(splats.m_HarmonicDegree);
	for (size_t i = 0; i < all.size(); ++i)
		for (u32 coefficient = 0; coefficient < count; ++coefficient)
			for (u32 channel = 0; channel < 3; ++channel)
				file += char(std::clamp(
					s32(std::lround(splats.Harmonics(i)[channel * count + coefficient] * 128.0f)) + 128, 0, 255));
	return Gzip(file);
}

std::string WriteSog(const SMadeSplats &splats)
{
	const std::vector<SMadeSplat> &all = splats.m_Splats;
	SSpan means;
	CCodebook scales, colours;
	for (const SMadeSplat &splat : all)
	{
		const float logarithms[3] = {
			Logarithm(splat.m_Position[0]), Logarithm(splat.m_Position[1]), Logarithm(splat.m_Position[2])};
		means.Add(logarithms);
		for (u32 i = 0; i < 3; ++i)
		{
			scales.Add(LogScales(splat).m_Numbers[i]);
			colours.Add(Coefficient(splat.m_Colour[i]));
		}
	}
	const auto meanByte = [&all, &means](u32 shift)
	{
		return [&all, &means, shift](size_t splat, u8 *pixel)
		{
			for (u32 i = 0; i < 3; ++i)
				pixel[i] = u8(Step(means.Share(i, Logarithm(all[splat].m_Position[i])), 65535) >> shift & 0xFF);
		};
	};

	std::map<std::string, std::string> files;
	files["means_l.webp"] = SplatImage(all.size(), meanByte(0));
	files["means_u.webp"] = SplatImage(all.size(), meanByte(8));
	files["scales.webp"] = SplatImage(all.size(),
		[&all, &scales](size_t splat, u8 *pixel)
		{
			for (u32 i = 0; i < 3; ++i)
				pixel[i] = scales.Find(LogScales(all[splat]).m_Numbers[i]);
		});
	files["quats.webp"] = SplatImage(all.size(),
		[&all](size_t splat, u8 *pixel)
		{
			double others[3];
			pixel[3] = u8(252 + SmallestThree(all[splat].m_Rotation, others));
			for (u32 i = 0; i < 3; ++i)
				pixel[i] = u8(Step(others[i] / kSqrt2 + 0.5, 255));
		});
	files["sh0.webp"] = SplatImage(all.size(),
		[&all, &colours](size_t splat, u8 *pixel)
		{
			for (u32 i = 0; i < 3; ++i)
				pixel[i] = colours.Find(Coefficient(all[splat].m_Colour[i]));
			pixel[3] = u8(ColourByte(all[splat].m_Alpha));
		});
	nlohmann::json meta = {
		{"version", 2                                                                                          },
        {"count",   all.size()                                                                                 },
		{"means",   {{"mins", means.m_Min}, {"maxs", means.m_Max}, {"files", {"means_l.webp", "means_u.webp"}}}},
		{"scales",  {{"codebook", scales.Entries()}, {"files", {"scales.webp"}}}                               },
		{"quats",   {{"files", {"quats.webp"}}}                                                                },
        {"sh0",     {{"codebook", colours.Entries()}, {"files", {"sh0.webp"}}}                                 }
    };
	if (splats.m_HarmonicDegree != 0)
		AddHarmonics(splats, meta, files);
	files["meta.json"] = meta.dump();
	return Zip(files);
}

std::string WritePoints(const SMadeSplats &splats, EPointFormat format)
{
	constexpr const char *kFormats[] = {"ascii", "binary_little_endian", "binary_big_endian"};
	std::string file =
		PlyHeader(kFormats[u32(format)], Element("vertex", splats.m_Splats.size(), "float", {"x", "y", "z"}) +
											 "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty "
											 "uchar alpha\nproperty float age\n");
	for (const SMadeSplat &splat : splats.m_Splats)
	{
		const float *const at = splat.m_Position;
		const u32 colour[] = {ColourByte(splat.m_Colour[0]), ColourByte(splat.m_Colour[1]),
			ColourByte(splat.m_Colour[2]), ColourByte(splat.m_Alpha)};
		if (format == EPointFormat::Ascii)
		{
			char line[160];
			std::snprintf(line, sizeof(line), "%.9g %.9g %.9g %u %u %u %u %.9g\n", double(at[0]), double(at[1]),
				double(at[2]), colour[0], colour[1], colour[2], colour[3], double(splat.m_Age));
			file += line;
			continue;
		}
		const bool bigEndian = format == EPointFormat::BigEndian;
		for (u32 axis = 0; axis < 3; ++axis)
			AppendFloat(file, at[axis], bigEndian);
		for (const u32 byte : colour)
			file += char(byte);
		AppendFloat(file, splat.m_Age, bigEndian);
	}
	return file;
}
} // namespace Viewer
