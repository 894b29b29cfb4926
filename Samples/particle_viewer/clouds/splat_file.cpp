// .splat files have neither a header nor a magic number. A file of another format is recognised by its size, or by
// numbers that no splat has.

#include "bytes.h"
#include "cloud_file.h"
#include "splat_number.h"
#include "text.h"
#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr size_t kSplatSize = 32;

	constexpr const char *kNames[] = {"x", "y", "z", "scale_0", "scale_1", "scale_2"};
	constexpr u32 kFloatCount = 6;        // bytes follow: four of colour, four of rotation
	constexpr double kLeastScale = 1e-40; // for the logarithm of a scale of 0; shorter than anything seen

	std::string Place(u64 splat)
	{
		return "byte " + Grouped(splat * kSplatSize) + ": splat " + Grouped(splat) + " ";
	}

	/// What is wrong with a splat's numbers, or "".
	std::string Complaint(const float *numbers)
	{
		for (u32 i = 0; i < kFloatCount; ++i)
			if (!std::isfinite(numbers[i]))
				return std::string("has no finite ") + Quoted(kNames[i]);
		for (u32 i = 3; i < kFloatCount; ++i)
			if (numbers[i] < 0.0f)
				return std::string("has a negative ") + Quoted(kNames[i]);
		return "";
	}

	void LoadFloats(const char *splat, float *numbers)
	{
		for (u32 i = 0; i < kFloatCount; ++i)
			numbers[i] = LoadFloat(splat + 4 * i);
	}

	SCloudPoint Point(const char *splat, const float *numbers)
	{
		SCloudPoint point;
		for (u32 i = 0; i < 3; ++i)
		{
			point.m_Position[i] = double(numbers[i]);
			point.m_LogScales[i] = std::log(std::max(double(numbers[3 + i]), kLeastScale));
		}
		for (u32 i = 0; i < 4; ++i)
		{
			point.m_Colour[i] = double(u8(splat[24 + i])) / 255.0;
			point.m_Rotation[i] = double(u8(splat[28 + i])) - 128.0;
		}
		return point;
	}

	// Numbers that no splat has are an accident here and there, and the rule in a file of something else.
	void RefuseForeign(std::string_view file)
	{
		constexpr u64 kMaxSampleCount = 1000;
		const u64 count = std::min<u64>(file.size() / kSplatSize, kMaxSampleCount);
		u64 badCount = 0;
		for (u64 splat = 0; splat < count; ++splat)
		{
			float numbers[kFloatCount];
			LoadFloats(file.data() + splat * kSplatSize, numbers);
			badCount += Complaint(numbers).empty() ? 0 : 1;
		}
		if (badCount > count / 2)
			throw CFailure("byte 0: it starts like no format that is read, with " + Quoted(file.substr(0, 16)) +
						   ", and it is no .splat file: of its first " + Grouped(count) + " splats, " +
						   Grouped(badCount) + " would have numbers that no splat has.");
	}
} // namespace

SPointCloud ReadSplatCloud(std::string_view file, const SCloudOptions &options)
{
	RefuseForeign(file);
	const u64 splatCount = file.size() / kSplatSize;
	if (file.size() % kSplatSize != 0)
		throw CFailure("byte " + Grouped(splatCount * kSplatSize) + ": in a .splat file, which this is taken for, a " +
					   "splat takes 32 bytes, and after " + Grouped(splatCount) + " of them there are " +
					   Grouped(file.size() % kSplatSize) + " left.");

	const CSplatNumber sortNumber(options.m_SortBy);
	CPointCloudBuilder builder(splatCount, {true, true, !options.m_SortBy.empty()}, options.m_SkipBad);
	for (u64 splat = 0; splat < splatCount; ++splat)
	{
		const char *const bytes = file.data() + splat * kSplatSize;
		float numbers[kFloatCount];
		LoadFloats(bytes, numbers);
		std::string complaint = Complaint(numbers);
		if (complaint.empty())
		{
			SCloudPoint point = Point(bytes, numbers);
			point.m_SortValue = sortNumber.Of(point);
			const char *const refusal = builder.Add(point);
			complaint = refusal != null ? refusal : "";
		}
		if (!complaint.empty())
			builder.LeaveOut(Place(splat) + complaint);
	}
	SPointCloud cloud = builder.Finish();
	cloud.m_YPointsDown = true;
	return cloud;
}
} // namespace Viewer
