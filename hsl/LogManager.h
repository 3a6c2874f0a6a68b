#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

class CCircularBuffer;
class NyLock;

namespace HSL {

class CLogContext;
class CRecordReader;

// The hub of the logging library: the category filter, the contexts that threads log into, the
// registry of format strings, and the output callbacks, to which a collection thread hands the
// merged and formatted records of all contexts ten times a second.
//
// Static functions may be called before Initialize and after Cleanup unless they say otherwise. The
// others are called on Instance(), which is null then. Initialize and Cleanup are called by one
// thread, and no thread logs while Cleanup runs.
//
//   | function                                  | thread            | waits for a collection pass |
//   |-------------------------------------------|-------------------|-----------------------------|
//   | PassesFilter, SetFilterValue, callbacks   | any               | no                          |
//   | GetTLSContext                             | any               | on a thread's first call    |
//   | AddFormatString, contexts made and ended  | any               | yes                         |
//   | Collect, OutputNextMessage, Stringify...  | collection thread | -                           |
//
// A program logs like this:
//
//     CLogManager::Initialize();
//     CLogManager::Instance()->SetFilterValue(kWarning, true); // at first nothing passes
//     CLogManager::GetTLSContext()->Log(CCat(kWarning), "late by %d us", late);
//     CLogManager::Cleanup(); // delivers what is pending
//
// Output callbacks run on the collection thread, one at a time, under the lock that contexts are
// made and ended under: a callback may log, but must not end a context, nor wait for a thread that
// makes or ends one.
class CLogManager {
public:
    using OutputCallback = void (*)(const char* line);
    // `message` is the text alone; `indent` the nesting depth; `categoryIDs` holds `categoryCount`
    // ids; the time is the wall clock's at the log call. Valid during the call only.
    using StructuredOutputCallback = void (*)(const char* message, const std::string& contextName,
                                              unsigned char indent, unsigned char categoryCount,
                                              const unsigned char* categoryIDs,
                                              unsigned int seconds, unsigned int microseconds);

    virtual ~CLogManager() = default;
    CLogManager(const CLogManager&) = delete;
    CLogManager& operator=(const CLogManager&) = delete;

    // Starts logging: every category disabled, the severity levels named, the collection thread
    // running, and the calling thread's context named "Main". Does nothing when logging runs.
    static void Initialize();

    // Ends logging: what is pending is delivered, the collection thread ends, the contexts of all
    // threads are destroyed, every category is disabled, the enable flag is cleared, and format
    // strings and category names are forgotten. Contexts that client code made stay alive, but are
    // collected from no more. Blocks for up to a collection period. Does nothing when logging does
    // not run.
    //
    // Both output callbacks outlive it, with the choice between them, and so does the moment of the
    // last record, from which the next line's delta is measured. Sequence numbers begin anew with
    // Initialize.
    static void Cleanup();

    // The instance, null while logging does not run.
    static CLogManager* Instance() { return msThis.load(std::memory_order_acquire); }
    static bool IsInitialized() { return Instance() != nullptr; }

    // A flag for client code; the library itself never looks at it. Cleared by Cleanup.
    static void SetEnable(bool on) { msEnabled.store(on, std::memory_order_relaxed); }
    static bool IsEnabled() { return msEnabled.load(std::memory_order_relaxed); }

    // Returns the calling thread's context, which the manager owns. The first call makes it, with
    // the default size and the name "TID " followed by the thread's handle as a decimal number.
    // Needs an initialised manager. A thread that may end before Cleanup releases its context with
    // CleanupTLSContext; a NyThread does so by itself.
    static CLogContext* GetTLSContext();

    // Destroys the calling thread's context, with the records in it that are not collected yet.
    // Harmless on a thread that never logged and while logging does not run.
    static void CleanupTLSContext();

