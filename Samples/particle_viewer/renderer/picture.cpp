// PNG by stb_image_write.

#include "picture.h"

#include "failure.h"
#include "lettering.h"
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

// The headers are C, written without our warnings in mind.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wshadow"
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace Viewer
{
namespace fs = std::filesystem;

namespace
{
	constexpr u32 kGap = 4; // pixels between panels

	void Append(void *out, void *data, int size)
	{
		std::vector<u8> &bytes = *static_cast<std::vector<u8> *>(out);
		const u8 *const first = static_cast<const u8 *>(data);
		bytes.insert(bytes.end(), first, first + size);
	}

	std::vector<u8> EncodePng(const SPicture &picture)
	{
		std::vector<u8> bytes;
		if (stbi_write_png_to_func(Append, &bytes, int(picture.m_Width), int(picture.m_Height), 3, picture.m_Rgb.data(),
				int(picture.m_Width * 3)) == 0)
			throw CFailure("There is not enough memory to encode a picture.");
		return bytes;
	}

	bool WriteFile(const std::string &path, const std::vector<u8> &bytes)
	{
		std::FILE *const file = std::fopen(path.c_str(), "wb");
		if (file == null)
			return false;
		const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
		return std::fclose(file) == 0 && written;
	}

	constexpr SRgb kPaper = {0.10f, 0.10f, 0.11f};
	constexpr SRgb kInk = {0.92f, 0.92f, 0.94f};
	constexpr SRgb kDimInk = {0.66f, 0.66f, 0.69f};

	void SetPixel(SPicture &picture, u64 pixel, const SRgb &colour)
	{
		const float channels[] = {colour.m_Red, colour.m_Green, colour.m_Blue};
		for (u32 channel = 0; channel < 3; ++channel)
			picture.m_Rgb[pixel * 3 + channel] = u8(channels[channel] * 255.0f + 0.5f);
	}

	void FillRectangle(SPicture &picture, u32 left, u32 top, u32 right, u32 bottom, const SRgb &colour)
	{
		for (u32 y = top; y < std::min(bottom, picture.m_Height); ++y)
			for (u32 x = left; x < std::min(right, picture.m_Width); ++x)
				SetPixel(picture, u64(y) * picture.m_Width + x, colour);
	}

	// The ramp, between what its ends mean.
	constexpr u32 kRampWidth = 5; // in heights of letters

	u32 Space(u32 height)
	{
		return height / 3;
	}

	void DrawLegend(SPicture &picture, u32 left, u32 top, const SLegend &legend, u32 height)
	{
		const u32 start = left + TextWidth(legend.m_Least, height) + Space(height);
		const u32 width = kRampWidth * height;
		for (u32 x = 0; x < width; ++x)
			FillRectangle(picture, start + x, top + height / 4, start + x + 1, top + height - height / 4,
				RampColour((float(x) + 0.5f) / float(width)));
		DrawText(picture, left, top, legend.m_Least, height, kDimInk);
		DrawText(picture, start + width + Space(height), top, legend.m_Most, height, kDimInk);
	}

	u32 LegendWidth(const SLegend &legend, u32 height)
	{
		return TextWidth(legend.m_Least, height) + TextWidth(legend.m_Most, height) + kRampWidth * height +
		       2 * Space(height);
	}

	// Captions stand above pictures, in letters that grow with them.
	u32 LetterHeight(u32 pictureHeight)
	{
		return std::max(15u, pictureHeight / 20);
	}

	u32 CaptionHeight(u32 letterHeight)
	{
		return letterHeight * 3 / 2;
	}

	// What a panel is, and, where there is room beside it, what its colours mean.
	void DrawCaption(
		SPicture &picture, u32 left, u32 right, const std::string &label, const SLegend &legend, u32 height)
	{
		const u32 top = (CaptionHeight(height) - height) / 2;
		DrawText(picture, left + Space(height), top, label, height, kInk);
		const u32 width = LegendWidth(legend, height);
		const bool fits = left + 4 * Space(height) + TextWidth(label, height) + width < right;
		if (!legend.m_Most.empty() && fits)
			DrawLegend(picture, right - width - Space(height), top, legend, height);
	}

	void Paste(SPicture &target, u32 left, u32 top, const SPicture &picture)
	{
		for (u32 y = 0; y < picture.m_Height; ++y)
			std::copy_n(&picture.m_Rgb[u64(y) * picture.m_Width * 3], picture.m_Width * 3,
				&target.m_Rgb[(u64(top + y) * target.m_Width + left) * 3]);
	}

	// The folders of a path that are not there yet, the innermost first.
	std::vector<std::string> MissingFolders(const std::string &path)
	{
		std::vector<std::string> missing;
		std::error_code error;
		fs::path folder = fs::absolute(path, error).lexically_normal();
		if (!folder.has_filename()) // a slash at the end
			folder = folder.parent_path();
		for (; !fs::exists(folder, error) && folder.has_relative_path(); folder = folder.parent_path())
			missing.push_back(folder.string());
		return missing;
	}
} // namespace

SDifference Compare(const SPicture &a, const SPicture &b)
{
	SDifference difference;
	u64 sum = 0;
	for (size_t i = 0; i < a.m_Rgb.size(); ++i)
	{
		const u32 distance = u32(std::abs(int(a.m_Rgb[i]) - int(b.m_Rgb[i])));
		sum += distance;
		difference.m_Largest = std::max(difference.m_Largest, distance);
	}
	difference.m_Mean = double(sum) / double(std::max<size_t>(a.m_Rgb.size(), 1));
	return difference;
}

SPicture DifferenceMap(const SPicture &a, const SPicture &b)
{
	SPicture map = a;
	for (u64 pixel = 0; pixel < a.m_Rgb.size() / 3; ++pixel)
	{
		int largest = 0;
		for (u64 i = pixel * 3; i < pixel * 3 + 3; ++i)
			largest = std::max(largest, std::abs(int(a.m_Rgb[i]) - int(b.m_Rgb[i])));
		SRgb colour = {};
		if (largest > 0)
			colour = RampColour(std::log2(float(largest)) / std::log2(float(kMostError)));
		SetPixel(map, pixel, colour);
	}
	return map;
}

SPicture SideBySide(const std::vector<SLabelled> &panels, const SLegend &legend)
{
	SPicture row;
	for (const SLabelled &panel : panels)
	{
		row.m_Width += panel.m_Picture->m_Width + (row.m_Width != 0 ? kGap : 0);
		row.m_Height = std::max(row.m_Height, panel.m_Picture->m_Height);
	}
	const u32 letterHeight = LetterHeight(row.m_Height);
	const u32 captionHeight = CaptionHeight(letterHeight);
	row.m_Height += captionHeight;
	row.m_Rgb.resize(u64(row.m_Width) * row.m_Height * 3);
	FillRectangle(row, 0, 0, row.m_Width, row.m_Height, kPaper);

	u32 left = 0;
	for (const SLabelled &panel : panels)
	{
		const u32 right = left + panel.m_Picture->m_Width;
		Paste(row, left, captionHeight, *panel.m_Picture);
		DrawCaption(row, left, right, panel.m_Label, legend, letterHeight);
		left = right + kGap;
	}
	return row;
}

SPicture WithDivider(const SPicture &picture, u32 column, const std::string &left, const std::string &right)
{
	const u32 letterHeight = LetterHeight(picture.m_Height);
	const u32 captionHeight = CaptionHeight(letterHeight);
	SPicture result;
	result.m_Width = picture.m_Width;
	result.m_Height = picture.m_Height + captionHeight;
	result.m_Rgb.resize(u64(result.m_Width) * result.m_Height * 3);
	FillRectangle(result, 0, 0, result.m_Width, captionHeight, kPaper);
	Paste(result, 0, captionHeight, picture);
	FillRectangle(result, column == 0 ? 0 : column - 1, 0, column + 1, result.m_Height, kInk);

	// Each on its own side of the divider, as near to it as there is room.
	const u32 top = (captionHeight - letterHeight) / 2;
	const u32 leftEnd = TextWidth(left, letterHeight) + Space(letterHeight) + 2;
	DrawText(result, column > leftEnd ? column - leftEnd : 0, top, left, letterHeight, kInk);
	DrawText(result, column + Space(letterHeight) + 2, top, right, letterHeight, kInk);
	return result;
}

COutputFolder::COutputFolder(const std::string &path)
	: m_Path(path)
	, m_Made(MissingFolders(path))
{
	std::error_code error;
	fs::create_directories(path, error);
	const std::string probe = path + "/.particle_viewer";
	const bool writable = fs::is_directory(path, error) && WriteFile(probe, {});
	fs::remove(probe, error);
	if (writable)
		return;
	RemoveMade();
	throw CFailure("The folder '" + path + "' cannot be written to.");
}

COutputFolder::~COutputFolder()
{
	if (!m_Written)
		RemoveMade();
}

void COutputFolder::RemoveMade()
{
	std::error_code error; // a folder that others have put something into meanwhile stays
	for (const std::string &folder : m_Made)
		fs::remove(folder, error);
}

void COutputFolder::Write(const std::vector<SNamedPicture> &pictures)
{
	const auto partial = [this](const SNamedPicture &picture) { return m_Path + "/." + picture.m_FileName + ".part"; };
	std::error_code error;
	bool written = true;
	for (const SNamedPicture &picture : pictures)
		written = written && WriteFile(partial(picture), EncodePng(*picture.m_Picture));
	for (const SNamedPicture &picture : pictures)
	{
		if (written)
			fs::rename(partial(picture), m_Path + "/" + picture.m_FileName, error);
		written = written && !error;
	}
	m_Written = written;
	if (written)
		return;
	for (const SNamedPicture &picture : pictures)
		fs::remove(partial(picture), error);
	throw CFailure("The pictures cannot be written to '" + m_Path + "'.");
}
} // namespace Viewer
