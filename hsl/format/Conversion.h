#pragma once

#include "hsl/CValue.h"
#include "hsl/format/TextBuffer.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace HSL {

// An argument of a log call, as it was read back from its record.
struct CRecordValue {
    tValueKind mKind;
    std::int64_t mInteger = 0;          // an integer of any kind, with its sign, or an address
    double mDouble = 0;                 // an eFloat or eDouble
    const char* mText = nullptr;        // an eString; not owned
    const wchar_t* mWideText = nullptr; // an eWideString; not owned
};

// The characters that end a conversion.
inline constexpr std::string_view kConversionCharacters = "cCdiouxXeEfgGnpsS";

// A conversion prints no more than this many bytes.
inline constexpr std::size_t kLongestPiece = 65535;

// A conversion is the part of a printf format that stands for one argument: "%d", "%-8.3lf". This
// class takes one apart and prints a value by it:
//
//     CTextBuffer text;
//     CConversion("%5.2f").Append(text, {eDouble, 0, 2.5}); // appends " 2.50"
//
// Where the conversion fits the kind of the value, the text is what vsnprintf prints in the
// process's locale. An integer is handed over whole: length letters for another integer width do
// not cut it. A conversion that does not fit (one for numbers with a text or the reverse, one with
// "*" or "$") prints the value by its kind's default conversion. "%n" prints nothing and writes
// nothing.
class CConversion {
public:
    // Takes apart `text`, which begins with '%' and ends with a conversion character.
    explicit CConversion(std::string_view text);

    // Appends what the conversion prints of `value`.
    void Append(CTextBuffer& out, const CRecordValue& value) const;

private:
    // Length letters, as far as they make a difference.
    enum class tLength : unsigned char {
        kNone,
        kByte,    // "hh"
        kShort,   // "h"
        kLong,    // "l"
        kOther,   // those that only integers take
        kInvalid, // none that printf knows, or "L", which no value fits
    };

    static tLength ReadLength(std::string_view letters);
    bool Fits(tValueKind kind) const;
    std::string_view LengthFor(tValueKind kind) const;
    bool AppendPlain(CTextBuffer& out, const CRecordValue& value) const;
    bool AppendPlainInteger(CTextBuffer& out, const CRecordValue& value) const;
    bool AppendPlainDouble(CTextBuffer& out, double value, std::chars_format format) const;
    void AppendByPrintf(CTextBuffer& out, const CRecordValue& value) const;
    std::string FormatWith(std::string_view length) const;

    char mFlags[8] = ""; // each once
    int mWidth = -1;     // none
    int mPrecision = -1; // none
    tLength mLength = tLength::kNone;
    char mCharacter;
};

// Tells whether a kind byte in a record is that of a value.
bool IsValueKind(unsigned char kind);

// Returns the conversion that prints values of a kind for which the format has none. See
// tValueKind.
std::string_view DefaultConversion(tValueKind kind);

// Appends a value by the default conversion of its kind.
void AppendByDefault(CTextBuffer& out, const CRecordValue& value);

} // namespace HSL
