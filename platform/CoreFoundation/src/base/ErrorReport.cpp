#include "platform/CoreFoundation/src/base/ErrorReport.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

void ReportError(CFErrorRef* error, CFIndex code, const std::string& text) {
    if (error == nullptr) {
        return;
    }
    *error = nullptr;
    const CFOwned<CFStringRef> description(
        CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8));
    if (!description) {
        return;
    }
    const void* key = kCFErrorLocalizedDescriptionKey;
    const void* value = description.Get();
    const CFOwned<CFDictionaryRef> info(CFDictionaryCreate(nullptr, &key, &value, 1,
                                                           &kCFTypeDictionaryKeyCallBacks,
                                                           &kCFTypeDictionaryValueCallBacks));
    *error = CFErrorCreate(nullptr, kCFErrorDomainCocoa, code, info.Get());
}
