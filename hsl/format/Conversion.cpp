#include "hsl/format/Conversion.h"

#include <langinfo.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace HSL {

namespace {

// A larger width or precision adds nothing to what is kept of a piece, and one beyond an int would
// have printf fail.
constexpr int kLargestNumber = 70000;
// What printf takes for a floating-point number whose conversion gives none.
constexpr int kDefaultPrecision = 6;
constexpr std::string_view kFlags = "-+ #0'I";

// Removes a decimal number from the front of `text` and returns it; -1 when there is none.
int TakeNumber(std::string_view& text) {
    int number = -1;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        number = std::min(std::max(number, 0) * 10 + (text.front() - '0'), kLargestNumber);
        text.remove_prefix(1);
    }
    return number;
}

bool IsInteger(tValueKind kind) {
    return (kind >= eInt8 && kind <= eUInt64) || kind == eLong || kind == ePointer;
}

bool Is64Bit(tValueKind kind) {
    return kind == eInt64 || kind == eUInt64;
}

// Appends what std::to_chars prints; false when it is longer than usual.
template <typename... Arguments>
bool AppendByToChars(CTextBuffer& out, Arguments... arguments) {
    constexpr std::size_t kUsual = 128;
    char* const start = out.Room(kUsual);
    const std::to_chars_result printed = std::to_chars(start, start + kUsual, arguments...);
    if (printed.ec != std::errc()) {
        return false;
    }
    out.SetEnd(printed.ptr);
    return true;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename Value>
void Print(CTextBuffer& out, const std::string& format, Value value) {
    char* const start = out.Room(kLongestPiece + 1);
    *start = '\0';
    // A failure, at a wide character that the locale lacks, leaves what was printed before it.
    std::snprintf(start, kLongestPiece + 1, format.c_str(), value);
    // Up to the first terminator: a character of 0 ends its piece.
    out.SetEnd(start + std::strlen(start));
}
#pragma GCC diagnostic pop

} // namespace

CConversion::CConversion(std::string_view text) : mCharacter(text.back()) {
    text = text.substr(1, text.size() - 2);
    for (char* end = mFlags; !text.empty() && kFlags.find(text[0]) != std::string_view::npos;
         text.remove_prefix(1)) {
        if (std::strchr(mFlags, text[0]) == nullptr) {
            *end++ = text[0];
        }
    }
    mWidth = TakeNumber(text);
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        // A point alone is a precision of 0.
        mPrecision = std::max(TakeNumber(text), 0);
    }
    mLength = ReadLength(text);
}

CConversion::tLength CConversion::ReadLength(std::string_view letters) {
    if (letters.empty()) {
        return tLength::kNone;
    }
    if (letters == "l") {
        return tLength::kLong;
    }
    if (letters == "h") {
        return tLength::kShort;
    }
    if (letters == "hh") {
        return tLength::kByte;
    }
    const bool isOther =
        letters == "ll" || (letters.size() == 1 && std::strchr("qjztZ", letters[0]) != nullptr);
    return isOther ? tLength::kOther : tLength::kInvalid;
}

bool CConversion::Fits(tValueKind kind) const {
    switch (mCharacter) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        return IsInteger(kind) && mLength != tLength::kInvalid;
    case 'c':
    case 'C':
        return IsInteger(kind) && !Is64Bit(kind) &&
               (mLength == tLength::kNone || mLength == tLength::kLong);
    case 'p':
        return kind == ePointer && mLength == tLength::kNone;
    case 's':
        return (kind == eString && mLength == tLength::kNone) ||
               (kind == eWideString && mLength == tLength::kLong);
    case 'S':
        return kind == eWideString && mLength == tLength::kNone;
    default:
        return (kind == eFloat || kind == eDouble) &&
               (mLength == tLength::kNone || mLength == tLength::kLong);
    }
}

// Returns the length letters under which printf is handed an integer of this kind: those of the
// conversion unless they would cut it, "ll" for one of 64 bits.
std::string_view CConversion::LengthFor(tValueKind kind) const {
    if (Is64Bit(kind)) {
        // "%I64d" and the like go to printf as they are. It takes the letter for a flag, the number
        // for a width and the argument for an int.
        const bool isAsItIs = mLength == tLength::kNone && std::strchr(mFlags, 'I') != nullptr;
        return isAsItIs ? "" : "ll";
    }
    const bool isByte = kind == eInt8 || kind == eUInt8;
    const bool isShort = kind == eInt16 || kind == eUInt16;
    if (mLength == tLength::kByte && isByte) {
        return "hh";
    }
    return mLength == tLength::kShort && (isByte || isShort) ? "h" : "";
}

