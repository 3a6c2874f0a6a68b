#include "hsl/FormatString.h"

#include <langinfo.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "hsl/NumberText.h"

namespace HSL {

namespace {

constexpr std::size_t kLongestPiece = 65535;
// Any larger width or precision adds nothing to the part of a piece that is kept.
constexpr int kLargestNumber = 70000;
// One that is not given, to a floating-point number.
constexpr int kUsualPrecision = 6;

char gFormattingBuffer[kLongestPiece + 1];

int ReadNumber(std::string_view& text) {
    int number = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        number = std::min(number * 10 + (text.front() - '0'), kLargestNumber);
        text.remove_prefix(1);
    }
    return number;
}

bool IsDigit(std::string_view text) {
    return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

bool IsInteger(tValueKind kind) {
    return (kind >= eInt8 && kind <= eUInt64) || kind == eLong || kind == ePointer;
}

bool Is64Bit(tValueKind kind) {
    return kind == eInt64 || kind == eUInt64;
}

bool IsOneOf(char character, std::string_view characters) {
    return characters.find(character) != std::string_view::npos;
}

// Only the formatter knows the others.
bool IsDecimalPointDot() {
    const char* const point = nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == '\0';
}

__attribute__((format(printf, 2, 3))) void AppendPrintf(CTextBuffer& out, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    gFormattingBuffer[0] = '\0';
    // A failure leaves what was formatted before it.
    std::vsnprintf(gFormattingBuffer, sizeof gFormattingBuffer, format, arguments);
    va_end(arguments);
    out.Append(std::string_view(gFormattingBuffer));
}

// The conversions that stand for the kinds' own forms, by the kinds.
std::array<CFormatPiece, eWideString + 1>& OwnForms() {
    static auto forms = []<std::size_t... kKind>(std::index_sequence<kKind...>) {
        const auto form = [](std::size_t kind) {
            const std::string_view text = DefaultConversion(static_cast<tValueKind>(kind));
            return CFormatPiece(text, 0, text.find('%'), text.size());
        };
        return std::array{form(std::max<std::size_t>(kKind, eInt8))...};
    }
    (std::make_index_sequence<eWideString + 1>());
    return forms;
}

bool IsEscaped(std::string_view format, std::size_t sign) {
    return (sign > 0 && format[sign - 1] == '\\') || format[sign + 1] == '%';
}

// The next per-cent sign that something follows; one at the very end starts no conversion.
std::size_t FindSign(std::string_view format, std::size_t position) {
    const std::size_t sign = format.find('%', position);
    return sign == format.size() - 1 ? std::string_view::npos : sign;
}

} // namespace

CFormatPiece::CFormatPiece(std::string_view format, std::size_t start, std::size_t sign,
                           std::size_t end)
    : mStart(start), mSign(sign), mEnd(end), mCharacter(format[end - 1]) {
    std::string_view text = format.substr(sign + 1, end - sign - 2);
    std::size_t flags = 0;
    while (!text.empty() && IsOneOf(text.front(), "-+ #0'I")) {
        const char flag = text.front();
        // A flag that is repeated says nothing new.
        if (std::strchr(mFlags, flag) == nullptr) {
            mFlags[flags++] = flag;
        }
        mIsLeft = mIsLeft || flag == '-';
        mHasZeros = mHasZeros || flag == '0';
        mHasIFlag = mHasIFlag || flag == 'I';
        mIsSimple = mIsSimple && (flag == '-' || flag == '0');
        text.remove_prefix(1);
    }
    if (IsDigit(text)) {
        mWidth = ReadNumber(text);
    }
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        mPrecision = ReadNumber(text);
    }
    while (LengthLetters(mLength) != text) {
        if (mLength == tLength::kT) {
            mIsValid = false;
            break;
        }
        mLength = static_cast<tLength>(static_cast<int>(mLength) + 1);
    }
}

std::string_view CFormatPiece::LengthLetters(tLength length) {
    constexpr std::string_view kLetters[] = {"",  "hh", "h", "l", "ll", "q",
                                             "L", "j",  "z", "Z", "t"};
    return kLetters[static_cast<std::size_t>(length)];
}

bool CFormatPiece::HasLength(std::initializer_list<tLength> lengths) const {
    return std::find(lengths.begin(), lengths.end(), mLength) != lengths.end();
}

