// Reads records from bytes, on the format's description alone: it shares no code with the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace RecordBytes {

using Bytes = std::vector<unsigned char>;

// The bytes of a number as they lie in memory.
template <typename T>
Bytes Raw(T value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline Bytes Raw(const char* text) {
    return Bytes(text, text + std::strlen(text));
}

template <typename... Parts>
Bytes Join(const Parts&... parts) {
    Bytes all;
    (all.insert(all.end(), parts.begin(), parts.end()), ...);
    return all;
}

struct Argument {
    int mKind = 0;
    Bytes mPayload; // of a text without its length

    template <typename T>
    T As() const {
        if (mPayload.size() != sizeof(T)) {
            throw std::logic_error("a payload of another size");
        }
        T value;
        std::memcpy(&value, mPayload.data(), sizeof value);
        return value;
    }
    std::string Text() const { return std::string(mPayload.begin(), mPayload.end()); }
};

struct Record {
    int mMarker = -1;
    std::int32_t mSequence = 0;
    std::uint32_t mSeconds = 0;
    std::uint32_t mMicroseconds = 0;
    int mIndent = -1;
    Bytes mCategories;
    int mFormatTag = 0;
    int mFormatID = 0;
    std::string mFormatText;
    std::vector<Argument> mArguments;
};

class Reader {
public:
    explicit Reader(Bytes bytes) : mBytes(std::move(bytes)) {}

    bool IsAtEnd() const { return mPosition == mBytes.size(); }

    // Throws when the bytes end within the record or are none.
    Record Next() {
        Record record;
        record.mMarker = Number<std::uint8_t>();
        record.mSequence = Number<std::int32_t>();
        record.mSeconds = Number<std::uint32_t>();
        record.mMicroseconds = Number<std::uint32_t>();
        record.mIndent = Number<std::uint8_t>();
        record.mCategories = Some(Number<std::uint8_t>());
        record.mFormatTag = Number<std::uint8_t>();
        if (record.mFormatTag == 3) {
            record.mFormatID = Number<std::int16_t>();
        } else if (record.mFormatTag == 1) {
            const Bytes text = Some(Number<std::uint16_t>());
            record.mFormatText.assign(text.begin(), text.end());
        } else {
            throw std::runtime_error("no format");
        }
        const int count = Number<std::uint8_t>();
        for (int i = 0; i < count; ++i) {
            record.mArguments.push_back(NextArgument());
        }
        return record;
    }

    Argument NextArgument() {
        Argument argument;
        argument.mKind = Number<std::uint8_t>();
        switch (argument.mKind) {
        case 4:
        case 8:
            argument.mPayload = Some(1);
            break;
        case 5:
        case 9:
            argument.mPayload = Some(2);
            break;
        case 6:
        case 10:
        case 12:
        case 14:
        case 15:
            argument.mPayload = Some(4);
            break;
        case 7:
        case 11:
        case 13:
            argument.mPayload = Some(8);
            break;
        case 16:
            argument.mPayload = Some(Number<std::uint16_t>());
            break;
        case 17:
            argument.mPayload = Some(Number<std::uint16_t>() * std::size_t{4});
            break;
        default:
            throw std::runtime_error("no kind of argument");
        }
        return argument;
    }

private:
    Bytes Some(std::size_t size) {
        if (mBytes.size() - mPosition < size) {
            throw std::runtime_error("the bytes end within a record");
        }
        const auto start = mBytes.begin() + static_cast<std::ptrdiff_t>(mPosition);
        mPosition += size;
        return Bytes(start, start + static_cast<std::ptrdiff_t>(size));
    }
    template <typename T>
    T Number() {
        const Bytes bytes = Some(sizeof(T));
        T value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    Bytes mBytes;
    std::size_t mPosition = 0;
};

} // namespace RecordBytes
