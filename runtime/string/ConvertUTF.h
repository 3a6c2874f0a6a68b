// Conversion between UTF-8, UTF-16 and UTF-32, with the results and pointer movements of the
// Unicode Consortium's reference conversion algorithm.
//
// Every converter reads from *sourceStart up to sourceEnd and writes from *targetStart up to
// targetEnd. On return both start pointers stand just after what was converted. Units are in the
// host's byte order. The functions keep no state and allocate nothing; any thread may call them.
// Source and target must not overlap.
//
//     const NYPL::UTF16 units[] = {'a', 0xD83C, 0xDFB9};
//     const NYPL::UTF16* source = units;
//     NYPL::UTF8 bytes[8];
//     NYPL::UTF8* target = bytes;
//     NYPL::ConvertUTF16toUTF8(&source, units + 3, &target, bytes + 8, NYPL::strictConversion);
//     // target - bytes is 5: one byte for the letter, four for the pair
//
// Results:
//   conversionOK     Everything was converted.
//   sourceExhausted  The source ends within a character. *sourceStart stands on that character.
//   targetExhausted  The target is full. *sourceStart stands on the first unit not converted.
//   sourceIllegal    The source holds something that is no character. If the conversion stopped
//                    there, *sourceStart stands on it.
//
// What is illegal:
//   - UTF-8 that is not well formed stops the conversion under both flags.
//   - A surrogate that is not part of a pair stops the conversion under strictConversion. Under
//     lenientConversion it passes through as if it were a character, from UTF-16 to UTF-8 and
//     UTF-32 and from UTF-32 to UTF-8; from UTF-32 to UTF-16 it becomes U+FFFD.
//   - A UTF-32 value above 0x10FFFF never stops the conversion. Into UTF-8 it becomes U+FFFD, and
//     the result becomes sourceIllegal under both flags. Into UTF-16 it becomes U+FFFD under
//     lenientConversion; under strictConversion it is skipped without output, and the result
//     becomes sourceIllegal.
// A sourceIllegal that did not stop the conversion stays the result, unless a later unit stops the
// conversion for another reason.
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

// Says whether `source` starts with one legal UTF-8 character that ends at or before `sourceEnd`.
// False for an empty range.
bool isLegalUTF8Sequence(const unsigned char* source, const unsigned char* sourceEnd);

} // namespace NYPL
