// The manager's part on the collection thread: merging the contexts, and records to output.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <libkern/OSAtomic.h>

#include "hsl/FormatString.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "hsl/LogStatics.h"
#include "hsl/RecordFormat.h"
#include "hsl/RecordReader.h"
#include "runtime/sync/NyLock.h"
#include "runtime/time/NyTime.h"

namespace HSL {

namespace {

constexpr std::size_t kTextCapacity = 65536;

// The texts of one record. A 16-bit length and the terminator just fit.
char gFormatText[kTextCapacity];
char gNarrowArgument[kTextCapacity];
wchar_t gWideArgument[kTextCapacity];

// The time stamp of the previous record, shown or not; it outlives the manager.
std::uint32_t msLastSeconds = 0;
std::uint32_t msLastMicroseconds = 0;

// A context in a collection pass.
struct CCollectEntry {
    std::int32_t mHeadSequence = 0; // of the context's next record
    std::size_t mContextIndex = 0;
    std::int32_t mCount = 0;     // pending at the start of the pass
    std::int32_t mRemaining = 0; // of these, not yet output
    CCircularBuffer* mBuffer = nullptr;
};

// Orders a heap by the lowest sequence. Numbers are unique but where a ring lost its records; the
// position keeps those apart.
bool ComesLater(const CCollectEntry* a, const CCollectEntry* b) {
    return a->mHeadSequence != b->mHeadSequence ? a->mHeadSequence > b->mHeadSequence
                                                : a->mContextIndex > b->mContextIndex;
}

std::int32_t ReadHead(CCircularBuffer& buffer) {
    CRecordReader reader(buffer);
    reader.Get<unsigned char>();
    return reader.Get<std::int32_t>();
}

const char* ReadFormat(CRecordReader& reader, const std::vector<CFormatStringEntry>& formats) {
    switch (reader.Get<unsigned char>()) {
    case kFormatText: {
        const auto length = reader.Get<std::uint16_t>();
        reader.GetBytes(gFormatText, length);
        gFormatText[length] = '\0';
        return gFormatText;
    }
    case kFormatID: {
        const auto id = reader.Get<std::int16_t>();
        // An id that was never given is none, as -1 is.
        if (id < 0 || static_cast<std::size_t>(id) >= formats.size()) {
            return "<UNINITIALIZED FORMAT STRING ID USED>";
        }
        const CFormatStringEntry& entry = formats[static_cast<std::size_t>(id)];
        return entry.mIsNarrow ? entry.mNarrow.c_str() : "<WIDE FORMAT STRING NOT SUPPORTED>";
    }
    default:
        return "<BAD FORMAT STRING>";
    }
}

CRecordValue ReadValue(CRecordReader& reader, tValueKind kind) {
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
    case eString: {
        const auto length = reader.Get<std::uint16_t>();
        reader.GetBytes(gNarrowArgument, length);
        gNarrowArgument[length] = '\0';
        value.mText = gNarrowArgument;
        break;
    }
    case eWideString: {
        const auto count = reader.Get<std::uint16_t>();
        reader.GetBytes(gWideArgument, count * sizeof(wchar_t));
        gWideArgument[count] = L'\0';
        value.mWideText = gWideArgument;
        break;
    }
    }
    return value;
}

// Reads format and arguments and appends the text that they make to `out`, or, unless `doFormat`,
// none but that for arguments of no kind.
void AppendMessage(std::string& out, bool doFormat, CCircularBuffer& buffer,
                   const std::vector<CFormatStringEntry>& formats) {
    CRecordReader reader(buffer);
    const std::string_view format = ReadFormat(reader, formats);
    const int count = reader.Get<signed char>();
    if (count < 1) {
        if (doFormat) {
            AppendLiteral(out, format);
        }
        return;
    }
    std::size_t position = 0;
    bool isExtra = false;
    for (int i = 0; i < count; ++i) {
        std::string_view segment;
        if (!isExtra) {
            const std::size_t sign = FindConversion(format, position);
            const std::size_t end = sign == std::string_view::npos
                                        ? sign
                                        : format.find_first_of(kConversionCharacters, sign);
            if (end != std::string_view::npos) {
                segment = format.substr(position, end + 1 - position);
                position = end + 1;
            } else {
                if (doFormat) {
                    AppendLiteral(out, format.substr(position));
                    out += " (";
                }
                isExtra = true;
                position = format.size();
            }
        }
        const auto kind = reader.Get<unsigned char>();
        if (!IsValueKind(kind)) {
            out += "<BAD ARG> I'm horribly confused";
            continue;
        }
        const CRecordValue value = ReadValue(reader, static_cast<tValueKind>(kind));
        if (doFormat) {
            AppendPiece(out, segment.empty() ? DefaultConversion(value.mKind) : segment, value);
            if (isExtra && i < count - 1) {
                out += ", ";
            }
        }
    }
    if (doFormat && position < format.size()) {
        std::string rest(format.substr(position));
        if (rest.find('%') != std::string::npos) {
            std::replace(rest.begin(), rest.end(), '%', '_');
            rest = "[extra format arguments: " + rest + " ]";
        }
        AppendLiteral(out, rest);
    }
    if (doFormat && isExtra) {
        out += ") ";
    }
}

void AppendPadded(std::string& out, std::int64_t number, int width, char pad) {
    // As printf's "%0*d" and "%*d": zeros go behind the sign, blanks before it.
    const bool isNegative = number < 0;
    std::string digits = std::to_string(isNegative ? -number : number);
    const auto wanted = static_cast<std::size_t>(width);
    if (isNegative && pad != '0') {
        digits.insert(0, 1, '-');
    }
    const std::size_t used = digits.size() + (isNegative && pad == '0' ? 1 : 0);
    if (isNegative && pad == '0') {
        out += '-';
    }
    if (used < wanted) {
        out.append(wanted - used, pad);
    }
    out += digits;
}

// The local time of day, looked up again only when the second changes.
const NyTimeOfDay& TimeOfDay(std::uint32_t seconds) {
    static NyTimeOfDay timeOfDay;
    static std::uint32_t known = 0;
    static bool isKnown = false;
    if (!isKnown || seconds != known) {
        NyClockTime::GetTime(timeOfDay, seconds);
        known = seconds;
        isKnown = true;
    }
    return timeOfDay;
}

// "%6d  %02d:%02d:%02d.%06d  (%02d.%06d) :  [%-18s]\t"
void AppendHeader(std::string& out, std::int32_t sequence, std::uint32_t seconds,
                  std::uint32_t microseconds, double delta, const std::string& name) {
    const NyTimeOfDay& time = TimeOfDay(seconds);
    // Wide: the clock may have been set by more than 31 bits of seconds.
    const auto deltaSeconds = static_cast<std::int64_t>(delta);
    const auto deltaMicroseconds =
        static_cast<std::int32_t>((delta - static_cast<double>(deltaSeconds)) * 1e6);
    AppendPadded(out, sequence, 6, ' ');
    out += "  ";
    AppendPadded(out, time.mHour, 2, '0');
    out += ':';
    AppendPadded(out, time.mMinute, 2, '0');
    out += ':';
    AppendPadded(out, time.mSecond, 2, '0');
    out += '.';
    AppendPadded(out, static_cast<std::int32_t>(microseconds), 6, '0');
    out += "  (";
    AppendPadded(out, deltaSeconds, 2, '0');
    out += '.';
    AppendPadded(out, deltaMicroseconds, 6, '0');
    out += ") :  [";
    out += name;
    constexpr std::size_t kNameWidth = 18;
    if (name.size() < kNameWidth) {
        out.append(kNameWidth - name.size(), ' ');
    }
    out += "]\t";
}

} // namespace

