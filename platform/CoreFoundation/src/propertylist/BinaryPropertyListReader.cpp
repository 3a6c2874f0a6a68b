#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListForms.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <string>

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr unsigned kOffsetSizePlace = 6; // in the trailer
constexpr unsigned kReferenceSizePlace = 7;

// The kinds of objects, the upper half of their first byte.
enum Kind : unsigned {
    kBoolean = 0x0,
    kInteger = 0x1,
    kReal = 0x2,
    kDate = 0x3,
    kData = 0x4,
    kASCII = 0x5,
    kUTF16 = 0x6,
    kArray = 0xA,
    kDictionary = 0xD,
};

class Reader {
public:
    Reader(std::string_view bytes, PropertyListBuilder& builder)
        : mBytes(bytes), mBuilder(builder) {}

    PropertyListValue Read() {
        if (mBytes.substr(0, kHeaderSize) != "bplist00") {
            throw PropertyListFault{"an unknown version of the binary format"};
        }
        Require(mBytes.size() >= kHeaderSize + kTrailerSize);
        return Value(ReadTrailer());
    }

private:
    struct Object {
        unsigned kind = 0;
        unsigned low = 0;         // the lower half of the first byte
        std::size_t count = 0;    // of what follows, for kinds that have a count
        std::size_t contents = 0; // where that begins
    };

    static void Require(bool there) {
        if (!there) {
            throw PropertyListFault{"cut off"};
        }
    }

    [[noreturn]] static void RefuseType() { throw PropertyListFault{"a value of an unknown type"}; }

