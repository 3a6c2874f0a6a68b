// Property lists through libplist.
//
// libplist expands shared objects, recurses as deep as a tree is, and takes numbers and dates that
// are none for zero. So nothing is handed to it that the scans have not passed.
#include "platform/CoreFoundation/src/BinaryPropertyListScan.h"
#include "platform/CoreFoundation/src/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/CFStringObject.h"
#include "platform/CoreFoundation/src/PlainNumbers.h"
#include "platform/CoreFoundation/src/PropertyListFile.h"
#include "platform/CoreFoundation/src/PropertyListLimits.h"
#include "platform/CoreFoundation/src/XMLPropertyListScan.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace {

struct NodeFree {
    void operator()(void* node) const { plist_free(node); }
};
using Node = std::unique_ptr<void, NodeFree>;

struct MemoryFree {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using Memory = std::unique_ptr<T, MemoryFree>;

CFTypeRef MakeValue(plist_t node, bool mutableContainers);

CFTypeRef MakeString(const char* text, size_t size) {
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text),
                                   static_cast<CFIndex>(size), kCFStringEncodingUTF8, false);
}

CFTypeRef MakeArray(plist_t node, bool mutableContainers) {
    CFOwned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    void* rawIterator = nullptr;
    plist_array_new_iter(node, &rawIterator);
    const Memory<void> iterator(rawIterator);
    for (uint32_t rest = plist_array_get_size(node); rest > 0; --rest) {
        plist_t item = nullptr;
        plist_array_next_item(node, iterator.get(), &item);
        const CFOwned<CFTypeRef> value(MakeValue(item, mutableContainers));
        if (!value) {
            return nullptr;
        }
        CFArrayAppendValue(array.get(), value.get());
    }
    return mutableContainers ? static_cast<CFTypeRef>(array.release())
                             : CFArrayCreateCopy(nullptr, array.get());
}

CFTypeRef MakeDictionary(plist_t node, bool mutableContainers) {
    CFOwned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    void* rawIterator = nullptr;
    plist_dict_new_iter(node, &rawIterator);
    const Memory<void> iterator(rawIterator);
    for (uint32_t rest = plist_dict_get_size(node); rest > 0; --rest) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iterator.get(), &rawKey, &item);
        const Memory<char> text(rawKey);
        if (!text) {
            return nullptr;
        }
        const CFOwned<CFTypeRef> key(
            MakeString(text.get(), std::char_traits<char>::length(text.get())));
        const CFOwned<CFTypeRef> value(MakeValue(item, mutableContainers));
        if (!key || !value) {
            return nullptr;
        }
        CFDictionaryAddValue(dictionary.get(), key.get(), value.get());
    }
    return mutableContainers ? static_cast<CFTypeRef>(dictionary.release())
                             : CFDictionaryCreateCopy(nullptr, dictionary.get());
}

// Null for what the scans do not let through, and when there is no memory.
CFTypeRef MakeValue(plist_t node, bool mutableContainers) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0 ? kCFBooleanTrue : kCFBooleanFalse;
    }
    case PLIST_UINT: {
        uint64_t bits = 0; // a signed number's, since larger ones do not pass the scans
        plist_get_uint_val(node, &bits);
        return CFNumberCreate(nullptr, kCFNumberSInt64Type, &bits);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return CFNumberCreate(nullptr, kCFNumberFloat64Type, &value);
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return CFDateCreate(nullptr, seconds + microseconds * 1e-6);
    }
    case PLIST_STRING: {
        uint64_t size = 0;
        const char* text = plist_get_string_ptr(node, &size);
        return text == nullptr ? nullptr : MakeString(text, static_cast<size_t>(size));
    }
    case PLIST_DATA: {
        uint64_t size = 0;
        const char* bytes = plist_get_data_ptr(node, &size);
        return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes),
                            bytes == nullptr ? 0 : static_cast<CFIndex>(size));
    }
    case PLIST_ARRAY:
        return MakeArray(node, mutableContainers);
    case PLIST_DICT:
        return MakeDictionary(node, mutableContainers);
    default:
        return nullptr;
    }
}

Node MakeNode(CFTypeRef value);

Node MakeNumberNode(CFNumberRef number) {
    if (CFNumberIsFloatType(number)) {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return Node(plist_new_real(value));
    }
    int64_t value = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    return Node(plist_new_uint(static_cast<uint64_t>(value)));
}

Node MakeDateNode(CFDateRef date) {
    const CFAbsoluteTime at = CFDateGetAbsoluteTime(date);
    const double seconds = std::floor(at);
    const double microseconds = std::min(std::floor((at - seconds) * 1e6), 999999.0);
    return Node(plist_new_date(static_cast<int32_t>(seconds), static_cast<int32_t>(microseconds)));
}

