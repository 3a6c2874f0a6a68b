// From a format and the values of its arguments to text.
//
// A format is walked here, conversion by conversion, and every value printed by its own kind, so
// that a format which does not match its arguments still gives readable text:
//
//   | what                                | text                                                |
//   |-------------------------------------|-----------------------------------------------------|
//   | more arguments than conversions     | " (", the others in their kinds' own forms with     |
//   |                                     | ", " between them, ") "                             |
//   | more conversions than arguments     | "[extra format arguments: ", the rest of the format |
//   |                                     | with "_" for every "%", " ]"                        |
//   | an id of -1, or never given         | "<UNINITIALIZED FORMAT STRING ID USED>"             |
//   | a wide format                       | "<WIDE FORMAT STRING NOT SUPPORTED>"                |
//   | a format field of neither kind      | "<BAD FORMAT STRING>"                               |
//   | an argument of no kind              | "<BAD ARG> I'm horribly confused"                   |
//
// Where a conversion fits its argument the text is what vsnprintf gives. One that does not fit (a
// text for a number, a number for a text, a width or precision of "*", a position with "$") prints
// the argument in its kind's own form; a length letter of another integer width prints the value.
// "%n" prints and writes nothing. Every piece, which is the text before a conversion with what the
// conversion prints, is cut at 65535 bytes, and so is what stands before a message in its line.
//
// Used by the collection thread alone: the working buffers are shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "hsl/CValue.h"
#include "hsl/TextBuffer.h"

namespace HSL {

// A value as it was read from a record.
struct CRecordValue {
    tValueKind mKind;
    std::int64_t mInteger = 0; // of all integers and addresses, extended by the kind's sign
    double mDouble = 0;        // eFloat and eDouble
    const char* mText = nullptr;
    const wchar_t* mWideText = nullptr;
};

// Whether a kind byte is that of a value.
bool IsValueKind(unsigned char kind);

// The conversion that prints a value of this kind where the format has none.
std::string_view DefaultConversion(tValueKind kind);

// The conversion characters.
inline constexpr std::string_view kConversionCharacters = "cCdiouxXeEfgGnpsS";

// A piece of a format, text with one conversion at its end, taken apart.
class CFormatPiece {
public:
    // The piece of `format` from `start` to `end`, whose conversion begins at `sign`. The text is
    // not kept: it is handed over at each use.
    CFormatPiece(std::string_view format, std::size_t start, std::size_t sign, std::size_t end);

    std::size_t End() const { return mEnd; }

    // Appends the piece with the value that its conversion prints. The fast way is taken where it
    // is known to give the same text as the formatter, vsnprintf.
    void Append(CTextBuffer& out, std::string_view format, const CRecordValue& value);
    // The same without the fast ways.
    void AppendByPrintf(CTextBuffer& out, std::string_view format, const CRecordValue& value) const;

private:
    enum class tLength : unsigned char { kNone, kHH, kH, kL, kLL, kQ, kBigL, kJ, kZ, kBigZ, kT };
    enum class tWay : unsigned char {
        kNothing,   // of the conversion
        kOwnForm,   // that of the kind
        kSigned,    // the fast ways
        kUnsigned,  //
        kFixed,     //
        kGeneral,   //
        kText,      //
        kCharacter, //
        kFormatter,
    };
    class Rebuilt;

    static std::string_view LengthLetters(tLength length);
    bool Fits(tValueKind kind) const;
    bool HasLength(std::initializer_list<tLength> lengths) const;
    tLength LengthFor(tValueKind kind) const;
    tWay WayFor(tValueKind kind) const;
    tWay FastWayFor(tValueKind kind) const;
    void AppendFast(CTextBuffer& out, tWay way, const CRecordValue& value) const;
    void AppendSigned(CTextBuffer& out, const CRecordValue& value) const;
    void AppendUnsigned(CTextBuffer& out, const CRecordValue& value) const;
    void AppendDouble(CTextBuffer& out, tWay way, const CRecordValue& value) const;
    void AppendPadded(CTextBuffer& out, std::string_view sign, std::string_view text) const;
    void AppendFormatted(CTextBuffer& out, const CRecordValue& value) const;

    std::size_t mStart;
    std::size_t mSign;
    std::size_t mEnd;
    int mWidth = -1;
    int mPrecision = -1;
    char mFlags[8] = {};
    char mCharacter;
    tLength mLength = tLength::kNone;
    bool mIsValid = true;   // a conversion that takes one argument
    bool mHasIFlag = false; // of "%I64d", which the platform's formatter takes for a flag
    bool mIsLeft = false;   // "-"
    bool mHasZeros = false; // "0"
    bool mIsSimple = true;  // no other flags
    // What was found for the kind of the last value, as the next one mostly has the same.
    tValueKind mKnownKind{};
    tWay mKnownWay = tWay::kNothing;
};

// The pieces of a format, found once.
class CFormatPieces {
public:
    CFormatPieces() = default;
    explicit CFormatPieces(std::string_view format) { Find(format, kMost); }

    // Finds up to `most` pieces, in place of those from before.
    void Find(std::string_view format, std::size_t most);

    std::size_t Count() const { return mPieces.size(); }
    CFormatPiece& operator[](std::size_t index) { return mPieces[index]; }
    // Whether the search for a further piece meets an escaped per-cent sign, and so never ends.
    bool IsEndless() const { return mIsEndless; }

private:
    // As many as a record may have arguments.
    static constexpr std::size_t kMost = 127;

    std::vector<CFormatPiece> mPieces;
    bool mIsEndless = false;
};

// A registered format.
struct CFormatStringEntry {
    bool mIsNarrow;
    std::string mNarrow;
    std::wstring mWide;
    CFormatPieces mPieces{mNarrow};
};

// Appends a value in the form of its own kind.
void AppendOwnForm(CTextBuffer& out, const CRecordValue& value);

// Appends a format without arguments: "%%" gives "%", and any other "%" stands as it is.
void AppendLiteral(CTextBuffer& out, std::string_view format);

// Cuts the piece that begins at `start` of `out` and ends with it.
void CutPiece(CTextBuffer& out, std::size_t start);

// Where the next conversion of `format` begins, from `position` on; npos when there is none. See
// the warning at CLogContext::Log: an escaped per-cent sign makes this search for ever.
std::size_t FindConversion(std::string_view format, std::size_t position);

} // namespace HSL
