#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <type_traits>

namespace {

// 2 to the 63rd, the first double beyond the integers.
constexpr double kBeyondIntegers = 9223372036854775808.0;

// Returns the nearest integer towards zero that an int64_t holds, and 0 for not-a-number.
std::int64_t Truncated(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= kBeyondIntegers) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return value < -kBeyondIntegers ? std::numeric_limits<std::int64_t>::min()
                                    : static_cast<std::int64_t>(value);
}

// Returns the value if it is an integer that an int64_t holds.
std::optional<std::int64_t> WholeOf(double value) {
    const std::int64_t whole = Truncated(value);
    const bool same = value < kBeyondIntegers && static_cast<double>(whole) == value;
    return same ? std::optional(whole) : std::nullopt;
}

} // namespace

struct __CFNumber final : CFRuntimeObject {
    explicit __CFNumber(std::int64_t value)
        : CFRuntimeObject(kCFRuntimeNumberType), mInteger(value) {}
    explicit __CFNumber(double value)
        : CFRuntimeObject(kCFRuntimeNumberType), mIsFloat(true), mFloat(value) {}

    std::optional<std::int64_t> Whole() const { return mIsFloat ? WholeOf(mFloat) : mInteger; }

    // Equal numbers are equal however they are kept, and not-a-number is equal to itself.
    bool Equals(const CFRuntimeObject& other) const override {
        const auto& number = static_cast<const __CFNumber&>(other);
        const auto whole = Whole();
        if (whole || number.Whole()) {
            return whole == number.Whole();
        }
        return mFloat == number.mFloat || (std::isnan(mFloat) && std::isnan(number.mFloat));
    }
    CFHashCode Hash() const override {
        std::uint64_t bits = 0; // of not-a-number
        if (const auto whole = Whole()) {
            bits = static_cast<std::uint64_t>(*whole);
        } else if (!std::isnan(mFloat)) {
            bits = std::bit_cast<std::uint64_t>(mFloat);
        }
        return static_cast<CFHashCode>((bits ^ (bits >> 32)) * 2654435761U);
    }
    std::u16string Description(unsigned /*depth*/) const override {
        if (!mIsFloat) {
            return UTF16FromASCII(std::to_string(mInteger));
        }
        // This is the shortest text that reads back as the same number, in every locale.
        std::array<char, 40> text{};
        const auto result = std::to_chars(text.data(), text.data() + text.size(), mFloat);
        return UTF16FromASCII({text.data(), result.ptr});
    }

    const bool mIsFloat = false;
    const std::int64_t mInteger = 0;
    const double mFloat = 0;
};

namespace {

// Convert the number to another type; whether the value stayed the same.
template <std::integral T>
bool Convert(const __CFNumber& number, T& value) {
    const std::int64_t whole = number.mIsFloat ? Truncated(number.mFloat) : number.mInteger;
    value = static_cast<T>(std::clamp<std::int64_t>(whole, std::numeric_limits<T>::min(),
                                                    std::numeric_limits<T>::max()));
    return number.Whole() == std::int64_t{value};
}

template <std::floating_point T>
bool Convert(const __CFNumber& number, T& value) {
    constexpr double kLargest = std::numeric_limits<T>::max();
    if (!number.mIsFloat) {
        value = static_cast<T>(number.mInteger);
        return WholeOf(value) == number.mInteger;
    }
    // A conversion of what the type does not hold would be undefined.
    value =
        std::isfinite(number.mFloat) && std::abs(number.mFloat) > kLargest
            ? std::copysign(std::numeric_limits<T>::infinity(), number.mFloat < 0 ? T{-1} : T{1})
            : static_cast<T>(number.mFloat);
    return double{value} == number.mFloat || std::isnan(number.mFloat);
}

// Calls `body` with a zero of the C type that a number type names, and returns its result. Returns
// `none` if the type is not listed.
template <typename Result, typename Body>
Result WithType(CFNumberType type, Result none, const Body& body) {
    switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType: // a signed number, whatever the compiler's char is
        return body(SInt8{});
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        return body(SInt16{});
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return body(SInt32{});
    case kCFNumberSInt64Type:
    case kCFNumberLongLongType:
        return body(SInt64{});
    case kCFNumberLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return body(CFIndex{});
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return body(float{});
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        return body(double{});
    case kCFNumberCGFloatType:
        return body(std::conditional_t<sizeof(void*) == 8, double, float>{});
    default:
        return none;
    }
}

} // namespace

CFTypeID CFNumberGetTypeID(void) {
    return kCFRuntimeNumberType;
}

CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr) {
    if (valuePtr == nullptr) {
        return nullptr;
    }
    return WithType<CFNumberRef>(theType, nullptr, [&](auto value) {
        using Kept = std::conditional_t<std::is_integral_v<decltype(value)>, std::int64_t, double>;
        std::memcpy(&value, valuePtr, sizeof value);
        return CFRuntimeCreate<__CFNumber>(allocator, Kept{value});
    });
}

Boolean CFNumberIsFloatType(CFNumberRef number) {
    const auto* object = CFRuntimeArgument<__CFNumber>(number, "number");
    return object != nullptr && object->mIsFloat;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
    const auto* object = CFRuntimeArgument<__CFNumber>(number, "number");
    if (object == nullptr || valuePtr == nullptr) {
        return false;
    }
    return WithType(theType, false, [&](auto value) {
        const bool same = Convert(*object, value);
        std::memcpy(valuePtr, &value, sizeof value);
        return same;
    });
}
