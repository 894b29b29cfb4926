// The first bytes of a file tell its format. A .splat file may start with any bytes, so a file of no other known format
// is read as one.

#include "cloud_file.h"

#include "bytes.h"
#include "text.h"
#include <algorithm>

namespace Viewer
{
namespace
{
	struct SForeignFormat
	{
		std::string_view m_Start;
		const char *m_Sentence;
	};

	using namespace std::string_view_literals;

	constexpr SForeignFormat kForeignFormats[] = {
		{"\x28\xB5\x2F\xFD"sv,   "it is packed with zstd; unpack it first."                                        },
		{"\xFD\x37zXZ\0"sv,      "it is packed with xz; unpack it first."                                          },
		{"BZh"sv,                "it is packed with bzip2; unpack it first."                                       },
		{"\x04\x22\x4D\x18"sv,   "it is packed with LZ4; unpack it first."                                         },
		{"7z\xBC\xAF\x27\x1C"sv, "it is an archive of 7-Zip; unpack it first."                                     },
		{"Rar!\x1A\x07"sv,       "it is a RAR archive; unpack it first."                                           },
		{"NGSP"sv,               "it is .spz data without the gzip stream around it, which is not read."           },
		{"glTF"sv,               "it is a binary glTF file, which is not read."                                    },
		{"DRACO"sv,              "it is a Draco file, which is not read."                                          },
		{"LASF"sv,               "it is a LAS or LAZ point cloud, which is not read; save it as a PLY file."       },
		{"ASTM-E57"sv,           "it is an E57 point cloud, which is not read; save it as a PLY file."             },
		{"# .PCD"sv,             "it is a PCD point cloud, which is not read; save it as a PLY file."              },
		{"\x89PNG"sv,            "it is a PNG picture, not a file of points or splats."                            },
		{"\xFF\xD8\xFF"sv,       "it is a JPEG picture, not a file of points or splats."                           },
		{"RIFF"sv,               "it is a WebP picture, or sound; of a .sog cloud, name the archive with them all."},
		{"{"sv,                  "it is JSON; of a .sog cloud, name the archive that its meta.json is in."         },
		{"VXSORT\r\n"sv,         "it is a captured sort, which --replay takes."                                    },
	};

	bool StartsWith(std::string_view file, std::string_view start)
	{
		return file.substr(0, start.size()) == start;
	}

	// A PLY file's first line is a word alone, and many a damaged one is worth a sentence of its reader's.
	bool IsPly(std::string_view file)
	{
		return StartsWith(file, "ply") && (file.size() == 3 || std::string_view(" \t\r\n").find(file[3]) != file.npos);
	}

	// .ksplat files have no magic: a version 0.1 and counts that fit each other. Splats do not start like this, with a
	// denormal float.
	bool IsKsplat(std::string_view file)
	{
		constexpr size_t kHeaderSize = 4096;
		return file.size() > kHeaderSize && file[0] == 0 && file[1] == 1 && LoadU16(&file[2]) == 0 &&
		       LoadU32(&file[8]) <= LoadU32(&file[4]) && LoadU32(&file[16]) <= LoadU32(&file[12]);
	}

	void RefuseForeign(std::string_view file)
	{
		for (const SForeignFormat &format : kForeignFormats)
			if (StartsWith(file, format.m_Start))
				throw CFailure(std::string("byte 0: ") + format.m_Sentence);
		if (IsKsplat(file))
			throw CFailure("byte 0: it is a .ksplat file, which is not read; save it as a PLY or .splat file.");
		const bool isText = std::all_of(file.begin(), file.end(),
			[](char letter) { return (letter >= ' ' && letter <= '~') || (letter >= '\t' && letter <= '\r'); });
		if (isText)
			throw CFailure("byte 0: it is text, which starts with " + Quoted(file.substr(0, 16)) +
						   ", and no file of points or splats.");
	}
} // namespace

SPointCloud ReadCloud(std::string_view file, const SCloudOptions &options)
{
	if (IsPly(file))
		return ReadPlyCloud(file, options);
	if (StartsWith(file, "\x1F\x8B"sv))
		return ReadSpzCloud(file, options);
	if (StartsWith(file, "PK\x03\x04"sv))
		return ReadSogCloud(file, options);
	RefuseForeign(file);
	return ReadSplatCloud(file, options);
}
} // namespace Viewer
