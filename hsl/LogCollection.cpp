// The manager's part on the collection thread: merging the contexts, and records to output.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <libkern/OSAtomic.h>

#include "hsl/FormatString.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "hsl/LogManagerState.h"
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
double msLastMoment = 0; // these and the microseconds

// The local time of day of a second, looked up and written again only when that changes.
std::uint32_t gKnownSecond = 0;
char gTimeOfDay[] = "--:--:--.";
bool gIsSecondKnown = false;

// So much is read from a ring before its writer gets the room back, unless a pass ends.
constexpr std::size_t kReleasedAtOnce = 4096;

// A context in a collection pass.
struct CCollectEntry {
    std::int32_t mHeadSequence = 0; // of the context's next record
    std::size_t mContextIndex = 0;
    std::int32_t mCount = 0;     // pending at the start of the pass
    std::int32_t mRemaining = 0; // of these, not yet output
    CLogContext* mContext = nullptr;
    CRecordReader mReader;
};

// Orders a heap by the lowest sequence. Numbers are unique but where a ring lost its records; the
// position keeps those apart.
bool ComesLater(const CCollectEntry* a, const CCollectEntry* b) {
    return a->mHeadSequence != b->mHeadSequence ? a->mHeadSequence > b->mHeadSequence
                                                : a->mContextIndex > b->mContextIndex;
}

// Restores a heap whose first element has changed: cheaper than to take it out and put it in.
void SinkFirst(std::vector<CCollectEntry*>& heads) {
    CCollectEntry* const sinking = heads.front();
    std::size_t at = 0;
    for (std::size_t child = 1; child < heads.size(); child = 2 * at + 1) {
        if (child + 1 < heads.size() && ComesLater(heads[child], heads[child + 1])) {
            ++child;
        }
        if (!ComesLater(sinking, heads[child])) {
            break;
        }
        heads[at] = heads[child];
        at = child;
    }
    heads[at] = sinking;
}

std::int32_t ReadHead(CRecordReader& reader) {
    reader.Get<unsigned char>();
    return reader.Get<std::int32_t>();
}

// A record's format: its text and, if it is a registered one, its pieces.
struct RecordFormat {
    std::string_view mText;
    CFormatPieces* mPieces = nullptr;
};

