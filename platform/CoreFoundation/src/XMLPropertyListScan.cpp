#include "platform/CoreFoundation/src/XMLPropertyListScan.h"

#include "platform/CoreFoundation/src/PropertyListLimits.h"
#include "platform/CoreFoundation/src/StringEncoding.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>

namespace {

constexpr std::string_view kSpace = " \t\r\n";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view Trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kSpace);
    return begin == std::string_view::npos
               ? std::string_view()
               : text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

bool IsInteger(std::string_view text) {
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) {
        text.remove_prefix(1);
    }
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    text.remove_prefix(hexadecimal ? 2 : 0);
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, hexadecimal ? 16 : 10);
    return result.ec == std::errc() && result.ptr == end &&
           value <= (uint64_t{1} << 63U) - (negative ? 0 : 1);
}

bool IsReal(std::string_view text) {
    for (const std::string_view name : {"nan", "inf", "infinity", "+infinity", "-infinity"}) {
        if (text == name) {
            return true;
        }
    }
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        text.remove_prefix(1);
    }
    if (text.empty() || !(IsDigit(text.front()) || text.front() == '.')) {
        return false;
    }
    double value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

// "2001-01-31T23:59:59Z", in the range of dates that are kept.
bool IsDate(std::string_view text) {
    constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != kPattern.size()) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if (kPattern[i] == 'd' ? !IsDigit(text[i]) : text[i] != kPattern[i]) {
            return false;
        }
    }
    const auto number = [text](size_t place, size_t size) {
        int value = 0;
        std::from_chars(text.data() + place, text.data() + place + size, value);
        return value;
    };
    const int year = number(0, 4);
    const int month = number(5, 2);
    const int day = number(8, 2);
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1933 || year > 2068 || month < 1 || month > 12) {
        return false;
    }
    const int days = kDays[month - 1] + (month == 2 && year % 4 == 0 ? 1 : 0);
    return day >= 1 && day <= days && number(11, 2) <= 23 && number(14, 2) <= 59 &&
           number(17, 2) <= 59;
}

// Base 64 with white space anywhere and "=" to a multiple of four.
bool IsBase64(std::string_view text) {
    size_t digits = 0;
    size_t padding = 0;
    for (const char c : text) {
        if (kSpace.find(c) != std::string_view::npos) {
            continue;
        }
        if (c == '=') {
            ++padding;
        } else if (padding == 0 && (IsDigit(c) || (c >= 'A' && c <= 'Z') ||
                                    (c >= 'a' && c <= 'z') || c == '+' || c == '/')) {
            ++digits;
        } else {
            return false;
        }
    }
    return (digits + padding) % 4 == 0 && padding <= 2;
}

// What follows "&" up to ";".
bool IsReference(std::string_view name) {
    for (const std::string_view known : {"lt", "gt", "amp", "quot", "apos"}) {
        if (name == known) {
            return true;
        }
    }
    if (name.empty() || name.front() != '#') {
        return false;
    }
    name.remove_prefix(1);
    const bool hexadecimal = !name.empty() && name.front() == 'x';
    name.remove_prefix(hexadecimal ? 1 : 0);
    uint32_t value = 0;
    const char* end = name.data() + name.size();
    const auto result = std::from_chars(name.data(), end, value, hexadecimal ? 16 : 10);
    return result.ec == std::errc() && result.ptr == end && value != 0 && value <= 0x10FFFF &&
           (value < 0xD800 || value > 0xDFFF);
}

class Scanner {
public:
    explicit Scanner(std::string_view text) : mRest(text) {}

    const char* Scan() {
        SkipSpace();
        if (Takes("<?xml")) {
            const size_t end = mRest.find("?>");
            if (end == std::string_view::npos) {
                return "cut off";
            }
            if (!IsUTF8Declaration(mRest.substr(0, end))) {
                return "an encoding other than UTF-8";
            }
            mRest.remove_prefix(end + 2);
        }
        if (!SkipMiscellany()) {
            return kMalformed;
        }
        if (Takes("<!DOCTYPE")) {
            // A document type with declarations of its own could define entities.
            const size_t end = mRest.find_first_of("[>");
            if (end == std::string_view::npos || mRest[end] == '[') {
                return "a document type with declarations";
            }
            mRest.remove_prefix(end + 1);
        }
        if (!SkipMiscellany() || !Takes("<plist") || !SkipAttributes()) {
            return "not a property list";
        }
        if (!SkipMiscellany()) {
            return kMalformed;
        }
        if (const char* wrong = Value(kPropertyListMaximumDepth)) {
            return wrong;
        }
        if (!SkipMiscellany() || !TakesEnd("plist") || !SkipMiscellany() || !mRest.empty()) {
            return kMalformed;
        }
        return nullptr;
    }

private:
    static constexpr const char* kMalformed = "malformed XML";

    bool Takes(std::string_view prefix) {
        if (mRest.substr(0, prefix.size()) != prefix) {
            return false;
        }
        mRest.remove_prefix(prefix.size());
        return true;
    }

    void SkipSpace() {
        mRest.remove_prefix(std::min(mRest.find_first_not_of(kSpace), mRest.size()));
    }

