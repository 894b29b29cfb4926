#pragma once

// A zip archive in memory.

#include "vx_defs.h"

#include <memory>
#include <string>
#include <string_view>

namespace Viewer
{
using namespace Vexmoor;

class CZipArchive
{
public:
	/// The file stays where it is while this lives. An archive that is damaged is a CFailure.
	explicit CZipArchive(std::string_view file);
	~CZipArchive();
	CZipArchive(const CZipArchive &) = delete;
	CZipArchive &operator=(const CZipArchive &) = delete;

	/// Unpacks the file of that name. One that is not there, is damaged, or is larger than the most that is said, in
	/// bytes, is a CFailure.
	std::string Read(const std::string &name, u64 maxSize) const;

private:
	struct SState;

	std::unique_ptr<SState> m_State;
};
} // namespace Viewer
