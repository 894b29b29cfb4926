// .splat files have neither header nor magic number: what tells a foreign one is its size, its letters, and numbers that
// no splat has.

#include "failure.h"
#include "point_cloud.h"
#include "text.h"
#include <algorithm>
#include <cmath>
#include <cstring>

namespace Viewer
{
namespace
{
	constexpr size_t kSplatSize = 32;

	// The numbers of a splat, in the order of the file.
	constexpr const char *kNames[] = {"x", "y", "z", "scale_0", "scale_1", "scale_2", "red", "green", "blue", "alpha",
		"rot_0", "rot_1", "rot_2", "rot_3"};
	constexpr u32 kNumberCount = 14;
	constexpr u32 kFloatCount = 6;

	[[noreturn]] void Fail(u64 splat, const std::string &what)
	{
		throw CFailure("byte " + Grouped(splat * kSplatSize) + ": splat " + Grouped(splat) + " " + what + ".");
	}

	void DecodeNumbers(const char *bytes, double *numbers)
	{
		for (u32 i = 0; i < kFloatCount; ++i)
		{
			u32 bits = 0;
			for (u32 byte = 4; byte > 0; --byte)
				bits = bits << 8 | u8(bytes[i * 4 + byte - 1]);
			float number;
			std::memcpy(&number, &bits, sizeof(number));
			numbers[i] = double(number);
		}
		for (u32 i = kFloatCount; i < kNumberCount; ++i)
			numbers[i] = double(u8(bytes[i + 18]));
	}

	SCloudPoint Point(const double *numbers)
	{
		SCloudPoint point;
		for (u32 i = 0; i < 3; ++i)
		{
			point.m_Position[i] = numbers[i];
			point.m_LogScales[i] = std::log(numbers[3 + i]); // of 0, the packed scale's least
		}
		for (u32 i = 0; i < 4; ++i)
		{
			point.m_Colour[i] = numbers[6 + i] / 255.0;
			point.m_Rotation[i] = numbers[10 + i] - 128.0;
		}
		return point;
	}

	void RefuseText(std::string_view file)
	{
		const bool isText = std::all_of(file.begin(), file.end(),
			[](char letter) { return (letter >= ' ' && letter <= '~') || (letter >= '\t' && letter <= '\r'); });
		if (isText)
			throw CFailure(
				"byte 0: this is text, which starts with " + Quoted(file.substr(0, 16)) + ", and no .splat file.");
		if (file.substr(0, 3) == "ply" && (file[3] == '\n' || file[3] == '\r'))
			throw CFailure("byte 0: this is a PLY file, which --ply reads.");
	}

	u32 SortNumber(const std::string &name)
	{
		std::string names;
		for (u32 i = 0; i < kNumberCount; ++i)
		{
			if (name == kNames[i])
				return i;
			names += (i == 0 ? "" : ", ") + Quoted(kNames[i]);
		}
		throw CFailure("there is no property " + Quoted(name) + " to sort by; a .splat file has " + names + ".");
	}
} // namespace

SPointCloud ReadSplatCloud(std::string_view file, const std::string &sortBy)
{
	RefuseText(file);
	const u64 splatCount = file.size() / kSplatSize;
	if (file.size() % kSplatSize != 0)
		throw CFailure("byte " + Grouped(splatCount * kSplatSize) + ": a splat takes 32 bytes, and after " +
					   Grouped(splatCount) + " of them there are " + Grouped(file.size() % kSplatSize) + " left.");
	const u32 sortNumber = sortBy.empty() ? 0 : SortNumber(sortBy);

	CPointCloudBuilder builder(splatCount, {true, true, !sortBy.empty()});
	for (u64 splat = 0; splat < splatCount; ++splat)
	{
		double numbers[kNumberCount];
		DecodeNumbers(file.data() + splat * kSplatSize, numbers);
		for (u32 i = 0; i < kFloatCount; ++i)
			if (!std::isfinite(numbers[i]))
				Fail(splat, std::string("has no finite ") + Quoted(kNames[i]));
		for (u32 i = 3; i < kFloatCount; ++i)
			if (numbers[i] < 0.0)
				Fail(splat, std::string("has a negative ") + Quoted(kNames[i]));
		SCloudPoint point = Point(numbers);
		point.m_SortValue = numbers[sortNumber];
		const char *const complaint = builder.Add(point);
		if (complaint != null)
			Fail(splat, complaint);
	}
	return builder.Finish();
}
} // namespace Viewer
