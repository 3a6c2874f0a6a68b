#pragma once

#include <CoreFoundation/CFError.h>

#include <string>

// Sets `*error` to a new error of the domain `kCFErrorDomainCocoa` with one line for people, or to
// null if there is no memory. The caller owns the error. Does nothing if `error` is null.
void ReportError(CFErrorRef* error, CFIndex code, const std::string& text);
