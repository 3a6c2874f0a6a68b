// Arbitrary bytes as the records in a context's ring, arbitrary formats with arbitrary arguments
// through a log call, as text and registered, to either callback, and single conversions compared
// with printf.
#include "fuzz/Require.h"
#include "hsl/CCat.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "hsl/format/Conversion.h"
#include "hsl/format/TextBuffer.h"
#include "runtime/sync/NyLock.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr int kRingSize = 262144;
constexpr unsigned char kCategory = 20;

std::size_t sLines = 0;
std::string sMessage;

void TakeLine(const char* line) {
    const std::string_view text(line);
    Require(text.ends_with('\n'), "a line ends");
    const std::size_t tab = std::min(text.find('\t'), text.size() - 1);
    sMessage = text.substr(tab + 1, text.size() - tab - 2);
    ++sLines;
}

void TakeMessage(const char* message, const std::string& contextName, unsigned char /*indent*/,
                 unsigned char categoryCount, const unsigned char* categoryIDs,
                 unsigned int /*seconds*/, unsigned int /*microseconds*/) {
    Require(contextName == "Fuzz", "the context is named");
    Require(HSL::CLogManager::PassesFilter(categoryCount, categoryIDs), "the categories pass");
    sMessage = message;
    ++sLines;
}

// An escaped per-cent sign makes the search for a conversion endless, on purpose: none may be
// formed, wherever in the input a format begins.
void BreakEscapes(std::string& bytes) {
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        if (bytes[i] == '%' && (bytes[i - 1] == '%' || bytes[i - 1] == '\\')) {
            bytes[i] = '_';
        }
    }
}

// Takes the input apart. Bytes beyond its end are read as zeros.
class Input {
public:
    explicit Input(std::string bytes) : mBytes(std::move(bytes)) {}

    template <typename T>
    T Take() {
        T value{};
        const std::size_t size = std::min(sizeof value, mBytes.size() - mPosition);
        std::memcpy(&value, mBytes.data() + mPosition, size);
        mPosition += size;
        return value;
    }
    std::string TakeText() {
        const std::size_t size =
            std::min<std::size_t>(Take<unsigned char>(), mBytes.size() - mPosition);
        std::string text = mBytes.substr(mPosition, size);
        mPosition += size;
        return text;
    }

private:
    std::string mBytes;
    std::size_t mPosition = 0;
};

HSL::CLogManager& Manager() {
    static HSL::CLogManager* const manager = [] {
        HSL::CLogManager::Initialize();
        HSL::CLogManager::Instance()->SetFilterValue(kCategory, true);
        HSL::CLogManager::Instance()->SetOutputCallback(TakeLine);
        return HSL::CLogManager::Instance();
    }();
    return *manager;
}

HSL::CLogContext& Context() {
    // Never destroyed: the manager's own end comes at an unknown time.
    static auto* const context = new HSL::CLogContext(
        "Fuzz", kRingSize, HSL::CLogContext::MallocFunc, HSL::CLogContext::FreeFunc);
    return *context;
}

void Empty(CCircularBuffer& buffer) {
    char scrap[256];
    int count = 0;
    do {
        count = sizeof scrap;
        buffer.Read(scrap, count);
    } while (count > 0);
}

// Makes the next output go to the callback of this kind.
void Choose(bool isStructured) {
    isStructured ? (void)Manager().SetStructuredOutputCallback(TakeMessage)
                 : (void)Manager().SetOutputCallback(TakeLine);
}

// Records that no log call wrote. They are not counted as pending, so nobody else reads them.
void ReadArbitraryRecords(const std::string& bytes) {
    CCircularBuffer& buffer = Context().GetBuffer();
    for (const bool doFormat : {true, false}) {
        Choose(doFormat);
        int count = static_cast<int>(bytes.size());
        buffer.Write(bytes.data(), count);
        if (!doFormat) {
            Manager().StringifyFormatArgs(false, buffer);
        }
        for (std::int32_t sequence = 1; sequence < 5; ++sequence) {
            Manager().OutputNextMessage(&Context(), sequence);
        }
        Empty(buffer);
    }
}

