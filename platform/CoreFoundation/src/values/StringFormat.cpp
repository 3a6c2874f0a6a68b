#include "platform/CoreFoundation/src/values/StringFormat.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/CoreFoundation/src/values/ScopedCLocale.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <type_traits>

namespace {

// Widths and precisions beyond this are refused, so that a format cannot ask for gigabytes.
constexpr int kLargestWidth = 1 << 20;

// A conversion: its letter, and what stands between the "%" and the letter.
struct Conversion {
    std::string flags;
    std::optional<int> width;
    std::optional<int> precision;
    std::string size; // hh h l ll q j z t L
    char16_t letter = 0;
};

// Hands out the arguments one by one. It is a class because some platforms cannot pass a va_list on
// by reference.
class Arguments {
public:
    explicit Arguments(va_list arguments) { va_copy(mArguments, arguments); }
    ~Arguments() { va_end(mArguments); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    template <typename T>
    T Next() {
        return va_arg(mArguments, T);
    }

private:
    va_list mArguments;
};

// Reads a format from front to end.
class Reader {
public:
    explicit Reader(std::u16string_view format) : mFormat(format) {}

    bool AtEnd() const { return mFormat.empty(); }
    char16_t Take() {
        const char16_t c = mFormat.front();
        mFormat.remove_prefix(1);
        return c;
    }
    bool TakeIf(char16_t c) {
        if (mFormat.empty() || mFormat.front() != c) {
            return false;
        }
        mFormat.remove_prefix(1);
        return true;
    }

    // Returns false if the conversion is cut off, malformed or beyond the limits.
    bool TakeConversion(Arguments& arguments, Conversion& conversion) {
        constexpr std::u16string_view kFlags = u"-+ #0'";
        while (!mFormat.empty() && kFlags.find(mFormat.front()) != std::u16string_view::npos) {
            conversion.flags += static_cast<char>(Take());
        }
        if (!TakeNumber(arguments, conversion.width)) {
            return false;
        }
        if (conversion.width && *conversion.width < 0) {
            conversion.flags += '-';
            conversion.width = -*conversion.width;
        }
        if (TakeIf(u'.')) {
            conversion.precision = 0;
            if (!TakeNumber(arguments, conversion.precision)) {
                return false;
            }
            if (*conversion.precision < 0) {
                conversion.precision.reset();
            }
        }
        constexpr std::u16string_view kSizes = u"hlqjztL";
        while (!mFormat.empty() && kSizes.find(mFormat.front()) != std::u16string_view::npos) {
            conversion.size += static_cast<char>(Take());
        }
        if (mFormat.empty()) {
            return false;
        }
        conversion.letter = Take();
        return true;
    }

private:
    // Reads a number, "*" for the next argument, or nothing.
    bool TakeNumber(Arguments& arguments, std::optional<int>& number) {
        if (TakeIf(u'*')) {
            number = arguments.Next<int>();
            return *number <= kLargestWidth && *number >= -kLargestWidth;
        }
        while (!mFormat.empty() && mFormat.front() >= u'0' && mFormat.front() <= u'9') {
            number = number.value_or(0) * 10 + (Take() - u'0');
            if (*number > kLargestWidth) {
                return false;
            }
        }
        return true;
    }