    // Whether any of the `count` categories is enabled. Logging through a context while no manager
    // runs passes nothing.
    static bool PassesFilter(unsigned char count, const unsigned char* ids) {
        for (unsigned char i = 0; i < count; ++i) {
            // Relaxed: a flag that orders nothing, a change of which counts from the next test on.
            if (msFilter[ids[i]].load(std::memory_order_relaxed) != 0) {
                return true;
            }
        }
        return false;
    }
    void SetFilterValue(unsigned char id, bool on) {
        msFilter[id].store(on ? 1 : 0, std::memory_order_relaxed);
    }
    bool GetFilterValue(unsigned char id) const {
        return msFilter[id].load(std::memory_order_relaxed) != 0;
    }

    // Whether a client may use the ids `first` to `last`: from 20 to at most 59, or from 60 to at
    // most 79. Reserves nothing.
    bool RegisterCategoryRange(int first, int last) const;

    // Names a category; the first name given stays.
    void SetCategoryName(unsigned char id, const char* name);
    // The name; empty when there is none.
    std::string GetCategoryName(unsigned char id) const;

    // The default size of a context's ring in bytes: 262144.
    std::int32_t GetBufferSize() const { return mBufferSize; }

    // Called by contexts as they are made and destroyed.
    static void AddContext(CLogContext* context);
    static void RemoveContext(CLogContext* context);
    // Hands a context over to the manager, which destroys it at Cleanup.
    static void AdoptTLSContext(CLogContext* context);

    // Set the sink of plain lines, or of structured messages; the one set last is used, until
    // another is set. Return the previous one of the same kind: at first a printer to standard
    // output, and null. With null messages are formatted and dropped.
    OutputCallback SetOutputCallback(OutputCallback callback);
    OutputCallback GetOutputCallback() const;
    StructuredOutputCallback SetStructuredOutputCallback(StructuredOutputCallback callback);
    StructuredOutputCallback GetStructuredOutputCallback() const;
    // 0 for plain lines, 1 for structured messages.
    int GetOutputCallbackType() const;

    // Registers a printf format and returns its id, which is valid until Cleanup. Every call adds
    // an entry; a wide format is registered but not printed. -1 when all 32768 ids are taken.
    short AddFormatString(const char* text);
    short AddFormatString(const wchar_t* text);

    // Reads the format and the arguments of the record at the head of `buffer` and returns the text
    // that they make, or, unless `doFormat`, an empty one. What does not fit together shows as
    // marker texts. See FormatString.h.
    std::string StringifyFormatArgs(bool doFormat, CCircularBuffer& buffer);

    // One collection pass: outputs what is pending in all contexts, in the order of the sequence.
    // Returns whether collecting is to stop.
    std::int32_t Collect();
    // Outputs the record at the head of the context's ring, whose marker and sequence the caller
    // has read already.
    void OutputNextMessage(CLogContext* context, std::int32_t sequence);

    // Returns how often logging was initialised. Format ids and threads' contexts are valid in the
    // generation that they were made in only.
    static unsigned int Generation() { return msGeneration.load(std::memory_order_relaxed); }

    // The next sequence number, as if a message was logged.
    static std::int32_t NextSequence();

    // Guards the contexts, their names and the format strings; held during a collection pass.
    static NyLock& AddRemoveContextLock();

private:
    struct State;
    constexpr CLogManager() = default;

    static State& TheState();

    // Does the work of OutputNextMessage with a reader that stands behind the sequence.
    void OutputRecord(State& state, CRecordReader& reader, const CLogContext& context,
                      std::int32_t sequence) const;

    static constexpr std::int32_t kDefaultBufferSize = 262144;

    // The last sequence number that was taken; the first record gets 1. It is changed by atomic
    // addition only. It is static, so that a context that outlives the manager counts on in memory
    // that exists. It has cache lines of its own, because every log call writes it, while the
    // filter beside it is only read.
    struct alignas(128) Sequence {
        std::int32_t mLast = 0;
    };
    static Sequence msSequence;
    std::int32_t mBufferSize = kDefaultBufferSize;
    std::int32_t mStopCollecting = 0; // under the lock

    static std::atomic<CLogManager*> msThis;
    static std::atomic<bool> msEnabled;
    static std::atomic<unsigned int> msGeneration;
    static std::array<std::atomic<unsigned char>, 256> msFilter;
};

} // namespace HSL
