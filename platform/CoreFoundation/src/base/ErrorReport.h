#pragma once

#include <CoreFoundation/CFError.h>

#include <string>

// Makes an error of the domain `kCFErrorDomainCocoa` with one line for people, which the caller
// owns; does nothing for a null pointer. Null, too, when there is no memory.
void ReportError(CFErrorRef* error, CFIndex code, const std::string& text);
