#include "runtime/string/NyString.h"

#include "runtime/string/ConvertUTF.h"

#include <cstring>

namespace {

// Longer texts are cut here, whatever memory there is: the cut is part of the contract.
constexpr std::size_t kConversionUnits = 4095;

} // namespace

int NyStringToString(const char* text, std::string& out) {
    out = text;
    return 0;
}

int NyStringToString(const unsigned short* text, std::string& out) {
    unsigned char buffer[kConversionUnits];
    unsigned char* end = buffer;
    const unsigned short* source = text;
    const NYPL::ConversionResult result =
        NYPL::ConvertUTF16toUTF8(&source, text + UTF16Traits::length(text), &end,
                                 buffer + kConversionUnits, NYPL::lenientConversion);
    out.assign(buffer, end);
    return result == NYPL::conversionOK ? 0 : 1;
}

int NyStringToString(const char* text, tString& out) {
    unsigned short buffer[kConversionUnits];
    unsigned short* end = buffer;
    // Any object may be read as bytes, so this cast is safe.
    const auto* start = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* source = start;
    const NYPL::ConversionResult result =
        NYPL::ConvertUTF8toUTF16(&source, start + std::strlen(text), &end,
                                 buffer + kConversionUnits, NYPL::lenientConversion);
    out.assign(buffer, end);
    return result == NYPL::conversionOK ? 0 : 1;
}
