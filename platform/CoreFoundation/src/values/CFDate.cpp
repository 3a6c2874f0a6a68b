#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <CoreFoundation/CFDate.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

struct __CFDate final : CFRuntimeObject {
    explicit __CFDate(CFAbsoluteTime at) : CFRuntimeObject(kCFRuntimeDateType), mAt(at) {}

    bool Equals(const CFRuntimeObject& other) const override {
        return mAt == static_cast<const __CFDate&>(other).mAt;
    }
    CFHashCode Hash() const override {
        // Of whole seconds; beyond what a hash holds all dates may well be alike.
        return std::abs(mAt) < 2e9 ? static_cast<CFHashCode>(static_cast<long>(std::floor(mAt)))
                                   : 0;
    }
    std::u16string Description(unsigned depth) const override;

    const CFAbsoluteTime mAt;
};

constinit const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

std::u16string __CFDate::Description(unsigned depth) const {
    const double since1970 = std::floor(mAt + kCFAbsoluteTimeIntervalSince1970);
    std::tm parts{};
    // Years of four digits only.
    if (!(since1970 > -6.0e10 && since1970 < 2.5e11)) {
        return CFRuntimeObject::Description(depth);
    }
    const auto seconds = static_cast<time_t>(since1970);
    if (static_cast<double>(seconds) != since1970 || gmtime_r(&seconds, &parts) == nullptr) {
        return CFRuntimeObject::Description(depth);
    }
    std::array<char, 80> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S +0000", &parts);
    return UTF16FromASCII(text.data());
}

CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at) {
    return CFRuntimeCreate<__CFDate>(allocator, at);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate) {
    const auto* date = CFRuntimeArgument<__CFDate>(theDate, "theDate");
    return date == nullptr ? 0 : date->mAt;
}
