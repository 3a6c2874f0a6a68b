#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListEntries.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListForms.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <unordered_map>

namespace {

// How many bytes a number takes in the format: 1, 2, 4 or 8.
std::size_t SizeOf(std::uint64_t number) {
    if (number <= 0xFF) {
        return 1;
    }
    if (number <= 0xFFFF) {
        return 2;
    }
    return number <= 0xFFFFFFFF ? 4 : 8;
}

std::string BigEndian(std::uint64_t number, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i > 0; --i) {
        bytes += static_cast<char>(number >> (8 * (i - 1)));
    }
    return bytes;
}

// An object's first byte.
char Marker(unsigned kind, unsigned low) {
    return static_cast<char>(kind << 4U | low);
}

std::string IntegerBytes(std::uint64_t number) {
    const std::size_t size = SizeOf(number);
    return Marker(0x1, static_cast<unsigned>(std::countr_zero(size))) + BigEndian(number, size);
}

// The beginning of an object that has a count.
std::string Counted(unsigned kind, std::size_t count) {
    return count < 0x0F ? std::string(1, Marker(kind, static_cast<unsigned>(count)))
                        : Marker(kind, 0x0F) + IntegerBytes(count);
}

std::string DoubleBytes(unsigned kind, double value) {
    return Marker(kind, 3) + BigEndian(std::bit_cast<std::uint64_t>(value), 8);
}

std::string NumberBytes(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return DoubleBytes(0x2, value);
    }
    std::int64_t value = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    return IntegerBytes(static_cast<std::uint64_t>(value));
}

std::string StringBytes(CFTypeRef value) {
    const std::u16string& text = CFRuntimeCast<__CFString>(value)->mText;
    const bool isASCII = std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; });
    std::string bytes = Counted(isASCII ? 0x5 : 0x6, text.size());
    for (const char16_t unit : text) {
        bytes += BigEndian(unit, isASCII ? 1 : 2);
    }
    return bytes;
}

std::string DataBytes(CFDataRef data) {
    const auto size = static_cast<std::size_t>(CFDataGetLength(data));
    return Counted(0x4, size).append(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), size);
}

class Writer {
public:
    std::string Write(CFTypeRef value) {
        Add(value);
        const std::size_t referenceSize = SizeOf(mObjects.size() - 1);
        std::string bytes = "bplist00";
        std::vector<std::size_t> offsets;
        for (const Object& object : mObjects) {
            offsets.push_back(bytes.size());
            bytes += object.bytes;
            for (const std::size_t reference : object.references) {
                bytes += BigEndian(reference, referenceSize);
            }
        }
        const std::size_t table = bytes.size();
        const std::size_t offsetSize = SizeOf(table);
        for (const std::size_t offset : offsets) {
            bytes += BigEndian(offset, offsetSize);
        }
        bytes += std::string(6, '\0');
        bytes += static_cast<char>(offsetSize);
        bytes += static_cast<char>(referenceSize);
        bytes += BigEndian(mObjects.size(), 8) + BigEndian(0, 8) + BigEndian(table, 8);
        if (bytes.size() > kPropertyListMaximumSize) {
            throw PropertyListFault{"too large"};
        }
        return bytes;
    }

private:
    struct Object {
        std::string bytes;
        std::vector<std::size_t> references; // which follow the bytes
    };

    std::size_t AddObject(std::string bytes) {
        mSize += bytes.size();
        if (mSize > kPropertyListMaximumSize) {
            throw PropertyListFault{"too large"};
        }
        mObjects.push_back({std::move(bytes), {}});
        return mObjects.size() - 1;
    }

    // The number of an object without members, new or as it is there already.
    std::size_t AddOnce(const std::string& bytes) {
        const auto [place, isNew] = mKnown.try_emplace(bytes, mObjects.size());
        return isNew ? AddObject(bytes) : place->second;
    }

    std::size_t Add(CFTypeRef value) {
        switch (CFGetTypeID(value)) {
        case kCFRuntimeBooleanType:
            return AddOnce(std::string(
                1, Marker(0x0, CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? 9 : 8)));
        case kCFRuntimeNumberType:
            return AddOnce(NumberBytes(static_cast<CFNumberRef>(value)));
        case kCFRuntimeStringType:
            return AddOnce(StringBytes(value));
        case kCFRuntimeDateType:
            return AddOnce(DoubleBytes(0x3, CFDateGetAbsoluteTime(static_cast<CFDateRef>(value))));
        case kCFRuntimeDataType:
            return AddOnce(DataBytes(static_cast<CFDataRef>(value)));
        case kCFRuntimeArrayType:
            return AddArray(static_cast<CFArrayRef>(value));
        default:
            return AddDictionary(static_cast<CFDictionaryRef>(value));
        }
    }

    std::size_t AddArray(CFArrayRef array) {
        std::vector<CFTypeRef> members;
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            members.push_back(CFArrayGetValueAtIndex(array, i));
        }
        return AddContainer(Counted(0xA, members.size()), members);
    }

    std::size_t AddDictionary(CFDictionaryRef dictionary) {
        const std::vector<PropertyListEntry> entries = SortedEntries(dictionary);
        std::vector<CFTypeRef> members; // all keys, then all values
        members.reserve(2 * entries.size());
        for (const PropertyListEntry& entry : entries) {
            members.push_back(entry.key);
        }
        for (const PropertyListEntry& entry : entries) {
            members.push_back(entry.value);
        }
        return AddContainer(Counted(0xD, entries.size()), members);
    }

    std::size_t AddContainer(std::string bytes, const std::vector<CFTypeRef>& members) {
        const std::size_t number = AddObject(std::move(bytes));
        std::vector<std::size_t> references;
        references.reserve(members.size());
        for (const CFTypeRef member : members) {
            references.push_back(Add(member));
        }
        mObjects[number].references = std::move(references);
        return number;
    }

    std::vector<Object> mObjects;
    std::unordered_map<std::string, std::size_t> mKnown; // numbers of objects by their bytes
    std::size_t mSize = 0;
};

} // namespace

std::string WriteBinaryPropertyList(CFPropertyListRef propertyList) {
    return Writer().Write(propertyList);
}
