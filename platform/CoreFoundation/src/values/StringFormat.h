// Formats for strings: printf's conversions and "%@".
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

// Appends the formatted text; false when a conversion is not known. `arguments` is used up as far
// as the format was understood.
bool FormatString(std::u16string_view format, va_list arguments, std::u16string& text);