bool CFormatPiece::Fits(tValueKind kind) const {
    if (!mIsValid) {
        return false;
    }
    switch (mCharacter) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        return IsInteger(kind) && mLength != tLength::kBigL;
    case 'c':
    case 'C':
        return IsInteger(kind) && !Is64Bit(kind) && HasLength({tLength::kNone, tLength::kL});
    case 'p':
        return kind == ePointer && mLength == tLength::kNone;
    case 's':
        return (kind == eString && mLength == tLength::kNone) ||
               (kind == eWideString && mLength == tLength::kL);
    case 'S':
        return kind == eWideString && mLength == tLength::kNone;
    default:
        return (kind == eFloat || kind == eDouble) && HasLength({tLength::kNone, tLength::kL});
    }
}

// The length letters under which the formatter takes an integer as it is handed over, without
// cutting it, and as wide as the letters of the format say where they fit.
CFormatPiece::tLength CFormatPiece::LengthFor(tValueKind kind) const {
    if (Is64Bit(kind)) {
        return tLength::kLL;
    }
    const bool isByte = kind == eInt8 || kind == eUInt8;
    const bool isShort = kind == eInt16 || kind == eUInt16;
    if ((mLength == tLength::kHH && isByte) || (mLength == tLength::kH && (isByte || isShort))) {
        return mLength;
    }
    return tLength::kNone;
}

CFormatPiece::tWay CFormatPiece::WayFor(tValueKind kind) const {
    if (mCharacter == 'n') {
        // Stands for no text, and there is nowhere to write to.
        return tWay::kNothing;
    }
    if (!Fits(kind)) {
        return tWay::kOwnForm;
    }
    return FastWayFor(kind);
}

CFormatPiece::tWay CFormatPiece::FastWayFor(tValueKind kind) const {
    if (!mIsSimple) {
        return tWay::kFormatter;
    }
    switch (mCharacter) {
    case 'd':
    case 'i':
        return mPrecision < 0 ? tWay::kSigned : tWay::kFormatter;
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        return mPrecision < 0 ? tWay::kUnsigned : tWay::kFormatter;
    case 'f':
        return mPrecision <= kLargestNumberPrecision ? tWay::kFixed : tWay::kFormatter;
    case 'g':
        return mPrecision <= kLargestNumberPrecision ? tWay::kGeneral : tWay::kFormatter;
    case 's':
        return kind == eString && !mHasZeros ? tWay::kText : tWay::kFormatter;
    case 'c':
        return mLength == tLength::kNone && mWidth < 0 ? tWay::kCharacter : tWay::kFormatter;
    default:
        return tWay::kFormatter;
    }
}

void CFormatPiece::Append(CTextBuffer& out, std::string_view format, const CRecordValue& value) {
    if (value.mKind != mKnownKind) {
        mKnownKind = value.mKind;
        mKnownWay = WayFor(value.mKind);
    }
    const std::size_t start = out.Size();
    out.Append(format.substr(mStart, mSign - mStart));
    AppendFast(out, mKnownWay, value);
    CutPiece(out, start);
}

void CFormatPiece::AppendByPrintf(CTextBuffer& out, std::string_view format,
                                  const CRecordValue& value) const {
    const std::size_t start = out.Size();
    out.Append(format.substr(mStart, mSign - mStart));
    const tWay way = WayFor(value.mKind);
    if (way == tWay::kOwnForm) {
        const std::string_view own = DefaultConversion(value.mKind);
        CFormatPiece(own, 0, own.find('%'), own.size()).AppendByPrintf(out, own, value);
    } else if (way != tWay::kNothing) {
        AppendFormatted(out, value);
    }
    CutPiece(out, start);
}

