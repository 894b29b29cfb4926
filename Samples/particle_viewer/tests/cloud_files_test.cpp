// Files of points and splats: what is read, and what is refused, with which sentence.

#include "cloud_file.h"
#include "failure.h"
#include "mapped_file.h"
#include "ply_body.h"
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

using namespace Viewer;

namespace
{
/// The sentence with which a cloud is refused; "" where it is read.
template<typename _Read>
std::string Refusal(const _Read &read)
{
	try
	{
		read();
		return "";
	}
	catch (const CFailure &failure)
	{
		return failure.what();
	}
}

std::string PlyRefusal(const std::string &file, const std::string &sortBy = "")
{
	return Refusal([&] { ReadPlyCloud(file, {sortBy}); });
}

std::string SplatRefusal(const std::string &file, const std::string &sortBy = "")
{
	return Refusal([&] { ReadSplatCloud(file, {sortBy}); });
}

// Writing files.

template<typename _Number>
void Append(std::string &bytes, double number, bool bigEndian)
{
	const _Number typed = _Number(number);
	char raw[sizeof(typed)];
	std::memcpy(raw, &typed, sizeof(typed));
	if (bigEndian) // the tests run where the low byte comes first
		std::reverse(raw, raw + sizeof(raw));
	bytes.append(raw, sizeof(raw));
}

void Append(std::string &bytes, const std::string &type, double number, bool bigEndian)
{
	if (type == "char" || type == "int8")
		Append<std::int8_t>(bytes, number, bigEndian);
	else if (type == "uchar" || type == "uint8")
		Append<u8>(bytes, number, bigEndian);
	else if (type == "short" || type == "int16")
		Append<std::int16_t>(bytes, number, bigEndian);
	else if (type == "ushort" || type == "uint16")
		Append<u16>(bytes, number, bigEndian);
	else if (type == "int" || type == "int32")
		Append<std::int32_t>(bytes, number, bigEndian);
	else if (type == "uint" || type == "uint32")
		Append<u32>(bytes, number, bigEndian);
	else if (type == "float" || type == "float32")
		Append<float>(bytes, number, bigEndian);
	else
		Append<double>(bytes, number, bigEndian);
}

/// Values in the format of a file: words or bytes.
class CWriter
{
public:
	explicit CWriter(const std::string &format, const std::string &lineEnd = "\n")
		: m_Format(format)
		, m_LineEnd(lineEnd)
	{
		Line("ply");
		Line("format " + format + " 1.0");
	}

