// .spz files: a gzip stream of 16 bytes of header, the low byte first,
//
//   0   magic 'NGSP'
//   4   version: 1, 2 or 3
//   8   how many splats
//   12  degree of the spherical harmonics, 0 to 3
//   13  bits behind the point of a position's numbers
//   14  flags, which say how it was trained; one byte more
//
// and then all positions, all alphas, all colours, all scales, all rotations, all spherical harmonics. The y axis
// points up.

#include "bytes.h"
#include "cloud_file.h"
#include "gzip_reader.h"
#include "half.h"
#include "smallest_three.h"
#include "splat_number.h"
#include "text.h"
#include "unpacking.h"
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u64 kHeaderSize = 16;
	constexpr u32 kLastVersion = 3;
	constexpr u32 kMaxFractionBits = 24;  // of the 24 that a position's number has
	constexpr double kColourScale = 0.15; // of the constant harmonic's coefficient in a colour byte

	[[noreturn]] void Fail(u64 offset, const std::string &what)
	{
		throw CFailure("byte " + Grouped(offset) + " of what it unpacks to: " + what + ".");
	}

	struct SSpzHeader
	{
		u32 m_Version;
		u64 m_Count;
		u32 m_HarmonicDegree;
		u32 m_FractionBits;

		bool HasHalfPositions() const { return m_Version == 1; }
		bool HasSmallestThree() const { return m_Version >= 3; }
		u64 PositionSize() const { return HasHalfPositions() ? 6 : 9; }
		u64 RotationSize() const { return HasSmallestThree() ? 4 : 3; }
		u64 HarmonicsSize() const { return 3 * HarmonicCount(m_HarmonicDegree); }
		/// Position, alpha, colour, scale, rotation, harmonics.
		u64 SplatSize() const { return PositionSize() + 1 + 3 + 3 + RotationSize() + HarmonicsSize(); }
	};

	SSpzHeader ReadHeader(const std::string &bytes)
	{
		if (bytes.substr(0, 4) != "NGSP")
			Fail(0, "an .spz file starts with 'NGSP', this one with " + Quoted(bytes) +
						"; other files that gzip has packed are not read");
		if (bytes.size() < kHeaderSize)
			Fail(bytes.size(), "the file ends before its header does");
		const SSpzHeader header = {LoadU32(&bytes[4]), LoadU32(&bytes[8]), u32(u8(bytes[12])), u32(u8(bytes[13]))};
		if (header.m_Version == 0 || header.m_Version > kLastVersion)
			Fail(4, "of .spz, the versions 1 to 3 are read, and this is version " + Grouped(header.m_Version));
		if (header.m_HarmonicDegree > kMaxHarmonicDegree)
			Fail(12, "the degree of spherical harmonics is from 0 to 3, not " + Grouped(header.m_HarmonicDegree));
		if (header.m_FractionBits > kMaxFractionBits)
			Fail(13, "a position's number has 24 bits, which cannot be followed by a point " +
						 Grouped(header.m_FractionBits) + " bits before their end");
		return header;
	}

	double Fixed24(const char *bytes, u32 fractionBits)
	{
		const s32 number = s32(LoadU24(bytes) ^ 0x800000) - 0x800000; // the sign bit, spread upwards
		return std::ldexp(double(number), -int(fractionBits));
	}

	// Three bytes x, y, z from -1 to 1; w is what is left of the length 1.
	void FirstThree(const char *bytes, double *rotation)
	{
		double others[3];
		for (u32 i = 0; i < 3; ++i)
			others[i] = double(u8(bytes[i])) / 127.5 - 1.0;
		ExpandSmallestThree(0, others, rotation);
	}

	// 2 bits that say which of x, y, z, w is the largest, then each other one in that order: a sign bit and nine of
	// size, up to sqrt(1/2).
	void SmallestThree(const char *bytes, double *rotation)
	{
		const u32 word = LoadU32(bytes);
		double others[3];
		for (u32 i = 0; i < 3; ++i)
		{
			const u32 bits = word >> (20 - 10 * i);
			const double size = double(bits & 0x1FF) / 511.0 / kSqrt2;
			others[i] = (bits & 0x200) != 0 ? -size : size;
		}
		double xyzw[4];
		ExpandSmallestThree(word >> 30, others, xyzw);
		rotation[0] = xyzw[3];
		for (u32 i = 0; i < 3; ++i)
			rotation[i + 1] = xyzw[i];
	}

	/// Takes the arrays apart that follow the header.
	class CSpzSplats
	{
	public:
		CSpzSplats(const SSpzHeader &header, const char *bytes)
			: m_Header(header)
			, m_Positions(bytes)
			, m_Alphas(m_Positions + header.m_Count * header.PositionSize())
			, m_Colours(m_Alphas + header.m_Count)
			, m_Scales(m_Colours + header.m_Count * 3)
			, m_Rotations(m_Scales + header.m_Count * 3)
			, m_Harmonics(m_Rotations + header.m_Count * header.RotationSize())
		{
		}

		/// Valid until the next one is asked for.
		SCloudPoint Splat(u64 splat)
		{
			SCloudPoint point;
			const char *const position = m_Positions + splat * m_Header.PositionSize();
			for (u32 i = 0; i < 3; ++i)
			{
				point.m_Position[i] = m_Header.HasHalfPositions() ? double(FromHalf(u16(LoadU16(position + 2 * i))))
				                                                  : Fixed24(position + 3 * i, m_Header.m_FractionBits);
				const double coefficient = (double(u8(m_Colours[splat * 3 + i])) / 255.0 - 0.5) / kColourScale;
				point.m_Colour[i] = 0.5 + kHarmonic0 * coefficient;
				point.m_LogScales[i] = double(u8(m_Scales[splat * 3 + i])) / 16.0 - 10.0;
			}
			point.m_Colour[3] = double(u8(m_Alphas[splat])) / 255.0;
			const char *const rotation = m_Rotations + splat * m_Header.RotationSize();
			(m_Header.HasSmallestThree() ? SmallestThree : FirstThree)(rotation, point.m_Rotation);
			LoadHarmonics(splat);
			point.m_Harmonics = m_Coefficients;
			return point;
		}

	private:
		// Red, green and blue of a coefficient lie together.
		void LoadHarmonics(u64 splat)
		{
			const u32 count = HarmonicCount(m_Header.m_HarmonicDegree);
			const char *byte = m_Harmonics + splat * m_Header.HarmonicsSize();
			for (u32 i = 0; i < count; ++i)
				for (u32 channel = 0; channel < 3; ++channel)
					m_Coefficients[channel * count + i] = (float(u8(*byte++)) - 128.0f) / 128.0f;
		}

		SSpzHeader m_Header;
		const char *m_Positions;
		const char *m_Alphas;
		const char *m_Colours;
		const char *m_Scales;
		const char *m_Rotations;
		const char *m_Harmonics;
		float m_Coefficients[3 * HarmonicCount(kMaxHarmonicDegree)] = {};
	};
} // namespace