std::string CLogManager::StringifyFormatArgs(bool doFormat, CCircularBuffer& buffer) {
    std::string text;
    AppendMessage(text, doFormat, buffer, TheStatics().mFormatStrings);
    return text;
}

std::int32_t CLogManager::Collect() {
    Statics& statics = TheStatics();
    const NyLockGuard guard(statics.mAddRemoveContextLock, true);
    const std::vector<CLogContext*>& contexts = statics.mLogContexts;

    std::vector<CCollectEntry> entries(contexts.size());
    std::vector<CCollectEntry*> heads;
    heads.reserve(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        CLogContext& context = *contexts[i];
        // Acquire: pairs with the barrier behind a record's last byte.
        const std::int32_t pending =
            std::atomic_ref(context.mPending).load(std::memory_order_acquire);
        entries[i] = {0, i, pending, pending, &context.mBuffer};
        if (pending > 0) {
            entries[i].mHeadSequence = ReadHead(context.mBuffer);
            heads.push_back(&entries[i]);
        }
    }
    std::make_heap(heads.begin(), heads.end(), ComesLater);
    while (!heads.empty()) {
        std::pop_heap(heads.begin(), heads.end(), ComesLater);
        CCollectEntry& entry = *heads.back();
        OutputNextMessage(contexts[entry.mContextIndex], entry.mHeadSequence);
        if (--entry.mRemaining > 0) {
            entry.mHeadSequence = ReadHead(*entry.mBuffer);
            std::push_heap(heads.begin(), heads.end(), ComesLater);
        } else {
            heads.pop_back();
        }
    }
    for (const CCollectEntry& entry : entries) {
        if (entry.mCount > 0) {
            OSAtomicAdd32Barrier(-entry.mCount, &contexts[entry.mContextIndex]->mPending);
        }
    }
    return mStopCollecting;
}

void CLogManager::OutputNextMessage(CLogContext* context, std::int32_t sequence) {
    CCircularBuffer& buffer = context->mBuffer;
    const int type = GetOutputCallbackType();

    CRecordReader reader(buffer);
    const auto seconds = reader.Get<std::uint32_t>();
    const auto microseconds = reader.Get<std::uint32_t>();
    const auto indent = reader.Get<unsigned char>();
    const auto categoryCount = reader.Get<unsigned char>();
    unsigned char categoryIDs[255];
    reader.GetBytes(categoryIDs, categoryCount);
    // Tested again: a category that was switched off since is not shown.
    const bool passes = PassesFilter(categoryCount, categoryIDs);

    double delta = 0;
    if (msLastSeconds != 0) {
        delta = (seconds + microseconds / 1e6) - (msLastSeconds + msLastMicroseconds / 1e6);
    }
    msLastSeconds = seconds;
    msLastMicroseconds = microseconds;

    Statics& statics = TheStatics();
    const std::vector<CFormatStringEntry>& formats = statics.mFormatStrings;
    std::string& text = statics.mText;
    text.clear();
    if (type == 1) {
        AppendMessage(text, passes, buffer, formats);
        const StructuredOutputCallback callback = GetStructuredOutputCallback();
        if (passes && callback != nullptr) {
            callback(text.c_str(), context->mName, indent, categoryCount, categoryIDs, seconds,
                     microseconds);
        }
        return;
    }
    if (passes) {
        AppendHeader(text, sequence, seconds, microseconds, delta, context->mName);
        for (int i = 0; i < indent; ++i) {
            text += "|  ";
        }
    }
    AppendMessage(text, passes, buffer, formats);
    const OutputCallback callback = GetOutputCallback();
    if (passes && callback != nullptr) {
        text += '\n';
        callback(text.c_str());
    }
}

} // namespace HSL