void CFormatPiece::AppendFast(CTextBuffer& out, tWay way, const CRecordValue& value) const {
    switch (way) {
    case tWay::kNothing:
        break;
    case tWay::kOwnForm:
        AppendOwnForm(out, value);
        break;
    case tWay::kSigned:
        AppendSigned(out, value);
        break;
    case tWay::kUnsigned:
        AppendUnsigned(out, value);
        break;
    case tWay::kFixed:
    case tWay::kGeneral:
        AppendDouble(out, way, value);
        break;
    case tWay::kText: {
        const std::string_view text(value.mText);
        AppendPadded(out, "",
                     mPrecision < 0 ? text : text.substr(0, static_cast<std::size_t>(mPrecision)));
        break;
    }
    case tWay::kCharacter:
        // A zero is the end of the piece.
        if (const auto character = static_cast<char>(value.mInteger); character != '\0') {
            out.Append(character);
        }
        break;
    case tWay::kFormatter:
        AppendFormatted(out, value);
        break;
    }
}

// Blanks go in front of the sign, zeros behind it.
void CFormatPiece::AppendPadded(CTextBuffer& out, std::string_view sign,
                                std::string_view text) const {
    const auto width = static_cast<std::size_t>(std::max(mWidth, 0));
    const std::size_t size = sign.size() + text.size();
    const std::size_t padding = width > size ? width - size : 0;
    if (padding > 0 && !mIsLeft && !mHasZeros) {
        out.Append(padding, ' ');
    }
    out.Append(sign);
    if (padding > 0 && !mIsLeft && mHasZeros) {
        out.Append(padding, '0');
    }
    out.Append(text);
    if (padding > 0 && mIsLeft) {
        out.Append(padding, ' ');
    }
}

void CFormatPiece::AppendSigned(CTextBuffer& out, const CRecordValue& value) const {
    constexpr std::size_t kLongest = 20;
    std::int64_t number = value.mInteger;
    switch (LengthFor(value.mKind)) {
    case tLength::kHH:
        number = static_cast<std::int8_t>(number);
        break;
    case tLength::kH:
        number = static_cast<std::int16_t>(number);
        break;
    case tLength::kLL:
        break;
    default:
        number = static_cast<std::int32_t>(number);
        break;
    }
    if (mWidth < 0) {
        char* const end = out.Room(kLongest);
        out.SetEnd(std::to_chars(end, end + kLongest, number).ptr);
        return;
    }
    char text[kLongest];
    const char* const end = std::to_chars(text, text + kLongest, number).ptr;
    const std::size_t sign = number < 0 ? 1 : 0;
    AppendPadded(out, {text, sign}, {text + sign, end});
}

void CFormatPiece::AppendUnsigned(CTextBuffer& out, const CRecordValue& value) const {
    constexpr std::size_t kLongest = 22; // octal
    auto number = static_cast<std::uint64_t>(value.mInteger);
    switch (LengthFor(value.mKind)) {
    case tLength::kHH:
        number = static_cast<std::uint8_t>(number);
        break;
    case tLength::kH:
        number = static_cast<std::uint16_t>(number);
        break;
    case tLength::kLL:
        break;
    default:
        number = static_cast<std::uint32_t>(number);
        break;
    }
    char text[kLongest];
    const int base = mCharacter == 'u' ? 10 : mCharacter == 'o' ? 8 : 16;
    char* const end = std::to_chars(text, text + kLongest, number, base).ptr;
    if (mCharacter == 'X') {
        std::transform(text, end, text, [](char digit) {
            return digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit;
        });
    }
    AppendPadded(out, "", {text, end});
}

void CFormatPiece::AppendDouble(CTextBuffer& out, tWay way, const CRecordValue& value) const {
    if (!std::isfinite(value.mDouble) || !IsDecimalPointDot()) {
        AppendFormatted(out, value);
        return;
    }
    const bool isNegative = std::signbit(value.mDouble);
    const double size = std::fabs(value.mDouble);
    const int precision = mPrecision < 0 ? kUsualPrecision : mPrecision;
    const auto put = [&](char* to) {
        return way == tWay::kFixed ? PutFixed(to, size, precision)
                                   : PutGeneral(to, size, precision);
    };
    if (mWidth < 0) {
        if (isNegative) {
            out.Append('-');
        }
        out.SetEnd(put(out.Room(kLongestNumberText)));
        return;
    }
    char text[kLongestNumberText];
    AppendPadded(out, isNegative ? "-" : "", {text, put(text)});
}

