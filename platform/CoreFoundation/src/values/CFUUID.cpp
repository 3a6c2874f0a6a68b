#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFUUID.h>

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>

namespace {

using Bytes = std::array<UInt8, 16>;
static_assert(sizeof(CFUUIDBytes) == sizeof(Bytes));

struct Constants {
    Mutex mutex;
    std::map<Bytes, CFUUIDRef> byBytes QUORVEL_GUARDED_BY(mutex);
};

// Where the text has its hyphens, counted in bytes.
constexpr bool HyphenComesBefore(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

int DigitValue(char16_t digit) {
    if (digit >= u'0' && digit <= u'9') {
        return digit - u'0';
    }
    if (digit >= u'a' && digit <= u'f') {
        return digit - u'a' + 10;
    }
    return digit >= u'A' && digit <= u'F' ? digit - u'A' + 10 : -1;
}

bool Parse(const __CFString& text, Bytes& bytes) {
    if (text.Size() != 36) {
        return false;
    }
    std::size_t position = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (HyphenComesBefore(i) && text.At(position++) != u'-') {
            return false;
        }
        const int high = DigitValue(text.At(position++));
        const int low = DigitValue(text.At(position++));
        if (high < 0 || low < 0) {
            return false;
        }
        bytes[i] = static_cast<UInt8>(high * 16 + low);
    }
    return true;
}

} // namespace

struct __CFUUID final : CFRuntimeObject {
    explicit __CFUUID(const Bytes& bytes) : CFRuntimeObject(kCFRuntimeUUIDType), mBytes(bytes) {}
    __CFUUID(const Bytes& bytes, CFRuntimeImmortal immortal)
        : CFRuntimeObject(kCFRuntimeUUIDType, immortal), mBytes(bytes) {}

    bool Equals(const CFRuntimeObject& other) const override {
        return mBytes == static_cast<const __CFUUID&>(other).mBytes;
    }
    CFHashCode Hash() const override { return CFRuntimeHash(mBytes); }
    std::u16string Description(unsigned /*depth*/) const override {
        return u"<CFUUID " + Text() + u">";
    }

    std::u16string Text() const {
        constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
        std::u16string text;
        for (std::size_t i = 0; i < mBytes.size(); ++i) {
            text += HyphenComesBefore(i) ? u"-" : u"";
            text += kDigits[mBytes[i] >> 4U];
            text += kDigits[mBytes[i] & 0x0FU];
        }
        return text;
    }

    const Bytes mBytes;
};

CFTypeID CFUUIDGetTypeID(void) {
    return kCFRuntimeUUIDType;
}

CFUUIDRef CFUUIDCreate(CFAllocatorRef alloc) {
    Bytes bytes{};
    // So few bytes come whole, but a signal may come first.
    ssize_t got = -1;
    do {
        got = getrandom(bytes.data(), bytes.size(), 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(bytes.size())) {
        return nullptr;
    }
    bytes[6] = static_cast<UInt8>((bytes[6] & 0x0FU) | 0x40U); // version 4, random
    bytes[8] = static_cast<UInt8>((bytes[8] & 0x3FU) | 0x80U); // the usual variant
    return CFRuntimeCreate<__CFUUID>(alloc, bytes);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef alloc, CFUUIDBytes bytes) {
    Bytes copy{};
    std::memcpy(copy.data(), &bytes, copy.size());
    return CFRuntimeCreate<__CFUUID>(alloc, copy);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef alloc, CFStringRef uuidStr) {
    const auto* text = CFRuntimeArgument<__CFString>(uuidStr, "uuidStr");
    Bytes bytes{};
    return text == nullptr || !Parse(*text, bytes) ? nullptr
                                                   : CFRuntimeCreate<__CFUUID>(alloc, bytes);
}

CFStringRef CFUUIDCreateString(CFAllocatorRef alloc, CFUUIDRef uuid) {
    const auto* object = CFRuntimeArgument<__CFUUID>(uuid, "uuid");
    if (object == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        return CFRuntimeCreate<__CFString>(alloc, object->Text());
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
    const Bytes bytes = {byte0, byte1, byte2,  byte3,  byte4,  byte5,  byte6,  byte7,
                         byte8, byte9, byte10, byte11, byte12, byte13, byte14, byte15};
    return CFRuntimeGuard<CFUUIDRef>(nullptr, [&]() -> CFUUIDRef {
        // Made on first use, which may be before this file's own statics are, and never destroyed.
        static auto* const constants = new Constants;
        const MutexLock lock(constants->mutex);
        const auto [entry, added] = constants->byBytes.try_emplace(bytes, nullptr);
        if (entry->second == nullptr) {
            entry->second = new __CFUUID(bytes, CFRuntimeImmortal{});
        }
        return entry->second;
    });
}
