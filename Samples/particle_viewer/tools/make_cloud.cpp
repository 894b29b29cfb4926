// make_cloud SHAPE COUNT FORMAT FILE: writes points or splats to show in the viewer, the same bytes every time.
//
//   SHAPE    knot     a trefoil of glass, of splats that lie flat on its surface
//            galaxy   spiral arms of stars and dust
//   FORMAT   splat-ply, splat     splats as the viewer's --ply and --splat read them
//            ascii, little, big   points as the viewer's --ply reads them: positions, colours, and a number "age"

#include "vx_maths_vector.h"

#include "deterministic.h"
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using namespace Vexmoor;
using Viewer::CRandom;

namespace
{
constexpr float kTurn = 6.2831853f;

struct SVector
{
	float m_X, m_Y, m_Z;
};

SVector operator+(const SVector &a, const SVector &b)
{
	return {a.m_X + b.m_X, a.m_Y + b.m_Y, a.m_Z + b.m_Z};
}
SVector operator*(const SVector &a, float b)
{
	return {a.m_X * b, a.m_Y * b, a.m_Z * b};
}
SVector Cross(const SVector &a, const SVector &b)
{
	return {a.m_Y * b.m_Z - a.m_Z * b.m_Y, a.m_Z * b.m_X - a.m_X * b.m_Z, a.m_X * b.m_Y - a.m_Y * b.m_X};
}
float Dot(const SVector &a, const SVector &b)
{
	return a.m_X * b.m_X + a.m_Y * b.m_Y + a.m_Z * b.m_Z;
}
SVector Normalized(const SVector &a)
{
	return a * (1.0f / std::sqrt(Dot(a, a)));
}

struct SPoint
{
	SVector m_Position;
	SVector m_Axes[3]; // right-handed
	SVector m_Scales;  // standard deviations along them
	SVector m_Colour;
	float m_Alpha;
	float m_Age;
};

struct SQuaternion
{
	float m_W, m_X, m_Y, m_Z;
};

// By the largest of the four, so that nothing is divided by little.
SQuaternion Rotation(const SVector axes[3])
{
	const SVector &a = axes[0];
	const SVector &b = axes[1];
	const SVector &c = axes[2];
	const float squares[] = {1.0f + a.m_X + b.m_Y + c.m_Z, 1.0f + a.m_X - b.m_Y - c.m_Z, 1.0f - a.m_X + b.m_Y - c.m_Z,
		1.0f - a.m_X - b.m_Y + c.m_Z};
	const float wx = b.m_Z - c.m_Y;
	const float wy = c.m_X - a.m_Z;
	const float wz = a.m_Y - b.m_X;
	const float xy = a.m_Y + b.m_X;
	const float xz = c.m_X + a.m_Z;
	const float yz = b.m_Z + c.m_Y;
	const SQuaternion candidates[] = {
		{squares[0], wx,         wy,         wz        },
        {wx,         squares[1], xy,         xz        },
        {wy,         xy,         squares[2], yz        },
        {wz,         xz,         yz,         squares[3]}
    };
	const SQuaternion &q = candidates[std::max_element(squares, squares + 4) - squares];
	const float scale = 1.0f / std::sqrt(q.m_W * q.m_W + q.m_X * q.m_X + q.m_Y * q.m_Y + q.m_Z * q.m_Z);
	return {q.m_W * scale, q.m_X * scale, q.m_Y * scale, q.m_Z * scale};
}

SVector KnotAt(float turn)
{
	const float around = 2.0f * turn * kTurn;
	const float across = 3.0f * turn * kTurn;
	const float radius = 1.0f + 0.42f * std::cos(across);
	return {radius * std::cos(around), radius * std::sin(around), 0.5f * std::sin(across)};
}

// A ribbed tube. Its splats are tiles: longer along the tube than around it, and thin.
SPoint KnotPoint(CRandom &random, float size)
{
	const float turn = random.Unit();
	const float angle = random.Unit() * kTurn;
	const SVector middle = KnotAt(turn);
	const SVector along = Normalized(KnotAt(turn + 0.0005f) + middle * -1.0f);
	const SVector side = Normalized(Cross(along, {0.0f, 0.0f, 1.0f}));
	const SVector outward = side * std::cos(angle) + Cross(side, along) * std::sin(angle);
	const float ribs = std::cos(angle * 3.0f + turn * kTurn * 18.0f);

	const float lit = 0.30f + 0.70f * std::max(0.0f, Dot(outward, Normalized({-0.4f, 0.7f, 0.6f})));
	const float shine = std::pow(std::max(0.0f, Dot(outward, Normalized({0.3f, 0.6f, 0.75f}))), 24.0f);
	const float ridge = 0.5f + 0.5f * ribs;
	const float hue = turn * kTurn;
	const SVector tint = {
		0.55f + 0.42f * std::cos(hue), 0.45f + 0.30f * std::cos(hue - 1.9f), 0.62f + 0.38f * std::cos(hue - 3.6f)};
	SPoint point = {};
	point.m_Position = middle + outward * (0.235f + 0.022f * ribs);
	point.m_Axes[0] = along;
	point.m_Axes[1] = Cross(outward, along);
	point.m_Axes[2] = outward;
	point.m_Scales = {2.2f * size, 1.1f * size, 0.12f * size};
	point.m_Colour = tint * (lit * (0.55f + 0.45f * ridge)) + SVector{0.8f, 0.8f, 0.8f} * shine;
	point.m_Alpha = 0.35f + 0.55f * ridge;
	point.m_Age = turn;
	return point;
}

SPoint Ball(const SVector &position, float scale, const SVector &colour, float alpha, float age)
{
	return {
		position, {{1.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f}},
         {scale,              scale,              scale             },
         colour, alpha,
		age
    };
}

// Between -2 and 2, and mostly near 0.
float Bell(CRandom &random)
{
	return random.Unit() + random.Unit() + random.Unit() + random.Unit() - 2.0f;
}

SPoint BulgeStar(CRandom &random, float size)
{
	const float radius = 0.20f * std::abs(Bell(random));
	const float angle = random.Unit() * kTurn;
	const SVector position = {radius * std::cos(angle), 0.10f * Bell(random), radius * std::sin(angle)};
	return Ball(position, 0.9f * size, {1.0f, 0.86f, 0.62f}, 0.5f, radius);
}

// Dust lies on the inner side of two arms, in flakes along them; stars on the outer one.
SPoint ArmPoint(CRandom &random, float size, bool isDust)
{
	const float radius = 0.12f + 0.95f * random.Unit() * random.Unit() + 0.10f * random.Unit();
	const float arm = random.Below(2) == 0 ? 0.0f : 0.5f;
	const float spread = (0.05f + 0.03f / (radius + 0.1f)) * Bell(random) + (isDust ? -0.03f : 0.02f);
	const float angle = (arm + 0.55f * std::log(radius + 0.05f) + spread) * kTurn;
	const SVector position = {
		radius * std::cos(angle), (isDust ? 0.012f : 0.028f) * Bell(random), radius * std::sin(angle)};
	if (isDust)
	{
		SPoint dust = Ball(position, 0.0f, {0.16f, 0.085f, 0.055f}, 0.30f, radius);
		dust.m_Axes[0] = {-std::sin(angle), 0.0f, std::cos(angle)};
		dust.m_Axes[1] = {0.0f, 1.0f, 0.0f};
		dust.m_Axes[2] = Cross(dust.m_Axes[0], dust.m_Axes[1]);
		dust.m_Scales = {7.0f * size, 1.2f * size, 2.6f * size};
		return dust;
	}
	if (random.Unit() < 0.012f)
		return Ball(position, 2.6f * size, {1.0f, 0.42f, 0.60f}, 0.35f, radius);
	const float heat = random.Unit();
	const float blue = std::min(1.0f, radius * 1.3f) * heat;
	const SVector colour = SVector{1.0f, 0.72f, 0.50f} * (1.0f - blue) + SVector{0.55f, 0.72f, 1.0f} * blue;
	return Ball(position, (0.35f + 0.5f * heat * heat) * size, colour, 0.25f + 0.65f * heat, radius);
}

SPoint GalaxyPoint(CRandom &random, float size)
{
	const float kind = random.Unit();
	return kind < 0.16f ? BulgeStar(random, size) : ArmPoint(random, size, kind > 0.80f);
}

// Files.

class CFile
{
public:
	explicit CFile(const char *path)
		: m_File(std::fopen(path, "wb"))
	{
	}
	~CFile()
	{
		if (m_File != nullptr)
			std::fclose(m_File);
	}
	CFile(const CFile &) = delete;
	CFile &operator=(const CFile &) = delete;

