#include "platform/CoreFoundation/src/BinaryPropertyListScan.h"

#include "platform/CoreFoundation/src/PropertyListLimits.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTrailerSize = 32;
constexpr unsigned kOffsetSizePlace = 6; // in the trailer
constexpr unsigned kReferenceSizePlace = 7;

class Scanner {
public:
    explicit Scanner(std::string_view bytes) : mBytes(bytes) {}

    const char* Scan() {
        if (mBytes.substr(0, kHeaderSize) != "bplist00") {
            return "an unknown version of the binary format";
        }
        if (mBytes.size() < kHeaderSize + kTrailerSize) {
            return "cut off";
        }
        if (!ReadTrailer()) {
            return "a trailer that makes no sense";
        }
        Weight weight;
        return Visit(mRoot, kPropertyListMaximumDepth + 1, weight);
    }

private:
    // What an object comes to with all that it holds.
    struct Weight {
        bool known = false;
        bool visiting = false;
        unsigned height = 0; // levels of containers, with its own
        size_t values = 0;
        size_t contents = 0;
    };

    struct Marker {
        unsigned kind = 0;
        unsigned low = 0;
        size_t count = 0;    // of what follows, for kinds that have a count
        size_t contents = 0; // where that begins
    };

    // A big-endian number; the range has been checked.
    uint64_t Number(size_t offset, size_t size) const {
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            value = (value << 8U) | static_cast<uint8_t>(mBytes[offset + i]);
        }
        return value;
    }

    // Whether `count` things of `size` bytes at the offset end before the table of offsets.
    bool Fits(size_t offset, size_t count, size_t size = 1) const {
        return offset <= mObjectsEnd && count <= (mObjectsEnd - offset) / size;
    }

    bool ReadTrailer() {
        const size_t trailer = mBytes.size() - kTrailerSize;
        mOffsetSize = static_cast<size_t>(Number(trailer + kOffsetSizePlace, 1));
        mReferenceSize = static_cast<size_t>(Number(trailer + kReferenceSizePlace, 1));
        const uint64_t count = Number(trailer + 8, 8);
        mRoot = Number(trailer + 16, 8);
        const uint64_t table = Number(trailer + 24, 8);
        if (mOffsetSize < 1 || mOffsetSize > 8 || mReferenceSize < 1 || mReferenceSize > 8 ||
            count < 1 || count > kPropertyListMaximumValues || mRoot >= count ||
            table <= kHeaderSize || table > trailer || count > (trailer - table) / mOffsetSize) {
            return false;
        }
        mObjectsEnd = static_cast<size_t>(table);
        mWeights.resize(static_cast<size_t>(count));
        return true;
    }

    const char* ReadMarker(uint64_t object, Marker& marker) const {
        const uint64_t offset =
            Number(mObjectsEnd + static_cast<size_t>(object) * mOffsetSize, mOffsetSize);
        if (offset < kHeaderSize || offset >= mObjectsEnd) {
            return "an object outside of the file";
        }
        const auto byte = static_cast<uint8_t>(mBytes[static_cast<size_t>(offset)]);
        marker.kind = byte >> 4U;
        marker.low = byte & 0x0FU;
        marker.count = marker.low;
        marker.contents = static_cast<size_t>(offset) + 1;
        if (marker.kind >= 4 && marker.low == 0x0F) {
            return ReadCount(marker);
        }
        return nullptr;
    }

    // A count of 15 and more is a number of its own behind the marker.
    const char* ReadCount(Marker& marker) const {
        if (!Fits(marker.contents, 1)) {
            return "cut off";
        }
        const auto byte = static_cast<uint8_t>(mBytes[marker.contents]);
        const size_t size = size_t{1} << (byte & 0x0FU);
        if ((byte >> 4U) != 1 || size > 8 || !Fits(marker.contents + 1, size)) {
            return "a count that makes no sense";
        }
        const uint64_t count = Number(marker.contents + 1, size);
        if (count > mBytes.size()) {
            return "a count beyond the file";
        }
        marker.count = static_cast<size_t>(count);
        marker.contents += 1 + size;
        return nullptr;
    }

    const char* Visit(uint64_t object, unsigned depth, Weight& result) {
        if (object >= mWeights.size()) {
            return "a reference to an object that is not there";
        }
        Weight& weight = mWeights[static_cast<size_t>(object)];
        if (weight.visiting) {
            return "an object within itself";
        }
        if (!weight.known) {
            weight.visiting = true;
            if (const char* wrong = Measure(object, depth, weight)) {
                return wrong;
            }
            weight.visiting = false;
            weight.known = true;
        }
        result = weight;
        return weight.height >= depth ? "containers nested too deep" : nullptr;
    }

    const char* Measure(uint64_t object, unsigned depth, Weight& weight) {
        Marker marker;
        if (const char* wrong = ReadMarker(object, marker)) {
            return wrong;
        }
        weight.values = 1;
        switch (marker.kind) {
        case 0x0:
            return marker.low == 0x8 || marker.low == 0x9 ? nullptr : kUnknown;
        case 0x1:
            return CheckInteger(marker);
        case 0x2:
            return marker.low == 2 || marker.low == 3
                       ? FitsOrCutOff(marker.contents, size_t{1} << marker.low)
                       : kUnknown;
        case 0x3:
            return CheckDate(marker);
        case 0x4:
            weight.contents = marker.count;
            return FitsOrCutOff(marker.contents, marker.count);
        case 0x5:
            weight.contents = marker.count;
            return CheckASCII(marker);
        case 0x6:
            weight.contents = marker.count * 3;
            return CheckUTF16(marker);
        case 0xA:
        case 0xD:
            return depth <= 1 ? "containers nested too deep"
                              : MeasureContainer(marker, depth - 1, weight);
        default:
            return kUnknown;
        }
    }

    const char* MeasureContainer(const Marker& marker, unsigned depth, Weight& weight) {
        const bool isDictionary = marker.kind == 0xD;
        const size_t references = isDictionary ? marker.count * 2 : marker.count;
        if (!Fits(marker.contents, references, mReferenceSize)) {
            return "cut off";
        }
        weight.height = 1;
        for (size_t i = 0; i < references; ++i) {
            const uint64_t object = Number(marker.contents + i * mReferenceSize, mReferenceSize);
            Weight member;
            if (const char* wrong = Visit(object, depth, member)) {
                return wrong;
            }
            if (isDictionary && i < marker.count && !IsString(object)) {
                return "a key that is not a string";
            }
            weight.height = std::max(weight.height, member.height + 1);
            weight.values += member.values;
            weight.contents += member.contents;
            if (weight.values > kPropertyListMaximumValues ||
                weight.contents > kPropertyListMaximumContents) {
                return "too many values, or too much text and data";
            }
        }
        return nullptr;
    }

    bool IsString(uint64_t object) const {
        Marker marker;
        return ReadMarker(object, marker) == nullptr && (marker.kind == 0x5 || marker.kind == 0x6);
    }

    const char* FitsOrCutOff(size_t offset, size_t size) const {
        return Fits(offset, size) ? nullptr : "cut off";
    }

    const char* CheckInteger(const Marker& marker) const {
        if (marker.low > 4) {
            return kUnknown;
        }
        const size_t size = size_t{1} << marker.low;
        if (!Fits(marker.contents, size)) {
            return "cut off";
        }
        if (size == 16) {
            // Only what would have fitted into eight bytes.
            const uint64_t high = Number(marker.contents, 8);
            const bool negative = (Number(marker.contents + 8, 8) >> 63U) != 0;
            return high == (negative ? std::numeric_limits<uint64_t>::max() : 0)
                       ? nullptr
                       : "an integer out of range";
        }
        return nullptr;
    }

    const char* CheckDate(const Marker& marker) const {
        if (marker.low != 3) {
            return kUnknown;
        }
        if (!Fits(marker.contents, 8)) {
            return "cut off";
        }
        const auto at = std::bit_cast<double>(Number(marker.contents, 8));
        return at >= kPropertyListFirstDate && at < kPropertyListEndOfDates ? nullptr
                                                                            : "a date out of range";
    }

    const char* CheckASCII(const Marker& marker) const {
        if (!Fits(marker.contents, marker.count)) {
            return "cut off";
        }
        const std::string_view text = mBytes.substr(marker.contents, marker.count);
        return std::all_of(text.begin(), text.end(),
                           [](char c) { return static_cast<signed char>(c) > 0; })
                   ? nullptr
                   : "a string that is not what it says";
    }

    const char* CheckUTF16(const Marker& marker) const {
        if (!Fits(marker.contents, marker.count, 2)) {
            return "cut off";
        }
        bool halfOpen = false;
        for (size_t i = 0; i < marker.count; ++i) {
            const uint64_t unit = Number(marker.contents + i * 2, 2);
            const bool second = unit >= 0xDC00 && unit <= 0xDFFF;
            if (unit == 0 || second != halfOpen) {
                return "a string that is not valid Unicode or has a NUL";
            }
            halfOpen = unit >= 0xD800 && unit <= 0xDBFF;
        }
        return halfOpen ? "a string that is not valid Unicode or has a NUL" : nullptr;
    }

    static constexpr const char* kUnknown = "a value of an unknown type";

    const std::string_view mBytes;
    size_t mOffsetSize = 0;
    size_t mReferenceSize = 0;
    uint64_t mRoot = 0;
    size_t mObjectsEnd = 0; // where the table of offsets begins
    std::vector<Weight> mWeights;
};

} // namespace

const char* ScanBinaryPropertyList(std::string_view bytes) {
    return Scanner(bytes).Scan();
}