RecordFormat ReadFormat(CRecordReader& reader, std::vector<CFormatStringEntry>& formats) {
    switch (reader.Get<unsigned char>()) {
    case kFormatText: {
        const auto length = reader.Get<std::uint16_t>();
        reader.GetBytes(gFormatText, length);
        gFormatText[length] = '\0';
        return {gFormatText};
    }
    case kFormatID: {
        const auto id = reader.Get<std::int16_t>();
        // An id that was never given is none, as -1 is.
        if (id < 0 || static_cast<std::size_t>(id) >= formats.size()) {
            return {"<UNINITIALIZED FORMAT STRING ID USED>"};
        }
        CFormatStringEntry& entry = formats[static_cast<std::size_t>(id)];
        if (!entry.mIsNarrow) {
            return {"<WIDE FORMAT STRING NOT SUPPORTED>"};
        }
        return {entry.mNarrow, &entry.mPieces};
    }
    default:
        return {"<BAD FORMAT STRING>"};
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

// What of the format is behind the last argument: conversions in it show without their signs.
void AppendRest(CTextBuffer& out, std::string_view rest) {
    if (rest.find('%') == std::string_view::npos) {
        AppendLiteral(out, rest);
        return;
    }
    std::string text(rest);
    std::replace(text.begin(), text.end(), '%', '_');
    AppendLiteral(out, "[extra format arguments: " + text + " ]");
}

// Reads format and arguments and appends the text that they make to `out`, or, unless `doFormat`,
// none but that for arguments of no kind.
void AppendMessage(CTextBuffer& out, bool doFormat, CRecordReader& reader,
                   std::vector<CFormatStringEntry>& formats) {
    const RecordFormat format = ReadFormat(reader, formats);
    const int count = reader.Get<signed char>();
    if (count < 1) {
        if (doFormat) {
            AppendLiteral(out, format.mText);
        }
        return;
    }
    // Kept for its memory.
    static CFormatPieces unregistered;
    CFormatPieces* pieces = format.mPieces;
    if (pieces == nullptr) {
        unregistered.Find(format.mText, static_cast<std::size_t>(count));
        pieces = &unregistered;
    }
    std::size_t position = 0;
    bool isExtra = false;
    for (int i = 0; i < count; ++i) {
        CFormatPiece* piece = nullptr;
        if (static_cast<std::size_t>(i) < pieces->Count()) {
            piece = &(*pieces)[static_cast<std::size_t>(i)];
            position = piece->End();
        } else if (!isExtra) {
            if (pieces->IsEndless()) {
                FindConversion(format.mText, position);
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
        if (piece != nullptr) {
            piece->Append(out, format.mText, value);
            continue;
        }
        AppendOwnForm(out, value);
        if (i < count - 1) {
            out.Append(", ");
        }
    }
    if (doFormat && position < format.mText.size()) {
        AppendRest(out, format.mText.substr(position));
    }
    if (doFormat && isExtra) {
        out.Append(") ");
    }
}

// As printf's "%0*d" and "%*d": zeros go behind the sign, blanks before it.
char* PutPadded(char* to, std::int64_t number, int width, char pad) {
    char text[20];
    const char* const end = std::to_chars(text, text + sizeof text, number).ptr;
    const char* digits = text;
    const auto padding = std::max<std::ptrdiff_t>(width - (end - text), 0);
    if (number < 0 && pad == '0') {
        *to++ = *digits++;
    }
    to = std::fill_n(to, padding, pad);
    return std::copy(digits, end, to);
}

// "%06d"
char* PutMicroseconds(char* to, std::int32_t number) {
    constexpr int kWidth = 6;
    if (number < 0 || number > 999999) {
        return PutPadded(to, number, kWidth, '0');
    }
    auto rest = static_cast<std::uint32_t>(number);
    for (char* digit = to + kWidth; digit != to; rest /= 10) {
        *--digit = static_cast<char>('0' + rest % 10);
    }
    return to + kWidth;
}

char* PutText(char* to, std::string_view text) {
    std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

// "%02d:%02d:%02d."
char* PutTimeOfDay(char* to, std::uint32_t seconds) {
    if (!gIsSecondKnown || seconds != gKnownSecond) {
        NyTimeOfDay time;
        NyClockTime::GetTime(time, seconds);
        PutPadded(gTimeOfDay, time.mHour, 2, '0');
        PutPadded(gTimeOfDay + 3, time.mMinute, 2, '0');
        PutPadded(gTimeOfDay + 6, time.mSecond, 2, '0');
        gKnownSecond = seconds;
        gIsSecondKnown = true;
    }
    return PutText(to, {gTimeOfDay, sizeof gTimeOfDay - 1});
}

// "%6d  %02d:%02d:%02d.%06d  (%02d.%06d) :  [%-18s]\t"
void AppendHeader(CTextBuffer& out, std::int32_t sequence, std::uint32_t seconds,
                  std::uint32_t microseconds, double delta, std::string_view name) {
    constexpr std::size_t kNameWidth = 18;
    // Five numbers of at most 20 characters, and what is between them.
    constexpr std::size_t kLargest = 128;
    // Wide: the clock may have been set by more than 31 bits of seconds.
    const auto deltaSeconds = static_cast<std::int64_t>(delta);
    const auto deltaMicroseconds =
        static_cast<std::int32_t>((delta - static_cast<double>(deltaSeconds)) * 1e6);
    const std::size_t start = out.Size();
    char* end = out.Room(kLargest + std::max(name.size(), kNameWidth));
    end = PutPadded(end, sequence, 6, ' ');
    end = PutText(end, "  ");
    end = PutTimeOfDay(end, seconds);
    end = PutMicroseconds(end, static_cast<std::int32_t>(microseconds));
    end = PutText(end, "  (");
    end = deltaSeconds == 0 ? PutText(end, "00") : PutPadded(end, deltaSeconds, 2, '0');
    *end++ = '.';
    end = PutMicroseconds(end, deltaMicroseconds);
    end = PutText(end, ") :  [");
    end = PutText(end, name);
    if (name.size() < kNameWidth) {
        end = std::fill_n(end, kNameWidth - name.size(), ' ');
    }
    out.SetEnd(PutText(end, "]\t"));
    CutPiece(out, start);
}

} // namespace

std::string CLogManager::StringifyFormatArgs(bool doFormat, CCircularBuffer& buffer) {
    CTextBuffer text;
    CRecordReader reader(buffer);
    AppendMessage(text, doFormat, reader, TheStatics().mFormatStrings);
    reader.Release();
    return std::string(text.View());
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
        if (pending > 0) {
            CCollectEntry& entry = entries[i];
            entry = {0, i, pending, pending, &context, CRecordReader(context.mBuffer)};
            entry.mHeadSequence = ReadHead(entry.mReader);
            heads.push_back(&entry);
        }
    }
    std::make_heap(heads.begin(), heads.end(), ComesLater);
    while (!heads.empty()) {
        CCollectEntry& entry = *heads.front();
        OutputRecord(statics, entry.mReader, *entry.mContext, entry.mHeadSequence);
        if (--entry.mRemaining > 0) {
            if (entry.mReader.Unreleased() >= kReleasedAtOnce) {
                entry.mReader.Release();
            }
            entry.mHeadSequence = ReadHead(entry.mReader);
        } else {
            entry.mReader.Release();
            heads.front() = heads.back();
            heads.pop_back();
        }
        if (heads.size() > 1) {
            SinkFirst(heads);
        }
    }
    for (const CCollectEntry& entry : entries) {
        if (entry.mCount > 0) {
            OSAtomicAdd32Barrier(-entry.mCount, &entry.mContext->mPending);
        }
    }
    return mStopCollecting;
}

void CLogManager::OutputNextMessage(CLogContext* context, std::int32_t sequence) {
    CRecordReader reader(context->mBuffer);
    OutputRecord(TheStatics(), reader, *context, sequence);
    reader.Release();
}

void CLogManager::OutputRecord(Statics& statics, CRecordReader& reader, const CLogContext& context,
                               std::int32_t sequence) const {
    const int type = GetOutputCallbackType();

    const auto seconds = reader.Get<std::uint32_t>();
    const auto microseconds = reader.Get<std::uint32_t>();
    const auto indent = reader.Get<unsigned char>();
    const auto categoryCount = reader.Get<unsigned char>();
    unsigned char scratch[255];
    const unsigned char* const categoryIDs = reader.GetInPlace(categoryCount, scratch);
    // Tested again: a category that was switched off since is not shown.
    const bool passes = PassesFilter(categoryCount, categoryIDs);

    const double moment = seconds + microseconds / 1e6;
    const double delta = msLastSeconds != 0 ? moment - msLastMoment : 0;
    msLastSeconds = seconds;
    msLastMoment = moment;

    CTextBuffer& text = statics.mText;
    text.Clear();
    if (type == 1) {
        AppendMessage(text, passes, reader, statics.mFormatStrings);
        const StructuredOutputCallback callback = GetStructuredOutputCallback();
        if (passes && callback != nullptr) {
            callback(text.CString(), context.mName, indent, categoryCount, categoryIDs, seconds,
                     microseconds);
        }
        return;
    }
    if (passes) {
        AppendHeader(text, sequence, seconds, microseconds, delta, context.mName);
        for (int i = 0; i < indent; ++i) {
            text.Append("|  ");
        }
    }
    AppendMessage(text, passes, reader, statics.mFormatStrings);
    const OutputCallback callback = GetOutputCallback();
    if (passes && callback != nullptr) {
        text.Append('\n');
        callback(text.CString());
    }
}

} // namespace HSL