    // A big-endian number; the range has been checked.
    std::uint64_t Number(std::size_t offset, std::size_t size) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = (value << 8U) | static_cast<std::uint8_t>(mBytes[offset + i]);
        }
        return value;
    }

    // Whether `count` things of `size` bytes at the offset end before the table of offsets.
    bool Fits(std::size_t offset, std::size_t count, std::size_t size = 1) const {
        return offset <= mObjectsEnd && count <= (mObjectsEnd - offset) / size;
    }

    std::string_view Contents(const Object& object, std::size_t size) const {
        Require(Fits(object.contents, size));
        return mBytes.substr(object.contents, size);
    }

    // The number of the outermost object.
    std::uint64_t ReadTrailer() {
        const std::size_t trailer = mBytes.size() - kTrailerSize;
        mOffsetSize = static_cast<std::size_t>(Number(trailer + kOffsetSizePlace, 1));
        mReferenceSize = static_cast<std::size_t>(Number(trailer + kReferenceSizePlace, 1));
        mObjects = Number(trailer + 8, 8);
        const std::uint64_t root = Number(trailer + 16, 8);
        const std::uint64_t table = Number(trailer + 24, 8);
        if (mOffsetSize < 1 || mOffsetSize > 8 || mReferenceSize < 1 || mReferenceSize > 8 ||
            table <= kHeaderSize || table > trailer || mObjects > (trailer - table) / mOffsetSize) {
            throw PropertyListFault{"a trailer that makes no sense"};
        }
        mObjectsEnd = static_cast<std::size_t>(table);
        return root;
    }

    Object At(std::uint64_t number) const {
        if (number >= mObjects) {
            throw PropertyListFault{"a reference to an object that is not there"};
        }
        const std::uint64_t offset =
            Number(mObjectsEnd + static_cast<std::size_t>(number) * mOffsetSize, mOffsetSize);
        if (offset < kHeaderSize || offset >= mObjectsEnd) {
            throw PropertyListFault{"an object outside of the file"};
        }
        const auto byte = static_cast<std::uint8_t>(mBytes[static_cast<std::size_t>(offset)]);
        Object object;
        object.kind = byte >> 4U;
        object.low = byte & 0x0FU;
        object.count = object.low;
        object.contents = static_cast<std::size_t>(offset) + 1;
        if (object.kind >= kData && object.low == 0x0F) {
            ReadCount(object);
        }
        return object;
    }

    // A count of 15 and more is a number of its own behind the first byte.
    void ReadCount(Object& object) const {
        Require(Fits(object.contents, 1));
        const auto byte = static_cast<std::uint8_t>(mBytes[object.contents]);
        const std::size_t size = std::size_t{1} << (byte & 0x0FU);
        if ((byte >> 4U) != kInteger || size > 8 || !Fits(object.contents + 1, size)) {
            throw PropertyListFault{"a count that makes no sense"};
        }
        const std::uint64_t count = Number(object.contents + 1, size);
        Require(count <= mBytes.size());
        object.count = static_cast<std::size_t>(count);
        object.contents += 1 + size;
    }

    PropertyListValue Value(std::uint64_t number) {
        const Object object = At(number);
        switch (object.kind) {
        case kBoolean:
            if (object.low != 0x8 && object.low != 0x9) {
                RefuseType();
            }
            return mBuilder.Boolean(object.low == 0x9);
        case kInteger:
            return Integer(object);
        case kReal:
            return Real(object);
        case kDate:
            if (object.low != 3) {
                RefuseType();
            }
            Require(Fits(object.contents, 8));
            return mBuilder.Date(std::bit_cast<double>(Number(object.contents, 8)));
        case kData:
            return mBuilder.Data(Contents(object, object.count));
        case kASCII:
        case kUTF16:
            return mBuilder.String(Text(object));
        case kArray:
            return Array(object);
        case kDictionary:
            return Dictionary(object);
        default:
            RefuseType();
        }
    }

    PropertyListValue Integer(const Object& object) {
        if (object.low > 4) {
            RefuseType();
        }
        const std::size_t size = std::size_t{1} << object.low;
        Require(Fits(object.contents, size));
        if (size < 16) {
            return mBuilder.Integer(static_cast<std::int64_t>(Number(object.contents, size)));
        }
        // Of sixteen bytes only what would have fitted into eight.
        const auto value = static_cast<std::int64_t>(Number(object.contents + 8, 8));
        if (Number(object.contents, 8) !=
            (value < 0 ? std::numeric_limits<std::uint64_t>::max() : 0)) {
            throw PropertyListFault{"an integer out of range"};
        }
        return mBuilder.Integer(value);
    }

    PropertyListValue Real(const Object& object) {
        if (object.low != 2 && object.low != 3) {
            RefuseType();
        }
        const std::size_t size = std::size_t{1} << object.low;
        Require(Fits(object.contents, size));
        const std::uint64_t bits = Number(object.contents, size);
        return mBuilder.Real(size == 4
                                 ? double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}
                                 : std::bit_cast<double>(bits));
    }

    // A string's text in UTF-8.
    std::string Text(const Object& object) const {
        if (object.kind == kASCII) {
            const std::string_view text = Contents(object, object.count);
            if (std::any_of(text.begin(), text.end(),
                            [](char c) { return static_cast<signed char>(c) < 0; })) {
                throw PropertyListFault{"a string that is not what it says"};
            }
            return std::string(text);
        }
        Require(Fits(object.contents, object.count, 2));
        std::u16string units(object.count, u'\0');
        for (std::size_t i = 0; i < object.count; ++i) {
            units[i] = static_cast<char16_t>(Number(object.contents + i * 2, 2));
        }
        std::string text;
        if (!AppendUTF8(units, text)) {
            throw PropertyListFault{"a string that is not valid Unicode or has a NUL"};
        }
        return text;
    }

    // The number of the object that a container has at a place.
    std::uint64_t Reference(const Object& object, std::size_t place) const {
        return Number(object.contents + place * mReferenceSize, mReferenceSize);
    }

    // What is read grows with the members and not by the count, which is no promise of as many.
    PropertyListValue Array(const Object& object) {
        const auto level = mBuilder.Open();
        Require(Fits(object.contents, object.count, mReferenceSize));
        PropertyListValues members;
        for (std::size_t i = 0; i < object.count; ++i) {
            members.push_back(Value(Reference(object, i)));
        }
        return mBuilder.Array(members);
    }

    PropertyListValue Dictionary(const Object& object) {
        const auto level = mBuilder.Open();
        // All keys, then as many members.
        Require(Fits(object.contents, object.count * 2, mReferenceSize));
        PropertyListValues keys;
        PropertyListValues members;
        for (std::size_t i = 0; i < object.count; ++i) {
            const Object key = At(Reference(object, i));
            if (key.kind != kASCII && key.kind != kUTF16) {
                throw PropertyListFault{"a key that is not a string"};
            }
            keys.push_back(mBuilder.Key(Text(key)));
            members.push_back(Value(Reference(object, object.count + i)));
        }
        return mBuilder.Dictionary(keys, members);
    }

    const std::string_view mBytes;
    PropertyListBuilder& mBuilder;
    std::size_t mOffsetSize = 0;
    std::size_t mReferenceSize = 0;
    std::uint64_t mObjects = 0;
    std::size_t mObjectsEnd = 0; // where the table of offsets begins
};

} // namespace

PropertyListValue ReadBinaryPropertyList(std::string_view bytes, PropertyListBuilder& builder) {
    return Reader(bytes, builder).Read();
}
