#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFData.h>

#include <algorithm>
#include <cstring>
#include <vector>

struct __CFData final : CFRuntimeObject {
    __CFData(bool isMutable, const UInt8* bytes, std::size_t length)
        : CFRuntimeObject(kCFRuntimeDataType), mMutable(isMutable) {
        // Room for a byte, so that empty data has an address too.
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

    const bool mMutable;
    std::vector<UInt8> mBytes;
};

CFTypeID CFDataGetTypeID(void) {
    return kCFRuntimeDataType;
}

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
    if (length < 0 || (bytes == nullptr && length != 0)) {
        return nullptr;
    }
    return CFRuntimeCreate<__CFData>(allocator, false, bytes, static_cast<std::size_t>(length));
}

CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    return data == nullptr ? nullptr
                           : CFRuntimeCreate<__CFData>(allocator, false, data->mBytes.data(),
                                                       data->mBytes.size());
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity) {
    return capacity < 0 ? nullptr
                        : CFRuntimeCreate<__CFData>(
                              allocator, true, static_cast<const UInt8*>(nullptr), std::size_t{0});
}

CFIndex CFDataGetLength(CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    return data == nullptr ? 0 : static_cast<CFIndex>(data->mBytes.size());
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    return data == nullptr ? nullptr : data->mBytes.data();
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData) {
    auto* data = CFRuntimeMutableArgument<__CFData>(theData, "theData");
    return data == nullptr ? nullptr : data->mBytes.data();
}

void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer) {
    const auto* data = CFRuntimeArgument<__CFData>(theData, "theData");
    if (data == nullptr || buffer == nullptr || range.length <= 0 ||
        !RangeIsWithin(range, data->mBytes.size())) {
        return;
    }
    std::memcpy(buffer, data->mBytes.data() + range.location,
                static_cast<std::size_t>(range.length));
}

void CFDataSetLength(CFMutableDataRef theData, CFIndex length) {
    auto* data = CFRuntimeMutableArgument<__CFData>(theData, "theData");
    if (data == nullptr || length < 0) {
        return;
    }
    CFRuntimeGuard(false, [&] {
        data->mBytes.resize(static_cast<std::size_t>(length));
        return true;
    });
}

void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength) {
    const auto* data = CFRuntimeMutableArgument<__CFData>(theData, "theData");
    CFIndex length = 0;
    if (data != nullptr && extraLength >= 0 &&
        !__builtin_add_overflow(CFDataGetLength(theData), extraLength, &length)) {
        CFDataSetLength(theData, length);
    }
}

void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length) {
    if (CFRuntimeMutableArgument<__CFData>(theData, "theData") != nullptr) {
        CFDataReplaceBytes(theData, CFRangeMake(CFDataGetLength(theData), 0), bytes, length);
    }
}

void CFDataReplaceBytes(CFMutableDataRef theData, CFRange range, const UInt8* newBytes,
                        CFIndex newLength) {
    auto* data = CFRuntimeMutableArgument<__CFData>(theData, "theData");
    if (data == nullptr || newLength < 0 || (newBytes == nullptr && newLength != 0) ||
        !RangeIsWithin(range, data->mBytes.size())) {
        return;
    }
    CFRuntimeGuard(false, [&] {
        // Into new memory: the bytes may be the data's own.
        std::vector<UInt8> bytes;
        const auto begin = data->mBytes.begin() + range.location;
        bytes.reserve(std::max<std::size_t>(
            data->mBytes.size() + static_cast<std::size_t>(newLength - range.length), 1));
        bytes.assign(data->mBytes.begin(), begin);
        bytes.insert(bytes.end(), newBytes, newBytes + newLength);
        bytes.insert(bytes.end(), begin + range.length, data->mBytes.end());
        data->mBytes.swap(bytes);
        return true;
    });
}

void CFDataDeleteBytes(CFMutableDataRef theData, CFRange range) {
    if (CFRuntimeMutableArgument<__CFData>(theData, "theData") != nullptr) {
        CFDataReplaceBytes(theData, range, nullptr, 0);
    }
}