    // White space and comments. False when a comment does not end.
    bool SkipMiscellany() {
        for (SkipSpace(); Takes("<!--"); SkipSpace()) {
            const size_t end = mRest.find("-->");
            if (end == std::string_view::npos) {
                return false;
            }
            mRest.remove_prefix(end + 3);
        }
        return true;
    }

    static bool IsUTF8Declaration(std::string_view declaration) {
        const size_t place = declaration.find("encoding");
        if (place == std::string_view::npos) {
            return true;
        }
        const size_t begin = declaration.find_first_of("\"'", place);
        std::string name(begin == std::string_view::npos ? std::string_view()
                                                         : declaration.substr(begin + 1, 5));
        std::transform(name.begin(), name.end(), name.begin(), [](char c) {
            return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        });
        return name == "UTF-8";
    }

    // The attributes of the outermost element, up to its ">".
    bool SkipAttributes() {
        const size_t end = mRest.find_first_of("></&");
        if (end == std::string_view::npos || mRest[end] != '>' ||
            (end > 0 && kSpace.find(mRest.front()) == std::string_view::npos)) {
            return false;
        }
        mRest.remove_prefix(end + 1);
        return true;
    }

    bool TakesEnd(std::string_view name) {
        if (!Takes("</") || !Takes(name)) {
            return false;
        }
        SkipSpace();
        return Takes(">");
    }

    // A start tag without attributes. False when there is none.
    bool TakeStart(std::string_view& name, bool& empty) {
        if (!Takes("<")) {
            return false;
        }
        size_t size = 0;
        while (size < mRest.size() && mRest[size] >= 'a' && mRest[size] <= 'z') {
            ++size;
        }
        name = mRest.substr(0, size);
        mRest.remove_prefix(size);
        SkipSpace();
        empty = Takes("/");
        return Takes(">");
    }

    const char* Value(unsigned depth) {
        if (++mValues > kPropertyListMaximumValues) {
            return "too many values";
        }
        std::string_view name;
        bool empty = false;
        if (!TakeStart(name, empty)) {
            return kMalformed;
        }
        if (name == "dict" || name == "array") {
            if (depth == 0) {
                return "containers nested too deep";
            }
            return empty ? nullptr : Members(name, depth - 1);
        }
        if (name == "true" || name == "false") {
            return empty || TakesEnd(name) ? nullptr : kMalformed;
        }
        if (name == "string") {
            return empty ? nullptr : Text(name);
        }
        return Scalar(name, empty);
    }

    const char* Members(std::string_view name, unsigned depth) {
        for (;;) {
            if (!SkipMiscellany()) {
                return kMalformed;
            }
            if (mRest.substr(0, 2) == "</") {
                return TakesEnd(name) ? nullptr : kMalformed;
            }
            if (name == "dict") {
                if (const char* wrong = Key()) {
                    return wrong;
                }
            }
            if (const char* wrong = Value(depth)) {
                return wrong;
            }
        }
    }

    const char* Key() {
        std::string_view name;
        bool empty = false;
        if (!TakeStart(name, empty) || name != "key") {
            return "a value without a key";
        }
        if (!empty) {
            if (const char* wrong = Text(name)) {
                return wrong;
            }
        }
        return SkipMiscellany() ? nullptr : kMalformed;
    }

    // Text up to the end tag.
    const char* Text(std::string_view name) {
        for (;;) {
            const size_t stop = mRest.find_first_of("<&");
            if (stop == std::string_view::npos) {
                return "cut off";
            }
            mRest.remove_prefix(stop);
            if (Takes("&")) {
                const size_t end = mRest.substr(0, 12).find(';');
                if (end == std::string_view::npos || !IsReference(mRest.substr(0, end))) {
                    return "a character reference that makes no sense";
                }
                mRest.remove_prefix(end + 1);
            } else if (Takes("<![CDATA[")) {
                const size_t end = mRest.find("]]>");
                if (end == std::string_view::npos) {
                    return "cut off";
                }
                mRest.remove_prefix(end + 3);
            } else {
                return TakesEnd(name) ? nullptr : kMalformed;
            }
        }
    }

    const char* Scalar(std::string_view name, bool empty) {
        std::string_view content;
        if (!empty) {
            const size_t end = mRest.find_first_of("<&");
            if (end == std::string_view::npos) {
                return "cut off";
            }
            content = mRest.substr(0, end);
            mRest.remove_prefix(end);
            if (!TakesEnd(name)) {
                return kMalformed;
            }
        }
        const std::string_view trimmed = Trimmed(content);
        if (name == "integer") {
            return IsInteger(trimmed) ? nullptr : "an integer that is none or out of range";
        }
        if (name == "real") {
            return IsReal(trimmed) ? nullptr : "a real number that is none or out of range";
        }
        if (name == "date") {
            return IsDate(trimmed) ? nullptr : "a date that is none or out of range";
        }
        if (name == "data") {
            return IsBase64(content) ? nullptr : "data that is not in base 64";
        }
        return "an element that property lists do not have";
    }

    std::string_view mRest;
    size_t mValues = 0;
};

} // namespace

const char* ScanXMLPropertyList(std::string_view text) {
    std::u16string decoded;
    if (text.find('\0') != std::string_view::npos ||
        !AppendDecoded(text, kCFStringEncodingUTF8, decoded)) {
        return "text that is not UTF-8";
    }
    return Scanner(text).Scan();
}
