#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>

const CFStringRef kCFErrorDomainPOSIX = CFSTR("NSPOSIXErrorDomain");
const CFStringRef kCFErrorDomainCocoa = CFSTR("NSCocoaErrorDomain");
const CFStringRef kCFErrorLocalizedDescriptionKey = CFSTR("NSLocalizedDescription");

struct __CFError final : CFRuntimeObject {
    __CFError(CFStringRef domain, CFIndex code, CFDictionaryRef userInfo)
        : CFRuntimeObject(kCFRuntimeErrorType),
          mDomain(static_cast<CFStringRef>(CFRetain(domain))),
          mCode(code),
          mUserInfo(CFOwned<CFDictionaryRef>::Retained(userInfo)) {}

    bool Equals(const CFRuntimeObject& other) const override {
        const auto& error = static_cast<const __CFError&>(other);
        return mCode == error.mCode && CFEqual(mDomain.Get(), error.mDomain.Get()) != 0 &&
               (mUserInfo && error.mUserInfo ? CFEqual(mUserInfo.Get(), error.mUserInfo.Get()) != 0
                                             : !mUserInfo && !error.mUserInfo);
    }
    CFHashCode Hash() const override {
        return CFHash(mDomain.Get()) ^ static_cast<CFHashCode>(mCode);
    }
    std::u16string Description(unsigned /*depth*/) const override;

    const CFOwned<CFStringRef> mDomain;
    const CFIndex mCode;
    const CFOwned<CFDictionaryRef> mUserInfo;
};

std::u16string __CFError::Description(unsigned /*depth*/) const {
    const auto* text = mUserInfo ? CFRuntimeCast<__CFString>(CFDictionaryGetValue(
                                       mUserInfo.Get(), kCFErrorLocalizedDescriptionKey))
                                 : nullptr;
    if (text != nullptr) {
        return text->mText;
    }
    const CFOwned<CFStringRef> made(CFStringCreateWithFormat(
        nullptr, nullptr, CFSTR("error %ld of %@"), static_cast<long>(mCode), mDomain.Get()));
    const auto* string = CFRuntimeCast<__CFString>(made.Get());
    return string == nullptr ? u"error" : string->mText;
}

CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFStringRef domain, CFIndex code,
                         CFDictionaryRef userInfo) {
    return CFRuntimeArgument<__CFString>(domain, "domain") == nullptr ||
                   !CFRuntimeIsOptionalArgument(userInfo, kCFRuntimeDictionaryType, "userInfo")
               ? nullptr
               : CFRuntimeCreate<__CFError>(allocator, domain, code, userInfo);
}

CFIndex CFErrorGetCode(CFErrorRef err) {
    const auto* error = CFRuntimeArgument<__CFError>(err, "err");
    return error == nullptr ? 0 : error->mCode;
}

CFStringRef CFErrorCopyDescription(CFErrorRef err) {
    return CFRuntimeArgument<__CFError>(err, "err") == nullptr ? nullptr : CFCopyDescription(err);
}
