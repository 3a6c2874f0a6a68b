#include "hsl/record/RecordWriter.h"

#include "hsl/CValue.h"

#include <cstdint>
#include <cwchar>

namespace HSL {

namespace {

constexpr char kNull[] = "<NULL>";
constexpr wchar_t kWideNull[] = L"<NULL>";
constexpr std::uint16_t kNullLength = sizeof kNull - 1;

} // namespace

void CRecordWriter::Write(const void* bytes, std::size_t size) {
    int count = static_cast<int>(size);
    mBuffer.Write(bytes, count);
}

void CRecordWriter::PutText(const char* text) {
    // A length of more than 16 bits is cut to its low ones.
    const auto length =
        text == nullptr ? kNullLength : static_cast<std::uint16_t>(std::strlen(text));
    Put(length);
    PutBytes(text == nullptr ? kNull : text, length);
}

void CRecordWriter::PutWideText(const wchar_t* text) {
    if (text == nullptr) {
        // The count of the null text is that of its bytes, as the record format has it.
        constexpr std::uint16_t kBytes = kNullLength * sizeof(wchar_t);
        Put(kBytes);
        PutBytes(kWideNull, kBytes);
        return;
    }
    const auto count = static_cast<std::uint16_t>(std::wcslen(text));
    Put(count);
    PutBytes(text, count * sizeof(wchar_t));
}

void CRecordWriter::PutValue(const CValue& value) {
    switch (value.mKind) {
    case eString:
        Put(static_cast<unsigned char>(value.mKind));
        PutText(value.mPayload.mString);
        break;
    case eWideString:
        Put(static_cast<unsigned char>(value.mKind));
        PutWideText(value.mPayload.mWideString);
        break;
    default:
        Advance(value.PutNumber(Room(CValue::kLargestNumber)));
        break;
    }
}

} // namespace HSL