// Puts a conversion together again. The widest has five parts of at most seven characters.
class CFormatPiece::Rebuilt {
public:
    Rebuilt(const CFormatPiece& piece, tLength length) {
        Add("%");
        Add(piece.mFlags);
        if (piece.mWidth >= 0) {
            AddNumber(piece.mWidth);
        }
        if (piece.mPrecision >= 0) {
            Add(".");
            AddNumber(piece.mPrecision);
        }
        Add(LengthLetters(length));
        mText[mSize++] = piece.mCharacter;
        mText[mSize] = '\0';
    }
    const char* Text() const { return mText; }

private:
    void Add(std::string_view part) {
        std::memcpy(mText + mSize, part.data(), part.size());
        mSize += part.size();
    }
    void AddNumber(int number) {
        mSize = static_cast<std::size_t>(
            std::to_chars(mText + mSize, mText + sizeof mText, number).ptr - mText);
    }

    char mText[32];
    std::size_t mSize = 0;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// By the formatter, for a value that fits.
void CFormatPiece::AppendFormatted(CTextBuffer& out, const CRecordValue& value) const {
    if (IsOneOf(mCharacter, "cC")) {
        AppendPrintf(out, Rebuilt(*this, mLength).Text(),
                     static_cast<unsigned int>(value.mInteger));
    } else if (mCharacter == 'p') {
        AppendPrintf(out, Rebuilt(*this, tLength::kNone).Text(),
                     reinterpret_cast<void*>(static_cast<std::uintptr_t>(value.mInteger)));
    } else if (IsOneOf(mCharacter, "eEfgG")) {
        AppendPrintf(out, Rebuilt(*this, tLength::kNone).Text(), value.mDouble);
    } else if (value.mKind == eString) {
        AppendPrintf(out, Rebuilt(*this, tLength::kNone).Text(), value.mText);
    } else if (value.mKind == eWideString) {
        AppendPrintf(out, Rebuilt(*this, mLength).Text(), value.mWideText);
    } else if (mHasIFlag && mLength == tLength::kNone) {
        // "%I64d" goes through as it is, and the formatter takes an int under it.
        AppendPrintf(out, Rebuilt(*this, tLength::kNone).Text(), static_cast<int>(value.mInteger));
    } else if (Is64Bit(value.mKind)) {
        AppendPrintf(out, Rebuilt(*this, tLength::kLL).Text(),
                     static_cast<long long>(value.mInteger));
    } else {
        AppendPrintf(out, Rebuilt(*this, LengthFor(value.mKind)).Text(),
                     static_cast<int>(value.mInteger));
    }
}
#pragma GCC diagnostic pop

void CFormatPieces::Find(std::string_view format, std::size_t most) {
    mPieces.clear();
    mIsEndless = false;
    std::size_t position = 0;
    while (mPieces.size() < most) {
        const std::size_t sign = FindSign(format, position);
        if (sign == std::string_view::npos) {
            return;
        }
        if (IsEscaped(format, sign)) {
            mIsEndless = true;
            return;
        }
        const std::size_t last = format.find_first_of(kConversionCharacters, sign);
        if (last == std::string_view::npos) {
            return;
        }
        mPieces.emplace_back(format, position, sign, last + 1);
        position = last + 1;
    }
}

void CutPiece(CTextBuffer& out, std::size_t start) {
    if (out.Size() - start > kLongestPiece) {
        out.CutTo(start + kLongestPiece);
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

void AppendOwnForm(CTextBuffer& out, const CRecordValue& value) {
    OwnForms()[value.mKind].Append(out, DefaultConversion(value.mKind), value);
}

void AppendLiteral(CTextBuffer& out, std::string_view format) {
    const std::size_t start = out.Size();
    for (std::size_t sign = format.find('%'); sign != std::string_view::npos;
         sign = format.find('%')) {
        const bool isEscaped = sign + 1 < format.size() && format[sign + 1] == '%';
        out.Append(format.substr(0, sign + 1));
        format.remove_prefix(sign + (isEscaped ? 2 : 1));
    }
    out.Append(format);
    CutPiece(out, start);
}

std::size_t FindConversion(std::string_view format, std::size_t position) {
    for (;;) {
        const std::size_t sign = FindSign(format, position);
        if (sign == std::string_view::npos || !IsEscaped(format, sign)) {
            return sign;
        }
        // Intended: the search starts again from the same position, and so never ends.
        std::this_thread::yield();
    }
}

} // namespace HSL
