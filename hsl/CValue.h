#pragma once

#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

class CCircularBuffer;

namespace HSL {

// The kind of an argument. Beside each stands the default conversion, which prints the argument
// where the format has none for it.
enum tValueKind : unsigned char {
    eInt8 = 4,        // "%hd"
    eInt16 = 5,       // "%hd"
    eInt32 = 6,       // "%d"
    eInt64 = 7,       // "%I64d"
    eUInt8 = 8,       // "%hu"
    eUInt16 = 9,      // "%hu"
    eUInt32 = 10,     // "%u"
    eUInt64 = 11,     // "%I64u"
    eFloat = 12,      // "%f"
    eDouble = 13,     // "%g"
    eLong = 14,       // "%d"; 4 bytes
    ePointer = 15,    // "0x%x"; the low 4 bytes of the address
    eString = 16,     // "%s"
    eWideString = 17, // "%S"
};

// One argument of a log call. The call builds it from what it is given:
//
//     context->Log(cat, "%s has %d", "port 3", 7); // a CValue of kind eString and one of kind
//     eInt32
//
// The kind follows from the argument's type. A `long` becomes an eLong where it has four bytes and
// an eInt64 where it has eight, and an `unsigned long` an eUInt32 or an eUInt64, so that no value
// is cut. A text is not owned. It must stay valid until the log call returns, which copies it into
// the record.
class CValue {
public:
    // A template, so that it takes bool alone: a pointer would convert to a plain parameter.
    template <std::same_as<bool> Bool>
    CValue(Bool value) : mKind(eUInt8) {
        mPayload.mUInt8 = value ? 1 : 0;
    }
    CValue(char value) : mKind(eInt8) { mPayload.mInt8 = static_cast<std::int8_t>(value); }
    CValue(signed char value) : mKind(eInt8) { mPayload.mInt8 = value; }
    CValue(unsigned char value) : mKind(eUInt8) { mPayload.mUInt8 = value; }
    CValue(short value) : mKind(eInt16) { mPayload.mInt16 = value; }
    CValue(unsigned short value) : mKind(eUInt16) { mPayload.mUInt16 = value; }
    CValue(int value) : mKind(eInt32) { mPayload.mInt32 = value; }
    CValue(unsigned int value) : mKind(eUInt32) { mPayload.mUInt32 = value; }
    CValue(long value) : mKind(sizeof(long) == 4 ? eLong : eInt64) {
        if constexpr (sizeof(long) == 4) {
            mPayload.mInt32 = static_cast<std::int32_t>(value);
        } else {
            mPayload.mInt64 = value;
        }
    }
    CValue(unsigned long value) : mKind(sizeof(long) == 4 ? eUInt32 : eUInt64) {
        if constexpr (sizeof(long) == 4) {
            mPayload.mUInt32 = static_cast<std::uint32_t>(value);
        } else {
            mPayload.mUInt64 = value;
        }
    }
    CValue(long long value) : mKind(eInt64) { mPayload.mInt64 = value; }
    CValue(unsigned long long value) : mKind(eUInt64) { mPayload.mUInt64 = value; }
    CValue(float value) : mKind(eFloat) { mPayload.mFloat = value; }
    CValue(double value) : mKind(eDouble) { mPayload.mDouble = value; }
    CValue(const void* value) : mKind(ePointer) {
        mPayload.mUInt32 = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value));
    }
    CValue(const char* value) : mKind(eString) { mPayload.mString = value; }
    CValue(const std::string& value) : CValue(value.c_str()) {}
    CValue(const wchar_t* value) : mKind(eWideString) { mPayload.mWideString = value; }
    CValue(const std::wstring& value) : CValue(value.c_str()) {}

    tValueKind Kind() const { return mKind; }

    // Writes the kind byte and the payload to a ring, and returns 0. Only the ring's producer may
    // call it. A number is written in the host's byte order, an eString as its 16-bit length and
    // its bytes, an eWideString as its 16-bit character count and its four-byte characters. A text
    // is cut to its length modulo 65536. A null text is written as "<NULL>". For a null wide text
    // the count is 24, the number of its bytes and not of its characters: readers of the format
    // expect that.
    int Serialize(CCircularBuffer* buffer) const;

    // The most bytes that PutNumber writes.
    static constexpr std::uint32_t kLargestNumber = 9;

    // Writes the kind and the payload of a value that is no text to `end`, and returns where they
    // end. The compiler reduces this to two stores where it knows the kind.
    unsigned char* PutNumber(unsigned char* end) const {
        end = PutRaw(end, static_cast<unsigned char>(mKind));
        switch (mKind) {
        case eInt8:
        case eUInt8:
            return PutRaw(end, mPayload.mUInt8);
        case eInt16:
        case eUInt16:
            return PutRaw(end, mPayload.mUInt16);
        case eInt32:
        case eUInt32:
        case eLong:
        case ePointer:
            return PutRaw(end, mPayload.mUInt32);
        case eInt64:
        case eUInt64:
            return PutRaw(end, mPayload.mUInt64);
        case eFloat:
            return PutRaw(end, mPayload.mFloat);
        case eDouble:
            return PutRaw(end, mPayload.mDouble);
        case eString:
        case eWideString:
            break;
        }
        return end;
    }

    // Writes a number to `end` as it lies in memory, and returns where it ends.
    template <typename T>
    static unsigned char* PutRaw(unsigned char* end, T value) {
        std::memcpy(end, &value, sizeof value);
        return end + sizeof value;
    }

private:
    friend class CRecordWriter;

    tValueKind mKind;
    union {
        std::int8_t mInt8;
        std::uint8_t mUInt8;
        std::int16_t mInt16;
        std::uint16_t mUInt16;
        std::int32_t mInt32;
        std::uint32_t mUInt32;
        std::int64_t mInt64;
        std::uint64_t mUInt64;
        float mFloat;
        double mDouble;
        const char* mString;
        const wchar_t* mWideString;
    } mPayload;
};

static_assert(sizeof(wchar_t) == 4, "wide characters have four bytes in a record");

} // namespace HSL
