#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <CoreFoundation/CFRuntimeHost.h>
#include <CoreFoundation/CFString.h>

#include <cxxabi.h>
#include <sys/random.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::size_t kMaximumTypes = 64;

std::array<std::atomic<const char*>, kMaximumTypes> sTypeNames = {
    "",        "CFAllocator", "CFArray",  "CFBoolean", "CFData", "CFDate", "CFDictionary",
    "CFError", "CFNumber",    "CFString", "CFURL",     "CFUUID"};
std::atomic<std::size_t> sTypeCount{kCFRuntimeFirstRegisteredType};

// Relaxed: a count is exact only for who has seen the other threads end.
std::array<std::atomic<CFIndex>, kMaximumTypes> sLiveObjects{};

const char* TypeName(CFTypeID type) {
    return sTypeNames[type].load(std::memory_order_acquire);
}

// Asked only when a call goes wrong, so that the checks cost nothing more in either mode.
bool IsStrict() {
    static const bool strict = [] {
        const char* const value = std::getenv("QUORVEL_CF_STRICT");
        return value != nullptr && std::strcmp(value, "1") == 0;
    }();
    return strict;
}

} // namespace

void CFRuntimeRefuse(CFTypeRef found, const char* expected, const char* argument,
                     const char* function) noexcept {
    if (!IsStrict()) {
        return;
    }
    const auto* const object = CFRuntimeObjectOf(found);
    std::fprintf(stderr, "CoreFoundation: %s: %s: expected %s, found %s\n", function, argument,
                 expected, object == nullptr ? "null" : TypeName(object->TypeID()));
    std::abort();
}

void CFRuntimeRefuse(CFTypeRef found, const std::type_info& expected, const char* argument,
                     const char* function) noexcept {
    if (!IsStrict()) {
        return;
    }
    // Objects are named after their references: __CFArray.
    int status = 0;
    const char* const name = abi::__cxa_demangle(expected.name(), nullptr, nullptr, &status);
    CFRuntimeRefuse(found, status == 0 ? name + std::strlen("__") : expected.name(), argument,
                    function);
}

bool CFRuntimeIsArgument(CFTypeRef reference, CFTypeID type, const char* argument,
                         const char* function) {
    if (CFRuntimeTypeOf(reference) == type) {
        return true;
    }
    CFRuntimeRefuse(reference, TypeName(type), argument, function);
    return false;
}

std::uint64_t CFRuntimeHashPoint() noexcept {
    static const std::uint64_t point = [] {
        std::uint32_t bits = 0;
        if (getrandom(&bits, sizeof bits, 0) != sizeof bits) {
            bits = 0x1B873593; // no secret, but a hash
        }
        return (bits >> 1U) | 1U;
    }();
    return point;
}

CFTypeID CFRuntimeRegisterType(const char* name) {
    const std::size_t type = sTypeCount.fetch_add(1, std::memory_order_relaxed);
    if (type >= kMaximumTypes) {
        sTypeCount.store(kMaximumTypes, std::memory_order_relaxed);
        return kCFRuntimeNotAType;
    }
    sTypeNames[type].store(name, std::memory_order_release);
    return type;
}

CFRuntimeObject::CFRuntimeObject(CFTypeID type) noexcept : mType(type), mImmortal(false) {
    sLiveObjects[mType].fetch_add(1, std::memory_order_relaxed);
}

CFRuntimeObject::~CFRuntimeObject() {
    if (!mImmortal) {
        sLiveObjects[mType].fetch_sub(1, std::memory_order_relaxed);
    }
}

bool CFRuntimeObject::Equals(const CFRuntimeObject& other) const {
    return this == &other;
}

CFHashCode CFRuntimeObject::Hash() const {
    return reinterpret_cast<CFHashCode>(this) / alignof(std::max_align_t);
}

std::u16string CFRuntimeObject::Description(unsigned /*depth*/) const {
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "<%s %p>", TypeName(mType),
                  static_cast<const void*>(this));
    return UTF16FromASCII(text.data());
}

CFIndex CFRuntimeObject::RetainCount() const {
    return mImmortal ? std::numeric_limits<CFIndex>::max()
                     : static_cast<CFIndex>(mReferences.load(std::memory_order_relaxed));
}

CFIndex CFRuntimeHostLiveObjectCount(CFTypeID type) {
    if (type >= kMaximumTypes || TypeName(type) == nullptr) {
        return -1;
    }
    if (type != kCFRuntimeNotAType) {
        return sLiveObjects[type].load(std::memory_order_relaxed);
    }
    CFIndex sum = 0;
    for (const auto& count : sLiveObjects) {
        sum += count.load(std::memory_order_relaxed);
    }
    return sum;
}
