#include "webp_image.h"

#include "failure.h"
#include "text.h"
#include <webp/decode.h>

namespace Viewer
{
namespace
{
	constexpr int kWithoutLoss = 2; // of WebPBitstreamFeatures::format

	[[noreturn]] void Fail(const std::string &name, const std::string &what)
	{
		throw CFailure("the image " + Quoted(name) + " " + what + ".");
	}
} // namespace

SImage ReadWebp(const std::string &name, std::string_view bytes, u64 minPixelCount, u64 maxPixelCount)
{
	const auto *const data = reinterpret_cast<const std::uint8_t *>(bytes.data());
	WebPBitstreamFeatures features = {};
	if (WebPGetFeatures(data, bytes.size(), &features) != VP8_STATUS_OK)
		Fail(name, "is no WebP image");
	if (features.has_animation != 0 || features.format != kWithoutLoss)
		Fail(name, "is not packed without loss, so its numbers are not those that were put in");

	SImage image;
	image.m_Width = u32(features.width);
	image.m_Height = u32(features.height);
	if (image.PixelCount() < minPixelCount || image.PixelCount() > maxPixelCount)
		Fail(name, "has " + Grouped(image.m_Width) + " x " + Grouped(image.m_Height) + " pixels, and from " +
					   Grouped(minPixelCount) + " to " + Grouped(maxPixelCount) + " are expected");
	image.m_Rgba.resize(image.PixelCount() * 4);
	if (WebPDecodeRGBAInto(data, bytes.size(), image.m_Rgba.data(), image.m_Rgba.size(), features.width * 4) == null)
		Fail(name, "is damaged, or was cut short");
	return image;
}
} // namespace Viewer
