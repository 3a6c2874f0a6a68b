#pragma once

#include <string_view>

// Whether bytes that begin with "bplist" are a binary property list that may be handed to a parser
// that trusts its input: all offsets and references within the bytes, no object within itself,
// every value of a type that we know, within the limits once shared objects are counted as often as
// they are referred to. Null when it is, else what is wrong.
const char* ScanBinaryPropertyList(std::string_view bytes);
