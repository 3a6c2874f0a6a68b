#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListForms.h"

#include <CoreFoundation/CFDate.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>

namespace {

constexpr std::string_view kSpace = " \t\r\n";

[[noreturn]] void Refuse(const char* text) {
    throw PropertyListFault{text};
}

// What is to be there is; otherwise the text is no XML.
void Require(bool there) {
    if (!there) {
        Refuse("malformed XML");
    }
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kSpace);
    return begin == std::string_view::npos
               ? std::string_view()
               : text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

// The whole text as a number.
template <typename Number, typename... Format>
bool ReadNumber(std::string_view text, Number& value, Format... format) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, format...);
    return result.ec == std::errc() && result.ptr == end;
}

// Takes a sign off the front; whether it is a minus.
bool TakeSign(std::string_view& text) {
    const std::string_view sign = text.substr(0, 1);
    text.remove_prefix(sign == "-" || sign == "+" ? 1 : 0);
    return sign == "-";
}

std::int64_t Integer(std::string_view text) {
    const bool negative = TakeSign(text);
    const bool hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    text.remove_prefix(hexadecimal ? 2 : 0);
    std::uint64_t value = 0;
    if (!ReadNumber(text, value, hexadecimal ? 16 : 10) ||
        value > (std::uint64_t{1} << 63U) - (negative ? 0 : 1)) {
        Refuse("an integer that is none or out of range");
    }
    return static_cast<std::int64_t>(negative ? 0 - value : value);
}

double Real(std::string_view text) {
    if (text == "nan") {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const bool negative = TakeSign(text);
    double value = std::numeric_limits<double>::infinity();
    if (text != "inf" && text != "infinity" &&
        (text.empty() || !(IsDigit(text.front()) || text.front() == '.') ||
         !ReadNumber(text, value))) {
        Refuse("a real number that is none or out of range");
    }
    return negative ? -value : value;
}

// "2001-01-31T23:59:59Z" in seconds since 2001.
double Date(std::string_view text) {
    constexpr std::string_view kPattern = "dddd-dd-ddTdd:dd:ddZ";
    bool matches = text.size() == kPattern.size();
    for (std::size_t i = 0; matches && i < text.size(); ++i) {
        matches = kPattern[i] == 'd' ? IsDigit(text[i]) : text[i] == kPattern[i];
    }
    const auto number = [text](std::size_t place, std::size_t size) {
        unsigned value = 0;
        ReadNumber(text.substr(place, size), value);
        return value;
    };
    if (matches) {
        const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(number(0, 4))),
                                              std::chrono::month(number(5, 2)),
                                              std::chrono::day(number(8, 2))};
        const std::chrono::seconds time = std::chrono::hours(number(11, 2)) +
                                          std::chrono::minutes(number(14, 2)) +
                                          std::chrono::seconds(number(17, 2));
        if (day.ok() && number(11, 2) <= 23 && number(14, 2) <= 59 && number(17, 2) <= 59) {
            const auto at = std::chrono::sys_days(day).time_since_epoch() + time;
            return static_cast<double>(at.count()) - kCFAbsoluteTimeIntervalSince1970;
        }
    }
    Refuse("a date that is none or out of range");
}

// Base 64 with white space anywhere and "=" to a multiple of four.
std::string Data(std::string_view text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    std::size_t digits = 0;
    std::size_t padding = 0;
    for (const char c : text) {
        if (kSpace.find(c) != std::string_view::npos) {
            continue;
        }
        const std::size_t digit = kDigits.find(c);
        if (c == '=') {
            ++padding;
            continue;
        }
        if (digit == std::string_view::npos || padding != 0) {
            Refuse("data that is not in base 64");
        }
        bits = (bits << 6U) | static_cast<std::uint32_t>(digit);
        // Each digit but the first of four completes a byte.
        if (++digits % 4 != 1) {
            bytes += static_cast<char>(bits >> (6 - 2 * ((digits + 3) % 4)));
        }
    }
    if ((digits + padding) % 4 != 0 || padding > 2) {
        Refuse("data that is not in base 64");
    }
    return bytes;
}

