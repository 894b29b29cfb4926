#include "kr_string.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <new>

namespace Vexmoor
{
CShortString CShortString::Format(const char *format, ...)
{
	CShortString string;
	va_list arguments;
	va_start(arguments, format);
	if (std::vsnprintf(string.m_Text, sizeof(string.m_Text), format, arguments) < 0)
		string.m_Text[0] = '\0';
	va_end(arguments);
	return string;
}

CString CString::Format(const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	va_list argumentsAgain;
	va_copy(argumentsAgain, arguments);
	const int length = std::vsnprintf(null, 0, format, arguments);
	va_end(arguments);

	CString string;
	string.m_Container = new (std::nothrow) SContainer;
	if (string.m_Container != null && length > 0)
	{
		VX_TRY
		{
			std::string text(std::size_t(length), '\0');
			std::vsnprintf(text.data(), text.size() + 1, format, argumentsAgain);
			string.m_Container->m_Text.swap(text);
		}
		VX_CATCH {}
	}
	va_end(argumentsAgain);
	return string;
}
} // namespace Vexmoor
