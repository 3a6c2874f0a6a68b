#pragma once

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "hsl/CCat.h"
#include "hsl/CValue.h"
#include "hsl/LogManager.h"
#include "hsl/record/RecordFormat.h"

#include <cstdint>
#include <string>
#include <type_traits>

namespace HSL {

class CRecordWriter;

// A log context is one producer's private channel: a byte ring into which its log calls write
// compact records, and from which the collection thread reads them back and makes text of them.
//
//     CLogContext* const context = CLogManager::GetTLSContext();
//     context->Log(CCat(kWarning), "late by %d us", late);
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
    // Makes a context with a ring of `size` bytes, allocated by `mallocFunc`. A size of 0 stands
    // for the manager's default and needs an initialised manager. Without memory for the ring the
    // context loses every message. The name is copied. Records are collected from the context until
    // it is destroyed, which loses those that are still in its ring, or until the manager's
    // Cleanup.
    CLogContext(const char* name, int size, void* (*mallocFunc)(int), void (*freeFunc)(void*, int));
    virtual ~CLogContext();
    CLogContext(const CLogContext&) = delete;
    CLogContext& operator=(const CLogContext&) = delete;

    // The allocator of the threads' contexts: malloc and free. The size is ignored.
    static void* MallocFunc(int size);
    static void FreeFunc(void* block, int size);

    void SetName(const char* name);
    // Only for the collection thread and for who holds the manager's lock.
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

    // A client can write a record by hand. LogPre takes a sequence number and writes the record's
    // head, its categories included. The client then writes the format, the count of the arguments
    // and the arguments to the ring. LogPost makes the record visible and returns how many records
    // are pending.
    void LogPre(const CCat& cat);
    int LogPost();
    CCircularBuffer& GetBuffer() { return mBuffer; }

    // The nesting depth, which each record holds, limited to 0 to 255. See CLogIndent. Only for the
    // thread that logs through the context.
    int GetIndent() const { return mIndent; }
    void SetIndent(int indent) { mIndent = indent; }

private:
    friend class CLogManager;

    // Stands for the id of a format that is given as text. No id has more than 16 bits.
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

    // Logs a registered format. If all arguments are numbers, the size of the record is known here,
    // and it is written straight to its place in the ring.
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

    // Writes a record's head in place, provided that no messages are being dropped and that there
    // is room in one run for the head and `size` bytes more. Returns where those bytes go, or null
    // with nothing done.
    unsigned char* BeginInPlace(const CCat& cat, std::uint32_t size);
    int EndInPlace(const unsigned char* end);

    int LogRecord(const CCat& cat, const Format& format, const CValue* values, int count);
    void WriteRecord(const CCat& cat, const Format& format, const CValue* values, int count);
    void WriteHead(CRecordWriter& writer, const CCat& cat) const;
    // Takes a sequence number, writes the fields in front of the categories to `end` and returns
    // where they end.
    unsigned char* PutHead(unsigned char* end) const;

    // How many records are completely written and not yet collected. The writer adds to it behind a
    // record's last byte, and the collection thread subtracts what it read, both atomically with a
    // barrier.
    std::int32_t mPending = 0;
    CCircularBuffer mBuffer;
    std::string mName;
    std::int32_t mIndent = 0;
    bool mDropping = false;
    const std::int32_t mDropThreshold;
    const std::int32_t mResumeThreshold;
};

} // namespace HSL
