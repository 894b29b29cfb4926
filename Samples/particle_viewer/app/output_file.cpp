// Written beside its place, then moved there.

#include "output_file.h"

#include "failure.h"
#include <filesystem>
#include <fstream>

namespace Viewer
{
COutputFile::COutputFile(const std::string &path)
	: m_Path(path)
	, m_Part(path + ".part")
{
	std::error_code error;
	if (std::filesystem::is_directory(path, error) || !WritePart({}))
		throw CFailure("The file '" + path + "' cannot be written.");
}

COutputFile::~COutputFile()
{
	std::error_code error;
	std::filesystem::remove(m_Part, error);
}

void COutputFile::Write(const std::vector<u8> &bytes)
{
	std::error_code error;
	if (WritePart(bytes))
		std::filesystem::rename(m_Part, m_Path, error);
	if (error || std::filesystem::exists(m_Part))
		throw CFailure("The file '" + m_Path + "' cannot be written.");
}

bool COutputFile::WritePart(const std::vector<u8> &bytes) const
{
	std::ofstream file(m_Part, std::ios::binary);
	file.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
	file.close();
	return file.good();
}

bool AppendTo(const void *bytes, u64 size, void *vector)
{
	const u8 *const first = static_cast<const u8 *>(bytes);
	std::vector<u8> &to = *static_cast<std::vector<u8> *>(vector);
	to.insert(to.end(), first, first + size);
	return true;
}
} // namespace Viewer