Node MakeArrayNode(CFArrayRef array) {
    Node node(plist_new_array());
    for (CFIndex i = 0; node && i < CFArrayGetCount(array); ++i) {
        Node item = MakeNode(CFArrayGetValueAtIndex(array, i));
        if (!item) {
            return nullptr;
        }
        plist_array_append_item(node.get(), item.release());
    }
    return node;
}

Node MakeDictionaryNode(CFDictionaryRef dictionary) {
    const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    // In the order of the keys, so that the same dictionary gives the same bytes.
    std::vector<std::pair<std::string, CFTypeRef>> entries;
    for (size_t i = 0; i < count; ++i) {
        entries.emplace_back(UTF8OfString(keys[i]).value_or(std::string()), values[i]);
    }
    std::sort(entries.begin(), entries.end());
    Node node(plist_new_dict());
    for (const auto& [key, value] : entries) {
        Node item = MakeNode(value);
        if (!item) {
            return nullptr;
        }
        plist_dict_set_item(node.get(), key.c_str(), item.release());
    }
    return node;
}

Node MakeNode(CFTypeRef value) {
    switch (CFGetTypeID(value)) {
    case kCFRuntimeBooleanType:
        return Node(plist_new_bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value))));
    case kCFRuntimeNumberType:
        return MakeNumberNode(static_cast<CFNumberRef>(value));
    case kCFRuntimeStringType:
        return Node(plist_new_string(UTF8OfString(value).value_or(std::string()).c_str()));
    case kCFRuntimeDateType:
        return MakeDateNode(static_cast<CFDateRef>(value));
    case kCFRuntimeDataType: {
        const auto* data = static_cast<CFDataRef>(value);
        return Node(plist_new_data(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                                   static_cast<uint64_t>(CFDataGetLength(data))));
    }
    case kCFRuntimeArrayType:
        return MakeArrayNode(static_cast<CFArrayRef>(value));
    case kCFRuntimeDictionaryType:
        return MakeDictionaryNode(static_cast<CFDictionaryRef>(value));
    default:
        return nullptr;
    }
}

// Scans, then parses.
Node Parse(std::string_view bytes, CFPropertyListFormat& format, PropertyListFailure& failure) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    const bool isBinary = bytes.substr(0, 6) == "bplist";
    if (!isBinary && bytes.substr(0, kMark.size()) == kMark) {
        bytes.remove_prefix(kMark.size());
    }
    const char* wrong = isBinary ? ScanBinaryPropertyList(bytes) : ScanXMLPropertyList(bytes);
    if (wrong != nullptr) {
        failure = {kCFPropertyListReadCorruptError, wrong};
        return nullptr;
    }
    const PlainNumbers plain;
    plist_t node = nullptr;
    const auto size = static_cast<uint32_t>(bytes.size());
    if (isBinary) {
        plist_from_bin(bytes.data(), size, &node);
    } else {
        plist_from_xml(bytes.data(), size, &node);
    }
    if (node == nullptr) {
        failure = {kCFPropertyListReadCorruptError, "not a property list"};
    }
    format = isBinary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    return Node(node);
}

} // namespace

bool PropertyListFilesAreSupported() {
    return true;
}

CFPropertyListRef ParsePropertyList(std::string_view bytes, bool mutableContainers,
                                    CFPropertyListFormat& format, PropertyListFailure& failure) {
    if (bytes.size() > kPropertyListMaximumSize) {
        failure = {kCFPropertyListReadStreamError, "too large"};
        return nullptr;
    }
    const Node node = Parse(bytes, format, failure);
    if (!node) {
        return nullptr;
    }
    CFTypeRef value = MakeValue(node.get(), mutableContainers);
    if (value == nullptr) {
        failure = {kCFPropertyListReadCorruptError, "a value that cannot be kept"};
    }
    return value;
}

bool WritePropertyList(CFPropertyListRef propertyList, CFPropertyListFormat format,
                       std::string& bytes, PropertyListFailure& failure) {
    failure = {kCFPropertyListWriteStreamError, "no memory"};
    const Node node = MakeNode(propertyList);
    if (!node) {
        return false;
    }
    const PlainNumbers plain;
    char* written = nullptr; // looked at by the library: not null would mean do nothing
    uint32_t size = 0;
    if (format == kCFPropertyListBinaryFormat_v1_0) {
        plist_to_bin(node.get(), &written, &size);
    } else if (format == kCFPropertyListXMLFormat_v1_0) {
        plist_to_xml(node.get(), &written, &size);
    } else {
        failure.text = "an unknown format";
        return false;
    }
    const Memory<char> owned(written);
    if (!owned) {
        return false;
    }
    if (size > kPropertyListMaximumSize) {
        failure.text = "too large";
        return false;
    }
    bytes.assign(owned.get(), size);
    return true;
}
