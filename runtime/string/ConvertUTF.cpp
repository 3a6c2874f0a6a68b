#include "runtime/string/ConvertUTF.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

namespace NYPL {

namespace {

constexpr UTF32 kReplacement = 0xFFFD;
constexpr UTF32 kLastOfBasicPlane = 0xFFFF;
constexpr UTF32 kLastCharacter = 0x10FFFF;
constexpr UTF32 kFirstBeyondBasicPlane = 0x10000;

constexpr bool IsHighSurrogate(UTF32 unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(UTF32 unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}
constexpr bool IsSurrogate(UTF32 unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

// How many bytes follow each lead byte. Bytes that never lead a character have a count too, so that
// a text that ends just after one is reported as exhausted rather than as illegal.
constexpr std::array<unsigned char, 256> MakeTrailingByteCounts() {
    std::array<unsigned char, 256> counts{};
    for (std::size_t lead = 0xC0; lead < counts.size(); ++lead) {
        counts[lead] = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF8 ? 3 : lead < 0xFC ? 4 : 5;
    }
    return counts;
}
constexpr std::array<unsigned char, 256> kTrailingBytes = MakeTrailingByteCounts();

// Says whether the `length` bytes at `source` are one well-formed character. After four of the lead
// bytes the second byte has tighter bounds, which exclude overlong forms, surrogates and values
// above U+10FFFF.
bool IsLegalCharacter(const UTF8* source, std::size_t length) {
    const UTF8 lead = source[0];
    if (length == 1) {
        return lead < 0x80;
    }
    if (length > 4 || lead < 0xC2 || lead > 0xF4) {
        return false;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if ((source[i] & 0xC0) != 0x80) {
            return false;
        }
    }
    const UTF8 second = source[1];
    switch (lead) {
    case 0xE0:
        return second >= 0xA0 && second <= 0xBF;
    case 0xED:
        return second >= 0x80 && second <= 0x9F;
    case 0xF0:
        return second >= 0x90 && second <= 0xBF;
    case 0xF4:
        return second >= 0x80 && second <= 0x8F;
    default:
        return (second & 0xC0) == 0x80;
    }
}

// The value of a legal character.
UTF32 DecodeUTF8(const UTF8* source, std::size_t length) {
    switch (length) {
    case 1:
        return source[0];
    case 2:
        return (source[0] & 0x1FU) << 6 | (source[1] & 0x3FU);
    case 3:
        return (source[0] & 0x0FU) << 12 | (source[1] & 0x3FU) << 6 | (source[2] & 0x3FU);
    default:
        return (source[0] & 0x07U) << 18 | (source[1] & 0x3FU) << 12 | (source[2] & 0x3FU) << 6 |
               (source[3] & 0x3FU);
    }
}

constexpr std::size_t LengthAsUTF8(UTF32 character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

inline void EncodeUTF8(UTF32 character, std::size_t length, UTF8* target) {
    switch (length) {
    case 1:
        target[0] = static_cast<UTF8>(character);
        break;
    case 2:
        target[0] = static_cast<UTF8>(0xC0 | character >> 6);
        target[1] = static_cast<UTF8>(0x80 | (character & 0x3F));
        break;
    case 3:
        target[0] = static_cast<UTF8>(0xE0 | character >> 12);
        target[1] = static_cast<UTF8>(0x80 | (character >> 6 & 0x3F));
        target[2] = static_cast<UTF8>(0x80 | (character & 0x3F));
        break;
    default:
        target[0] = static_cast<UTF8>(0xF0 | character >> 18);
        target[1] = static_cast<UTF8>(0x80 | (character >> 12 & 0x3F));
        target[2] = static_cast<UTF8>(0x80 | (character >> 6 & 0x3F));
        target[3] = static_cast<UTF8>(0x80 | (character & 0x3F));
        break;
    }
}

constexpr UTF32 CombineSurrogates(UTF32 high, UTF32 low) {
    return ((high - 0xD800) << 10) + (low - 0xDC00) + kFirstBeyondBasicPlane;
}

void EncodeSurrogatePair(UTF32 character, UTF16* target) {
    const UTF32 offset = character - kFirstBeyondBasicPlane;
    target[0] = static_cast<UTF16>(0xD800 + (offset >> 10));
    target[1] = static_cast<UTF16>(0xDC00 + (offset & 0x3FF));
}

// The fast paths, up to ReadUTF16. They make the conversions between UTF-8 and UTF-16 as fast as
// ICU's and serve nothing else: the converters at the end of this file are complete without them.
//
// A fast path alternates between blocks of ASCII, which it copies whole, and runs of single
// characters. A run is as long as both sides surely have room for, so that no character of it needs
// a check of its own.
constexpr std::ptrdiff_t kBlock = 32;
constexpr std::ptrdiff_t kRun = 48;

// Says whether the 32 units at `source` are ASCII.
template <typename Unit>
bool IsASCIIBlock(const Unit* source) {
    constexpr std::uint64_t kOthers = sizeof(Unit) == 1 ? 0x8080808080808080U : 0xFF80FF80FF80FF80U;
    std::uint64_t words[kBlock * sizeof(Unit) / sizeof(std::uint64_t)];
    std::memcpy(words, source, sizeof words);
    std::uint64_t all = 0;
    for (const std::uint64_t word : words) {
        all |= word;
    }
    return (all & kOthers) == 0;
}

template <typename Source, typename Target>
void CopyASCIIBlocks(const Source*& source, const Source* sourceEnd, Target*& target,
                     const Target* targetEnd) {
    while (sourceEnd - source >= kBlock && targetEnd - target >= kBlock && IsASCIIBlock(source)) {
        for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
            target[i] = static_cast<Target>(source[i]);
        }
        source += kBlock;
        target += kBlock;
    }
}

constexpr bool TakesThreeBytes(UTF32 unit) {
    return unit >= 0x800 && (unit & 0xF800) != 0xD800;
}

// The three bytes of a character, the first in the least significant byte.
constexpr std::uint32_t PackThreeBytes(std::uint32_t character) {
    return 0x8080E0 | character >> 12 | (character & 0xFC0) << 2 | (character & 0x3F) << 16;
}

// Writes a value's bytes, the least significant first. On a host that keeps them in this order it
// is one store.
template <typename Value>
void StoreLeastFirst(Value value, UTF8* target) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(target, &value, sizeof value);
    } else {
        for (std::size_t i = 0; i < sizeof value; ++i) {
            target[i] = static_cast<UTF8>(value >> 8 * i);
        }
    }
}

// Says whether the four units at `source` take three bytes each.
inline bool AreFourThreeBytes(const UTF16* source) {
    return TakesThreeBytes(source[0]) && TakesThreeBytes(source[1]) && TakesThreeBytes(source[2]) &&
           TakesThreeBytes(source[3]);
}

// Writes a unit below 0x800 and returns the end. It takes one byte or two; to save a branch, two
// are written in both cases.
inline UTF8* PutOneOrTwo(UTF32 unit, UTF8* target) {
    const bool isASCII = unit < 0x80;
    target[0] = static_cast<UTF8>(isASCII ? unit : 0xC0 | unit >> 6);
    target[1] = static_cast<UTF8>(0x80 | (unit & 0x3F));
    return target + (isASCII ? 1 : 2);
}

inline void CopyThreeByteBlocks(const UTF16*& source, const UTF16* sourceEnd, UTF8*& target,
                                const UTF8* targetEnd) {
    while (sourceEnd - source >= 4 && targetEnd - target >= 12 && AreFourThreeBytes(source)) {
        const std::uint64_t second = PackThreeBytes(source[1]);
        const std::uint64_t third = PackThreeBytes(source[2]);
        StoreLeastFirst(PackThreeBytes(source[0]) | second << 24 | third << 48, target);
        StoreLeastFirst(static_cast<std::uint32_t>(third >> 16) | PackThreeBytes(source[3]) << 8,
                        target + 8);
        source += 4;
        target += 12;
    }
}

bool IsContinuation(UTF8 byte) {
    return (byte & 0xC0) == 0x80;
}

// Converts characters that are well formed and far enough from both ends. It leaves everything
// else, and every decision about it, to the caller.
void ConvertWellFormed(const UTF8*& sourceStart, const UTF8* sourceEnd, UTF16*& targetStart,
                       const UTF16* targetEnd) {
    const UTF8* source = sourceStart;
    UTF16* target = targetStart;
    std::ptrdiff_t run = 1;
    while (run > 0) {
        CopyASCIIBlocks(source, sourceEnd, target, targetEnd);
        run = std::min({kRun, (sourceEnd - source) / 4, (targetEnd - target) / 2});
        for (std::ptrdiff_t i = 0; i < run; ++i) {
            const UTF32 lead = source[0];
            if (lead < 0x80) {
                *target++ = static_cast<UTF16>(lead);
                ++source;
            } else if (lead >= 0xE0 && lead < 0xF0) {
                const UTF32 character =
                    (lead & 0x0F) << 12 | (source[1] & 0x3FU) << 6 | (source[2] & 0x3FU);
                if (!IsContinuation(source[1]) || !IsContinuation(source[2]) || character < 0x800 ||
                    IsSurrogate(character)) {
                    run = 0;
                    break;
                }
                *target++ = static_cast<UTF16>(character);
                source += 3;
            } else if (lead >= 0xC2 && lead < 0xE0 && IsContinuation(source[1])) {
                *target++ = static_cast<UTF16>((lead & 0x1F) << 6 | (source[1] & 0x3FU));
                source += 2;
            } else if (lead >= 0xF0 && IsLegalCharacter(source, 4)) {
                EncodeSurrogatePair(DecodeUTF8(source, 4), target);
                target += 2;
                source += 4;
            } else {
                run = 0;
                break;
            }
        }
    }
    sourceStart = source;
    targetStart = target;
}

void ConvertWellFormed(const UTF16*& sourceStart, const UTF16* sourceEnd, UTF8*& targetStart,
                       const UTF8* targetEnd) {
    const UTF16* source = sourceStart;
    UTF8* target = targetStart;
    std::ptrdiff_t run = 1;
    while (run > 0) {
        CopyASCIIBlocks(source, sourceEnd, target, targetEnd);
        CopyThreeByteBlocks(source, sourceEnd, target, targetEnd);
        // A group of four units may take a fifth, the second of a pair, and 13 bytes. After the
        // last group of the run, the next four units are looked at.
        run = std::min({kRun, (sourceEnd - source - 4) / 5, (targetEnd - target) / 13});
        for (std::ptrdiff_t i = 0; i < run; ++i) {
            std::uint64_t group;
            std::memcpy(&group, source, sizeof group);
            if ((group & 0xFF80FF80FF80FF80U) == 0) {
                for (int unit = 0; unit < 4; ++unit) {
                    target[unit] = static_cast<UTF8>(source[unit]);
                }
                source += 4;
                target += 4;
            } else if ((group & 0xF800F800F800F800U) == 0) {
                for (int unit = 0; unit < 4; ++unit) {
                    target = PutOneOrTwo(*source++, target);
                }
            } else {
                const UTF16* const groupEnd = source + 4;
                while (source < groupEnd) {
                    const UTF32 unit = *source;
                    if (unit < 0x80) {
                        *target++ = static_cast<UTF8>(unit);
                        ++source;
                    } else if (unit < 0x800) {
                        EncodeUTF8(unit, 2, target);
                        target += 2;
                        ++source;
                    } else if (!IsSurrogate(unit)) {
                        EncodeUTF8(unit, 3, target);
                        target += 3;
                        ++source;
                    } else if (IsHighSurrogate(unit) && IsLowSurrogate(source[1])) {
                        EncodeUTF8(CombineSurrogates(unit, source[1]), 4, target);
                        target += 4;
                        source += 2;
                    } else {
                        run = 0;
                        break;
                    }
                }
                if (AreFourThreeBytes(source)) {
                    break;
                }
            }
        }
    }
    sourceStart = source;
    targetStart = target;
}

// Reads one character of UTF-16 at `source` and advances past it. If the result is not
// conversionOK, `source` stays where it is.
ConversionResult ReadUTF16(const UTF16*& source, const UTF16* sourceEnd, ConversionFlags flags,
                           UTF32& character) {
    character = *source;
    if (IsHighSurrogate(character)) {
        if (source + 1 == sourceEnd) {
            return sourceExhausted;
        }
        const UTF32 next = source[1];
        if (IsLowSurrogate(next)) {
            character = CombineSurrogates(character, next);
            source += 2;
            return conversionOK;
        }
        if (flags == strictConversion) {
            return sourceIllegal;
        }
    } else if (flags == strictConversion && IsLowSurrogate(character)) {
        return sourceIllegal;
    }
    ++source;
    return conversionOK;
}

// Runs a conversion on copies of the caller's pointers and stores in those how far it came. No
// store through the target can change the copies, so the compiler can keep them in registers.
template <typename Source, typename Target, typename Conversion>
ConversionResult Advance(const Source** sourceStart, Target** targetStart,
                         const Conversion& conversion) {
    const Source* source = *sourceStart;
    Target* target = *targetStart;
    const ConversionResult result = conversion(source, target);
    *sourceStart = source;
    *targetStart = target;
    return result;
}

} // namespace

ConversionResult ConvertUTF32toUTF16(const UTF32** sourceStart, const UTF32* sourceEnd,
                                     UTF16** targetStart, UTF16* targetEnd, ConversionFlags flags) {
    return Advance(sourceStart, targetStart, [&](const UTF32*& source, UTF16*& target) {
        ConversionResult result = conversionOK;
        for (; source < sourceEnd; ++source) {
            if (target >= targetEnd) {
                return targetExhausted;
            }
            const UTF32 character = *source;
            if (character <= kLastOfBasicPlane) {
                if (!IsSurrogate(character)) {
                    *target++ = static_cast<UTF16>(character);
                } else if (flags == strictConversion) {
                    return sourceIllegal;
                } else {
                    *target++ = static_cast<UTF16>(kReplacement);
                }
            } else if (character > kLastCharacter) {
                // A strict conversion reports such a value and goes on without it, as the reference
                // algorithm does.
                if (flags == strictConversion) {
                    result = sourceIllegal;
                } else {
                    *target++ = static_cast<UTF16>(kReplacement);
                }
            } else {
                if (targetEnd - target < 2) {
                    return targetExhausted;
                }
                EncodeSurrogatePair(character, target);
                target += 2;
            }
        }
        return result;
    });
}

ConversionResult ConvertUTF16toUTF32(const UTF16** sourceStart, const UTF16* sourceEnd,
                                     UTF32** targetStart, UTF32* targetEnd, ConversionFlags flags) {
    return Advance(sourceStart, targetStart, [&](const UTF16*& source, UTF32*& target) {
        while (source < sourceEnd) {
            const UTF16* behind = source;
            UTF32 character = 0;
            const ConversionResult result = ReadUTF16(behind, sourceEnd, flags, character);
            if (result != conversionOK) {
                return result;
            }
            if (target >= targetEnd) {
                return targetExhausted;
            }
            *target++ = character;
            source = behind;
        }
        return conversionOK;
    });
}

ConversionResult ConvertUTF16toUTF8(const UTF16** sourceStart, const UTF16* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags) {
    return Advance(sourceStart, targetStart, [&](const UTF16*& source, UTF8*& target) {
        for (;;) {
            ConvertWellFormed(source, sourceEnd, target, targetEnd);
            if (source >= sourceEnd) {
                return conversionOK;
            }
            const UTF16* behind = source;
            UTF32 character = 0;
            const ConversionResult result = ReadUTF16(behind, sourceEnd, flags, character);
            if (result != conversionOK) {
                return result;
            }
            const std::size_t length = LengthAsUTF8(character);
            if (targetEnd - target < static_cast<std::ptrdiff_t>(length)) {
                return targetExhausted;
            }
            EncodeUTF8(character, length, target);
            target += length;
            source = behind;
        }
    });
}

ConversionResult ConvertUTF8toUTF16(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF16** targetStart, UTF16* targetEnd,
                                    ConversionFlags /*flags*/) {
    // The flags only differ for surrogates and values above U+10FFFF. In UTF-8 neither is well
    // formed, so the conversion has stopped before the flags matter.
    return Advance(sourceStart, targetStart, [&](const UTF8*& source, UTF16*& target) {
        for (;;) {
            ConvertWellFormed(source, sourceEnd, target, targetEnd);
            if (source >= sourceEnd) {
                return conversionOK;
            }
            const std::size_t length = kTrailingBytes[*source] + std::size_t{1};
            if (sourceEnd - source < static_cast<std::ptrdiff_t>(length)) {
                return sourceExhausted;
            }
            if (!IsLegalCharacter(source, length)) {
                return sourceIllegal;
            }
            const std::ptrdiff_t units = length == 4 ? 2 : 1;
            if (targetEnd - target < units) {
                return targetExhausted;
            }
            const UTF32 character = DecodeUTF8(source, length);
            if (units == 1) {
                *target = static_cast<UTF16>(character);
            } else {
                EncodeSurrogatePair(character, target);
            }
            target += units;
            source += length;
        }
    });
}

ConversionResult ConvertUTF32toUTF8(const UTF32** sourceStart, const UTF32* sourceEnd,
                                    UTF8** targetStart, UTF8* targetEnd, ConversionFlags flags) {
    return Advance(sourceStart, targetStart, [&](const UTF32*& source, UTF8*& target) {
        ConversionResult result = conversionOK;
        for (; source < sourceEnd; ++source) {
            UTF32 character = *source;
            if (flags == strictConversion && IsSurrogate(character)) {
                return sourceIllegal;
            }
            if (character > kLastCharacter) {
                // Such a value is replaced and reported under both flags, and the conversion goes
                // on, as in the reference algorithm.
                character = kReplacement;
                result = sourceIllegal;
            }
            const std::size_t length = LengthAsUTF8(character);
            if (targetEnd - target < static_cast<std::ptrdiff_t>(length)) {
                return targetExhausted;
            }
            EncodeUTF8(character, length, target);
            target += length;
        }
        return result;
    });
}

ConversionResult ConvertUTF8toUTF32(const UTF8** sourceStart, const UTF8* sourceEnd,
                                    UTF32** targetStart, UTF32* targetEnd,
                                    ConversionFlags /*flags*/) {
    return Advance(sourceStart, targetStart, [&](const UTF8*& source, UTF32*& target) {
        while (source < sourceEnd) {
            const std::size_t length = kTrailingBytes[*source] + std::size_t{1};
            if (sourceEnd - source < static_cast<std::ptrdiff_t>(length)) {
                return sourceExhausted;
            }
            if (!IsLegalCharacter(source, length)) {
                return sourceIllegal;
            }
            if (target >= targetEnd) {
                return targetExhausted;
            }
            *target++ = DecodeUTF8(source, length);
            source += length;
        }
        return conversionOK;
    });
}

bool isLegalUTF8Sequence(const unsigned char* source, const unsigned char* sourceEnd) {
    if (source >= sourceEnd) {
        return false;
    }
    const std::size_t length = kTrailingBytes[*source] + std::size_t{1};
    return sourceEnd - source >= static_cast<std::ptrdiff_t>(length) &&
           IsLegalCharacter(source, length);
}

} // namespace NYPL
