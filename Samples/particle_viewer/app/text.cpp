#include "text.h"

#include <algorithm>
#include <cstdio>

namespace Viewer
{
std::string Grouped(u64 number)
{
	std::string text = std::to_string(number);
	for (size_t at = text.size(); at > 3; at -= 3)
		text.insert(at - 3, ",");
	return text;
}

std::string Quoted(std::string_view text)
{
	constexpr size_t kMaxLength = 200;

	std::string quoted = "'";
	for (const char letter : text.substr(0, kMaxLength))
	{
		char escaped[] = "\\x00";
		std::snprintf(escaped, sizeof(escaped), "\\x%02X", unsigned(u8(letter)));
		quoted += letter >= ' ' && letter <= '~' ? std::string(1, letter) : escaped;
	}
	return quoted + (text.size() > kMaxLength ? "...'" : "'");
}
} // namespace Viewer
