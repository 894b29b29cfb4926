// Packed formats of splats: what is read of files that are written byte by byte here, what is left of made splats after
// a round trip, and what is refused.

#include "cloud_file.h"
#include "cloud_writers.h"
#include "half.h"
#include "packers.h"
#include "zip_archive.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

using namespace Viewer;

namespace
{
const double kSqrtHalf = std::sqrt(0.5);

/// The sentence with which a cloud is refused; "" where it is read.
std::string Refusal(const std::string &file, const SCloudOptions &options = {})
{
	try
	{
		const std::vector<char> bytes(file.begin(), file.end()); // ends where its memory ends
		ReadCloud(std::string_view(bytes.data(), bytes.size()), options);
		return "";
	}
	catch (const CFailure &failure)
	{
		return failure.what();
	}
}

// What a file says of its splats.

/// A number of every splat, in the file's own unit. Sort values are relative to the first splat, whose number is given.
std::vector<double> Numbers(const std::string &file, const char *name, double first)
{
	std::vector<double> numbers;
	for (const float value : ReadCloud(file, {name}).m_SortValues)
		numbers.push_back(first + double(value));
	return numbers;
}

double Channel(const SPointCloud &cloud, size_t splat, u32 channel)
{
	return double(cloud.m_Colours[splat] >> (8 * channel) & 0xFF);
}

/// Half `index` of a splat's harmonics: 0 is its colour, the others are coefficients.
double HarmonicHalf(const SPointCloud &cloud, size_t splat, u32 channel, u32 index)
{
	const u32 word = cloud.m_Harmonics[channel][splat * HarmonicWords(cloud.m_HarmonicDegree) + index / 2];
	return double(FromHalf(u16(word >> (16 * (index % 2)))));
}

// Files that are written byte by byte.

std::string Low(u32 number, u32 byteCount)
{
	std::string bytes;
	for (u32 i = 0; i < byteCount; ++i)
		bytes += char(i < 4 ? number >> (8 * i) & 0xFF : 0);
	return bytes;
}

std::string SpzHeader(u32 version, u32 count, u32 degree, u32 fractionBits)
{
	return "NGSP" + Low(version, 4) + Low(count, 4) + Low(degree, 1) + Low(fractionBits, 1) + Low(0, 2);
}

/// Two splats at (0, 0, 0) and (1, -2, 0.25), without spherical harmonics.
std::string SpzBytes(u32 version, const std::string &rotations)
{
	const std::string positions = version == 1 ? Low(0, 6) + Low(0x3C00, 2) + Low(0xC000, 2) + Low(0x3400, 2)
	                                           : Low(0, 9) + Low(0x1000, 3) + Low(0xFFE000, 3) + Low(0x400, 3);
	const std::string alphas = Low(255, 1) + Low(51, 1);
	const std::string colours = Low(0x808080, 3) + Low(0xFF8000, 3);
	const std::string scales = Low(0x808080, 3) + Low(0x00A080, 3); // logarithms -2, -2, -2 and -2, 0, -10
	return SpzHeader(version, 2, 0, 12) + positions + alphas + colours + scales + rotations;
}

// Of the second splat, as Numbers gives them; the first is at the origin, and its scales are exp(-2).
void ExpectSpzSplats(const std::string &file, const std::vector<double> &rotation)
{
	const SPointCloud cloud = ReadCloud(file, {});
	ASSERT_EQ(cloud.m_Positions.size(), 2u);
	EXPECT_FALSE(cloud.m_YPointsDown);
	EXPECT_EQ(cloud.m_Colours[1] >> 24, 51u);
	EXPECT_EQ(Channel(cloud, 1, 0), 0.0);   // 0.5 - 0.282 * 0.5 / 0.15 is below 0
	EXPECT_EQ(Channel(cloud, 1, 1), 128.0); // a little more than a half
	EXPECT_EQ(Channel(cloud, 1, 2), 255.0);
	EXPECT_EQ(Numbers(file, "x", 0.0)[1], 1.0);
	EXPECT_EQ(Numbers(file, "y", 0.0)[1], -2.0);
	EXPECT_EQ(Numbers(file, "z", 0.0)[1], 0.25);
	EXPECT_EQ(Numbers(file, "scale_0", -2.0)[1], -2.0);
	EXPECT_EQ(Numbers(file, "scale_1", -2.0)[1], 0.0);
	EXPECT_EQ(Numbers(file, "scale_2", -2.0)[1], -10.0);
	const SSplatShape &shape = cloud.m_Shapes[1];
	for (u32 i = 0; i < 4; ++i)
		EXPECT_NEAR(shape.m_Rotation[i] / 32767.0, rotation[i], 0.0001) << i;
}

TEST(SpzCloud, WrittenByteByByte_IsDecoded)
{
	// x is 1, so nothing is left for w; then a quarter of a turn about z, whose bytes end just below sqrt(1/2).
	ExpectSpzSplats(Gzip(SpzBytes(1, Low(0x80FF80, 3) + Low(0x8080FF, 3))), {0.0, 1.0, 0.0039, 0.0039});
	ExpectSpzSplats(Gzip(SpzBytes(2, Low(0x808080, 3) + Low(0x804D80, 3))),
		{std::sqrt(1.0 - 2.0 * 0.003922 * 0.003922 - 0.396078 * 0.396078), 0.003922, -0.396078, 0.003922});
	// The largest is y, and x, z, w are 0, -sqrt(1/2) and 0: nine bits of size behind a sign.
	ExpectSpzSplats(
		Gzip(SpzBytes(3, Low(0xC0000000, 4) + Low(0x40000000 | 0x3FF << 10, 4))), {0.0, 0.0, kSqrtHalf, -kSqrtHalf});
}

TEST(SpzCloud, HarmonicsOfTwoSplats_AreTakenApart)
{
	std::string bytes = SpzHeader(2, 2, 1, 12) + Low(0, 9) + Low(1, 9) + Low(0xFFFF, 2) + std::string(6, '\x80') +
	                    std::string(6, '\x80') + std::string(6, '\x80') + std::string(9, '\x80');
	for (u32 i = 0; i < 9; ++i) // coefficient by coefficient, red, green, blue
		bytes += char(128 + 8 * i);
	const SPointCloud cloud = ReadCloud(Gzip(bytes), {});
	ASSERT_EQ(cloud.m_HarmonicDegree, 1u);
	for (u32 channel = 0; channel < 3; ++channel)
	{
		EXPECT_NEAR(HarmonicHalf(cloud, 1, channel, 0), 0.5 + kHarmonic0 * (128.0 / 255.0 - 0.5) / 0.15, 0.0005);
		for (u32 i = 0; i < 3; ++i)
		{
			EXPECT_EQ(HarmonicHalf(cloud, 0, channel, 1 + i), 0.0);
			EXPECT_EQ(HarmonicHalf(cloud, 1, channel, 1 + i), (3 * i + channel) / 16.0);
		}
	}
}

std::string PackedPly(const std::string &chunk,
	const std::string &more = "",
	const std::string &sh = "",
	const std::string &chunks = "1",
	const std::string &wordType = "uint")
{
	std::string header = "ply\nformat ascii 1.0\nelement chunk " + chunks + "\n";
	for (const char *name : {"min_x", "min_y", "min_z", "max_x", "max_y", "max_z", "min_scale_x", "min_scale_y",
			 "min_scale_z", "max_scale_x", "max_scale_y", "max_scale_z"})
		header += std::string("property float ") + name + "\n";
	header += more + "element vertex 2\n";
	for (const char *name : {"packed_position", "packed_rotation", "packed_scale", "packed_color"})
		header += "property " + wordType + " " + name + "\n";
	// The least of all, unturned, opaque, of colour 0x204060; and the largest x and y, half a turn, half an alpha,
	// white.
	return header + (sh.empty() ? "" : "element sh 2\n" + sh) + "end_header\n" + chunk +
	       "\n0 537395712 0 541090047\n4294965248 2147484159 4294967295 4294967168\n";
}

const char *const kChunk = "0 0 0 2 4 8 -4 -4 -4 -2 -2 -2";

TEST(PackedPly, WrittenWordByWord_IsDecoded)
{
	// 537395712 is 0 << 30 | 512 << 20 | 512 << 10 | 512: halves of 1,023, as near to 0 as these come.
	const std::string file = PackedPly(kChunk);
	const SPointCloud cloud = ReadCloud(file, {});
	ASSERT_EQ(cloud.m_Positions.size(), 2u);
	EXPECT_TRUE(cloud.m_YPointsDown);
	EXPECT_EQ(cloud.m_Colours[0], 0xFF604020u);
	EXPECT_EQ(cloud.m_Colours[1], 0x80FFFFFFu);
	EXPECT_EQ(Numbers(file, "x", 0.0)[1], 2.0);
	EXPECT_EQ(Numbers(file, "y", 0.0)[1], 4.0);
	EXPECT_EQ(Numbers(file, "z", 0.0)[1], 0.0);
	for (const char *name : {"scale_0", "scale_1", "scale_2"})
		EXPECT_EQ(Numbers(file, name, -4.0)[1], -2.0);
	EXPECT_NEAR(cloud.m_Shapes[0].m_Rotation[0] / 32767.0, 1.0, 0.0001);
	// 2147484159 is 2 << 30 | 0 << 20 | 0 << 10 | 511: w and x are the least, so they are all that there is.
	const double expected[] = {-0.7071, -0.7071, 0.0, -0.0007};
	for (u32 i = 0; i < 4; ++i)
		EXPECT_NEAR(cloud.m_Shapes[1].m_Rotation[i] / 32767.0, expected[i], 0.0002) << i;
}

TEST(PackedPly, ColoursThatTheirChunkSpans_AreFractionsOfThat)
{
	const std::string bounds =
		"property float min_r\nproperty float min_g\nproperty float min_b\nproperty float max_r\n"
		"property float max_g\nproperty float max_b\n";
	const SPointCloud cloud = ReadCloud(PackedPly(std::string(kChunk) + " 0.2 0.4 0 0.2 0.8 0.6", bounds), {});
	EXPECT_EQ(cloud.m_Colours[1], 0x8099CC33u);
	EXPECT_EQ(Channel(cloud, 0, 0), 51.0);
}

TEST(PackedPly, DamagedHeader_IsRefused)
{
	EXPECT_EQ(Refusal(PackedPly(kChunk, "", "", "2")), "the header: 2 splats, 256 in a chunk, take 1 chunks, not 2.");
	EXPECT_EQ(Refusal(PackedPly(kChunk, "", "", "1", "int")),
		"the header: in packed splats, 'packed_position' is of the type uint.");
	EXPECT_EQ(Refusal(PackedPly(kChunk, "", "property uchar f_rest_0\n")),
		"the header: the element 'sh' has a row of 9, 24 or 45 numbers for each of the 2 splats, and here 2 rows of "
		"1.");
	EXPECT_EQ(Refusal("ply\nformat ascii 1.0\nelement vertex 1\nproperty uint packed_position\nend_header\n0\n"),
		"the header: its vertices are packed, and there is no element 'chunk' that says what in.");
	const std::string good = PackedPly(kChunk);
	const size_t bound = good.find("property float max_z\n");
	EXPECT_EQ(Refusal(good.substr(0, bound) + good.substr(bound + 21)),
		"the header: packed splats have a number 'max_z' in the element 'chunk', and there is none here.");
}

TEST(PackedPly, ChunkThatIsNotFinite_TakesItsSplatsWithIt)
{
	EXPECT_EQ(Refusal(PackedPly("0 0 0 2 nan 8 -4 -4 -4 -2 -2 -2")),
		"line 22: chunk 0 has no finite 'max_y', and so vertex 0 is nowhere.");
	SMadeSplats splats = MakeKnot(600, 0);
	std::string file = WritePackedPly(splats);
	file.replace(file.find("end_header\n") + 11 + 18 * 4 * 2, 4, std::string("\x00\x00\x80\x7F", 4));
	const SPointCloud cloud = ReadCloud(file, {"", true});
	EXPECT_EQ(cloud.m_LeftOutCount, 88u);
	EXPECT_EQ(cloud.m_Positions.size(), 512u);
}

// A .sog file of one row of four pixels, of which the last two are filled up.
std::vector<u8> Row(std::initializer_list<u32> rgba)
{
	std::vector<u8> bytes;
	for (const u32 pixel : rgba)
		for (u32 i = 0; i < 4; ++i)
			bytes.push_back(u8(pixel >> (24 - 8 * i)));
	bytes.resize(16, 0);
	return bytes;
}

std::string Codebook(double first, double step)
{
	std::string list;
	for (int i = 0; i < 256; ++i)
		list += (i == 0 ? "[" : ",") + std::to_string(first + step * i);
	return list + "]";
}

typedef std::map<std::string, std::string> CFiles;

CFiles SogFiles()
{
	CFiles files;
	files["meta.json"] = R"({"version": 2, "count": 2,
		"means": {"mins": [0, -1, 0], "maxs": [0.6931471805599453, 1, 3], "files": ["low.webp", "high.webp"]},
		"scales": {"codebook": )" +
	                     Codebook(-10.0, 0.0625) + R"(, "files": ["scales.webp"]},
		"quats": {"files": ["quats.webp"]},
		"sh0": {"codebook": )" +
	                     Codebook(-2.0, 0.015625) + R"(, "files": ["sh0.webp"]}})";
	files["low.webp"] = Webp(Row({0x000000FF, 0xFF0000FF}), 4);
	files["high.webp"] = Webp(Row({0x000000FF, 0xFF0000FF}), 4);
	files["scales.webp"] = Webp(Row({0x808080FF, 0x80A000FF}), 4);
	files["quats.webp"] = Webp(Row({0x808080FC, 0x800080FE}), 4);
	files["sh0.webp"] = Webp(Row({0x80808000, 0x8000C033}), 4);
	return files;
}

TEST(SogCloud, WrittenPixelByPixel_IsDecoded)
{
	const std::string file = Zip(SogFiles());
	const SPointCloud cloud = ReadCloud(file, {});
	ASSERT_EQ(cloud.m_Positions.size(), 2u);
	EXPECT_TRUE(cloud.m_YPointsDown);
	EXPECT_NEAR(Numbers(file, "x", 0.0)[1], 1.0, 1e-6); // e^ln 2 - 1
	EXPECT_EQ(Numbers(file, "y", 0.0)[1], 0.0);
	EXPECT_EQ(Numbers(file, "scale_0", -2.0)[1], -2.0);
	EXPECT_EQ(Numbers(file, "scale_1", -2.0)[1], 0.0);
	EXPECT_EQ(Numbers(file, "scale_2", -2.0)[1], -10.0);
	EXPECT_EQ(cloud.m_Colours[0] >> 24, 0u);
	EXPECT_EQ(cloud.m_Colours[1] >> 24, 0x33u);
	EXPECT_EQ(Channel(cloud, 1, 0), 128.0);
	EXPECT_EQ(Channel(cloud, 1, 1), 0.0);                        // a coefficient of -2
	EXPECT_EQ(Channel(cloud, 1, 2), 199.0);                      // and of 1
	const double expected[] = {0.0028, -0.7071, 0.7071, 0.0028}; // y is the largest, x its opposite
	for (u32 i = 0; i < 4; ++i)
		EXPECT_NEAR(cloud.m_Shapes[1].m_Rotation[i] / 32767.0, expected[i], 0.001) << i;
}

std::string WithReplaced(std::string text, const std::string &from, const std::string &to)
{
	return text.replace(text.find(from), from.size(), to);
}

TEST(SogCloud, Damaged_IsRefused)
{
	const CFiles good = SogFiles();
	ASSERT_EQ(Refusal(Zip(good)), "");
	const auto withMeta = [&good](const std::string &from, const std::string &to)
	{
		CFiles files = good;
		files["meta.json"] = WithReplaced(good.at("meta.json"), from, to);
		return Refusal(Zip(files));
	};
	const auto withImage = [&good](const std::string &name, const std::string &bytes)
	{
		CFiles files = good;
		files[name] = bytes;
		return Refusal(Zip(files));
	};
	EXPECT_EQ(withMeta("{", "["), "'meta.json': it is no JSON object.");
	EXPECT_EQ(withMeta("\"version\": 2", "\"version\": 1"), "'meta.json': 'version' is no whole number from 2 to 2.");
	EXPECT_EQ(
		withMeta("\"count\": 2", "\"count\": -2"), "'meta.json': 'count' is no whole number from 1 to 4,294,967,295.");
	EXPECT_EQ(withMeta("\"count\": 2", "\"count\": 5"),
		"the image 'low.webp' has 4 x 1 pixels, and from 5 to 65,546 are expected.");
	EXPECT_EQ(withMeta("[0, -1, 0]", "[0, -1]"), "'meta.json': 'means.mins' is no list of 3 numbers.");
	EXPECT_EQ(withMeta("[0, -1, 0]", "[0, 1e300, 0]"), "'meta.json': 'means.mins' is no list of 3 numbers.");
	EXPECT_EQ(
		withMeta("\"codebook\": [", "\"codebook\": [0,"), "'meta.json': 'scales.codebook' is no list of 256 numbers.");
	EXPECT_EQ(withMeta("[\"sh0.webp\"]", "\"sh0.webp\""), "'meta.json': 'sh0.files' is no list of 1 names.");
	EXPECT_EQ(withMeta("quats\": {", "quads\": {"), "'meta.json': 'quats.files' is no list of 1 names.");
	EXPECT_EQ(withMeta("\"sh0.webp\"", "\"sh9.webp\""),
		"the zip archive: 'sh9.webp' cannot be read out of it: No such file.");
	EXPECT_EQ(withImage("quats.webp", "no image"), "the image 'quats.webp' is no WebP image.");
	EXPECT_EQ(withImage("quats.webp", good.at("quats.webp").substr(0, 40)),
		"the image 'quats.webp' is damaged, or was cut short.");
	EXPECT_EQ(withImage("quats.webp", Webp(Row({0x808080FC, 0x800080FE}), 4, false)),
		"the image 'quats.webp' is not packed without loss, so its numbers are not those that were put in.");
	EXPECT_EQ(withImage("quats.webp", Webp(Row({0x808080FC, 0x800080FB}), 4)),
		"splat 1 has a rotation whose largest component is 251, which is none of 252 to 255.");
	EXPECT_EQ(withImage("meta.json", std::string(3000000, ' ')),
		"the zip archive: 'meta.json' unpacks to more than the 1,048,576 bytes that it has reason to take.");
	EXPECT_EQ(Refusal(Zip({
				  {"readme.txt", "hello"}
    })),
		"the zip archive: 'meta.json' cannot be read out of it: No such file.");
	EXPECT_EQ(Refusal("PK\x03\x04 and no more"), "byte 0: the zip archive cannot be read: Not a zip archive.");
}

TEST(SogCloud, PositionBeyondAFloat_IsABadPoint)
{
	CFiles files = SogFiles();
	files["meta.json"] = WithReplaced(files["meta.json"], "0.6931471805599453", "100");
	EXPECT_EQ(Refusal(Zip(files)), "splat 1 has no finite position.");
}

CFiles SogFilesWithHarmonics()
{
	CFiles files = SogFiles();
	files["meta.json"].pop_back();
	files["meta.json"] += R"(, "shN": {"count": 2, "bands": 1, "codebook": )" + Codebook(-1.0, 1.0 / 128.0) +
	                      R"(, "files": ["sets.webp", "labels.webp"]}})";
	std::vector<u8> sets(64 * 3 * 4, 255);
	for (u32 i = 0; i < 3; ++i) // set 1
		for (u32 channel = 0; channel < 3; ++channel)
			sets[4 * (3 + i) + channel] = u8(128 + 4 * (3 * i + channel));
	files["sets.webp"] = Webp(sets, 64 * 3);
	files["labels.webp"] = Webp(Row({0x000000FF, 0x010000FF}), 4);
	return files;
}

TEST(SogCloud, HarmonicsOfAPalette_AreTakenApart)
{
	const SPointCloud cloud = ReadCloud(Zip(SogFilesWithHarmonics()), {});
	ASSERT_EQ(cloud.m_HarmonicDegree, 1u);
	for (u32 channel = 0; channel < 3; ++channel)
		for (u32 i = 0; i < 3; ++i)
		{
			EXPECT_NEAR(HarmonicHalf(cloud, 1, channel, 1 + i), (3 * i + channel) / 32.0, 1e-3);
			EXPECT_NEAR(HarmonicHalf(cloud, 0, channel, 1 + i), 127.0 / 128.0, 1e-3);
		}
}

TEST(SogCloud, DamagedPalette_IsRefused)
{
	const CFiles good = SogFilesWithHarmonics();
	const auto with = [&good](const std::string &name, const std::string &bytes)
	{
		CFiles files = good;
		files[name] = bytes;
		return Refusal(Zip(files));
	};
	EXPECT_EQ(with("labels.webp", Webp(Row({0x000000FF, 0x020000FF}), 4)),
		"splat 1 has set 2 of spherical harmonics, of which there are 2.");
	EXPECT_EQ(with("labels.webp", Webp(Row({0x000000FF, 0x000100FF}), 4)),
		"splat 1 has set 256 of spherical harmonics, of which there are 2.");
	EXPECT_EQ(with("meta.json", WithReplaced(good.at("meta.json"), "\"bands\": 1", "\"bands\": 4")),
		"'meta.json': 'shN.bands' is no whole number from 1 to 3.");
	EXPECT_EQ(
		with("meta.json", WithReplaced(good.at("meta.json"), "\"count\": 2, \"bands\"", "\"count\": 65537, \"bands\"")),
		"'meta.json': 'shN.count' is no whole number from 1 to 65,536.");
	EXPECT_EQ(
		with("meta.json", WithReplaced(good.at("meta.json"), "\"count\": 2, \"bands\"", "\"count\": 65, \"bands\"")),
		"the image 'sets.webp' has 192 x 1 pixels, and from 384 to 196,608 are expected.");
	EXPECT_EQ(with("sets.webp", Webp(std::vector<u8>(96 * 2 * 4, 255), 96)),
		"the image 'sets.webp' is 96 pixels wide; 64 sets of 3 coefficients take 192.");
}

// Round trips. What packing loses is at most half a step of what it packs to, and the steps follow from the splats.

struct SBounds
{
	std::vector<double> m_Positions[3]; // per splat
	std::vector<double> m_LogScales[3];
	double m_Rotation;    // of a component that is in the file
	double m_ColourSteps; // of 255
	double m_Coefficient;
};

struct SRange
{
	double m_Low = INFINITY;
	double m_High = -INFINITY;

