#include "unpacking.h"

#include "failure.h"
#include "text.h"

namespace Viewer
{
void RequirePlausibleSize(const std::string &what, u64 unpackedSize, u64 fileSize)
{
	if (unpackedSize / kMaxExpansion >= fileSize)
		throw CFailure(what + " takes " + Grouped(unpackedSize) + " bytes, and no cloud is packed into the " +
					   Grouped(fileSize) + " bytes of this file to less than a hundredth.");
}
} // namespace Viewer
