// Compares the conversion from UTF-8 to UTF-16 and back with ICU's, on four kinds of text, each
// valid and broken in the middle.
#include "runtime/string/ConvertUTF.h"

#include <benchmark/benchmark.h>
#include <unicode/ustring.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

// A paragraph of each kind, repeated to about 16 KiB of UTF-8.
std::string Text(const std::string& kind) {
    std::string paragraph;
    if (kind == "ascii") {
        paragraph = "The fader of strip three moved to minus six decibels at bar 17, beat 2. ";
    } else if (kind == "latin") {
        paragraph = "Die Lautst\xC3\xA4rke der Fl\xC3\xB6te f\xC3\xA4llt \xC3\xBC"
                    "ber drei Takte, d\xC3\xA9j\xC3\xA0 vu \xC3\xA0 la fin. ";
    } else if (kind == "cjk") {
        paragraph = "\xE9\x9F\xB3\xE9\x87\x8F\xE6\x8E\xA8\xE5\xAD\x90\xE7\xA7\xBB\xE5\x8B\x95\xE5"
                    "\x88\xB0\xE4\xB8\x8B\xE4\xB8\x80\xE5\xB0\x8F\xE7\xAF\x80\xE3\x80\x82";
    } else {
        paragraph = "Take 3 \xF0\x9F\x8E\xB9 \xE2\x80\x93 Fl\xC3\xB6te, "
                    "\xE9\x9F\xB3\xE9\x87\x8F -6 dB. ";
    }
    std::string text;
    while (text.size() < 16384) {
        text += paragraph;
    }
    return text;
}

std::vector<unsigned short> AsUTF16(const std::string& text) {
    std::vector<unsigned short> units(text.size());
    const auto* source = reinterpret_cast<const unsigned char*>(text.data());
    unsigned short* target = units.data();
    NYPL::ConvertUTF8toUTF16(&source, source + text.size(), &target, target + units.size(),
                             NYPL::strictConversion);
    units.resize(static_cast<std::size_t>(target - units.data()));
    return units;
}

void OursTo16(benchmark::State& state, const std::string& text) {
    std::vector<unsigned short> units(text.size());
    for (auto _ : state) {
        const auto* source = reinterpret_cast<const unsigned char*>(text.data());
        unsigned short* target = units.data();
        benchmark::DoNotOptimize(NYPL::ConvertUTF8toUTF16(
            &source, source + text.size(), &target, target + units.size(), NYPL::strictConversion));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void ICUTo16(benchmark::State& state, const std::string& text) {
    std::vector<UChar> units(text.size());
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                      static_cast<std::int32_t>(text.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void OursTo8(benchmark::State& state, const std::vector<unsigned short>& text) {
    std::vector<unsigned char> bytes(text.size() * 3);
    for (auto _ : state) {
        const unsigned short* source = text.data();
        unsigned char* target = bytes.data();
        benchmark::DoNotOptimize(NYPL::ConvertUTF16toUTF8(
            &source, source + text.size(), &target, target + bytes.size(), NYPL::strictConversion));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * 2));
}

void ICUTo8(benchmark::State& state, const std::vector<unsigned short>& text) {
    const std::vector<UChar> units(text.begin(), text.end());
    std::vector<char> bytes(text.size() * 3);
    for (auto _ : state) {
        UErrorCode error = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strToUTF8(bytes.data(), static_cast<std::int32_t>(bytes.size()), &length, units.data(),
                    static_cast<std::int32_t>(units.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size() * 2));
}

} // namespace

int main(int argc, char** argv) {
    for (const char* kind : {"ascii", "latin", "cjk", "mixed"}) {
        for (const char* state : {"valid", "broken"}) {
            std::string utf8 = Text(kind);
            std::vector<unsigned short> utf16 = AsUTF16(utf8);
            if (std::string(state) == "broken") {
                utf8[utf8.size() / 2] = '\xFF';
                utf16[utf16.size() / 2] = 0xDC00;
            }
            const std::string name = std::string(kind) + "/" + state;
            benchmark::RegisterBenchmark(("UTF8toUTF16/" + name + "/Quorvel").c_str(), OursTo16,
                                         utf8);
            benchmark::RegisterBenchmark(("UTF8toUTF16/" + name + "/ICU").c_str(), ICUTo16, utf8);
            benchmark::RegisterBenchmark(("UTF16toUTF8/" + name + "/Quorvel").c_str(), OursTo8,
                                         utf16);
            benchmark::RegisterBenchmark(("UTF16toUTF8/" + name + "/ICU").c_str(), ICUTo8, utf16);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