// The character that "&name;" stands for, in UTF-8.
std::string Reference(std::string_view name) {
    constexpr std::pair<std::string_view, const char*> kNames[] = {
        {"lt", "<"}, {"gt", ">"}, {"amp", "&"}, {"quot", "\""}, {"apos", "'"}};
    for (const auto& [known, text] : kNames) {
        if (name == known) {
            return text;
        }
    }
    const bool hexadecimal = name.substr(0, 2) == "#x";
    std::uint32_t value = 0;
    std::string utf8;
    if (name.substr(0, 1) == "#" &&
        ReadNumber(name.substr(hexadecimal ? 2 : 1), value, hexadecimal ? 16 : 10) && value != 0 &&
        AppendUTF8(value, utf8)) {
        return utf8;
    }
    Refuse("a character reference that makes no sense");
}

class Reader {
public:
    Reader(std::string_view text, PropertyListBuilder& builder) : mRest(text), mBuilder(builder) {}

    PropertyListValue Read() {
        SkipSpace();
        if (Takes("<?xml")) {
            if (!IsUTF8Declaration(TakeUpTo("?>"))) {
                Refuse("an encoding other than UTF-8");
            }
        }
        SkipMiscellany();
        if (Takes("<!DOCTYPE")) {
            // A document type with declarations of its own could define entities.
            const std::size_t end = mRest.find_first_of("[>");
            if (end == std::string_view::npos || mRest[end] == '[') {
                Refuse("a document type with declarations");
            }
            mRest.remove_prefix(end + 1);
        }
        SkipMiscellany();
        if (!Takes("<plist")) {
            Refuse("neither XML nor a binary property list");
        }
        SkipAttributes();
        SkipMiscellany();
        PropertyListValue value = Value();
        SkipMiscellany();
        TakeEnd("plist");
        SkipMiscellany();
        Require(mRest.empty());
        return value;
    }

private:
    bool Takes(std::string_view prefix) {
        if (mRest.substr(0, prefix.size()) != prefix) {
            return false;
        }
        mRest.remove_prefix(prefix.size());
        return true;
    }

    // What comes before `end`, which is taken too.
    std::string_view TakeUpTo(std::string_view end) {
        const std::size_t size = mRest.find(end);
        if (size == std::string_view::npos) {
            Refuse("cut off");
        }
        const std::string_view taken = mRest.substr(0, size);
        mRest.remove_prefix(size + end.size());
        return taken;
    }

    void SkipSpace() {
        mRest.remove_prefix(std::min(mRest.find_first_not_of(kSpace), mRest.size()));
    }

    // White space and comments.
    void SkipMiscellany() {
        for (SkipSpace(); Takes("<!--"); SkipSpace()) {
            TakeUpTo("-->");
        }
    }

    static bool IsUTF8Declaration(std::string_view declaration) {
        const std::size_t place = declaration.find("encoding");
        if (place == std::string_view::npos) {
            return true;
        }
        const std::size_t begin = declaration.find_first_of("\"'", place);
        std::string name(begin == std::string_view::npos ? std::string_view()
                                                         : declaration.substr(begin + 1, 5));
        std::transform(name.begin(), name.end(), name.begin(), [](char c) {
            return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        });
        return name == "UTF-8";
    }

    // The attributes of the outermost element, up to its ">".
    void SkipAttributes() {
        const std::size_t end = mRest.find_first_of("></&");
        Require(end != std::string_view::npos && mRest[end] == '>' &&
                (end == 0 || kSpace.find(mRest.front()) != std::string_view::npos));
        mRest.remove_prefix(end + 1);
    }

    void TakeEnd(std::string_view name) {
        Require(Takes("</") && Takes(name));
        SkipSpace();
        Require(Takes(">"));
    }

