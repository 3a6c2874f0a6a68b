#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <CoreFoundation/CFNumber.h>

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

// 2 to the 63rd, the first double beyond the integers.
constexpr double kBeyondIntegers = 9223372036854775808.0;

// Whether the double is an integer that an int64_t holds.
bool IsInteger(double value) {
    return value >= -kBeyondIntegers && value < kBeyondIntegers && std::trunc(value) == value;
}

// The nearest integer towards zero that an int64_t holds; 0 for not-a-number.
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

} // namespace

struct __CFNumber final : CFRuntimeObject {
    explicit __CFNumber(std::int64_t value)
        : CFRuntimeObject(kCFRuntimeNumberType), mInteger(value) {}
    explicit __CFNumber(double value)
        : CFRuntimeObject(kCFRuntimeNumberType), mIsFloat(true), mFloat(value) {}

    // -1, 0 or 1; not-a-number is equal to itself and less than all others.
    int Compare(const __CFNumber& other) const {
        if (!mIsFloat && !other.mIsFloat) {
            return (mInteger > other.mInteger) - (mInteger < other.mInteger);
        }
        if (mIsFloat && other.mIsFloat) {
            if (std::isnan(mFloat) || std::isnan(other.mFloat)) {
                return static_cast<int>(std::isnan(other.mFloat)) -
                       static_cast<int>(std::isnan(mFloat));
            }
            return (mFloat > other.mFloat) - (mFloat < other.mFloat);
        }
        return mIsFloat ? -CompareIntegerToFloat(other.mInteger, mFloat)
                        : CompareIntegerToFloat(mInteger, other.mFloat);
    }

    bool Equals(const CFRuntimeObject& other) const override {
        return Compare(static_cast<const __CFNumber&>(other)) == 0;
    }
    CFHashCode Hash() const override {
        // Equal numbers of both kinds need equal hashes; and 0.0 equals -0.0.
        std::uint64_t bits = static_cast<std::uint64_t>(mInteger);
        if (mIsFloat) {
            bits = IsInteger(mFloat) ? static_cast<std::uint64_t>(static_cast<std::int64_t>(mFloat))
                   : std::isnan(mFloat) ? 0
                                        : std::bit_cast<std::uint64_t>(mFloat);
        }
        return static_cast<CFHashCode>((bits ^ (bits >> 32)) * 2654435761U);
    }
    std::u16string Description(unsigned /*depth*/) const override {
        if (!mIsFloat) {
            return UTF16FromASCII(std::to_string(mInteger));
        }
        // The shortest text that reads back as the same number, whatever the locale.
        std::array<char, 40> text{};
        const auto result = std::to_chars(text.data(), text.data() + text.size(), mFloat);
        return UTF16FromASCII({text.data(), result.ptr});
    }

    const bool mIsFloat = false;
    const std::int64_t mInteger = 0;
    const double mFloat = 0;

private:
    static int CompareIntegerToFloat(std::int64_t integer, double value) {
        if (std::isnan(value) || value < -kBeyondIntegers) {
            return 1;
        }
        if (value >= kBeyondIntegers) {
            return -1;
        }
        // As integers first, exactly; the fraction decides when they are level.
        const auto whole = static_cast<std::int64_t>(value);
        if (integer != whole) {
            return integer < whole ? -1 : 1;
        }
        const double fraction = value - std::trunc(value);
        return (fraction < 0) - (fraction > 0);
    }
};

namespace {

template <typename T>
T Load(const void* pointer) {
    T value;
    std::memcpy(&value, pointer, sizeof(T));
    return value;
}

template <typename T>
__CFNumber* MakeInteger(CFAllocatorRef allocator, const void* pointer) {
    return CFRuntimeCreate<__CFNumber>(allocator, static_cast<std::int64_t>(Load<T>(pointer)));
}

template <typename T>
__CFNumber* MakeFloat(CFAllocatorRef allocator, const void* pointer) {
    return CFRuntimeCreate<__CFNumber>(allocator, static_cast<double>(Load<T>(pointer)));
}

template <typename T>
Boolean StoreInteger(const __CFNumber& number, void* pointer) {
    const std::int64_t whole = number.mIsFloat ? Truncated(number.mFloat) : number.mInteger;
    T value = static_cast<T>(whole);
    if (whole > std::numeric_limits<T>::max()) {
        value = std::numeric_limits<T>::max();
    } else if (whole < std::numeric_limits<T>::min()) {
        value = std::numeric_limits<T>::min();
    }
    std::memcpy(pointer, &value, sizeof(T));
    return value == whole && (!number.mIsFloat || IsInteger(number.mFloat));
}

template <typename T>
Boolean StoreFloat(const __CFNumber& number, void* pointer) {
    if (!number.mIsFloat) {
        const auto value = static_cast<T>(number.mInteger);
        std::memcpy(pointer, &value, sizeof(T));
        return IsInteger(value) && static_cast<std::int64_t>(value) == number.mInteger;
    }
    T value = 0;
    if (std::isfinite(number.mFloat) && std::abs(number.mFloat) > std::numeric_limits<T>::max()) {
        value = std::copysign(std::numeric_limits<T>::infinity(),
                              static_cast<T>(number.mFloat < 0 ? -1 : 1));
    } else {
        value = static_cast<T>(number.mFloat);
    }
    std::memcpy(pointer, &value, sizeof(T));
    return static_cast<double>(value) == number.mFloat || std::isnan(number.mFloat);
}

} // namespace

