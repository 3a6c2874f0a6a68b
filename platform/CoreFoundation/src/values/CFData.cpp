#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <CoreFoundation/CFData.h>

#include <algorithm>
#include <vector>

struct __CFData final : CFRuntimeObject {
    __CFData(const UInt8* bytes, std::size_t length) : CFRuntimeObject(kCFRuntimeDataType) {
        // There is room for a byte, so that empty data has an address too.
        mBytes.reserve(std::max<std::size_t>(length, 1));
        mBytes.assign(bytes, bytes + length);
    }

    bool Equals(const CFRuntimeObject& other) const override {
        return mBytes == static_cast<const __CFData&>(other).mBytes;
    }
    CFHashCode Hash() const override { return CFRuntimeHash(mBytes); }
    std::u16string Description(unsigned /*depth*/) const override {
        constexpr std::u16string_view kDigits = u"0123456789abcdef";
        std::u16string text = u"<";
        for (const UInt8 byte : mBytes) {
            text += kDigits[byte >> 4U];
            text += kDigits[byte & 0x0FU];
        }
        return text + u">";
    }

    std::vector<UInt8> mBytes;
};

CFTypeID CFDataGetTypeID(void) {
    return kCFRuntimeDataType;
}

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
    if (length < 0 || (bytes == nullptr && length != 0)) {
        return nullptr;
    }
    return CFRuntimeCreate<__CFData>(allocator, bytes, static_cast<std::size_t>(length));
}

CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    if (data == nullptr || !CFRuntimeCanAllocate(allocator)) {
        return nullptr;
    }
    data->Retain();
    return data;
}

CFIndex CFDataGetLength(CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    return data == nullptr ? 0 : static_cast<CFIndex>(data->mBytes.size());
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    return data == nullptr ? nullptr : data->mBytes.data();
}
