#pragma once

// Unpacks a gzip stream piece by piece, so that a reader can look at the first bytes before it decides how much to
// unpack.

#include "vx_defs.h"

#include <memory>
#include <string>
#include <string_view>

namespace Viewer
{
using namespace Vexmoor;

class CGzipReader
{
public:
	/// The file stays where it is while this lives.
	explicit CGzipReader(std::string_view file);
	~CGzipReader();
	CGzipReader(const CGzipReader &) = delete;
	CGzipReader &operator=(const CGzipReader &) = delete;

	/// The next bytes: as many as asked for, or all that are left. A damaged stream, or one that was cut short, is a
	/// CFailure.
	std::string Read(u64 size);
	/// Refuses a stream that is not at its end, one whose checksum is wrong, and a file that goes on after it.
	void RequireEnd();

private:
	struct SState;

	std::unique_ptr<SState> m_State;
	std::string_view m_File;
	bool m_IsAtEnd = false;
};
} // namespace Viewer