CFTypeID CFNumberGetTypeID(void) {
    return kCFRuntimeNumberType;
}

CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr) {
    if (valuePtr == nullptr) {
        return nullptr;
    }
    switch (theType) {
    case kCFNumberSInt8Type:
        return MakeInteger<SInt8>(allocator, valuePtr);
    case kCFNumberSInt16Type:
        return MakeInteger<SInt16>(allocator, valuePtr);
    case kCFNumberSInt32Type:
        return MakeInteger<SInt32>(allocator, valuePtr);
    case kCFNumberSInt64Type:
        return MakeInteger<SInt64>(allocator, valuePtr);
    case kCFNumberCharType:
        // A number is signed, whatever the compiler's char is.
        return MakeInteger<signed char>(allocator, valuePtr);
    case kCFNumberShortType:
        return MakeInteger<short>(allocator, valuePtr);
    case kCFNumberIntType:
        return MakeInteger<int>(allocator, valuePtr);
    case kCFNumberLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return MakeInteger<long>(allocator, valuePtr);
    case kCFNumberLongLongType:
        return MakeInteger<long long>(allocator, valuePtr);
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return MakeFloat<float>(allocator, valuePtr);
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        return MakeFloat<double>(allocator, valuePtr);
    case kCFNumberCGFloatType:
        return sizeof(void*) == 8 ? MakeFloat<double>(allocator, valuePtr)
                                  : MakeFloat<float>(allocator, valuePtr);
    default:
        return nullptr;
    }
}

CFNumberType CFNumberGetType(CFNumberRef number) {
    const auto* object = CFRuntimeArgument<__CFNumber>(number, "number");
    if (object == nullptr) {
        return 0;
    }
    return object->mIsFloat ? kCFNumberFloat64Type : kCFNumberSInt64Type;
}

CFIndex CFNumberGetByteSize(CFNumberRef number) {
    return CFRuntimeArgument<__CFNumber>(number, "number") == nullptr ? 0 : 8;
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
    switch (theType) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        return StoreInteger<signed char>(*object, valuePtr);
    case kCFNumberSInt16Type:
        return StoreInteger<SInt16>(*object, valuePtr);
    case kCFNumberSInt32Type:
        return StoreInteger<SInt32>(*object, valuePtr);
    case kCFNumberSInt64Type:
        return StoreInteger<SInt64>(*object, valuePtr);
    case kCFNumberShortType:
        return StoreInteger<short>(*object, valuePtr);
    case kCFNumberIntType:
        return StoreInteger<int>(*object, valuePtr);
    case kCFNumberLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return StoreInteger<long>(*object, valuePtr);
    case kCFNumberLongLongType:
        return StoreInteger<long long>(*object, valuePtr);
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return StoreFloat<float>(*object, valuePtr);
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        return StoreFloat<double>(*object, valuePtr);
    case kCFNumberCGFloatType:
        return sizeof(void*) == 8 ? StoreFloat<double>(*object, valuePtr)
                                  : StoreFloat<float>(*object, valuePtr);
    default:
        return false;
    }
}

CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void* /*context*/) {
    const auto* first = CFRuntimeArgument<__CFNumber>(number, "number");
    const auto* second = CFRuntimeArgument<__CFNumber>(otherNumber, "otherNumber");
    if (first == nullptr || second == nullptr) {
        return static_cast<int>(first != nullptr) - static_cast<int>(second != nullptr);
    }
    return first->Compare(*second);
}
