#include "mapped_file.h"

#include "failure.h"
#include "text.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Viewer
{
namespace
{
	/// Closes what it holds: a mapping outlives the descriptor that it was made with.
	struct SDescriptor
	{
		explicit SDescriptor(const std::string &path)
			: m_Number(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) // opening a pipe would wait for a writer
		{
		}
		~SDescriptor()
		{
			if (m_Number >= 0)
				close(m_Number);
		}
		SDescriptor(const SDescriptor &) = delete;
		SDescriptor &operator=(const SDescriptor &) = delete;

		int m_Number;
	};

	[[noreturn]] void FailToOpen(const std::string &path)
	{
		throw CFailure("The file " + Quoted(path) + " cannot be opened: " + std::strerror(errno) + ".");
	}
} // namespace

CMappedFile::CMappedFile(const std::string &path)
{
	const SDescriptor file(path);
	struct stat status = {};
	if (file.m_Number < 0 || fstat(file.m_Number, &status) != 0)
		FailToOpen(path);
	if (!S_ISREG(status.st_mode))
		throw CFailure(Quoted(path) + (S_ISDIR(status.st_mode) ? " is a folder, not a file." : " is no regular file."));
	if (status.st_size == 0)
		throw CFailure("The file " + Quoted(path) + " is empty.");

	m_Size = size_t(status.st_size);
	m_Memory = mmap(null, m_Size, PROT_READ, MAP_PRIVATE, file.m_Number, 0);
	if (m_Memory == MAP_FAILED)
		FailToOpen(path);
	madvise(m_Memory, m_Size, MADV_SEQUENTIAL);
}

CMappedFile::~CMappedFile()
{
	munmap(m_Memory, m_Size);
}
} // namespace Viewer
