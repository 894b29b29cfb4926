#include "packers.h"

#include <new>
#include <webp/encode.h>
#include <zip.h>
#include <zlib.h>

namespace Viewer
{
namespace
{
	// All that can be missing is memory.
	void Require(bool done)
	{
		if (!done)
			throw std::bad_alloc();
	}
} // namespace

std::string Gzip(const std::string &bytes)
{
	z_stream stream = {};
	Require(deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK);
	std::string packed(deflateBound(&stream, uLong(bytes.size())), '\0');
	std::string source = bytes;
	stream.next_in = reinterpret_cast<Bytef *>(source.data());
	stream.avail_in = uInt(source.size());
	stream.next_out = reinterpret_cast<Bytef *>(packed.data());
	stream.avail_out = uInt(packed.size());
	const int result = deflate(&stream, Z_FINISH);
	packed.resize(packed.size() - stream.avail_out);
	deflateEnd(&stream);
	Require(result == Z_STREAM_END);
	return packed;
}

std::string Webp(const std::vector<u8> &rgba, u32 width, bool lossless)
{
	WebPConfig config;
	WebPPicture picture;
	WebPMemoryWriter writer;
	Require(WebPConfigInit(&config) != 0 && WebPPictureInit(&picture) != 0);
	config.lossless = lossless ? 1 : 0;
	config.exact = 1;
	config.method = 2;
	picture.use_argb = lossless ? 1 : 0;
	picture.width = int(width);
	picture.height = int(rgba.size() / (4 * width));
	WebPMemoryWriterInit(&writer);
	picture.writer = WebPMemoryWrite;
	picture.custom_ptr = &writer;
	const bool done =
		WebPPictureImportRGBA(&picture, rgba.data(), int(4 * width)) != 0 && WebPEncode(&config, &picture) != 0;
	std::string bytes(reinterpret_cast<const char *>(writer.mem), writer.size);
	WebPPictureFree(&picture);
	WebPMemoryWriterClear(&writer);
	Require(done);
	return bytes;
}

std::string Zip(const std::map<std::string, std::string> &files)
{
	zip_source_t *const target = zip_source_buffer_create(nullptr, 0, 0, nullptr);
	Require(target != nullptr);
	zip_source_keep(target);
	zip_t *const archive = zip_open_from_source(target, ZIP_TRUNCATE, nullptr);
	Require(archive != nullptr);
	for (const auto &[name, bytes] : files)
	{
		const zip_int64_t index =
			zip_file_add(archive, name.c_str(), zip_source_buffer(archive, bytes.data(), bytes.size(), 0), 0);
		Require(index >= 0 && zip_set_file_compression(archive, zip_uint64_t(index), ZIP_CM_STORE, 0) == 0);
		zip_file_set_dostime(archive, zip_uint64_t(index), 0, 0x21, 0); // the same bytes every time
	}
	Require(zip_close(archive) == 0);
	zip_stat_t status;
	Require(zip_source_stat(target, &status) == 0 && zip_source_open(target) == 0);
	std::string bytes(status.size, '\0');
	Require(zip_source_read(target, bytes.data(), bytes.size()) == zip_int64_t(bytes.size()));
	zip_source_close(target);
	zip_source_free(target);
	return bytes;
}
} // namespace Viewer
