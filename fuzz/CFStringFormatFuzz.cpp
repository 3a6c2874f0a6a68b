// Runs CFStringCreateWithFormat with well-formed and hostile formats and just the arguments that
// they ask for, and compares the result with snprintf's where the two know the same conversions.
//
// An input is read byte by byte: it picks literal text and conversions with their flags, widths,
// precisions, sizes and values, until four arguments are used up or a conversion is one that is
// refused. What comes behind a refused one has no argument, so that a reader which goes on is seen.
#include "fuzz/Require.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace {

constexpr std::size_t kMostArguments = 4;
constexpr int kLargestWidth = 1 << 20;

using Argument = std::variant<int, long long, double, long double, const void*>;

struct Case {
    std::string format;
    std::vector<Argument> arguments;
    bool refused = false; // null is the answer
    bool isPrintf = true; // snprintf gives the same
};

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}
    bool AtEnd() const { return mSize == 0; }
    unsigned Take() {
        if (mSize == 0) {
            return 0;
        }
        mSize--;
        return *mData++;
    }
    template <typename T>
    T TakeNumber() {
        T value{};
        unsigned char bytes[sizeof(T)];
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(Take());
        }
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }
    char Pick(std::string_view from) { return from[Take() % from.size()]; }

private:
    const std::uint8_t* mData;
    std::size_t mSize;
};

// Adds a width or precision: none, one that is written out, or an argument.
void AddNumber(Input& input, Case& made, const std::string& mark) {
    const unsigned choice = input.Take();
    if (choice < 128) {
        return;
    }
    int number = static_cast<int>(input.Take());
    if (choice >= 250) {
        number += kLargestWidth;
        made.refused = number > kLargestWidth;
    }
    made.format += mark;
    if (choice % 2 == 0) {
        made.format += std::to_string(number);
    } else {
        made.format += '*';
        made.arguments.emplace_back(choice % 4 == 1 ? number : -number);
    }
}

void AddInteger(Input& input, Case& made, const std::string& size) {
    if (size == "ll" || size == "q" || size == "j" || size == "l" || size == "z" || size == "t") {
        static_assert(sizeof(long) == sizeof(long long));
        made.arguments.emplace_back(input.TakeNumber<long long>());
    } else {
        made.arguments.emplace_back(input.TakeNumber<int>());
    }
}

constexpr std::string_view kIntegers = "diuxXo";
constexpr std::string_view kFloats = "aAeEfFgG";
constexpr const char* kTexts[] = {"", "text", "a longer text with spaces in it"};

// The argument of a conversion whose size and letter are known by now.
void AddValue(Input& input, Case& made, const std::string& size, char letter, bool plain) {
    if (kIntegers.find(letter) != std::string_view::npos) {
        made.refused = size == "L" || size == "hhh";
        if (!made.refused) {
            AddInteger(input, made, size);
        }
    } else if (kFloats.find(letter) != std::string_view::npos) {
        if (size == "L") {
            made.arguments.emplace_back(static_cast<long double>(input.TakeNumber<double>()));
        } else if (size.empty() || size == "l") {
            made.arguments.emplace_back(input.TakeNumber<double>());
        } else {
            made.refused = true;
        }
    } else if (!size.empty()) {
        made.refused = true;
    } else if (letter == 's') {
        made.arguments.emplace_back(static_cast<const void*>(kTexts[input.Take() % 3]));
        made.isPrintf = made.isPrintf && plain;
    } else if (letter == 'p') {
        made.arguments.emplace_back(
            reinterpret_cast<const void*>(static_cast<std::uintptr_t>(input.Take())));
        made.isPrintf = made.isPrintf && plain;
    } else if (letter == 'c' || letter == 'C') {
        made.arguments.emplace_back(static_cast<int>(1 + input.Take() % 127));
        made.isPrintf = made.isPrintf && plain && letter == 'c';
    } else if (letter == '@') {
        made.arguments.emplace_back(static_cast<const void*>(
            input.Take() % 2 == 0 ? static_cast<CFTypeRef>(CFSTR("object")) : kCFBooleanTrue));
        made.isPrintf = false;
    } else if (letter == '%') {
        made.isPrintf = made.isPrintf && plain;
    } else {
        made.refused = true;
    }
}