HSL::CValue TakeValue(Input& input, std::vector<std::string>& texts,
                      std::vector<std::wstring>& wideTexts) {
    switch (input.Take<unsigned char>() % 13) {
    case 0:
        return input.Take<signed char>();
    case 1:
        return input.Take<unsigned char>();
    case 2:
        return input.Take<short>();
    case 3:
        return input.Take<unsigned short>();
    case 4:
        return input.Take<int>();
    case 5:
        return input.Take<unsigned int>();
    case 6:
        return input.Take<long>();
    case 7:
        return input.Take<long long>();
    case 8:
        return input.Take<unsigned long long>();
    case 9:
        return input.Take<float>();
    case 10:
        return input.Take<double>();
    case 11:
        texts.push_back(input.TakeText());
        return texts.back();
    default: {
        std::wstring wide;
        for (const char c : input.TakeText()) {
            wide += static_cast<wchar_t>(static_cast<unsigned char>(c) * 0x101);
        }
        wideTexts.push_back(std::move(wide));
        return wideTexts.back();
    }
    }
}

// The id of a format, the same for the same text; -1 when there are too many.
short RegisteredFormat(const std::string& format) {
    constexpr std::size_t kMost = 20000;
    static std::map<std::string, short> registered;
    const auto found = registered.find(format);
    if (found != registered.end()) {
        return found->second;
    }
    if (registered.size() == kMost) {
        return -1;
    }
    return registered[format] = Manager().AddFormatString(format.c_str());
}

// One log call through the ring, and one more with the format registered: one line, and nothing is
// left behind in the ring.
void LogArbitraryArguments(Input input) {
    const std::string format = input.TakeText();
    std::vector<std::string> texts;
    std::vector<std::wstring> wideTexts;
    texts.reserve(10);
    wideTexts.reserve(10);
    std::vector<HSL::CValue> values;
    const std::size_t count = input.Take<unsigned char>() % 11;
    while (values.size() < count) {
        values.push_back(TakeValue(input, texts, wideTexts));
    }
    const HSL::CCat cat(HSL::kError, kCategory);
    const auto log = [&]<std::size_t... kIndex>(auto logged, std::index_sequence<kIndex...>) {
        return Context().Log(cat, logged, values[kIndex]...);
    };
    const auto logFirst = [&](auto& self, auto logged, auto number) -> void {
        constexpr std::size_t kNumber = decltype(number)::value;
        if (count == kNumber) {
            log(logged, std::make_index_sequence<kNumber>());
        } else if constexpr (kNumber < 10) {
            self(self, logged, std::integral_constant<std::size_t, kNumber + 1>());
        }
    };
    const auto collected = [&](auto logged) {
        const std::size_t before = sLines;
        logFirst(logFirst, logged, std::integral_constant<std::size_t, 0>());
        Manager().Collect();
        Require(sLines == before + 1, "one log call gives one line");
        int left = 1;
        char byte = 0;
        Context().GetBuffer().Read(&byte, left);
        Require(left <= 0, "a record is read to its end");
        return sMessage;
    };
    Choose(input.Take<unsigned char>() % 2 != 0);
    const std::string byText = collected(format.c_str());
    if (const short id = RegisteredFormat(format); id != -1) {
        Choose(input.Take<unsigned char>() % 2 != 0);
        Require(collected(id) == byText, "a registered format gives the same text");
    }
}

