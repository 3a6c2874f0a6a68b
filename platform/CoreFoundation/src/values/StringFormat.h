#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

// Appends the text that a format with printf's conversions and "%@" gives. Returns false if a
// conversion is not known. Takes those arguments for which it has read conversions.
bool FormatString(std::u16string_view format, va_list arguments, std::u16string& text);
