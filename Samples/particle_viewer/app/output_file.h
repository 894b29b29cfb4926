#pragma once

// A file that a run leaves behind.

#include "vx_defs.h"

#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// Proved writable before any work is done; the file gets its name when it is complete.
class COutputFile
{
public:
	explicit COutputFile(const std::string &path);
	~COutputFile();
	COutputFile(const COutputFile &) = delete;
	COutputFile &operator=(const COutputFile &) = delete;

	void Write(const std::vector<u8> &bytes);

private:
	bool WritePart(const std::vector<u8> &bytes) const;

	std::string m_Path;
	std::string m_Part;
};

/// A CbWrite that appends to a std::vector<u8>.
bool AppendTo(const void *bytes, u64 size, void *vector);
} // namespace Viewer
