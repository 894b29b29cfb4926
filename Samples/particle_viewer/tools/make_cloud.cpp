// make_cloud SHAPE COUNT FORMAT FILE [DEGREE]: writes points or splats to show in the viewer, the same bytes every
// time.
//
//   SHAPE    knot     a trefoil of glass, of splats that lie flat on its surface
//            galaxy   spiral arms of stars and dust
//   FORMAT   splat-ply, splat, packed-ply, spz, sog     splats
//            ascii, little, big                         points of a PLY file: positions, colours, and a number "age"
//   DEGREE   of spherical harmonics, with which splats shimmer, from 0 to 3; 0 unless it is given

#include "cloud_writers.h"
#include <charconv>
#include <cstdio>
#include <optional>

using namespace Viewer;

namespace
{
struct SFormat
{
	const char *m_Name;
	bool m_AlongCurve; ///< Packed formats are smaller, and finer, where neighbours lie together.
	std::string (*m_Write)(const SMadeSplats &splats);
};

constexpr SFormat kFormats[] = {
	{"splat-ply",  false, WriteSplatPly                                                                            },
	{"splat",      false, WriteSplat                                                                               },
	{"packed-ply", true,  WritePackedPly                                                                           },
	{"spz",        true,  [](const SMadeSplats &splats) { return WriteSpz(splats, 2); }                            },
	{"sog",        true,  WriteSog                                                                                 },
	{"ascii",      false, [](const SMadeSplats &splats) { return WritePoints(splats, EPointFormat::Ascii); }       },
	{"little",     false, [](const SMadeSplats &splats) { return WritePoints(splats, EPointFormat::LittleEndian); }},
	{"big",        false, [](const SMadeSplats &splats) { return WritePoints(splats, EPointFormat::BigEndian); }   },
};

std::optional<u32> Number(const std::string &text, u32 low, u32 high)
{
	u32 number = 0;
	const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
	if (error != std::errc() || stop != text.data() + text.size() || number < low || number > high)
		return std::nullopt;
	return number;
}

const SFormat *FindFormat(const std::string &name)
{
	for (const SFormat &format : kFormats)
		if (name == format.m_Name)
			return &format;
	return null;
}

bool Write(const char *path, const std::string &bytes)
{
	std::FILE *const file = std::fopen(path, "wb");
	if (file == nullptr)
		return false;
	const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
	return std::fclose(file) == 0 && written;
}

int Fail(const char *sentence)
{
	std::fprintf(stderr, "make_cloud: %s\n", sentence);
	return 2;
}
} // namespace

int main(int argc, char **argv)
{
	if (argc != 5 && argc != 6)
		return Fail("Takes a shape (knot, galaxy), a count, a format (splat-ply, splat, packed-ply, spz, sog, ascii, "
					"little, big), a file, and perhaps a degree of spherical harmonics.");
	const std::string shape = argv[1];
	const std::optional<u32> count = Number(argv[2], 1, 100000000);
	const SFormat *const format = FindFormat(argv[3]);
	const std::optional<u32> degree = Number(argc == 6 ? argv[5] : "0", 0, 3);
	if (!count)
		return Fail("The count is a whole number from 1 to 100,000,000.");
	if (shape != "knot" && shape != "galaxy")
		return Fail("The shape is knot or galaxy.");
	if (format == null)
		return Fail("The format is splat-ply, splat, packed-ply, spz, sog, ascii, little or big.");
	if (!degree)
		return Fail("The degree of spherical harmonics is from 0 to 3.");

	SMadeSplats splats = shape == "knot" ? MakeKnot(*count, *degree) : MakeGalaxy(*count, *degree);
	if (format->m_AlongCurve)
		OrderAlongCurve(splats);
	return Write(argv[4], format->m_Write(splats)) ? 0 : Fail("The file cannot be written.");
}
