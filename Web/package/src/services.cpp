// Two of the library's services, as a module for browsers has them. Warnings go nowhere: arrays are packed and aligned,
// so only pattern widths without a loop of their own would warn. The linker finds these definitions first and leaves
// log_unique.cpp and string.cpp out, and with them formatted output, strings and locks: half of the module.

#include "kr_log_unique.h"
#include "kr_string.h"

namespace Vexmoor
{
void WarnAtSite(const char *, const char *) {}

// Only WarnAtSite looks at a batch of warnings.
CWarningBatch::CWarningBatch(EMode) {}
CWarningBatch::~CWarningBatch() = default;

// Formats the texts of warnings alone.
CShortString CShortString::Format(const char *, ...)
{
	return {};
}
} // namespace Vexmoor