	CWriter &Line(const std::string &line)
	{
		m_File += line + m_LineEnd;
		return *this;
	}
	CWriter &Value(const std::string &type, double number)
	{
		if (m_Format == "ascii")
		{
			char word[40];
			std::snprintf(word, sizeof(word), "%.17g ", number);
			m_File += word;
		}
		else
			Append(m_File, type, number, m_Format == "binary_big_endian");
		return *this;
	}
	CWriter &EndRow()
	{
		if (m_Format == "ascii")
			m_File += m_LineEnd;
		return *this;
	}
	const std::string &File() const { return m_File; }

private:
	std::string m_Format;
	std::string m_LineEnd;
	std::string m_File;
};

const char *const kFormats[] = {"ascii", "binary_little_endian", "binary_big_endian"};

// A mesh as modellers write one: lists before, in and after the vertices.
std::string MeshFile(const std::string &format, const std::string &lineEnd = "\n")
{
	CWriter writer(format, lineEnd);
	writer.Line("comment a mesh, with \xC3\xA9 in it").Line("obj_info num_cols 3");
	writer.Line("element strip 2").Line("property list ushort short numbers").Line("property uchar last");
	writer.Line("element vertex 3").Line("property float x").Line("property list uchar int neighbours");
	writer.Line("property double y").Line("property float z").Line("property uchar red");
	writer.Line("property uchar green").Line("property uchar blue");
	writer.Line("element face 1").Line("property list uchar int vertex_indices").Line("end_header");
	for (int strip = 0; strip < 2; ++strip)
	{
		writer.Value("ushort", strip);
		for (int i = 0; i < strip; ++i)
			writer.Value("short", -1 - i);
		writer.Value("uchar", 7).EndRow();
	}
	for (int vertex = 0; vertex < 3; ++vertex)
	{
		writer.Value("float", vertex).Value("uchar", vertex);
		for (int i = 0; i < vertex; ++i)
			writer.Value("int", 100 + i);
		writer.Value("double", vertex * 2).Value("float", 0.25);
		writer.Value("uchar", 255).Value("uchar", vertex).Value("uchar", 0).EndRow();
	}
	writer.Value("uchar", 3).Value("int", 0).Value("int", 1).Value("int", 2).EndRow();
	return writer.File();
}

std::string Points(const std::string &rows, const std::string &count = "2", const std::string &more = "")
{
	return "ply\nformat ascii 1.0\nelement vertex " + count +
	       "\nproperty float x\nproperty float y\nproperty float z\n" + more + "end_header\n" + rows;
}

std::vector<std::vector<double>> ReadValues(const std::string &file, const std::vector<std::string> &names)
{
	const SPlyHeader header = ReadPlyHeader(file);
	const SPlyElement &vertices = *header.FindElement("vertex");
	std::vector<u32> properties;
	for (const std::string &name : names)
		properties.push_back(*vertices.FindNumber(name));
	std::vector<std::vector<double>> rows;
	ReadPlyBody(file, header,
		{
			{&vertices, properties,
             [&](const SPlyRow &row) { rows.emplace_back(row.m_Values, row.m_Values + names.size()); }}
    });
	return rows;
}

// What is read.

TEST(PointCloud, Outlier_IsTheFirstPointFarAway)
{
	SPointCloud cloud;
	cloud.m_Positions = {CFloat3(1.0f, 2.0f, 3.0f), CFloat3(4.0f, 5.0f, 6.0f)};
	cloud.m_Colours = {7, 8};
	cloud.m_HarmonicDegree = 1;
	for (std::vector<u32> &harmonics : cloud.m_Harmonics)
		harmonics = {1, 2, 3, 4};
	ASSERT_EQ(HarmonicWords(1), 2u);
	cloud.m_YPointsDown = true;
	AddOutlier(cloud, 500);
	ASSERT_EQ(cloud.m_Positions.size(), 3u);
	EXPECT_EQ(cloud.m_Positions[2].y(), -500.0f);
	EXPECT_EQ(cloud.m_Colours, (std::vector<u32>{7, 8, 7}));
	EXPECT_EQ(cloud.m_Harmonics[2], (std::vector<u32>{1, 2, 3, 4, 1, 2}));
	EXPECT_TRUE(cloud.m_Shapes.empty());
	EXPECT_TRUE(cloud.m_SortValues.empty());
}

TEST(PlyFile, EveryTypeInEveryFormat_ComesBackAsWritten)
{
	struct SCase
	{
		const char *m_Types[2];
		std::vector<double> m_Numbers;
	};
	const double smallestFloat = double(std::numeric_limits<float>::denorm_min());
	const double largestFloat = double(std::numeric_limits<float>::max());
	const SCase cases[] = {
		{{"char", "int8"},      {0.0, -128.0, 127.0}                         },
		{{"uchar", "uint8"},    {0.0, 1.0, 255.0}                            },
		{{"short", "int16"},    {0.0, -32768.0, 32767.0}                     },
		{{"ushort", "uint16"},  {0.0, 256.0, 65535.0}                        },
		{{"int", "int32"},      {0.0, -2147483648.0, 2147483647.0}           },
		{{"uint", "uint32"},    {0.0, 65536.0, 4294967295.0}                 },
		{{"float", "float32"},  {-1.5, smallestFloat, -largestFloat, 1.0 / 3}},
		{{"double", "float64"}, {1.0 / 3, -1e-300, largestFloat, 1e9 + 1e-6} },
	};
	for (const char *format : kFormats)
		for (const SCase &row : cases)
			for (const char *type : row.m_Types)
			{
				CWriter writer(format);
				writer.Line("element vertex " + std::to_string(row.m_Numbers.size()));
				writer.Line("property uchar before").Line(std::string("property ") + type + " value");
				writer.Line("end_header");
				for (const double number : row.m_Numbers)
					writer.Value("uchar", 9).Value(type, number).EndRow();
				const bool isFloat = std::strncmp(type, "float", 5) == 0 && std::strcmp(type, "float64") != 0;
				std::vector<std::vector<double>> expected;
				for (const double number : row.m_Numbers)
					expected.push_back({isFloat ? double(float(number)) : number, 9.0});
				EXPECT_EQ(ReadValues(writer.File(), {"value", "before"}), expected) << format << ", " << type;
			}
}

TEST(PlyFile, ListsAroundAndAmongTheVertices_AreSteppedOver)
{
	for (const char *format : kFormats)
		for (const char *lineEnd : {"\n", "\r\n", "\r"})
		{
			const std::vector<std::vector<double>> expected = {
				{0.0, 0.0, 0.25, 0.0},
                {1.0, 2.0, 0.25, 1.0},
                {2.0, 4.0, 0.25, 2.0}
            };
			EXPECT_EQ(ReadValues(MeshFile(format, lineEnd), {"x", "y", "z", "green"}), expected) << format;
		}
}

TEST(PlyFile, HeaderWithBlanksAndAsciiWithEmptyLines_IsRead)
{
	const std::string file = "ply  \nformat  ascii 1.0 \t\nelement vertex 2 \nproperty\tfloat32 x  \nend_header \n"
							 "\n  +1.5\t\n\n-2e-1";
	const std::vector<std::vector<double>> expected = {{1.5}, {double(-0.2f)}};
	EXPECT_EQ(ReadValues(file, {"x"}), expected);
}

TEST(PlyCloud, FarFromTheOrigin_KeepsItsDetails)
{
	CWriter writer("binary_little_endian");
	writer.Line("element vertex 3").Line("property double x").Line("property double y").Line("property double z");
	writer.Line("end_header");
	for (const double offset : {-0.001, 0.0, 0.001})
		writer.Value("double", 4500000.0 + offset).Value("double", 1e9).Value("double", 120.0);
	const SPointCloud cloud = ReadCloud(writer.File(), {});
	ASSERT_EQ(cloud.m_Positions.size(), 3u);
	for (u32 i = 0; i < 3; ++i)
	{
		EXPECT_NEAR(cloud.m_Positions[i].x(), float(i) - 1.0f, 1e-4f);
		EXPECT_EQ(cloud.m_Positions[i].y(), 0.0f);
		EXPECT_EQ(cloud.m_Positions[i].z(), 0.0f);
	}
}

TEST(PlyCloud, Stragglers_DoNotShrinkTheRest)
{
	std::string rows;
	for (int i = 0; i < 999; ++i)
		rows += std::to_string(i % 10) + " " + std::to_string(i / 10 % 10) + " " + std::to_string(i / 100) + "\n";
	const SPointCloud cloud = ReadCloud(Points(rows + "1e30 0 0\n", "1000"), {});
	u32 near = 0;
	for (const CFloat3 &position : cloud.m_Positions)
	{
		EXPECT_TRUE(std::isfinite(position.x() * position.x()));
		near += std::abs(position.x()) < 10.0f ? 1 : 0;
	}
	EXPECT_EQ(near, 999u);
}

TEST(PlyCloud, Colours_AreThoseOfTheirType)
{
	struct SCase
	{
		std::string m_Properties;
		std::string m_Values;
		u32 m_Colour; // alpha, blue, green, red
	};
	const SCase cases[] = {
		{"property uchar red\nproperty uchar green\nproperty uchar blue\n",                          "1 2 255",       0xFFFF0201u},
		{"property uchar diffuse_red\nproperty uchar diffuse_green\nproperty uchar diffuse_blue\n",  "1 2 255",
         0xFFFF0201u                                                                                                             },
		{"property float r\nproperty float g\nproperty float b\n",                                   "0 0.2 7",       0xFFFF3300u},
		{"property ushort red\nproperty ushort green\nproperty ushort blue\nproperty uchar alpha\n", "65535 0 257 9",
         0x090100FFu                                                                                                             },
	};
	for (const SCase &row : cases)
		EXPECT_EQ(ReadCloud(Points("0 0 0 " + row.m_Values + "\n1 1 1 " + row.m_Values, "2", row.m_Properties), {})
					  .m_Colours[1],
			row.m_Colour)
			<< row.m_Properties;
}

TEST(PlyCloud, SortByProperty_GivesItsValues)
{
	const SPointCloud cloud = ReadCloud(
		Points("0 0 0 1600000000.5\n1 1 1 1600000000.25\n2 2 2 1600000002", "3", "property double time\n"), {"time"});
	EXPECT_EQ(cloud.m_SortValues, (std::vector<float>{0.0f, -0.25f, 1.5f})); // relative to the first
	EXPECT_TRUE(ReadCloud(Points("0 0 0\n1 1 1"), {}).m_SortValues.empty());
}

const char *const kSplatProperties[] = {"x", "y", "z", "f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1",
	"scale_2", "rot_0", "rot_1", "rot_2", "rot_3"};

std::string SplatPly(const std::string &format, const std::string &without = "")
{
	CWriter writer(format);
	writer.Line("element vertex 2");
	for (const char *name : kSplatProperties)
		if (name != without)
			writer.Line(std::string("property float ") + name);
	writer.Line("end_header");
	const double common[] = {0.0, 5.0, -5.0, 0.0, -2.0, -3.0, -4.0, 0.0, 3.0, 0.0, 4.0};
	for (const double position : {-1.0, 1.0})
	{
		for (u32 axis = 0; axis < 3; ++axis)
			writer.Value("float", axis == 0 ? position : 0.0);
		for (const double number : common)
			writer.Value("float", number);
		writer.EndRow();
	}
	return writer.File();
}

double LogScale(u16 packed)
{
	return packed / 65535.0 * 64.0 - 32.0;
}

TEST(PlyCloud, Splats_AreDecoded)
{
	for (const char *format : kFormats)
	{
		const SPointCloud cloud = ReadCloud(SplatPly(format), {});
		ASSERT_EQ(cloud.m_Shapes.size(), 2u);
		const SSplatShape &shape = cloud.m_Shapes[1];
		EXPECT_EQ(cloud.m_Colours[1], 0x8000FF80u); // half, cut off on both sides, and half an opacity
		EXPECT_EQ(shape.m_Rotation[0], 0);
		EXPECT_EQ(shape.m_Rotation[1], 19660); // 0.6
		EXPECT_EQ(shape.m_Rotation[3], 26214); // 0.8
		EXPECT_NEAR(LogScale(shape.m_LogScales[0]), -2.0, 0.001);
		EXPECT_NEAR(LogScale(shape.m_LogScales[2]), -4.0, 0.001);
	}
}

/// A splat of a .splat file.
std::string SplatBytes(const std::vector<double> &floats, const std::vector<int> &bytes)
{
	std::string splat;
	for (const double number : floats)
		Append<float>(splat, number, false);
	for (const int byte : bytes)
		splat += char(byte);
	return splat;
}

std::string SplatFile()
{
	const std::vector<int> colourAndRotation = {255, 128, 0, 64, 128, 205, 128, 230};
	return SplatBytes({-2.0, 0.0, 0.0, 0.5, 0.25, 0.0}, colourAndRotation) +
	       SplatBytes({2.0, 0.0, 0.0, 0.5, 0.25, 0.0}, colourAndRotation);
}

TEST(SplatCloud, Splats_AreDecoded)
{
	const SPointCloud cloud = ReadCloud(SplatFile(), {"x"});
	ASSERT_EQ(cloud.m_Positions.size(), 2u);
	EXPECT_EQ(cloud.m_Positions[0].x(), -1.0f);
	EXPECT_EQ(cloud.m_Colours[0], 0x400080FFu);
	EXPECT_NEAR(LogScale(cloud.m_Shapes[0].m_LogScales[0]), std::log(0.25), 0.001); // in a world half as large
	EXPECT_EQ(cloud.m_Shapes[0].m_LogScales[2], 0);
	EXPECT_EQ(cloud.m_Shapes[0].m_Rotation[0], 0);
	EXPECT_NEAR(cloud.m_Shapes[0].m_Rotation[1] / 32767.0, 77.0 / std::hypot(77.0, 102.0), 0.0001);
	EXPECT_EQ(cloud.m_SortValues, (std::vector<float>{0.0f, 4.0f}));
}

// What is refused.

struct SDamage
{
	const char *m_Name;
	std::string m_File;
	std::string m_Sentence;
};

TEST(PlyFile, DamagedHeader_IsRefusedAtItsLine)
{
	const std::string start = "ply\nformat ascii 1.0\n";
	const SDamage cases[] = {
		{"empty", "",                                 "byte 0: a PLY file starts with a line 'ply', this one with ''."},
		{"text",  "Dear all,\nhere is it.\n",
         "byte 0: a PLY file starts with a line 'ply', this one with 'Dear all,\\x0Ahere i'."                         },
		{"bgeo",  std::string("\x7FNSJb\x01\x00\x00", 8),
         "byte 0: a PLY file starts with a line 'ply', this one with '\\x7FNSJb\\x01\\x00\\x00'."},
		{"magic alone",       "ply",                             "byte 0: a PLY file starts with a line 'ply', this one with 'ply'."                                                                                 },
		{"other magic",       "plyx\n",                             "byte 0: a PLY file starts with a line 'ply', this one with 'plyx\\x0A'."},
		{"header cut",       start + "element vertex 2\nprop",                              "line 4: the file ends before 'end_header'."                                                          },
		{"no format",       "ply\nend_header\n",                               "line 2: the header ends without a 'format'."           },
		{"two formats",       start + "format ascii 1.0\n",                             "line 3: 'format' stands once, before the elements."                                               },
		{"late format",       "ply\nelement vertex 0\nformat ascii 1.0\n",
         "line 3: 'format' stands once, before the elements."},
		{"other format",       "ply\nformat binary 1.0\n",
         "line 2: 'format' takes ascii, binary_little_endian or binary_big_endian, not 'binary'."                                                               },
		{"other version",       "ply\nformat ascii 2.0\n",                           "line 2: the version is 1.0 in every PLY file, not '2.0'."},
		{"unknown keyword",       start + "\nelement vertex 2\n",                         "line 3: '' is no keyword of a PLY header."                                                        },
		{"binary in the header",       start + "\x01\xFF\n",                    "line 3: '\\x01\\xFF' is no keyword of a PLY header." },
		{"nameless element",       start + "element\n",                        "line 3: the element has no name."                                                             },
		{"no count",       start + "element vertex\n",
         "line 3: the element 'vertex' has a count of '', which is no whole number of 64 bits."  },
		{"negative count",       start + "element vertex -1\n",
         "line 3: the element 'vertex' has a count of '-1', which is no whole number of 64 bits."                                                    },
		{"huge count",       start + "element vertex 18446744073709551616\n",
         "line 3: the element 'vertex' has a count of '18446744073709551616', which is no whole number of 64 bits."},
		{"fraction",       start + "element vertex 1.5\n",
         "line 3: the element 'vertex' has a count of '1.5', which is no whole number of 64 bits."                                                                       },
		{"word too many",       start + "element vertex 1 2\n",                           "line 3: '2' is one word too many."},
		{"two elements of a name",       start + "element vertex 0\nelement vertex 0\n",
         "line 4: there are two elements 'vertex'."                                              },
		{"nothing in an element",       start + "element vertex 1\nend_header\n",
         "line 4: the element 'vertex' ends without a property."},
		{"property of nothing",       start + "property float x\n",                     "line 3: there is a property before the first element."                                                            },
		{"unknown type",       start + "element vertex 1\nproperty flaot x\n",                            "line 4: 'flaot' is no type of a PLY file."},
		{"nameless property",       start + "element vertex 1\nproperty float\n",                       "line 4: the property has no name."                                                         },
		{"two properties of a name",       start + "element vertex 1\nproperty float x\nproperty int x\n",
         "line 5: there are two properties 'x'."},
		{"list counted in floats",       start + "element vertex 1\nproperty list float int l\n",
         "line 4: a list's count is of a type of whole numbers."                                                                  },
		{"list without a type",       start + "element vertex 1\nproperty list uchar l\n",
         "line 4: 'l' is no type of a PLY file."},
		{"no vertices",       start + "element face 0\nend_header\n",                             "line 4: the header ends without an element 'vertex'."                                                                                       },
		{"no elements",       start + "end_header\n",                             "line 3: the header ends without an element 'vertex'."},
	};
	for (const SDamage &damage : cases)
		EXPECT_EQ(PlyRefusal(damage.m_File), damage.m_Sentence) << damage.m_Name;
}

TEST(PlyFile, TooManyElementsOrProperties_AreRefused)
{
	std::string elements = "ply\nformat ascii 1.0\n";
	for (int i = 0; i < 101; ++i)
		elements += "element e" + std::to_string(i) + " 0\n";
	EXPECT_EQ(PlyRefusal(elements), "line 103: there are more than 100 elements.");

	std::string properties = "ply\nformat ascii 1.0\nelement vertex 0\n";
	for (int i = 0; i < 1001; ++i)
		properties += "property char p" + std::to_string(i) + "\n";
	EXPECT_EQ(PlyRefusal(properties), "line 1,004: there are more than 1,000 properties.");
}

std::string BinaryPoints(const std::string &count, size_t bytes)
{
	return "ply\nformat binary_little_endian 1.0\nelement vertex " + count +
	       "\nproperty float x\nproperty float y\nproperty float z\nend_header\n" + std::string(bytes, '\0');
}

TEST(PlyFile, DamagedBody_IsRefusedWhereItIsDamaged)
{
	const std::string lists =
		"ply\nformat binary_big_endian 1.0\nelement vertex 2\nproperty float x\nproperty list int "
		"uchar l\nend_header\n";
	const std::string row("\x3F\x80\x00\x00\x00\x00\x00\x01\xAA", 9); // 1.0 and {0xAA}
	const SDamage cases[] = {
		{"binary, too short",                                                              BinaryPoints("5",                        59),
         "byte 115: the header promises 5 of the element 'vertex', of 12 bytes each; from here on there are 59 "
			"bytes, room for 4."},
		{"binary, too long",                                                                                BinaryPoints("5",                                                                                                      61),
         "byte 175: the file goes on after all that its header promises, up to byte 176."},
		{"four thousand million", BinaryPoints("4000000000",                                        60),
         "byte 124: the header promises 4,000,000,000 of the element 'vertex', of 12 bytes each; from here on there "
			"are 60 bytes, room for 5."},
		{"as many as 64 bits say",                                                                             BinaryPoints("18446744073709551615",                                                                                            60),
         "byte 134: the header promises 18,446,744,073,709,551,615 of the element 'vertex', of 12 bytes each; from "
			"here on there are 60 bytes, room for 5."},
		{"no vertices",BinaryPoints("0",0),"there is no point in it."},
		{"all at the origin",                                                                    BinaryPoints("5",                                                                                                                           60), "all 5 points lie at one and the same position."},
		{"text, too short",                                                                                Points("0 0 0\n",                                                                                                     "4000000000"),
         "byte 109: the header promises 4,000,000,000 of the element 'vertex', of at least 6 bytes each; from here "
			"on there are at most 6 bytes, room for 1."},
		{"text, a line short",                                Points("0.000000 0 0\n",                                                                       "2"),
         "line 8: the file ends after 1 of the 2 that its header promises of the element 'vertex'."},
		{"text, a number short",                                                                   Points("0 0 0\n1.00 1\n2 2 2\n",                                                                            "3"),"line 9: 'vertex' 1 ends before its 'z'."},
		{"text, a number too many",                          Points("0 0 0\n1 1 1 1\n"),
         "line 9: 'vertex' 1 goes on after its values, with '1'."},
		{"text, a line too many",                                                           Points("0 0 0\n1 1 1\n\n2 2 2\n"),
         "line 11: the file goes on after all that its header promises."},
		{"text, a word",                                                                                Points("0 0 0\n1 one 1\n"),
         "line 9: 'vertex' 1 has a 'y' of 'one', which is no number of its type."},
		{"text, a comma",                                                                                Points("0 0 0\n1 0,5 1\n"),
         "line 9: 'vertex' 1 has a 'y' of '0,5', which is no number of its type."},
		{"text, two signs",                                                                                Points("0 0 0\n1 +-5 1\n"),
         "line 9: 'vertex' 1 has a 'y' of '+-5', which is no number of its type."                                                                               },
		{"text, a sign alone",                                                                                Points("0 0 0\n1 + 1\n"),
         "line 9: 'vertex' 1 has a 'y' of '+', which is no number of its type."},
		{"text, NaN",                                                                                Points("0 0 0\n1 nan 1\n"),                                                                                                       "line 9: vertex 1 has no finite 'y'."},
		{"text, infinity",                                                                                Points("0 0 0\n1 1 -inf\n"),                                                                                                    "line 9: vertex 1 has no finite 'z'."},
		{"text, beyond a float",                                                                                Points("0 0 0\n1 1 1e39\n"),                                                                                                             "line 9: vertex 1 has no finite 'z'."},
		{"text, beyond a double",                                                                                Points("0 0 0\n1 1 1e999\n"),
         "line 9: 'vertex' 1 has a 'z' of '1e999', which is no number of its type."},
		{"text, beyond a byte",
         Points(
				"0 0 0 0 0 256\n1 1 1 0 0 0\n",                                                                                                  "2",                                                                           "property uchar red\nproperty uchar green\nproperty uchar blue\n"),
         "line 11: 'vertex' 0 has a 'blue' of '256', which is no whole number of its type."},
		{"text, half a byte",
         Points(
				"0 0 0 0 0.5 0\n1 1 1 0 0 0\n",                                                                                                 "2","property uchar red\nproperty uchar green\nproperty uchar blue\n"),
         "line 11: 'vertex' 0 has a 'green' of '0.5', which is no whole number of its type."},
		{"text, farther apart than a float",                                                                                Points("3e38 0 0\n-3e38 0 0\n"),
         "line 9: vertex 1 is farther from the first one than a float can say."},
		{"text, a list without its count",              Points("0 0 0\n1 1 1\n",                                        "2","property list uchar uint l\n"),
         "byte 127: the header promises 2 of the element 'vertex', of at least 8 bytes each; from here on there are "
			"at most 12 bytes, room for 1."},
		{"text, a list cut short",                                            Points("0 0 0 2 5\n1 1 1 0\n","2","property list uchar uint l\n"),
         "line 9: 'vertex' 0 ends before its 'l'."},
		{"text, a negative list",                                                                                Points("0 0 0 -2 5\n1 1 1 0\n",                                                                                      "2","property list char uint l\n"),
         "line 9: 'vertex' 0 has a negative count of 'l'."},
		{"text, half a list",                                                                                Points("0 0 0 0.5 5\n1 1 1 0\n",                                                                                        "2","property list char uint l\n"),
         "line 9: 'vertex' 0 has a 'l' of '0.5', which is no whole number of its type."},
		{"lists, one reaches beyond the end",                                                 lists + row + std::string("\x3F\x80\x00\x00\x00\x00\x00\x09\xAA",                                                                                        9),
         "byte 122: the file ends after 1 of the 2 that its header promises of the element 'vertex'."},
		{"lists, negative",        lists + row + std::string("\x3F\x80\x00\x00\xFF\xFF\xFF\xFF\xAA",                                                             9),
         "byte 117: 'vertex' 1 has a negative count of 'l'."},
		{"lists, too long",                                                                                lists + row + row + "\n",
         "byte 122: the file goes on after all that its header promises, up to byte 123."},
	};
	for (const SDamage &damage : cases)
	{
		const bool hasX = damage.m_File.compare(0, lists.size(), lists) == 0;
		const std::string refusal =
			hasX ? Refusal([&] { ReadValues(damage.m_File, {"x"}); }) : PlyRefusal(damage.m_File);
		EXPECT_EQ(refusal, damage.m_Sentence) << damage.m_Name;
	}
}

TEST(PlyFile, NotFiniteInBinary_IsRefusedAtItsByte)
{
	std::string file = BinaryPoints("5", 60);
	const std::string infinity("\x00\x00\x80\x7F", 4);
	file.replace(115 + 2 * 12 + 4, 4, infinity);
	EXPECT_EQ(PlyRefusal(file), "byte 139: vertex 2 has no finite 'y'.");
}

// A byte less, wherever a file is cut: nothing is drawn of it. Of a text's last number, nobody can tell.
TEST(PlyFile, CutAnywhere_IsRefused)
{
	for (const char *format : kFormats)
		for (const std::string &file : {MeshFile(format), SplatPly(format)})
		{
			ASSERT_EQ(PlyRefusal(file), "");
			const size_t last =
				std::strcmp(format, "ascii") == 0 ? file.find_last_of(' ', file.size() - 3) : file.size() - 1;
			for (size_t size = 0; size <= last; ++size)
			{
				const std::vector<char> cut(file.data(), file.data() + size); // ends where its memory ends
				EXPECT_NE(Refusal([&] { ReadCloud(std::string_view(cut.data(), size), {}); }), "")
					<< format << ", " << size;
			}
		}
}

TEST(PlyCloud, ForeignProperties_AreRefused)
{
	EXPECT_EQ(
		PlyRefusal("ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nend_header\n0 0\n"),
		"the header: a point has to have a number 'z', and the vertices here have none.");
	EXPECT_EQ(PlyRefusal("ply\nformat ascii 1.0\nelement vertex 1\nproperty list uchar float x\nproperty float y\n"
						 "property float z\nend_header\n1 0 0 0\n"),
		"the header: a point has to have a number 'x', and the vertices here have none.");
	EXPECT_EQ(PlyRefusal(SplatPly("binary_little_endian", "rot_3")),
		"the header: a splat has to have a number 'rot_3', and the vertices here have none.");
}

TEST(PlyCloud, SortByWhatIsNotThere_ListsWhatIs)
{
	const std::string file =
		Points("0 0 0 0 5\n1 1 1 0 6\n", "2", "property list uchar uint l\nproperty short quality\n");
	EXPECT_EQ(PlyRefusal(file, "quality"), "");
	EXPECT_EQ(PlyRefusal(file, "time"),
		"the header: there is no property 'time' to sort by; there are 'x', 'y', 'z', 'quality'.");
	EXPECT_EQ(
		PlyRefusal(file, "l"), "the header: there is no property 'l' to sort by; there are 'x', 'y', 'z', 'quality'.");
}

TEST(SplatCloud, DamagedOrForeign_IsRefused)
{
	const std::string good = SplatFile();
	const std::vector<int> bytes = {255, 128, 0, 64, 128, 205, 128, 230};
	const double nan = std::numeric_limits<double>::quiet_NaN();
	const SDamage cases[] = {
		{"cut",              good.substr(0,                                     63),
         "byte 32: in a .splat file, which this is taken for, a splat takes 32 bytes, and after 1 of them there are "
			"31 left."                                                                                                                                             },
		{"not finite",       good + SplatBytes({1.0, nan, 0.0, 1.0, 1.0, 1.0},  bytes),                            "byte 64: splat 2 has no finite 'y'."           },
		{"scale not finite", good + SplatBytes({1.0, 0.0, 0.0, 1.0, nan, 1.0},  bytes),
         "byte 64: splat 2 has no finite 'scale_1'."                                                                                                               },
		{"negative scale",   good + SplatBytes({1.0, 0.0, 0.0, 1.0, 1.0, -1.0}, bytes),
         "byte 64: splat 2 has a negative 'scale_2'."                                                                                                              },
		{"no rotation",      good + SplatBytes({1.0, 0.0, 0.0, 1.0, 1.0, 1.0},  {0, 0, 0, 0, 128, 128, 128, 128}),
         "byte 64: splat 2 has a rotation of length 0."                                                                                                            },
		{"zeros",            std::string(64,                                    '\0'),                             "all 2 points lie at one and the same position."},
		{"foreign",          std::string(96,                                    '\xC1'),
         "byte 0: it starts like no format that is read, with '" +
				[]
				{
					std::string x;
					for (int k = 0; k < 16; ++k)
						x += "\\xC1";
					return x;
				}() +
				"', and it is no .splat file: of its first 3 splats, 3 would have numbers that no splat has."                                                      },
	};
	for (const SDamage &damage : cases)
		EXPECT_EQ(SplatRefusal(damage.m_File), damage.m_Sentence) << damage.m_Name;
	EXPECT_EQ(SplatRefusal(good, "time"), "there is no property 'time' to sort by; its splats have 'x', 'y', 'z', "
										  "'scale_0', 'scale_1', 'scale_2', 'red', "
										  "'green', 'blue', 'alpha', 'rot_0', 'rot_1', 'rot_2', 'rot_3'.");
}

// Formats, told by content.

TEST(Cloud, EveryFormatByItsContent_IsRead)
{
	for (const char *format : kFormats)
		EXPECT_FALSE(ReadCloud(SplatPly(format), {}).m_Shapes.empty()) << format;
	EXPECT_TRUE(ReadCloud(MeshFile("ascii", "\r"), {}).m_Shapes.empty());
	EXPECT_EQ(ReadCloud(SplatFile(), {}).m_Shapes.size(), 2u);
}

TEST(Cloud, ForeignFormat_IsRefusedByItsName)
{
	const std::string ksplat("\x00\x01\x00\x00\x02\x00\x00\x00\x01\x00\x00\x00\x09\x00\x00\x00\x08\x00\x00\x00", 20);
	const SDamage cases[] = {
		{"zstd",                                                                              std::string("\x28\xB5\x2F\xFD") + std::string(60, '\0'),
         "byte 0: it is packed with zstd; unpack it first."},
		{"PNG",                                                                                   "\x89PNG\r\n\x1A\n",                                                                                                                               "byte 0: it is a PNG picture, not a file of points or splats."                              },
		{"LAS",                                                                                   "LASF",                                                                                                                               "byte 0: it is a LAS or LAZ point cloud, which is not read; save it as a PLY file."             },
		{"capture",                                                                                   "VXSORT\r\n",                                                                                                                           "byte 0: it is a captured sort, which --replay takes."                    },
		{"raw .spz",                                                                                   "NGSP\x02",                                                                                                                          "byte 0: it is .spz data without the gzip stream around it, which is not read."              },
		{"meta",                                                                                   "{\"version\": 2}",                                                                                                                              "byte 0: it is JSON; of a .sog cloud, name the archive that its meta.json is in."                },
		{"ksplat",                                                                                   ksplat + std::string(8000,                                                                                                                            '\0'),
         "byte 0: it is a .ksplat file, which is not read; save it as a PLY or .splat file."},
		{"text", std::string(64,                                                 'a'),
         "byte 0: it is text, which starts with 'aaaaaaaaaaaaaaaa', and no file of points or splats."},
		{"like ply",                                                                               "plywood\n",
         "byte 0: it is text, which starts with 'plywood\\x0A', and no file of points or splats."                                              },
		{"half a ply","ply",                                              "byte 0: a PLY file starts with a line 'ply', this one with 'ply'."    },
	};
	for (const SDamage &damage : cases)
		EXPECT_EQ(Refusal([&] { ReadCloud(damage.m_File, {}); }), damage.m_Sentence) << damage.m_Name;
}

// Points with something wrong.

TEST(Cloud, BadPointsSkipped_AreCountedAndTheOthersStay)
{
	const SCloudOptions skipBad = {"", true};
	const SPointCloud points = ReadCloud(Points("nan 0 0\n1 0 0\n2 inf 0\n3 0 0\n4 0 0\n", "5"), skipBad);
	EXPECT_EQ(points.m_Positions.size(), 3u);
	EXPECT_EQ(points.m_Colours.size(), 3u);
	EXPECT_EQ(points.m_LeftOutCount, 2u);
	EXPECT_EQ(points.m_FirstLeftOut, "line 8: vertex 0 has no finite 'x'");
	EXPECT_LT(points.m_Positions[0].x(), points.m_Positions[2].x());

	const std::vector<int> bytes = {255, 128, 0, 64, 128, 205, 128, 230};
	const double nan = std::numeric_limits<double>::quiet_NaN();
	const SPointCloud splats = ReadCloud(SplatFile() + SplatBytes({1.0, nan, 0.0, 1.0, 1.0, 1.0}, bytes), skipBad);
	EXPECT_EQ(splats.m_Shapes.size(), 2u);
	EXPECT_EQ(splats.m_LeftOutCount, 1u);
	EXPECT_EQ(splats.m_FirstLeftOut, "byte 64: splat 2 has no finite 'y'");

	const SPointCloud whole = ReadCloud(SplatFile(), skipBad);
	EXPECT_EQ(whole.m_LeftOutCount, 0u);
	EXPECT_EQ(whole.m_FirstLeftOut, "");
}

TEST(Cloud, BadPointsNotSkipped_RefuseTheFileAsSuch)
{
	EXPECT_THROW(ReadCloud(Points("nan 0 0\n1 0 0\n"), {}), CBadPoint);
	EXPECT_EQ(PlyRefusal(Points("nan 0 0\n1 0 0\n")), "line 8: vertex 0 has no finite 'x'.");
}

TEST(Cloud, MorePointsBadThanGood_IsRefusedEvenWithSkipping)
{
	EXPECT_EQ(Refusal(
				  [] {
					  ReadCloud(Points("nan 0 0\nnan 0 0\n2 0 0\n", "3"), {"", true});
				  }),
		"something is wrong with 2 of its 3 points, the first being at line 8: vertex 0 has no finite 'x'.");
	EXPECT_EQ(Refusal(
				  [] {
					  ReadCloud(Points("nan 0 0\n", "1"), {"", true});
				  }),
		"something is wrong with 1 of its 1 points, the first being at line 8: vertex 0 has no finite 'x'.");
}

// What is no number in the file's text is damage of the file, and nobody knows of how much of it.
TEST(Cloud, DamageBeyondAPoint_RefusesTheFileEvenWithSkipping)
{
	EXPECT_EQ(Refusal(
				  [] {
					  ReadCloud(Points("0.00 0 0\n1.00 0\n"), {"", true});
				  }),
		"line 9: 'vertex' 1 ends before its 'z'.");
	EXPECT_EQ(Refusal(
				  [&] {
					  ReadCloud(Points("0 0 0\n1 one 0\n"), {"", true});
				  }),
		"line 9: 'vertex' 1 has a 'y' of 'one', which is no number of its type.");
}

TEST(PlyCloud, SortValuesFartherApartThanAFloat_AreABadPoint)
{
	EXPECT_EQ(PlyRefusal(Points("0 0 0 -3e38\n1 1 1 3e38\n", "2", "property float time\n"), "time"),
		"line 10: vertex 1 has a number to sort by that is farther from the first one's than a float can say.");
}

TEST(MappedFile, WhatIsNoFile_IsRefused)
{
	const std::filesystem::path folder = testing::TempDir();
	const std::string empty = folder / "empty.ply";
	std::ofstream(empty).close();
	EXPECT_EQ(Refusal([&] { CMappedFile{empty}; }), "The file '" + empty + "' is empty.");
	EXPECT_EQ(Refusal([&] { CMappedFile{"/nowhere/a.ply"}; }),
		"The file '/nowhere/a.ply' cannot be opened: No such file or directory.");
	EXPECT_EQ(Refusal([&] { CMappedFile{"/usr"}; }), "'/usr' is a folder, not a file.");
	EXPECT_EQ(Refusal([&] { CMappedFile{"/dev/null"}; }), "'/dev/null' is no regular file.");
}

// Files that others wrote, of Debian's assimp-testmodels.
TEST(PackagedModels, AreReadOrRefusedForTheirDamage)
{
	const std::string folder = "/usr/share/assimp/models/PLY/";
	if (!std::filesystem::exists(folder))
		GTEST_SKIP() << "assimp-testmodels is not installed";

	const char *const commentWithoutKeyword = "line 3: 'Created' is no keyword of a PLY header.";
	const char *const promisedLists = "line 13: 'vertex' 0 ends before its 'vertex_indices'.";
	const char *const cutShort = "byte 276: the header promises 70,051 of the element 'vertex', of 31 bytes each; from "
								 "here on there are 2,171,512 bytes, room for 70,048.";
	struct SCase
	{
		const char *m_File;
		size_t m_PointCount;
		const char *m_Refusal;
	};
	const SCase cases[] = {
		{"cube.ply",        8,  ""                   },
		{"cube_binary.ply", 8,  ""                   },
		{"cube_uv.ply",     24, ""                   },
		{"float-color.ply", 3,  ""                   },
		{"points.ply",      4,  ""                   },
		{"Wuson.ply",       0,  commentWithoutKeyword},
		{"issue623.ply",    0,  promisedLists        },
		{"pond.0.ply",      0,  cutShort             },
	};
	for (const SCase &row : cases)
	{
		const CMappedFile file(folder + row.m_File);
		size_t pointCount = 0;
		const std::string refusal = Refusal([&] { pointCount = ReadCloud(file.Bytes(), {}).m_Positions.size(); });
		EXPECT_EQ(refusal, row.m_Refusal) << row.m_File;
		EXPECT_EQ(pointCount, row.m_PointCount) << row.m_File;
	}
}
} // namespace
