#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/CoreFoundation/src/values/UuidText.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFUUID.h>

#include <cstring>
#include <map>

namespace {

static_assert(sizeof(CFUUIDBytes) == sizeof(UuidBytes));

struct Constants {
    Mutex mutex;
    std::map<UuidBytes, CFUUIDRef> byBytes QUORVEL_GUARDED_BY(mutex);
};

} // namespace

struct __CFUUID final : CFRuntimeObject {
    explicit __CFUUID(const UuidBytes& bytes)
        : CFRuntimeObject(kCFRuntimeUUIDType), mBytes(bytes) {}
    __CFUUID(const UuidBytes& bytes, CFRuntimeImmortal immortal)
        : CFRuntimeObject(kCFRuntimeUUIDType, immortal), mBytes(bytes) {}

    bool Equals(const CFRuntimeObject& other) const override {
        return mBytes == static_cast<const __CFUUID&>(other).mBytes;
    }
    CFHashCode Hash() const override { return CFRuntimeHash(mBytes); }
    std::u16string Description(unsigned /*depth*/) const override {
        return u"<CFUUID " + UTF16FromASCII(UuidText(mBytes)) + u">";
    }

    const UuidBytes mBytes;
};

CFTypeID CFUUIDGetTypeID(void) {
    return kCFRuntimeUUIDType;
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef alloc, CFUUIDBytes bytes) {
    UuidBytes copy{};
    std::memcpy(copy.data(), &bytes, copy.size());
    return CFRuntimeCreate<__CFUUID>(alloc, copy);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef alloc, CFStringRef uuidStr) {
    CFRuntimeIsArgument(uuidStr, kCFRuntimeStringType, "uuidStr");
    return CFRuntimeGuard<CFUUIDRef>(nullptr, [&]() -> CFUUIDRef {
        const auto bytes = ParseUuid(UTF8OfString(uuidStr).value_or(""));
        return bytes ? CFRuntimeCreate<__CFUUID>(alloc, *bytes) : nullptr;
    });
}

CFStringRef CFUUIDCreateString(CFAllocatorRef alloc, CFUUIDRef uuid) {
    const auto* object = CFRuntimeArgument<__CFUUID>(uuid, "uuid");
    if (object == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        return CFRuntimeCreate<__CFString>(alloc, UTF16FromASCII(UuidText(object->mBytes)));
    });
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) {
    CFUUIDBytes bytes{};
    if (const auto* object = CFRuntimeArgument<__CFUUID>(uuid, "uuid")) {
        std::memcpy(&bytes, object->mBytes.data(), sizeof(bytes));
    }
    return bytes;
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef /*alloc*/, UInt8 byte0, UInt8 byte1,
                                         UInt8 byte2, UInt8 byte3, UInt8 byte4, UInt8 byte5,
                                         UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                         UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                         UInt8 byte14, UInt8 byte15) {
    const UuidBytes bytes = {byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                             byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
    return CFRuntimeGuard<CFUUIDRef>(nullptr, [&]() -> CFUUIDRef {
        // They are made on first use, which may be before this file's own statics are made, and
        // never destroyed.
        static auto* const constants = new Constants;
        const MutexLock lock(constants->mutex);
        const auto [entry, added] = constants->byBytes.try_emplace(bytes, nullptr);
        if (entry->second == nullptr) {
            entry->second = new __CFUUID(bytes, CFRuntimeImmortal{});
        }
        return entry->second;
    });
}
