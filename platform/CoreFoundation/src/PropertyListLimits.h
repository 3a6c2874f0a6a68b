// What a property list may ask for, whatever its format, so that no file can exhaust the memory or
// the stack.
#pragma once

#include <cstddef>

constexpr size_t kPropertyListMaximumSize = 16U << 20U;     // bytes of a file
constexpr size_t kPropertyListMaximumContents = 64U << 20U; // bytes of its strings and data
constexpr size_t kPropertyListMaximumValues = 1U << 20U;
constexpr unsigned kPropertyListMaximumDepth = 128; // levels of containers

// Seconds since 2001: the years 1933 to 2068, which the library's 31 bits of seconds hold.
constexpr double kPropertyListFirstDate = -2145916800.0;
constexpr double kPropertyListEndOfDates = 2145916800.0;
