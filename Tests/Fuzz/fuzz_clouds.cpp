// Fuzzes the viewer's readers of points and splats. The input is a file: either it is refused with one printable sentence,
// or the cloud is whole, finite and no larger than the file accounts for.

#include "cloud_file.h"
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
	Require(count != 0 && count <= fileSize, "more points than bytes");
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
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const std::string_view file(reinterpret_cast<const char *>(data), size);
	Read(file, {});
	Read(file, {"z", true});
	return 0;
}
