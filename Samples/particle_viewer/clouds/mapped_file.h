#pragma once

// Maps a file into memory. The system reads its pages when they are touched and may drop them again, so that a large
// file does not fill the memory. The file has to keep its size while it is mapped.

#include "vx_defs.h"

#include <string>
#include <string_view>

namespace Viewer
{
using namespace Vexmoor;

class CMappedFile
{
public:
	/// A file that is not there, cannot be read, is none or is empty is a CFailure.
	explicit CMappedFile(const std::string &path);
	~CMappedFile();
	CMappedFile(const CMappedFile &) = delete;
	CMappedFile &operator=(const CMappedFile &) = delete;

	std::string_view Bytes() const { return std::string_view(static_cast<const char *>(m_Memory), m_Size); }

private:
	void *m_Memory = null;
	size_t m_Size = 0;
};
} // namespace Viewer
