// PNG by stb_image_write, letters by stb_easy_font.

#include "picture.h"

#include "failure.h"
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
#include <stb/stb_easy_font.h>
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace Viewer
{
namespace fs = std::filesystem;

namespace
{
	constexpr u32 kGap = 4; // pixels between panels
	constexpr u32 kMaxLetters = 64;
	constexpr u32 kBytesPerLetter = 4 * 16 * 24; // stb_easy_font: 16 bytes a vertex, 4 vertices a bar, up to 24 bars

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

	constexpr SRgb kInk = {0.88f, 0.88f, 0.88f};

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

	// A letter of stb_easy_font is a handful of bars, given as rectangles of four vertices.
	void DrawLabel(SPicture &picture, u32 left, u32 top, std::string text, u32 scale)
	{
		struct SVertex
		{
			float m_X, m_Y, m_Z;
			u32 m_Colour;
		};
		text.resize(std::min<size_t>(text.size(), kMaxLetters));
		std::vector<SVertex> vertices(text.size() * kBytesPerLetter / sizeof(SVertex) + 4);
		const int bars =
			stb_easy_font_print(0.0f, 0.0f, text.data(), null, vertices.data(), int(vertices.size() * sizeof(SVertex)));
		for (u32 bar = 0; bar < u32(bars); ++bar)
		{
			const SVertex &low = vertices[bar * 4];
			const SVertex &high = vertices[bar * 4 + 2];
			FillRectangle(picture, left + u32(low.m_X) * scale, top + u32(low.m_Y) * scale,
				left + u32(high.m_X) * scale, top + u32(high.m_Y) * scale, kInk);
		}
	}

	// Darkens what lies behind letters.
	void Shade(SPicture &picture, u32 left, u32 top, u32 right, u32 bottom)
	{
		for (u32 y = top; y < std::min(bottom, picture.m_Height); ++y)
			for (u32 i = left * 3; i < std::min(right, picture.m_Width) * 3; ++i)
			{
				u8 &channel = picture.m_Rgb[u64(y) * picture.m_Width * 3 + i];
				channel = u8(channel * 2 / 5);
			}
	}

	// cppcheck-suppress passedByValue ; stb takes a text that it may write, and gets a copy
	u32 LabelWidth(std::string text, u32 scale)
	{
		return u32(stb_easy_font_width(text.data())) * scale;
	}

	// The ramp, between what its ends mean.
	constexpr u32 kRampWidth = 60;
	constexpr u32 kRampHeight = 6;
	constexpr u32 kSpace = 4;

	u32 LegendWidth(const SLegend &legend, u32 scale)
	{
		return LabelWidth(legend.m_Least, scale) + LabelWidth(legend.m_Most, scale) + (kRampWidth + 2 * kSpace) * scale;
	}

	void DrawLegend(SPicture &picture, u32 left, u32 top, const SLegend &legend, u32 scale)
	{
		const u32 start = left + LabelWidth(legend.m_Least, scale) + kSpace * scale;
		const u32 width = kRampWidth * scale;
		for (u32 x = 0; x < width; ++x)
			FillRectangle(picture, start + x, top, start + x + 1, top + kRampHeight * scale,
				RampColour((float(x) + 0.5f) / float(width)));
		DrawLabel(picture, left, top, legend.m_Least, scale);
		DrawLabel(picture, start + width + kSpace * scale, top, legend.m_Most, scale);
	}

	// What a panel says in its corner: its label, and under it what its colours mean.
	void DrawCaption(SPicture &picture, u32 left, const std::string &label, const SLegend &legend, u32 scale)
	{
		constexpr u32 kMargin = 6;
		constexpr u32 kLine = 12;
		const bool hasLegend = !legend.m_Most.empty();
		const u32 width = std::max(LabelWidth(label, scale), hasLegend ? LegendWidth(legend, scale) : 0);
		const u32 x = left + kMargin * scale;
		const u32 y = kMargin * scale;
		const u32 edge = 3 * scale;
		Shade(picture, x - edge, y - edge, x + width + edge, y + (hasLegend ? 2 : 1) * kLine * scale);
		DrawLabel(picture, x, y, label, scale);
		if (hasLegend)
			DrawLegend(picture, x, y + kLine * scale, legend, scale);
	}

	void Paste(SPicture &target, u32 left, const SPicture &picture)
	{
		for (u32 y = 0; y < picture.m_Height; ++y)
			std::copy_n(&picture.m_Rgb[u64(y) * picture.m_Width * 3], picture.m_Width * 3,
				&target.m_Rgb[(u64(y) * target.m_Width + left) * 3]);
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
	row.m_Rgb.assign(u64(row.m_Width) * row.m_Height * 3, 255);

	u32 left = 0;
	for (const SLabelled &panel : panels)
	{
		const u32 scale = std::max(1u, panel.m_Picture->m_Height / 180);
		Paste(row, left, *panel.m_Picture);
		DrawCaption(row, left, panel.m_Label, legend, scale);
		left += panel.m_Picture->m_Width + kGap;
	}
	return row;
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