    struct Start {
        std::string_view name;
        bool empty = false; // there is no content and no end tag
    };

    // A start tag without attributes.
    Start TakeStart() {
        Require(Takes("<"));
        Start start;
        std::size_t size = 0;
        while (size < mRest.size() && mRest[size] >= 'a' && mRest[size] <= 'z') {
            ++size;
        }
        start.name = mRest.substr(0, size);
        mRest.remove_prefix(size);
        SkipSpace();
        start.empty = Takes("/");
        Require(Takes(">"));
        return start;
    }

    PropertyListValue Value() {
        const Start start = TakeStart();
        if (start.name == "dict") {
            return Dictionary(start);
        }
        if (start.name == "array") {
            return Array(start);
        }
        if (start.name == "string") {
            return mBuilder.String(Text(start));
        }
        if (start.name == "true" || start.name == "false") {
            if (!start.empty) {
                TakeEnd(start.name);
            }
            return mBuilder.Boolean(start.name == "true");
        }
        return Scalar(start);
    }

    // Whether a container has one more member.
    bool HasMore(const Start& container) {
        SkipMiscellany();
        if (!container.empty && mRest.substr(0, 2) != "</") {
            return true;
        }
        if (!container.empty) {
            TakeEnd(container.name);
        }
        return false;
    }

    PropertyListValue Array(const Start& start) {
        const auto level = mBuilder.Open();
        PropertyListValues members;
        while (HasMore(start)) {
            members.push_back(Value());
        }
        return mBuilder.Array(members);
    }

    PropertyListValue Dictionary(const Start& start) {
        const auto level = mBuilder.Open();
        PropertyListValues keys;
        PropertyListValues members;
        while (HasMore(start)) {
            const Start key = TakeStart();
            if (key.name != "key") {
                Refuse("a value without a key");
            }
            keys.push_back(mBuilder.Key(Text(key)));
            SkipMiscellany();
            members.push_back(Value());
        }
        return mBuilder.Dictionary(keys, members);
    }

    // An element's text.
    std::string Text(const Start& start) {
        std::string text;
        while (!start.empty) {
            const std::size_t stop = mRest.find_first_of("<&");
            if (stop == std::string_view::npos) {
                Refuse("cut off");
            }
            text += mRest.substr(0, stop);
            mRest.remove_prefix(stop);
            if (Takes("&")) {
                // The longest is "#x0010FFFF"; a limit keeps the search short.
                const std::size_t end = std::min(mRest.substr(0, 12).find(';'), mRest.size());
                text += Reference(mRest.substr(0, end));
                mRest.remove_prefix(end);
                Require(Takes(";"));
            } else if (Takes("<![CDATA[")) {
                text += TakeUpTo("]]>");
            } else {
                TakeEnd(start.name);
                break;
            }
        }
        return text;
    }

    PropertyListValue Scalar(const Start& start) {
        std::string_view content;
        if (!start.empty) {
            content = mRest.substr(0, mRest.find_first_of("<&"));
            mRest.remove_prefix(content.size());
            TakeEnd(start.name);
        }
        if (start.name == "integer") {
            return mBuilder.Integer(Integer(Trimmed(content)));
        }
        if (start.name == "real") {
            return mBuilder.Real(Real(Trimmed(content)));
        }
        if (start.name == "date") {
            return mBuilder.Date(Date(Trimmed(content)));
        }
        if (start.name == "data") {
            return mBuilder.Data(Data(content));
        }
        Refuse("an element that property lists do not have");
    }

    std::string_view mRest;
    PropertyListBuilder& mBuilder;
};

} // namespace

PropertyListValue ReadXMLPropertyList(std::string_view text, PropertyListBuilder& builder) {
    std::u16string decoded; // only to see whether it can be
    if (text.find('\0') != std::string_view::npos ||
        !AppendDecoded(text, kCFStringEncodingUTF8, decoded)) {
        Refuse("text that is not UTF-8");
    }
    return Reader(text, builder).Read();
}