// A conversion that fits its value, with flags, width and precision from the input.
std::string TakeConversion(Input& input, std::string_view length, std::string_view characters) {
    std::string conversion("%");
    for (std::size_t count = input.Take<unsigned char>() % 4; count > 0; --count) {
        constexpr std::string_view kFlags = "-+ #0";
        conversion += kFlags[input.Take<unsigned char>() % kFlags.size()];
    }
    const auto modifiers = input.Take<unsigned char>();
    if (modifiers % 2 != 0) {
        conversion += std::to_string(input.Take<unsigned char>() + 1);
    }
    if (modifiers % 3 != 0) {
        conversion += '.' + std::to_string(input.Take<unsigned char>());
    }
    conversion += length;
    conversion += characters[input.Take<unsigned char>() % characters.size()];
    return conversion;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename Value>
void CompareWithPrintf(const std::string& conversion, const HSL::CRecordValue& value,
                       Value printed) {
    char expected[1024];
    std::snprintf(expected, sizeof expected, conversion.c_str(), printed);
    HSL::CTextBuffer text;
    HSL::CConversion(conversion).Append(text, value);
    Require(text.View() == expected, "a conversion prints what printf does");
}
#pragma GCC diagnostic pop

void CompareConversions(Input input) {
    const auto integer = input.Take<std::int64_t>();
    constexpr std::string_view kIntegers = "diouxX";
    switch (input.Take<unsigned char>() % 6) {
    case 0:
        CompareWithPrintf(TakeConversion(input, "ll", kIntegers), {HSL::eInt64, integer},
                          static_cast<long long>(integer));
        break;
    case 1:
        CompareWithPrintf(TakeConversion(input, "", kIntegers),
                          {HSL::eInt32, static_cast<std::int32_t>(integer)},
                          static_cast<int>(integer));
        break;
    case 2:
        CompareWithPrintf(TakeConversion(input, "hh", kIntegers),
                          {HSL::eUInt8, static_cast<std::uint8_t>(integer)},
                          static_cast<unsigned int>(static_cast<std::uint8_t>(integer)));
        break;
    case 3: {
        const std::string text = input.TakeText();
        CompareWithPrintf(TakeConversion(input, "", "s"), {HSL::eString, 0, 0, text.c_str()},
                          text.c_str());
        break;
    }
    default: {
        const auto real = input.Take<double>();
        CompareWithPrintf(TakeConversion(input, "", "eEfgG"), {HSL::eDouble, 0, real}, real);
        break;
    }
    }
}

// Runs any conversion with any value. There is nothing to compare the result with; the sanitizers
// watch.
void ConvertAnything(Input input) {
    HSL::CRecordValue value{static_cast<HSL::tValueKind>(4 + input.Take<unsigned char>() % 14)};
    value.mInteger = input.Take<std::int64_t>();
    value.mDouble = input.Take<double>();
    const std::string text = input.TakeText();
    value.mText = text.c_str();
    value.mWideText = L"wide";
    std::string conversion = input.TakeText();
    std::erase_if(conversion, [](char c) {
        return c == '%' || c == '\0' ||
               HSL::kConversionCharacters.find(c) != std::string_view::npos;
    });
    conversion.insert(0, 1, '%');
    conversion +=
        HSL::kConversionCharacters[input.Take<unsigned char>() % HSL::kConversionCharacters.size()];
    HSL::CTextBuffer out;
    HSL::CConversion(conversion).Append(out, value);
    Require(out.Size() <= HSL::kLongestPiece, "a conversion prints no more than a piece holds");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    BreakEscapes(bytes);
    Manager();
    Context();
    // The working buffers are the collection thread's, which stands still meanwhile.
    const NyLockGuard guard(HSL::CLogManager::AddRemoveContextLock(), true);
    switch (data[0] % 4) {
    case 0:
        ReadArbitraryRecords(bytes);
        break;
    case 1:
        LogArbitraryArguments(Input(std::move(bytes)));
        break;
    case 2:
        CompareConversions(Input(std::move(bytes)));
        break;
    default:
        ConvertAnything(Input(std::move(bytes)));
        break;
    }
    return 0;
}
