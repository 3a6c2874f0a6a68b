#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "hsl/CCat.h"
#include "hsl/CValue.h"
#include "hsl/LogManager.h"
#include "hsl/RecordFormat.h"

#include <cstdint>
#include <string>
#include <type_traits>

namespace HSL {

class CRecordWriter;

// One producer's private channel: a byte ring into which log calls serialise compact records, never
// text, and from which the collection thread reads them back.
//
// One thread at a time logs through a context: the thread that it belongs to (see
// CLogManager::GetTLSContext), or whoever the client lets write to a context of its own. A log call
// takes no lock, makes no system call beyond the reading of the clock and does not allocate.
// Construction, destruction and SetName take the manager's lock and so wait for a collection pass.
//
// A ring that fills up drops messages: once its last 4096 bytes are touched, the next message is
// replaced by the banner "*** HSLOG DROPPED MESSAGE(S) ***" in that message's categories, and all
// further ones are dropped until less than three quarters are stored. The banner has the sequence
// number of the message that it replaced, and every further dropped message takes one: each banner,
// and each number missing in the output, is a message lost. A single message that is larger than
// the room behind the threshold is cut, and what is read back of it and behind it may be nonsense.
class CLogContext {
public:
    // A ring of `size` bytes from `mallocFunc`; 0 stands for the manager's default, which needs an
    // initialised manager. Without memory for it the context loses every message. The name is
    // copied. The context is collected from until it is destroyed, which loses the records that are
    // still in its ring, or until the manager's Cleanup.
    CLogContext(const char* name, int size, void* (*mallocFunc)(int), void (*freeFunc)(void*, int));
    virtual ~CLogContext();
    CLogContext(const CLogContext&) = delete;
    CLogContext& operator=(const CLogContext&) = delete;

    // malloc and free; the size is ignored.
    static void* MallocFunc(int size);
    static void FreeFunc(void* block, int size);

    void SetName(const char* name);
    // For the collection thread and under the manager's lock.
    const std::string& GetName() const { return mName; }

    // Logs a message in a category set: a format, registered with CLogManager::AddFormatString or
    // as text, and up to ten arguments for its conversions. Returns how many records are pending in
    // this context, or 0 when the message was filtered out or dropped.
    //
    // The format is a printf format whose conversions take the arguments in order. A conversion
    // that does not fit its argument prints the argument in its kind's own form.
    //
    // Warning: a format that is logged with arguments must not hold "%%" or "\%". The search for
    // the next conversion passes over such a sign by starting again in front of it, and so never
    // ends: the collection thread then hangs, also when the message does not show because its
    // categories were disabled after it was logged. A message without arguments may hold "%%".
    template <typename... Values>
    requires(sizeof...(Values) <= 10 && (std::is_convertible_v<const Values&, CValue> &&
                                         ...)) int Log(const CCat& cat, short formatId,
                                                       const Values&... values) {
        return Filtered(cat) ? 0 : LogByID(cat, formatId, values...);
    }
    template <typename... Values>
    requires(sizeof...(Values) <= 10 && (std::is_convertible_v<const Values&, CValue> &&
                                         ...)) int Log(const CCat& cat, const char* formatText,
                                                       const Values&... values) {
        return Filtered(cat) ? 0 : LogValues(cat, Format{formatText, kIsText}, values...);
    }

    // For records written by hand: LogPre writes the head of a record, including its categories,
    // and takes a sequence number; the client writes the format, the count of the arguments and the
    // arguments to the ring; LogPost makes the record visible and returns how many are pending.
    void LogPre(const CCat& cat);
    int LogPost();
    CCircularBuffer& GetBuffer() { return mBuffer; }

    // The nesting depth recorded with each message, 0 to 255 there. See CLogIndent. The writer
    // only.
    int GetIndent() const { return mIndent; }
    void SetIndent(int indent) { mIndent = indent; }

private:
    friend class CLogManager;

    // No registered id: the format is text.
    static constexpr int kIsText = 0x10000;

    struct Format {
        const char* mText;
        int mID;
    };

    template <typename Value>
    static constexpr bool kIsNumber = std::is_arithmetic_v<Value> || std::is_enum_v<Value>;

    static bool Filtered(const CCat& cat) {
        return !CLogManager::PassesFilter(cat.Count(), cat.IDs());
    }

    // Numbers alone have a size that is known here, and go straight to their place in the ring.
    template <typename... Values>
    int LogByID(const CCat& cat, short formatId, const Values&... values) {
        if constexpr ((kIsNumber<Values> && ...)) {
            constexpr std::uint32_t kLargest = 4 + sizeof...(Values) * CValue::kLargestNumber;
            if (unsigned char* end = BeginInPlace(cat, kLargest)) {
                end = CValue::PutRaw(end, eFormatId);
                end = CValue::PutRaw(end, static_cast<std::int16_t>(formatId));
                end = CValue::PutRaw(end, static_cast<unsigned char>(sizeof...(Values)));
                ((end = CValue(values).PutNumber(end)), ...);
                return EndInPlace(end);
            }
        }
        return LogValues(cat, Format{nullptr, formatId}, values...);
    }

    template <typename... Values>
    int LogValues(const CCat& cat, const Format& format, const Values&... values) {
        if constexpr (sizeof...(Values) == 0) {
            return LogRecord(cat, format, nullptr, 0);
        } else {
            const CValue list[] = {CValue(values)...};
            return LogRecord(cat, format, list, sizeof...(Values));
        }
    }

    // Writes a record's head in place where all is well: nothing dropped, and room in one run for
    // it and `size` bytes more. Returns where those go, and else null, with nothing done yet.
    unsigned char* BeginInPlace(const CCat& cat, std::uint32_t size);
    int EndInPlace(const unsigned char* end);

    int LogRecord(const CCat& cat, const Format& format, const CValue* values, int count);
    void WriteRecord(const CCat& cat, const Format& format, const CValue* values, int count);
    void WriteHead(CRecordWriter& writer, const CCat& cat) const;
    // The fields in front of the categories. Takes a sequence number and returns their end.
    unsigned char* PutHead(unsigned char* end) const;

    // Records completely written and not yet collected. Added to by the writer behind a record's
    // last byte, taken from by the collection thread, both atomically with a barrier.
    std::int32_t mPending = 0;
    CCircularBuffer mBuffer;
    std::string mName;
    std::int32_t mIndent = 0;
    bool mDropping = false;
    const std::int32_t mDropThreshold;
    const std::int32_t mResumeThreshold;
};

} // namespace HSL