    std::u16string_view mFormat;
};

template <typename T>
void AppendNumber(const Conversion& conversion, const char* size, T value, std::u16string& text) {
    const std::string specification =
        "%" + conversion.flags + "*.*" + size + static_cast<char>(conversion.letter);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const auto print = [&](char* into, std::size_t room) {
        // To snprintf a negative precision is none.
        return std::snprintf(into, room, specification.c_str(), conversion.width.value_or(0),
                             conversion.precision.value_or(-1), value);
    };
#pragma GCC diagnostic pop
    const int length = print(nullptr, 0);
    if (length < 0) {
        throw std::bad_alloc(); // snprintf needs memory of its own for wide numbers
    }
    std::string printed(static_cast<std::size_t>(length) + 1, '\0');
    if (print(printed.data(), printed.size()) != length) {
        throw std::bad_alloc();
    }
    printed.pop_back();
    text += UTF16FromASCII(printed);
}

// Appends text, padded to the width. The caller has applied the precision.
void AppendPadded(const Conversion& conversion, std::u16string_view printed, std::u16string& text) {
    const auto width = static_cast<std::size_t>(conversion.width.value_or(0));
    const std::size_t padding = width > printed.size() ? width - printed.size() : 0;
    const bool left = conversion.flags.find('-') != std::string::npos;
    text.append(left ? 0 : padding, u' ');
    text += printed;
    text.append(left ? padding : 0, u' ');
}

// Takes an integer of the conversion's size and appends it; false if the size is not known.
// `Signed` is std::make_signed_t or std::make_unsigned_t.
template <template <typename> typename Signed>
bool AppendInteger(const Conversion& conversion, Arguments& arguments, std::u16string& text) {
    Signed<std::intmax_t> value = 0;
    if (conversion.size.empty()) {
        value = arguments.Next<Signed<int>>();
    } else if (conversion.size == "hh") {
        value = static_cast<Signed<char>>(arguments.Next<int>());
    } else if (conversion.size == "h") {
        value = static_cast<Signed<short>>(arguments.Next<int>());
    } else if (conversion.size == "l") {
        value = arguments.Next<Signed<long>>();
    } else if (conversion.size == "ll" || conversion.size == "q") {
        value = arguments.Next<Signed<long long>>();
    } else if (conversion.size == "j") {
        value = arguments.Next<Signed<std::intmax_t>>();
    } else if (conversion.size == "z" || conversion.size == "t") {
        value = arguments.Next<Signed<std::ptrdiff_t>>();
    } else {
        return false;
    }
    AppendNumber(conversion, "j", value, text);
    return true;
}

bool AppendFloat(const Conversion& conversion, Arguments& arguments, std::u16string& text) {
    if (conversion.size == "L") {
        AppendNumber(conversion, "L", arguments.Next<long double>(), text);
        return true;
    }
    if (!conversion.size.empty() && conversion.size != "l") {
        return false;
    }
    AppendNumber(conversion, "", arguments.Next<double>(), text);
    return true;
}

void AppendCString(const Conversion& conversion, Arguments& arguments, std::u16string& text) {
    const char* bytes = arguments.Next<const char*>();
    if (bytes == nullptr) {
        bytes = "(null)";
    }
    // With a precision the bytes need not end with a NUL.
    const std::size_t size = conversion.precision
                                 ? strnlen(bytes, static_cast<std::size_t>(*conversion.precision))
                                 : std::strlen(bytes);
    AppendPadded(conversion, UTF16FromCString({bytes, size}), text);
}

void AppendObject(const Conversion& conversion, Arguments& arguments, std::u16string& text) {
    const CFTypeRef object = arguments.Next<CFTypeRef>();
    const CFOwned<CFStringRef> description(CFCopyDescription(object));
    if (object != nullptr && !description) {
        throw std::bad_alloc();
    }
    const auto* string = CFRuntimeCast<__CFString>(description.Get());
    std::u16string printed = string == nullptr ? u"(null)" : string->mText;
    if (conversion.precision) {
        printed.resize(std::min(printed.size(), static_cast<std::size_t>(*conversion.precision)));
    }
    AppendPadded(conversion, printed, text);
}

bool AppendConversion(const Conversion& conversion, Arguments& arguments, std::u16string& text) {
    switch (conversion.letter) {
    case u'd':
    case u'i':
        return AppendInteger<std::make_signed_t>(conversion, arguments, text);
    case u'u':
    case u'x':
    case u'X':
    case u'o':
        return AppendInteger<std::make_unsigned_t>(conversion, arguments, text);
    case u'a':
    case u'A':
    case u'e':
    case u'E':
    case u'f':
    case u'F':
    case u'g':
    case u'G':
        return AppendFloat(conversion, arguments, text);
    default:
        break;
    }
    if (!conversion.size.empty()) {
        return false;
    }
    switch (conversion.letter) {
    case u's':
        AppendCString(conversion, arguments, text);
        return true;
    case u'c': {
        const char c = static_cast<char>(arguments.Next<int>());
        AppendPadded(conversion, UTF16FromCString({&c, 1}), text);
        return true;
    }
    case u'C': {
        const auto c = static_cast<char16_t>(arguments.Next<int>());
        AppendPadded(conversion, {&c, 1}, text);
        return true;
    }
    case u'p':
        AppendNumber(conversion, "", arguments.Next<const void*>(), text);
        return true;
    case u'@':
        AppendObject(conversion, arguments, text);
        return true;
    case u'%':
        text += u'%';
        return true;
    default:
        return false;
    }
}

} // namespace

bool FormatString(std::u16string_view format, va_list arguments, std::u16string& text) {
    const ScopedCLocale cLocale;
    Arguments list(arguments);
    Reader reader(format);
    while (!reader.AtEnd()) {
        const char16_t c = reader.Take();
        if (c != u'%') {
            text += c;
            continue;
        }
        Conversion conversion;
        if (!reader.TakeConversion(list, conversion) || !AppendConversion(conversion, list, text)) {
            return false;
        }
    }
    return true;
}
