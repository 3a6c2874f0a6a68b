#pragma once

#include <string_view>

// Whether the text is an XML property list that may be handed to a lenient parser without a limit
// of its own: well formed, nothing but what property lists are made of, numbers and dates that are
// what they say, within the limits. Null when it is, else what is wrong.
const char* ScanXMLPropertyList(std::string_view text);
