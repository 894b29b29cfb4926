// Fuzzes the viewer's readers of points and splats. The input is a file: either it is refused with one printable
// sentence, or the cloud is whole, finite and no larger than the file accounts for. Chance does not find checksums, so
// an input that starts like an .spz file without its gzip stream gets one, and one that starts like a meta.json gets a
// .sog archive.

#include "cloud_file.h"
#include "packers.h"
#include "unpacking.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace Viewer;

namespace
{
void Require(bool holds, const char *what)
{
	if (holds)
		return;
	std::fprintf(stderr, "%s\n", what);
	std::abort();
}

void RequireSentence(const std::string &text)
{
	Require(!text.empty() && text.back() == '.', "no sentence");
	Require(std::all_of(text.begin(), text.end(), [](char letter) { return letter >= ' ' && letter <= '~'; }),
		"a sentence of other than printable letters");
}

void RequireWhole(const SPointCloud &cloud, size_t fileSize, bool hasSortValues)
{
	const size_t count = cloud.m_Positions.size();
	Require(count != 0 && count <= fileSize * kMaxExpansion, "more points than can be packed into so many bytes");
	Require(cloud.m_Colours.size() == count, "not a colour per point");
	Require(cloud.m_Shapes.empty() || cloud.m_Shapes.size() == count, "not a shape per splat");
	const size_t harmonicCount = cloud.m_HarmonicDegree == 0 ? 0 : count * HarmonicWords(cloud.m_HarmonicDegree);
	for (const std::vector<u32> &harmonics : cloud.m_Harmonics)
		Require(harmonics.size() == harmonicCount, "not all spherical harmonics per splat");
	Require(cloud.m_SortValues.size() == (hasSortValues ? count : 0), "not a sort value per point");
	for (const CFloat3 &position : cloud.m_Positions)
		Require(std::isfinite(position.x() * position.x() + position.y() * position.y() + position.z() * position.z()),
			"a position whose distance is not finite");
	for (const float value : cloud.m_SortValues)
		Require(std::isfinite(value), "a sort value that is not finite");
}

void Read(std::string_view file, const SCloudOptions &options)
{
	try
	{
		const SPointCloud cloud = ReadCloud(file, options);
		RequireWhole(cloud, file.size(), !options.m_SortBy.empty());
		Require(options.m_SkipBad || cloud.m_LeftOutCount == 0, "points were left out unasked");
		Require((cloud.m_LeftOutCount == 0) == cloud.m_FirstLeftOut.empty(), "not the first of what was left out");
		Require(cloud.m_LeftOutCount <= cloud.m_Positions.size(), "more was left out than stayed");
	}
	catch (const CFailure &failure)
	{
		RequireSentence(failure.what());
	}
}

/// A list of 256 numbers takes one letter of an input.
std::string WithCodebooks(std::string_view meta)
{
	std::string list = "[0";
	for (int i = 1; i < 256; ++i)
		list += "," + std::to_string(i - 128) + "e-2";
	std::string text;
	for (const char letter : meta)
		text += letter == '@' ? list + "]" : std::string(1, letter);
	return text;
}

/// With images of 16 splats, and a palette of 64 sets of degree 1.
std::string SogArchive(std::string_view meta)
{
	static const std::map<std::string, std::string> kImages = []
	{
		std::vector<u8> pixels(4 * 64 * 3);
		for (size_t i = 0; i < pixels.size(); ++i)
			pixels[i] = u8(i % 4 == 3 ? 252 + i / 4 % 4 : i * 37);
		const std::string splats = Webp({pixels.begin(), pixels.begin() + 4 * 16}, 4);
		return std::map<std::string, std::string>{
			{"s",      splats},
            {   "p",                               Webp(pixels,       64 * 3)},
            { "l", Webp(std::vector<u8>(4 * 16,            5), 4)}
        };
	}();
	std::map<std::string, std::string> files = kImages;
	files["meta.json"] = WithCodebooks(meta);
	return Zip(files);
}

std::string Packed(std::string_view input)
{
	if (input.substr(0, 4) == "NGSP")
		return Gzip(std::string(input));
	if (input.substr(0, 1) == "{")
		return SogArchive(input);
	return std::string(input);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const std::string file = Packed(std::string_view(reinterpret_cast<const char *>(data), size));
	Read(file, {});
	Read(file, {"z", true});
	return 0;
}