	void Add(double number)
	{
		m_Low = std::min(m_Low, number);
		m_High = std::max(m_High, number);
	}
	double HalfStep(double stepCount) const { return (m_High - m_Low) / stepCount / 2.0; }
};

SBounds PackedPlyBounds(const SMadeSplats &splats)
{
	SBounds bounds = {};
	for (u32 axis = 0; axis < 3; ++axis)
		for (size_t i = 0; i < splats.m_Splats.size(); ++i)
		{
			SRange positions, logScales;
			for (size_t other = i / 256 * 256; other < std::min(i / 256 * 256 + 256, splats.m_Splats.size()); ++other)
			{
				positions.Add(double(splats.m_Splats[other].m_Position[axis]));
				logScales.Add(std::log(double(splats.m_Splats[other].m_Scales[axis])));
			}
			const double stepCount = axis == 1 ? 1023.0 : 2047.0;
			bounds.m_Positions[axis].push_back(positions.HalfStep(stepCount));
			bounds.m_LogScales[axis].push_back(logScales.HalfStep(stepCount));
		}
	bounds.m_Rotation = std::sqrt(2.0) / 1023.0 / 2.0;
	bounds.m_ColourSteps = 1.0;
	bounds.m_Coefficient = 8.0 / 256.0 / 2.0;
	return bounds;
}

SBounds SpzBounds(const SMadeSplats &splats, u32 version)
{
	SBounds bounds = {};
	for (u32 axis = 0; axis < 3; ++axis)
		for (const SMadeSplat &splat : splats.m_Splats)
		{
			const double halfFloat = std::max(std::abs(double(splat.m_Position[axis])) / 2048.0, 0x1p-25);
			bounds.m_Positions[axis].push_back(version == 1 ? halfFloat : 0x1p-13);
			bounds.m_LogScales[axis].push_back(1.0 / 32.0);
		}
	bounds.m_Rotation = version < 3 ? 1.0 / 255.0 : std::sqrt(0.5) / 511.0 / 2.0;
	bounds.m_ColourSteps = 1.0;
	bounds.m_Coefficient = 1.0 / 256.0;
	return bounds;
}

SBounds SogBounds(const SMadeSplats &splats)
{
	SBounds bounds = {};
	SRange logScales, colours, coefficients;
	for (const SMadeSplat &splat : splats.m_Splats)
		for (u32 i = 0; i < 3; ++i)
		{
			logScales.Add(std::log(double(splat.m_Scales[i])));
			colours.Add(double(splat.m_Colour[i]));
		}
	for (const float coefficient : splats.m_Harmonics)
		coefficients.Add(double(coefficient));
	for (u32 axis = 0; axis < 3; ++axis)
	{
		SRange logarithms;
		for (const SMadeSplat &splat : splats.m_Splats)
			logarithms.Add(
				std::copysign(std::log1p(std::abs(double(splat.m_Position[axis]))), double(splat.m_Position[axis])));
		for (const SMadeSplat &splat : splats.m_Splats) // the exponential stretches a step by what it is there
			bounds.m_Positions[axis].push_back(
				std::expm1(logarithms.HalfStep(65535.0)) * (1.0 + std::abs(double(splat.m_Position[axis]))));
		bounds.m_LogScales[axis].assign(splats.m_Splats.size(), logScales.HalfStep(255.0));
	}
	bounds.m_Rotation = std::sqrt(2.0) / 255.0 / 2.0;
	bounds.m_ColourSteps = std::ceil(255.0 * colours.HalfStep(255.0));
	bounds.m_Coefficient = splats.m_Harmonics.empty() ? 0.0 : coefficients.HalfStep(255.0);
	return bounds;
}

// Numbers in a file are at most a bound off, and so the first one, which they are relative to. Floats take a little
// more.
void ExpectNumbers(
	const std::string &file, const char *name, const std::vector<double> &expected, const std::vector<double> &bounds)
{
	const std::vector<double> numbers = Numbers(file, name, expected[0]);
	ASSERT_EQ(numbers.size(), expected.size());
	double worst = 0.0;
	for (size_t i = 0; i < expected.size(); ++i)
	{
		const double error = std::abs(numbers[i] - expected[i]);
		EXPECT_LE(error, bounds[i] + bounds[0] + 4e-6) << name << " of splat " << i;
		worst = std::max(worst, error);
	}
	EXPECT_GT(worst, 0.0) << name << ": nothing was packed";
}

void ExpectRotations(const SPointCloud &cloud, const SMadeSplats &splats, double bound, bool withoutLargest)
{
	constexpr double kShapeStep = 1.0 / 32767.0; // in which a shape has it
	for (size_t i = 0; i < splats.m_Splats.size(); ++i)
	{
		const float *const expected = splats.m_Splats[i].m_Rotation;
		const u32 leftOut = withoutLargest ? u32(std::max_element(expected, expected + 4,
													 [](float a, float b) { return std::abs(a) < std::abs(b); }) -
												 expected)
		                                   : 0;
		const double sign = expected[leftOut] < 0.0f ? -1.0 : 1.0;
		// The one that is left out follows from the length 1: its square is off by what theirs are.
		double square = 0.0;
		for (u32 k = 0; k < 4; ++k)
			square += k == leftOut ? 0.0 : 2.0 * std::abs(double(expected[k])) * bound + bound * bound;
		const double ofLeftOut =
			std::min(std::sqrt(square), square / std::max(std::abs(double(expected[leftOut])), 1e-9));
		for (u32 k = 0; k < 4; ++k)
			EXPECT_NEAR(cloud.m_Shapes[i].m_Rotation[k] * kShapeStep, sign * double(expected[k]),
				(k == leftOut ? ofLeftOut : bound) + square + kShapeStep)
				<< "component " << k << " of splat " << i;
	}
}

void ExpectColours(const SPointCloud &cloud, const SMadeSplats &splats, double bound)
{
	for (size_t i = 0; i < splats.m_Splats.size(); ++i)
	{
		const SMadeSplat &splat = splats.m_Splats[i];
		for (u32 channel = 0; channel < 3; ++channel)
			EXPECT_NEAR(Channel(cloud, i, channel),
				std::floor(std::clamp(double(splat.m_Colour[channel]), 0.0, 1.0) * 255.0 + 0.5), bound)
				<< "channel " << channel << " of splat " << i;
		EXPECT_NEAR(Channel(cloud, i, 3), double(splat.m_Alpha) * 255.0, 0.5001) << "alpha of splat " << i;
	}
}

void ExpectHarmonics(const SPointCloud &cloud, const SMadeSplats &splats, double bound)
{
	ASSERT_EQ(cloud.m_HarmonicDegree, splats.m_HarmonicDegree);
	const u32 count = HarmonicCount(splats.m_HarmonicDegree);
	for (size_t i = 0; i < splats.m_Splats.size(); ++i)
		for (u32 channel = 0; channel < 3; ++channel)
			for (u32 k = 0; k < count; ++k)
			{
				const double expected = double(splats.Harmonics(i)[channel * count + k]);
				EXPECT_NEAR(
					HarmonicHalf(cloud, i, channel, 1 + k), expected, bound + std::abs(expected) / 1024.0 + 1e-6)
					<< "coefficient " << k << " of channel " << channel << " of splat " << i;
			}
}

void ExpectSplats(const std::string &file, const SMadeSplats &splats, const SBounds &bounds, bool withoutLargest)
{
	const char *const names[][2] = {
		{"x", "scale_0"},
        {"y", "scale_1"},
        {"z", "scale_2"}
    };
	for (u32 axis = 0; axis < 3; ++axis)
	{
		std::vector<double> positions, logScales;
		for (const SMadeSplat &splat : splats.m_Splats)
		{
			positions.push_back(double(splat.m_Position[axis]));
			logScales.push_back(std::log(double(splat.m_Scales[axis])));
		}
		ExpectNumbers(file, names[axis][0], positions, bounds.m_Positions[axis]);
		ExpectNumbers(file, names[axis][1], logScales, bounds.m_LogScales[axis]);
	}
	const SPointCloud cloud = ReadCloud(file, {});
	ASSERT_EQ(cloud.m_Positions.size(), splats.m_Splats.size());
	ExpectRotations(cloud, splats, bounds.m_Rotation, withoutLargest);
	ExpectColours(cloud, splats, bounds.m_ColourSteps);
	ExpectHarmonics(cloud, splats, bounds.m_Coefficient);
}

class RoundTrip : public testing::TestWithParam<u32> // the degree of spherical harmonics
{
protected:
	SMadeSplats m_Splats = MakeGalaxy(700, GetParam());
};

TEST_P(RoundTrip, PackedPly_IsWithinHalfAStep)
{
	ExpectSplats(WritePackedPly(m_Splats), m_Splats, PackedPlyBounds(m_Splats), true);
}

TEST_P(RoundTrip, Spz_IsWithinHalfAStep)
{
	for (const u32 version : {1u, 2u, 3u})
		ExpectSplats(WriteSpz(m_Splats, version), m_Splats, SpzBounds(m_Splats, version), version == 3);
}

TEST_P(RoundTrip, Sog_IsWithinHalfAStep)
{
	ExpectSplats(WriteSog(m_Splats), m_Splats, SogBounds(m_Splats), true);
}

TEST_P(RoundTrip, SplatPly_KeepsEveryHarmonic)
{
	ExpectHarmonics(ReadCloud(WriteSplatPly(m_Splats), {}), m_Splats, 0.0);
}

INSTANTIATE_TEST_SUITE_P(Degrees, RoundTrip, testing::Values(0u, 1u, 2u, 3u));

TEST(SogCloud, MoreSplatsThanSets_ShareThoseThatAreAlike)
{
	const SMadeSplats splats = MakeGalaxy(70000, 1);
	const SPointCloud cloud = ReadCloud(WriteSog(splats), {});
	double sum = 0.0;
	for (size_t i = 0; i < splats.m_Splats.size(); ++i)
		for (u32 k = 0; k < 9; ++k)
			sum += std::abs(HarmonicHalf(cloud, i, k / 3, 1 + k % 3) - double(splats.Harmonics(i)[k]));
	EXPECT_LE(sum / double(9 * splats.m_Splats.size()), 0.01); // coefficients are up to 0.46
}

// Damage.

std::vector<std::pair<const char *, std::string>> SmallFiles()
{
	const SMadeSplats splats = MakeKnot(5, 1);
	return {
		{"packed PLY",      WritePackedPly(splats)},
		{"spz 1",           WriteSpz(splats,        1)},
		{"spz 3",                 WriteSpz(splats,                                 3)},
		{"sog",               WriteSog(splats)    },
		{"splat PLY",WriteSplatPly(splats)    },
	};
}

// A byte less, wherever a file is cut: nothing is drawn of it.
TEST(PackedCloud, CutAnywhere_IsRefused)
{
	for (const auto &[name, file] : SmallFiles())
	{
		ASSERT_EQ(Refusal(file), "") << name;
		for (size_t size = 0; size < file.size(); ++size)
			EXPECT_NE(Refusal(file.substr(0, size)), "") << name << ", " << size;
	}
}

bool IsSame(const SPointCloud &a, const SPointCloud &b)
{
	const auto same = [](const auto &first, const auto &second)
	{
		return first.size() == second.size() &&
		       std::memcmp(first.data(), second.data(), first.size() * sizeof(first[0])) == 0;
	};
	bool isSame = same(a.m_Positions, b.m_Positions) && same(a.m_Colours, b.m_Colours) && same(a.m_Shapes, b.m_Shapes);
	for (u32 channel = 0; channel < 3; ++channel)
		isSame = isSame && same(a.m_Harmonics[channel], b.m_Harmonics[channel]);
	return isSame;
}

// Formats with a checksum: whatever changes on the way, the file is refused or the same splats.
TEST(PackedCloud, AnyByteChanged_IsRefusedOrMakesNoDifference)
{
	for (const auto &[name, file] : SmallFiles())
	{
		if (std::strcmp(name, "spz 3") != 0 && std::strcmp(name, "sog") != 0)
			continue;
		const SPointCloud whole = ReadCloud(file, {});
		u32 refusalCount = 0;
		for (size_t at = 0; at < file.size(); ++at)
		{
			std::string changed = file;
			changed[at] = char(changed[at] ^ (1 << (at % 8)));
			try
			{
				EXPECT_TRUE(IsSame(ReadCloud(changed, {}), whole)) << name << ", byte " << at;
			}
			catch (const CFailure &)
			{
				++refusalCount;
			}
		}
		EXPECT_GT(refusalCount, file.size() / 2) << name; // names and dates may change
	}
}

TEST(SpzCloud, DamagedHeaderOrStream_IsRefused)
{
	const std::string raw = SpzBytes(2, std::string(6, '\x80'));
	ASSERT_EQ(Refusal(Gzip(raw)), "");
	const auto with = [&raw](size_t offset, const std::string &bytes)
	{
		std::string changed = raw;
		return Refusal(Gzip(changed.replace(offset, bytes.size(), bytes)));
	};
	EXPECT_EQ(with(0, "ply\n"),
		"byte 0 of what it unpacks to: an .spz file starts with 'NGSP', this one with "
		"'ply\\x0A\\x02\\x00\\x00\\x00\\x02\\x00\\x00\\x00\\x00\\x0C\\x00\\x00'; other files that gzip has packed are "
		"not read.");
	EXPECT_EQ(Refusal(Gzip("NGSP")), "byte 4 of what it unpacks to: the file ends before its header does.");
	EXPECT_EQ(with(4, Low(4, 4)),
		"byte 4 of what it unpacks to: of .spz, the versions 1 to 3 are read, and this is version 4.");
	EXPECT_EQ(
		with(12, Low(4, 1)), "byte 12 of what it unpacks to: the degree of spherical harmonics is from 0 to 3, not 4.");
	EXPECT_EQ(with(13, Low(25, 1)), "byte 13 of what it unpacks to: a position's number has 24 bits, which cannot be "
									"followed by a point 25 bits before their end.");
	EXPECT_EQ(with(8, Low(0, 4)), "byte 22: the gzip stream goes on after all that its header promises.");
	EXPECT_EQ(with(8, Low(1, 4)), "byte 37: the gzip stream goes on after all that its header promises.");
	EXPECT_EQ(with(8, Low(3, 4)),
		"byte 54 of what it unpacks to: it ends after 38 of the 57 bytes that the 3 splats of "
		"its header take.");
	const std::string whole = Gzip(raw);
	EXPECT_EQ(
		Refusal(whole + "x"), "byte " + std::to_string(whole.size()) + ": the file goes on after the gzip stream.");
	EXPECT_EQ(Refusal(Gzip(SpzHeader(2, 0, 0, 12))), "there is no point in it.");
}

// A size that a header claims costs nothing until the bytes are there, and many bytes out of few are no cloud.
TEST(SpzCloud, Bomb_IsRefusedForItsSize)
{
	const std::string claim = Gzip(SpzHeader(2, 0xFFFFFFFF, 3, 12) + std::string(1000, '\0'));
	EXPECT_EQ(Refusal(claim), "byte 8 of what it unpacks to: 4,294,967,295 splats of 64 bytes each, which takes "
							  "274,877,906,880 bytes, and no cloud is packed into the " +
								  std::to_string(claim.size()) + " bytes of this file to less than a hundredth.");
	constexpr u32 kCount = 100000;
	const std::string zeros = Gzip(SpzHeader(2, kCount, 3, 12) + std::string(64 * kCount, '\0'));
	ASSERT_LT(zeros.size() * 100, 64 * kCount);
	EXPECT_NE(Refusal(zeros).find("no cloud is packed into"), std::string::npos);
}

TEST(SogCloud, Bomb_IsRefusedForItsSize)
{
	CFiles files = SogFiles();
	files["meta.json"] = WithReplaced(files["meta.json"], "\"count\": 2", "\"count\": 16000000");
	EXPECT_NE(Refusal(Zip(files))
				  .find("'count' 16,000,000 of splats in images of 20 bytes a splat, which takes 320,000,000 bytes"),
		std::string::npos);
	files = SogFiles(); // two splats need no picture of this size, which packs to a few bytes
	files["quats.webp"] = Webp(std::vector<u8>(4 * 1024 * 1024, 255), 1024);
	EXPECT_EQ(
		Refusal(Zip(files)), "the image 'quats.webp' has 1,024 x 1,024 pixels, and from 2 to 65,540 are expected.");
}

TEST(PackedCloud, SortByWhatIsNotThere_ListsWhatIs)
{
	for (const auto &[name, file] : SmallFiles())
	{
		if (std::strcmp(name, "splat PLY") == 0)
			continue;
		EXPECT_EQ(Refusal(file, {"time"}),
			"there is no property 'time' to sort by; its splats have 'x', 'y', 'z', 'scale_0', 'scale_1', 'scale_2', "
			"'red', 'green', 'blue', 'alpha', 'rot_0', 'rot_1', 'rot_2', 'rot_3'.")
			<< name;
	}
}

TEST(PlyCloud, HarmonicsOfNoDegree_AreRefused)
{
	std::string file = WriteSplatPly(MakeKnot(2, 1));
	const std::string last = "property float f_rest_8\n";
	file.replace(file.find(last), last.size(), "property float other___\n");
	EXPECT_EQ(
		Refusal(file), "the header: a splat has 9, 24 or 45 numbers 'f_rest_0' and so on, or none; here there are 8.");
}
} // namespace