SPointCloud ReadSpzCloud(std::string_view file, const SCloudOptions &options)
{
	CGzipReader stream(file);
	const SSpzHeader header = ReadHeader(stream.Read(kHeaderSize));
	const u64 size = header.m_Count * header.SplatSize();
	RequirePlausibleSize("byte 8 of what it unpacks to: " + Grouped(header.m_Count) + " splats of " +
							 Grouped(header.SplatSize()) + " bytes each, which",
		size, file.size());
	const std::string body = stream.Read(size);
	if (body.size() != size)
		Fail(kHeaderSize + body.size(), "it ends after " + Grouped(body.size()) + " of the " + Grouped(size) +
											" bytes that the " + Grouped(header.m_Count) +
											" splats of its header take");
	stream.RequireEnd();

	const CSplatNumber sortNumber(options.m_SortBy);
	CPointCloudBuilder builder(
		header.m_Count, {true, true, !options.m_SortBy.empty(), header.m_HarmonicDegree}, options.m_SkipBad);
	CSpzSplats splats(header, body.data());
	for (u64 splat = 0; splat < header.m_Count; ++splat)
	{
		SCloudPoint point = splats.Splat(splat);
		point.m_SortValue = sortNumber.Of(point);
		const char *complaint = "has no finite position"; // which halves can say
		if (std::isfinite(point.m_Position[0]) && std::isfinite(point.m_Position[1]) &&
			std::isfinite(point.m_Position[2]))
			complaint = builder.Add(point);
		if (complaint != null)
			builder.LeaveOut("splat " + Grouped(splat) + " " + complaint);
	}
	return builder.Finish();
}
} // namespace Viewer