	bool IsOpen() const { return m_File != nullptr; }
	void Text(const std::string &text) { std::fwrite(text.data(), 1, text.size(), m_File); }
	void Byte(u32 byte) { std::fputc(int(byte), m_File); }
	void Float(float number, bool bigEndian = false)
	{
		u32 bits = 0;
		std::memcpy(&bits, &number, sizeof(bits));
		for (u32 i = 0; i < 4; ++i)
			Byte(bits >> (8 * (bigEndian ? 3 - i : i)) & 0xFF);
	}
	/// Whether all of it has been written.
	bool Close()
	{
		const bool written = std::ferror(m_File) == 0;
		const bool closed = std::fclose(m_File) == 0;
		m_File = nullptr;
		return written && closed;
	}

private:
	std::FILE *m_File;
};

u32 ColourByte(float share)
{
	return u32(std::clamp(share, 0.0f, 1.0f) * 255.0f + 0.5f);
}

std::string Header(const std::string &format, u32 count, const std::string &properties)
{
	return "ply\nformat " + format + " 1.0\nelement vertex " + std::to_string(count) + "\n" + properties +
	       "end_header\n";
}

std::string SplatHeader(u32 count)
{
	std::string properties;
	for (const char *name : {"x", "y", "z", "f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1", "scale_2",
			 "rot_0", "rot_1", "rot_2", "rot_3"})
		properties += std::string("property float ") + name + "\n";
	return Header("binary_little_endian", count, properties);
}

std::string PointHeader(const std::string &format, u32 count)
{
	return Header(format, count,
		"property float x\nproperty float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
		"property uchar blue\nproperty uchar alpha\nproperty float age\n");
}

void WriteSplatPly(CFile &file, const SPoint &point)
{
	constexpr float kHarmonic0 = 0.28209479f;
	const SVector &position = point.m_Position;
	const SVector &colour = point.m_Colour;
	const SVector &scales = point.m_Scales;
	const SQuaternion q = Rotation(point.m_Axes);
	for (const float number :
		{position.m_X, position.m_Y, position.m_Z, (colour.m_X - 0.5f) / kHarmonic0, (colour.m_Y - 0.5f) / kHarmonic0,
			(colour.m_Z - 0.5f) / kHarmonic0, std::log(point.m_Alpha / (1.0f - point.m_Alpha)), std::log(scales.m_X),
			std::log(scales.m_Y), std::log(scales.m_Z), q.m_W, q.m_X, q.m_Y, q.m_Z})
		file.Float(number);
}

void WriteColour(CFile &file, const SPoint &point)
{
	for (const float share : {point.m_Colour.m_X, point.m_Colour.m_Y, point.m_Colour.m_Z, point.m_Alpha})
		file.Byte(ColourByte(share));
}

void WriteSplat(CFile &file, const SPoint &point)
{
	const SQuaternion q = Rotation(point.m_Axes);
	for (const float number : {point.m_Position.m_X, point.m_Position.m_Y, point.m_Position.m_Z, point.m_Scales.m_X,
			 point.m_Scales.m_Y, point.m_Scales.m_Z})
		file.Float(number);
	WriteColour(file, point);
	for (const float number : {q.m_W, q.m_X, q.m_Y, q.m_Z})
		file.Byte(u32(std::clamp(number * 128.0f + 128.0f, 0.0f, 255.0f)));
}

void WritePoint(CFile &file, const SPoint &point, bool bigEndian)
{
	for (const float number : {point.m_Position.m_X, point.m_Position.m_Y, point.m_Position.m_Z})
		file.Float(number, bigEndian);
	WriteColour(file, point);
	file.Float(point.m_Age, bigEndian);
}

void WriteTextPoint(CFile &file, const SPoint &point)
{
	char line[160];
	std::snprintf(line, sizeof(line), "%.9g %.9g %.9g %u %u %u %u %.9g\n", double(point.m_Position.m_X),
		double(point.m_Position.m_Y), double(point.m_Position.m_Z), ColourByte(point.m_Colour.m_X),
		ColourByte(point.m_Colour.m_Y), ColourByte(point.m_Colour.m_Z), ColourByte(point.m_Alpha), double(point.m_Age));
	file.Text(line);
}

struct SFormat
{
	std::string m_Name;
	std::string m_Header;
	std::function<void(CFile &, const SPoint &)> m_Write;
};

std::vector<SFormat> Formats(u32 count)
{
	const auto little = [](CFile &file, const SPoint &point) { WritePoint(file, point, false); };
	const auto big = [](CFile &file, const SPoint &point) { WritePoint(file, point, true); };
	return {
		{"splat-ply", SplatHeader(count), WriteSplatPly},
		{        "splat",         "",         WriteSplat             },
		{  "ascii",     PointHeader("ascii",         count),              WriteTextPoint},
		{ "little",     PointHeader("binary_little_endian",                 count),              little},
		{    "big",     PointHeader("binary_big_endian",                    count),              big},
	};
}

int Fail(const char *sentence)
{
	std::fprintf(stderr, "make_cloud: %s\n", sentence);
	return 2;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc != 5)
		return Fail("Takes a shape (knot, galaxy), a count, a format (splat-ply, splat, ascii, little, big), a file.");
	const std::string shape = argv[1];
	const std::string count = argv[2];

	u32 pointCount = 0;
	const auto [stop, error] = std::from_chars(count.data(), count.data() + count.size(), pointCount);
	if (error != std::errc() || stop != count.data() + count.size() || pointCount == 0)
		return Fail("The count is a whole number from 1 on.");
	if (shape != "knot" && shape != "galaxy")
		return Fail("The shape is knot or galaxy.");
	const std::vector<SFormat> formats = Formats(pointCount);
	const auto format = std::find_if(
		formats.begin(), formats.end(), [argv](const SFormat &candidate) { return candidate.m_Name == argv[3]; });
	if (format == formats.end())
		return Fail("The format is splat-ply, splat, ascii, little or big.");

	CFile file(argv[4]);
	if (!file.IsOpen())
		return Fail("The file cannot be written.");
	file.Text(format->m_Header);
	CRandom random(1);
	const float size = (shape == "knot" ? 2.2f : 1.6f) / std::sqrt(float(pointCount)); // all together cover as much
	for (u32 i = 0; i < pointCount; ++i)
		format->m_Write(file, shape == "knot" ? KnotPoint(random, size) : GalaxyPoint(random, size));
	return file.Close() ? 0 : Fail("The file cannot be written.");
}
