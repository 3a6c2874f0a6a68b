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
// conversion prints, is cut at 65535 bytes.
//
// Used by the collection thread alone: the working buffers are shared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "hsl/CValue.h"

namespace HSL {

// A registered format.
struct CFormatStringEntry {
    bool mIsNarrow;
    std::string mNarrow;
    std::wstring mWide;
};

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

// Appends a piece: `segment`, text with one conversion at its end, and the value that the
// conversion prints. The fast way is taken where it is known to give the same text.
void AppendPiece(std::string& out, std::string_view segment, const CRecordValue& value);
// The same without the fast ways.
void AppendPieceByPrintf(std::string& out, std::string_view segment, const CRecordValue& value);

// Appends a format without arguments: "%%" gives "%", and any other "%" stands as it is.
void AppendLiteral(std::string& out, std::string_view format);

// Where the next conversion of `format` begins, from `position` on; npos when there is none. See
// the warning at CLogContext::Log: an escaped per-cent sign makes this search for ever.
std::size_t FindConversion(std::string_view format, std::size_t position);

} // namespace HSL
