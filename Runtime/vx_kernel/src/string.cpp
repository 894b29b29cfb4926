#include "kr_string.h"

#include <cstdarg>
#include <cstdio>

namespace Vexmoor
{
CString CString::Format(const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	va_list argumentsAgain;
	va_copy(argumentsAgain, arguments);
	const int length = std::vsnprintf(null, 0, format, arguments);
	va_end(arguments);

	SContainer *const container = new SContainer;
	if (length > 0)
	{
		container->m_Text.resize(std::size_t(length));
		std::vsnprintf(container->m_Text.data(), std::size_t(length) + 1, format, argumentsAgain);
	}
	va_end(argumentsAgain);

	CString string;
	string.m_Container = container;
	return string;
}
} // namespace Vexmoor
