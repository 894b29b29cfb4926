// Glyphs by stb_truetype, mixed with what is behind them; strokes by stb_easy_font.

#include "lettering.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

// The headers are C, written without our warnings in mind.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wcast-qual"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wshadow"
#define STB_TRUETYPE_IMPLEMENTATION
#define STBTT_STATIC
#include <stb/stb_easy_font.h>
#include <stb/stb_truetype.h>
#pragma GCC diagnostic pop

namespace Viewer
{
const char *const kFontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

namespace
{
	void Mix(SPicture &picture, u32 x, u32 y, const SRgb &colour, float share)
	{
		if (x >= picture.m_Width || y >= picture.m_Height)
			return;
		const float channels[] = {colour.m_Red, colour.m_Green, colour.m_Blue};
		u8 *const pixel = &picture.m_Rgb[(u64(y) * picture.m_Width + x) * 3];
		for (u32 channel = 0; channel < 3; ++channel)
			pixel[channel] = u8(float(pixel[channel]) * (1.0f - share) + channels[channel] * 255.0f * share + 0.5f);
	}

	class CFont
	{
	public:
		CFont()
		{
			const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(kFontFile, "rb"), std::fclose);
			u8 piece[65536];
			size_t read = 0;
			while (file && (read = std::fread(piece, 1, sizeof(piece), file.get())) != 0)
				m_File.insert(m_File.end(), piece, piece + read);
			m_IsThere = !m_File.empty() && stbtt_InitFont(&m_Font, m_File.data(), 0) != 0;
		}

		bool IsThere() const { return m_IsThere; }

		// Calls action(glyph, x, scale) for each letter, and returns where the last one ends.
		template<typename _Action>
		float ForEachLetter(const std::string &text, u32 height, const _Action &action) const
		{
			const float scale = stbtt_ScaleForPixelHeight(&m_Font, float(height));
			float x = 0.0f;
			int previous = 0;
			for (const char letter : text)
			{
				const int glyph = stbtt_FindGlyphIndex(&m_Font, u8(letter));
				x += scale * float(stbtt_GetGlyphKernAdvance(&m_Font, previous, glyph));
				action(glyph, x, scale);
				int advance = 0;
				stbtt_GetGlyphHMetrics(&m_Font, glyph, &advance, nullptr);
				x += scale * float(advance);
				previous = glyph;
			}
			return x;
		}

		void Draw(SPicture &picture, u32 left, u32 top, const std::string &text, u32 height, const SRgb &colour) const
		{
			int ascent = 0;
			stbtt_GetFontVMetrics(&m_Font, &ascent, nullptr, nullptr);
			ForEachLetter(text, height,
				[&](int glyph, float x, float scale)
				{
					int width = 0, rows = 0, offsetX = 0, offsetY = 0;
					u8 *const shares = stbtt_GetGlyphBitmapSubpixel(
						&m_Font, scale, scale, x - std::floor(x), 0.0f, glyph, &width, &rows, &offsetX, &offsetY);
					const s32 startX = s32(left) + s32(std::floor(x)) + offsetX;
					const s32 startY = s32(top) + s32(std::lround(scale * float(ascent))) + offsetY;
					for (s32 row = 0; row < rows; ++row)
						for (s32 column = 0; column < width; ++column)
							if (startX + column >= 0 && startY + row >= 0)
								Mix(picture, u32(startX + column), u32(startY + row), colour,
									float(shares[row * width + column]) / 255.0f);
					stbtt_FreeBitmap(shares, nullptr);
				});
		}

	private:
		std::vector<u8> m_File;
		stbtt_fontinfo m_Font = {};
		bool m_IsThere = false;
	};

	const CFont &Font()
	{
		static const CFont font;
		return font;
	}

	// The strokes are made for letters of 12 pixels.
	constexpr u32 kStrokesHeight = 12;

	u32 StrokesScale(u32 height)
	{
		return std::max(height / kStrokesHeight, 1u);
	}

	// A letter of stb_easy_font is a handful of bars, given as rectangles of four vertices.
	void DrawStrokes(SPicture &picture, u32 left, u32 top, std::string text, u32 height, const SRgb &colour)
	{
		constexpr u32 kMaxLetters = 64;
		constexpr u32 kBytesPerLetter = 4 * 16 * 24; // 16 bytes a vertex, 4 vertices a bar, up to 24 bars
		struct SVertex
		{
			float m_X, m_Y, m_Z;
			u32 m_Colour;
		};
		const u32 scale = StrokesScale(height);
		text.resize(std::min<size_t>(text.size(), kMaxLetters));
		std::vector<SVertex> vertices(text.size() * kBytesPerLetter / sizeof(SVertex) + 4);
		const int bars =
			stb_easy_font_print(0.0f, 0.0f, text.data(), null, vertices.data(), int(vertices.size() * sizeof(SVertex)));
		for (u32 bar = 0; bar < u32(bars); ++bar)
		{
			const SVertex &low = vertices[bar * 4];
			const SVertex &high = vertices[bar * 4 + 2];
			for (u32 y = top + u32(low.m_Y) * scale; y < top + u32(high.m_Y) * scale; ++y)
				for (u32 x = left + u32(low.m_X) * scale; x < left + u32(high.m_X) * scale; ++x)
					Mix(picture, x, y, colour, 1.0f);
		}
	}
} // namespace

// cppcheck-suppress passedByValue ; stb takes a text that it may write, and gets a copy
static u32 StrokesWidth(std::string text, u32 height)
{
	return u32(stb_easy_font_width(text.data())) * StrokesScale(height);
}

u32 TextWidth(const std::string &text, u32 height)
{
	if (!Font().IsThere())
		return StrokesWidth(text, height);
	return u32(std::ceil(Font().ForEachLetter(text, height, [](int, float, float) {})));
}

void DrawText(SPicture &picture, u32 left, u32 top, const std::string &text, u32 height, const SRgb &colour)
{
	if (Font().IsThere())
		Font().Draw(picture, left, top, text, height, colour);
	else
		DrawStrokes(picture, left, top, text, height, colour);
}
} // namespace Viewer
