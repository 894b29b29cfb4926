#include "zip_archive.h"

#include "failure.h"
#include "text.h"
#include <algorithm>
#include <zip.h>

namespace Viewer
{
struct CZipArchive::SState
{
	zip_t *m_Archive = null;
};

namespace
{
	constexpr u64 kPieceSize = 1 << 16; // memory grows with what is really there, not with what the archive claims

	[[noreturn]] void Fail(const std::string &what, zip_error_t *error)
	{
		const std::string reason = zip_error_strerror(error);
		zip_error_fini(error);
		throw CFailure(what + ": " + reason + ".");
	}

	struct SEntry
	{
		SEntry(zip_t *archive, const std::string &name)
			: m_File(zip_fopen(archive, name.c_str(), 0))
		{
		}
		~SEntry()
		{
			if (m_File != null)
				zip_fclose(m_File);
		}
		SEntry(const SEntry &) = delete;
		SEntry &operator=(const SEntry &) = delete;

		zip_file_t *m_File;
	};
} // namespace

CZipArchive::CZipArchive(std::string_view file)
	: m_State(std::make_unique<SState>())
{
	zip_error_t error;
	zip_error_init(&error);
	zip_source_t *const source = zip_source_buffer_create(file.data(), file.size(), 0, &error);
	if (source != null)
		m_State->m_Archive = zip_open_from_source(source, ZIP_RDONLY, &error);
	if (m_State->m_Archive == null)
	{
		zip_source_free(source);
		Fail("byte 0: the zip archive cannot be read", &error);
	}
}

CZipArchive::~CZipArchive()
{
	zip_discard(m_State->m_Archive);
}

std::string CZipArchive::Read(const std::string &name, u64 maxSize) const
{
	const SEntry entry(m_State->m_Archive, name);
	if (entry.m_File == null)
		throw CFailure("the zip archive: " + Quoted(name) +
					   " cannot be read out of it: " + zip_strerror(m_State->m_Archive) + ".");
	std::string bytes;
	for (;;)
	{
		const size_t start = bytes.size();
		bytes.resize(start + kPieceSize);
		const zip_int64_t count = zip_fread(entry.m_File, bytes.data() + start, kPieceSize);
		if (count < 0) // at the end also of a checksum that is wrong
			throw CFailure(
				"the zip archive: " + Quoted(name) + " is damaged: " + zip_file_strerror(entry.m_File) + ".");
		bytes.resize(start + size_t(count));
		if (count == 0)
			return bytes;
		if (bytes.size() > maxSize)
			throw CFailure("the zip archive: " + Quoted(name) + " unpacks to more than the " + Grouped(maxSize) +
						   " bytes that it has reason to take.");
	}
}
} // namespace Viewer
