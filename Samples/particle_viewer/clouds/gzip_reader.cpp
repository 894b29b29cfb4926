#include "gzip_reader.h"

#include "failure.h"
#include "text.h"
#include <algorithm>
#include <limits>
#include <new>
#define ZLIB_CONST // what is unpacked is not written to
#include <zlib.h>

namespace Viewer
{
struct CGzipReader::SState
{
	z_stream m_Stream = {};
};

namespace
{
	constexpr u64 kPieceSize = 1 << 16; // memory grows with what is really there, not with what a header claims
	constexpr int kGzipWindowBits = 16 + MAX_WBITS;

	[[noreturn]] void Fail(std::string_view file, const z_stream &stream, const std::string &what)
	{
		throw CFailure("byte " + Grouped(file.size() - stream.avail_in) + ": " + what + ".");
	}
} // namespace

CGzipReader::CGzipReader(std::string_view file)
	: m_State(std::make_unique<SState>())
	, m_File(file)
{
	z_stream &stream = m_State->m_Stream;
	if (file.size() > std::numeric_limits<uInt>::max())
		throw CFailure("it is compressed and larger than 4 GB.");
	stream.next_in = reinterpret_cast<const Bytef *>(file.data());
	stream.avail_in = uInt(file.size());
	if (inflateInit2(&stream, kGzipWindowBits) != Z_OK)
		throw std::bad_alloc();
}

CGzipReader::~CGzipReader()
{
	inflateEnd(&m_State->m_Stream);
}

std::string CGzipReader::Read(u64 size)
{
	z_stream &stream = m_State->m_Stream;
	std::string bytes;
	while (bytes.size() < size && !m_IsAtEnd)
	{
		const size_t start = bytes.size();
		bytes.resize(start + std::min(size - start, kPieceSize));
		stream.next_out = reinterpret_cast<Bytef *>(bytes.data() + start);
		stream.avail_out = uInt(bytes.size() - start);
		const int result = inflate(&stream, Z_NO_FLUSH);
		bytes.resize(bytes.size() - stream.avail_out);
		if (result == Z_MEM_ERROR)
			throw std::bad_alloc();
		m_IsAtEnd = result == Z_STREAM_END;
		if (m_IsAtEnd || result == Z_OK)
			continue;
		Fail(m_File, stream,
			stream.avail_in == 0 ? "the gzip stream ends too soon"
								 : std::string("the gzip stream is damaged: ") +
									   (stream.msg != null ? stream.msg : "it asks for a dictionary"));
	}
	return bytes;
}

void CGzipReader::RequireEnd()
{
	if (!Read(1).empty())
		Fail(m_File, m_State->m_Stream, "the gzip stream goes on after all that its header promises");
	if (m_State->m_Stream.avail_in != 0)
		Fail(m_File, m_State->m_Stream, "the file goes on after the gzip stream");
}
} // namespace Viewer
