// Conversion between UTF-8, UTF-16 and UTF-32, with the results and pointer movements of the
// Unicode Consortium's reference conversion algorithm.
//
// Every converter reads from *sourceStart up to sourceEnd and writes from *targetStart up to
// targetEnd; on return both start pointers stand behind what was converted. Units are in the
// host's byte order. The functions keep no state, allocate nothing and may be called on any thread;
// source and target must not overlap.
//
// Results:
//   conversionOK     everything was converted;
//   sourceExhausted  the source ends within a character; *sourceStart stands on that character;
//   targetExhausted  the target is full; *sourceStart stands on the first unit not converted;
//   sourceIllegal    the source holds something that is no character. Where the conversion stops
//   for
//                    it, *sourceStart stands on it.
//
// What is illegal:
//   - UTF-8 that is not well formed stops the conversion under both flags.
//   - A surrogate that is not part of a pair stops it under strictConversion. Under
//     lenientConversion it passes through UTF-16 to UTF-8 and UTF-32, and from UTF-32 to UTF-8, as
//     if it were a character, and becomes U+FFFD from UTF-32 to UTF-16.
//   - A UTF-32 value above 0x10FFFF becomes U+FFFD. Into UTF-8 the result is then sourceIllegal
//     under both flags, although the conversion goes on. Into UTF-16 it is U+FFFD under
//     lenientConversion only; under strictConversion the value is skipped without output, the
//     result becomes sourceIllegal and the conversion goes on.
// A result of sourceIllegal that did not stop the conversion stays the result unless a later unit
// stops it for another reason.
#pragma once

#include <cstdint>

namespace NYPL {

enum ConversionFlags { strictConversion = 0, lenientConversion = 1 };

enum ConversionResult {
    conversionOK = 0,
    sourceExhausted = 1,
    targetExhausted = 2,
    sourceIllegal = 3,
};

using UTF8 = unsigned char;
using UTF16 = unsigned short;
using UTF32 = std::uint32_t;

ConversionResult ConvertUTF32toUTF16(const UTF32** sourceStart, const UTF32* sourceEnd,
                                     UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags);
ConversionResult ConvertUTF16toUTF32(const UTF16** sourceStart, const UTF16* sourceEnd,
                                     UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags);
ConversionResult ConvertUTF16toUTF8(const UTF16** sourceStart, const UTF16* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags);
ConversionResult ConvertUTF8toUTF16(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags);
ConversionResult ConvertUTF32toUTF8(const UTF32** sourceStart, const UTF32* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags);
ConversionResult ConvertUTF8toUTF32(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags);

// Whether `source` starts with one legal UTF-8 character that ends at or before `sourceEnd`.
// False for an empty range.
bool isLegalUTF8Sequence(const unsigned char* source, const unsigned char* sourceEnd);

} // namespace NYPL