void AddConversion(Input& input, Case& made) {
    made.format += '%';
    bool plain = true; // no flag that C leaves open for texts
    for (unsigned flags = input.Take() % 4; flags > 0; flags--) {
        const char flag = input.Pick("-+ #0'");
        plain = plain && flag == '-';
        made.format += flag;
    }
    const std::size_t start = made.format.size();
    AddNumber(input, made, "");
    if (!made.refused) {
        AddNumber(input, made, ".");
    }
    if (made.refused) {
        return;
    }
    const bool bare = made.format.size() == start;
    static constexpr const char* kSizes[] = {"",  "",  "",  "hh", "h", "l",  "ll",
                                             "q", "j", "z", "t",  "L", "hhh"};
    const std::string size = kSizes[input.Take() % std::size(kSizes)];
    const char letter = input.Pick("diuxXoaAeEfFgGspcC@%dsfnSvy$1\0k");
    if (letter == '1') { // a position, as in %1$d
        made.format += "1$d";
        made.refused = true;
        return;
    }
    made.format += size;
    made.format += letter;
    const bool isText = std::string_view("spcC@%").find(letter) != std::string_view::npos;
    AddValue(input, made, size, letter,
             plain && (letter == 's' || letter == 'c' ? true : !isText || bare));
}

Case MakeCase(Input& input) {
    Case made;
    while (!input.AtEnd() && !made.refused && made.arguments.size() + 3 <= kMostArguments) {
        const unsigned choice = input.Take();
        if (choice < 96) {
            made.format += static_cast<char>(choice < 32 || choice == '%' ? 'x' : choice);
        } else {
            AddConversion(input, made);
        }
    }
    if (made.refused && input.Take() % 2 == 0) {
        made.format += "%s%@%d"; // nothing is there for them
    } else if (!made.refused && input.Take() % 8 == 0) {
        made.format += "%"; // cut off
        made.refused = true;
    }
    return made;
}

// Calls `function` with the arguments as their own types, one after the other.
template <typename Function, typename... Given>
void CallWith(const std::vector<Argument>& arguments, const Function& function, Given... given) {
    if (sizeof...(given) == arguments.size()) {
        function(given...);
        return;
    }
    if constexpr (sizeof...(given) < kMostArguments) {
        std::visit([&](auto next) { CallWith(arguments, function, given..., next); },
                   arguments[sizeof...(given)]);
    }
}

CFStringRef MakeString(CFStringRef format, const std::vector<Argument>& arguments) {
    CFStringRef string = nullptr;
    CallWith(arguments, [&](auto... given) {
        string = CFStringCreateWithFormat(nullptr, nullptr, format, given...);
    });
    return string;
}

std::string Printed(const std::string& format, const std::vector<Argument>& arguments) {
    std::string text;
    CallWith(arguments, [&](auto... given) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
        const int size = std::snprintf(nullptr, 0, format.c_str(), given...);
        Require(size >= 0, "the oracle prints");
        text.resize(static_cast<std::size_t>(size) + 1);
        std::snprintf(text.data(), text.size(), format.c_str(), given...);
#pragma GCC diagnostic pop
        text.pop_back();
    });
    return text;
}

std::string TextOf(CFStringRef string) {
    std::string text(static_cast<std::size_t>(CFStringGetLength(string)) + 1, '\0');
    Require(CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()),
                               kCFStringEncodingASCII) != 0,
            "the text is ASCII without a NUL");
    text.pop_back();
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Case made = MakeCase(input);
    const CFStringRef format = CFStringCreateWithBytes(
        nullptr, reinterpret_cast<const UInt8*>(made.format.data()),
        static_cast<CFIndex>(made.format.size()), kCFStringEncodingASCII, false);
    const CFStringRef string = MakeString(format, made.arguments);
    CFRelease(format);
    Require((string == nullptr) == made.refused, "what is malformed is refused, and nothing else");
    if (string == nullptr) {
        return 0;
    }
    if (made.isPrintf) {
        Require(TextOf(string) == Printed(made.format, made.arguments), "printf says the same");
    }
    CFRelease(string);
    return 0;
}