void CConversion::Append(CTextBuffer& out, const CRecordValue& value) const {
    if (mCharacter == 'n') {
        // It stands for no text, and a record holds no address to write to.
        return;
    }
    if (!Fits(value.mKind)) {
        AppendByDefault(out, value);
    } else if (!AppendPlain(out, value)) {
        AppendByPrintf(out, value);
    }
}

// Appends what std::to_chars is bound to print as printf does, and texts as they are, because
// printf takes several times as long for them. Returns false, with nothing appended, for everything
// else.
bool CConversion::AppendPlain(CTextBuffer& out, const CRecordValue& value) const {
    if (mFlags[0] != '\0' || mWidth >= 0) {
        return false;
    }
    switch (mCharacter) {
    case 'd':
    case 'i':
    case 'u':
        return mPrecision < 0 && AppendPlainInteger(out, value);
    case 'e':
        return AppendPlainDouble(out, value.mDouble, std::chars_format::scientific);
    case 'f':
        return AppendPlainDouble(out, value.mDouble, std::chars_format::fixed);
    case 'g':
        return AppendPlainDouble(out, value.mDouble, std::chars_format::general);
    case 's':
        if (value.mKind != eString || mPrecision >= 0) {
            return false;
        }
        out.Append(value.mText);
        return true;
    default:
        return false;
    }
}

bool CConversion::AppendPlainInteger(CTextBuffer& out, const CRecordValue& value) const {
    const bool isSigned = mCharacter != 'u';
    if (Is64Bit(value.mKind)) {
        return isSigned ? AppendByToChars(out, value.mInteger)
                        : AppendByToChars(out, static_cast<std::uint64_t>(value.mInteger));
    }
    if (!LengthFor(value.mKind).empty()) {
        return false;
    }
    return isSigned ? AppendByToChars(out, static_cast<std::int32_t>(value.mInteger))
                    : AppendByToChars(out, static_cast<std::uint32_t>(value.mInteger));
}

bool CConversion::AppendPlainDouble(CTextBuffer& out, double value,
                                    std::chars_format format) const {
    // std::to_chars writes a dot, printf what the locale says.
    const char* const point = nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == '\0' &&
           AppendByToChars(out, value, format, mPrecision < 0 ? kDefaultPrecision : mPrecision);
}

// Puts the conversion together again, with other length letters.
std::string CConversion::FormatWith(std::string_view length) const {
    std::string format("%");
    format += mFlags;
    if (mWidth >= 0) {
        format += std::to_string(mWidth);
    }
    if (mPrecision >= 0) {
        format += '.';
        format += std::to_string(mPrecision);
    }
    format += length;
    format += mCharacter;
    return format;
}

void CConversion::AppendByPrintf(CTextBuffer& out, const CRecordValue& value) const {
    switch (mCharacter) {
    case 'c':
    case 'C':
        Print(out, FormatWith(mLength == tLength::kLong ? "l" : ""),
              static_cast<unsigned int>(value.mInteger));
        return;
    case 'p':
        Print(out, FormatWith(""),
              reinterpret_cast<void*>(static_cast<std::uintptr_t>(value.mInteger)));
        return;
    case 's':
    case 'S':
        if (value.mKind == eString) {
            Print(out, FormatWith(""), value.mText);
        } else {
            Print(out, FormatWith(mLength == tLength::kLong ? "l" : ""), value.mWideText);
        }
        return;
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
        Print(out, FormatWith(""), value.mDouble);
        return;
    default:
        break;
    }
    const std::string_view length = LengthFor(value.mKind);
    if (length == "ll") {
        Print(out, FormatWith(length), static_cast<long long>(value.mInteger));
    } else {
        Print(out, FormatWith(length), static_cast<int>(value.mInteger));
    }
}

bool IsValueKind(unsigned char kind) {
    return kind >= eInt8 && kind <= eWideString;
}

std::string_view DefaultConversion(tValueKind kind) {
    switch (kind) {
    case eInt8:
    case eInt16:
        return "%hd";
    case eInt32:
    case eLong:
        return "%d";
    case eInt64:
        return "%I64d";
    case eUInt8:
    case eUInt16:
        return "%hu";
    case eUInt32:
        return "%u";
    case eUInt64:
        return "%I64u";
    case eFloat:
        return "%f";
    case eDouble:
        return "%g";
    case ePointer:
        return "0x%x";
    case eString:
        return "%s";
    case eWideString:
        return "%S";
    }
    return "";
}

void AppendByDefault(CTextBuffer& out, const CRecordValue& value) {
    const std::string_view piece = DefaultConversion(value.mKind);
    const std::size_t sign = piece.find('%');
    out.Append(piece.substr(0, sign));
    CConversion(piece.substr(sign)).Append(out, value);
}

} // namespace HSL
