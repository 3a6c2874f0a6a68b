#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListEntries.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListForms.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFNumber.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace {

constexpr std::string_view kBegin = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                    "<plist version=\"1.0\">\n";
constexpr std::string_view kEnd = "</plist>\n";

std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '&':
            escaped += "&amp;";
            break;
        case '\r': // which readers may take for a line's end
            escaped += "&#13;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string Base64(const UInt8* bytes, std::size_t size) {
    constexpr const char* kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < size; i += 3) {
        const std::size_t there = std::min<std::size_t>(size - i, 3);
        std::uint32_t bits = 0;
        for (std::size_t j = 0; j < 3; ++j) {
            bits = (bits << 8U) | (j < there ? bytes[i + j] : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            text += j <= there ? kDigits[(bits >> (18 - 6 * j)) & 0x3FU] : '=';
        }
    }
    return text;
}

std::string DateText(double at) {
    const std::chrono::sys_seconds moment(
        std::chrono::seconds(static_cast<std::int64_t>(std::floor(at)) +
                             static_cast<std::int64_t>(kCFAbsoluteTimeIntervalSince1970)));
    const auto days = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day day(days);
    const auto second = static_cast<unsigned>((moment - days).count());
    char text[48];
    std::snprintf(text, sizeof(text), "%04d-%02u-%02uT%02u:%02u:%02uZ", int{day.year()},
                  unsigned{day.month()}, unsigned{day.day()}, second / 3600, second / 60 % 60,
                  second % 60);
    return text;
}

std::string RealText(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value < 0 ? "-infinity" : "+infinity";
    }
    // The shortest text that reads back as the same number, whatever the locale.
    char text[40];
    return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

class Writer {
public:
    std::string Write(CFTypeRef value) {
        Append(kBegin);
        Value(value);
        Append(kEnd);
        return std::move(mText);
    }

private:
    void Append(std::string_view text) {
        mText += text;
        if (mText.size() > kPropertyListMaximumSize) {
            throw PropertyListFault{"too large"};
        }
    }

    void Line(std::string_view text) {
        Append(std::string(mLevel, '\t'));
        Append(text);
        Append("\n");
    }

    void Element(const std::string& name, const std::string& content) {
        Line("<" + name + ">" + content + "</" + name + ">");
    }

    void Value(CFTypeRef value) {
        switch (CFGetTypeID(value)) {
        case kCFRuntimeBooleanType:
            return Line(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) ? "<true/>"
                                                                            : "<false/>");
        case kCFRuntimeNumberType:
            return Number(static_cast<CFNumberRef>(value));
        case kCFRuntimeStringType:
            return Element("string", Escaped(UTF8OfString(value).value_or(std::string())));
        case kCFRuntimeDateType:
            return Element("date", DateText(CFDateGetAbsoluteTime(static_cast<CFDateRef>(value))));
        case kCFRuntimeDataType: {
            const auto* data = static_cast<CFDataRef>(value);
            return Element("data", Base64(CFDataGetBytePtr(data),
                                          static_cast<std::size_t>(CFDataGetLength(data))));
        }
        case kCFRuntimeArrayType:
            return Array(static_cast<CFArrayRef>(value));
        default:
            return Dictionary(static_cast<CFDictionaryRef>(value));
        }
    }

    void Number(CFNumberRef number) {
        if (CFNumberIsFloatType(number)) {
            double value = 0;
            CFNumberGetValue(number, kCFNumberFloat64Type, &value);
            return Element("real", RealText(value));
        }
        std::int64_t value = 0;
        CFNumberGetValue(number, kCFNumberSInt64Type, &value);
        Element("integer", std::to_string(value));
    }

    void Array(CFArrayRef array) {
        const CFIndex count = CFArrayGetCount(array);
        if (count == 0) {
            return Line("<array/>");
        }
        Line("<array>");
        ++mLevel;
        for (CFIndex i = 0; i < count; ++i) {
            Value(CFArrayGetValueAtIndex(array, i));
        }
        --mLevel;
        Line("</array>");
    }

    void Dictionary(CFDictionaryRef dictionary) {
        const std::vector<PropertyListEntry> entries = SortedEntries(dictionary);
        if (entries.empty()) {
            return Line("<dict/>");
        }
        Line("<dict>");
        ++mLevel;
        for (const PropertyListEntry& entry : entries) {
            Element("key", Escaped(entry.name));
            Value(entry.value);
        }
        --mLevel;
        Line("</dict>");
    }

    std::string mText;
    std::size_t mLevel = 0;
};

} // namespace

std::string WriteXMLPropertyList(CFPropertyListRef propertyList) {
    return Writer().Write(propertyList);
}
