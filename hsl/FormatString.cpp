#include "hsl/FormatString.h"

#include "hsl/record/RecordFormat.h"
#include "hsl/record/RecordReader.h"

#include <algorithm>
#include <cstdint>
#include <thread>

namespace HSL {

namespace {

// Appends a format that no argument belongs to: "%%" gives "%", and any other "%" stands as it is.
void AppendLiteral(CTextBuffer& out, std::string_view format) {
    const std::size_t start = out.Size();
    for (std::size_t sign = format.find('%'); sign != std::string_view::npos;
         sign = format.find('%')) {
        const bool isEscaped = sign + 1 < format.size() && format[sign + 1] == '%';
        out.Append(format.substr(0, sign + 1));
        format.remove_prefix(sign + (isEscaped ? 2 : 1));
    }
    out.Append(format);
    CutPiece(out, start);
}

// Appends the unused rest of the format, with each % shown as _ and a remark if there is any.
void AppendRest(CTextBuffer& out, std::string_view rest) {
    if (rest.find('%') == std::string_view::npos) {
        AppendLiteral(out, rest);
        return;
    }
    std::string text(rest);
    std::replace(text.begin(), text.end(), '%', '_');
    AppendLiteral(out, "[extra format arguments: " + text + " ]");
}

// Reads a text, of which what is behind a terminator does not count.
template <typename Character>
const Character* ReadText(CRecordReader& reader, std::basic_string<Character>& text) {
    text.resize(reader.Get<std::uint16_t>());
    reader.GetBytes(text.data(), text.size() * sizeof(Character));
    return text.c_str();
}

} // namespace

CMessageText::Format CMessageText::ReadFormat(CRecordReader& reader,
                                              const std::vector<CFormatStringEntry>& formats) {
    switch (reader.Get<unsigned char>()) {
    case eFormatText:
        return {ReadText(reader, mFormat), nullptr};
    case eFormatId: {
        const auto id = reader.Get<std::int16_t>();
        // An id that was never given is treated as -1, the one of an unregistered format.
        if (id < 0 || static_cast<std::size_t>(id) >= formats.size()) {
            return {"<UNINITIALIZED FORMAT STRING ID USED>", nullptr};
        }
        const CFormatStringEntry& entry = formats[static_cast<std::size_t>(id)];
        if (!entry.mIsNarrow) {
            return {"<WIDE FORMAT STRING NOT SUPPORTED>", nullptr};
        }
        return {entry.mNarrow, &entry.mPieces};
    }
    default:
        return {"<BAD FORMAT STRING>", nullptr};
    }
}

CRecordValue CMessageText::ReadValue(CRecordReader& reader, tValueKind kind) {
    CRecordValue value{kind};
    switch (kind) {
    case eInt8:
        value.mInteger = reader.Get<std::int8_t>();
        break;
    case eUInt8:
        value.mInteger = reader.Get<std::uint8_t>();
        break;
    case eInt16:
        value.mInteger = reader.Get<std::int16_t>();
        break;
    case eUInt16:
        value.mInteger = reader.Get<std::uint16_t>();
        break;
    case eInt32:
    case eLong:
        value.mInteger = reader.Get<std::int32_t>();
        break;
    case eUInt32:
    case ePointer:
        value.mInteger = reader.Get<std::uint32_t>();
        break;
    case eInt64:
    case eUInt64:
        value.mInteger = reader.Get<std::int64_t>();
        break;
    case eFloat:
        value.mDouble = static_cast<double>(reader.Get<float>());
        break;
    case eDouble:
        value.mDouble = reader.Get<double>();
        break;
    case eString:
        value.mText = ReadText(reader, mNarrowArgument);
        break;
    case eWideString:
        value.mWideText = ReadText(reader, mWideArgument);
        break;
    }
    return value;
}

void CMessageText::Append(CTextBuffer& out, bool doFormat, CRecordReader& reader,
                          const std::vector<CFormatStringEntry>& formats) {
    const Format format = ReadFormat(reader, formats);
    const int count = reader.Get<signed char>();
    if (count < 1) {
        if (doFormat) {
            AppendLiteral(out, format.mText);
        }
        return;
    }
    if (format.mPieces == nullptr) {
        mPieces.Find(format.mText);
    }
    const CFormatPieces& pieces = format.mPieces == nullptr ? mPieces : *format.mPieces;
    std::size_t position = 0;
    bool isExtra = false;
    for (int i = 0; i < count; ++i) {
        const CFormatPiece* piece = nullptr;
        if (static_cast<std::size_t>(i) < pieces.mPieces.size()) {
            piece = &pieces.mPieces[static_cast<std::size_t>(i)];
            position = piece->mEnd;
        } else if (!isExtra) {
            while (pieces.mIsEndless) {
                std::this_thread::yield();
            }
            if (doFormat) {
                AppendLiteral(out, format.mText.substr(position));
                out.Append(" (");
            }
            isExtra = true;
            position = format.mText.size();
        }
        const auto kind = reader.Get<unsigned char>();
        if (!IsValueKind(kind)) {
            out.Append("<BAD ARG> I'm horribly confused");
            continue;
        }
        const CRecordValue value = ReadValue(reader, static_cast<tValueKind>(kind));
        if (!doFormat) {
            continue;
        }
        const std::size_t start = out.Size();
        if (piece != nullptr) {
            out.Append(format.mText.substr(piece->mStart, piece->mSign - piece->mStart));
            piece->mConversion.Append(out, value);
            CutPiece(out, start);
        } else {
            AppendByDefault(out, value);
            CutPiece(out, start);
            if (i < count - 1) {
                out.Append(", ");
            }
        }
    }
    if (doFormat && position < format.mText.size()) {
        AppendRest(out, format.mText.substr(position));
    }
    if (doFormat && isExtra) {
        out.Append(") ");
    }
}

void CFormatPieces::Find(std::string_view format) {
    mPieces.clear();
    mIsEndless = false;
    for (std::size_t position = 0;;) {
        const std::size_t sign = format.find('%', position);
        // A sign that nothing follows starts no conversion.
        if (sign == std::string_view::npos || sign == format.size() - 1) {
            return;
        }
        if (format[sign + 1] == '%' || (sign > 0 && format[sign - 1] == '\\')) {
            mIsEndless = true;
            return;
        }
        const std::size_t last = format.find_first_of(kConversionCharacters, sign);
        if (last == std::string_view::npos) {
            return;
        }
        const std::size_t end = last + 1;
        mPieces.push_back({position, sign, end, CConversion(format.substr(sign, end - sign))});
        position = end;
    }
}

void CutPiece(CTextBuffer& out, std::size_t start) {
    if (out.Size() - start > kLongestPiece) {
        out.CutTo(start + kLongestPiece);
    }
}

} // namespace HSL
