// The manager's functions that run on the collection thread: they merge the records of all contexts
// and put them out.
#include "hsl/FormatString.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "hsl/LogManagerState.h"
#include "hsl/format/TextBuffer.h"
#include "hsl/record/RecordReader.h"
#include "runtime/sync/NyLock.h"

#include <libkern/OSAtomic.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace HSL {

namespace {

// How many bytes are read from a ring, unless a pass ends, before its writer gets the room back:
// large enough that the two sides seldom meet at a cache line, and small beside the ring.
constexpr std::size_t kReleasedAtOnce = 4096;

// A context in a collection pass.
struct CCollectEntry {
    std::int32_t mHeadSequence = 0; // of the context's next record
    std::size_t mContextIndex = 0;
    std::int32_t mCount = 0;     // how many records were pending as the pass began
    std::int32_t mRemaining = 0; // how many of these are not output yet
    CLogContext* mContext = nullptr;
    CRecordReader mReader;
};

// Orders a heap so that the lowest sequence comes first. Sequences are unique unless a ring lost
// its records and reads as zeros; then the position in the list decides.
bool ComesLater(const CCollectEntry* a, const CCollectEntry* b) {
    return a->mHeadSequence != b->mHeadSequence ? a->mHeadSequence > b->mHeadSequence
                                                : a->mContextIndex > b->mContextIndex;
}

// Restores a heap whose first element alone may be out of place.
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

} // namespace

std::string CLogManager::StringifyFormatArgs(bool doFormat, CCircularBuffer& buffer) {
    State& state = TheState();
    CTextBuffer text;
    CRecordReader reader(buffer);
    state.mCollection.mMessage.Append(text, doFormat, reader, state.mFormatStrings);
    reader.Release();
    return std::string(text.View());
}

std::int32_t CLogManager::Collect() {
    State& state = TheState();
    const NyLockGuard guard(state.mAddRemoveContextLock, true);
    const std::vector<CLogContext*>& contexts = state.mLogContexts;

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
        OutputRecord(state, entry.mReader, *entry.mContext, entry.mHeadSequence);
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
    OutputRecord(TheState(), reader, *context, sequence);
    reader.Release();
}

void CLogManager::OutputRecord(State& state, CRecordReader& reader, const CLogContext& context,
                               std::int32_t sequence) const {
    CCollectionState& collection = state.mCollection;
    const int type = GetOutputCallbackType();

    const auto seconds = reader.Get<std::uint32_t>();
    const auto microseconds = reader.Get<std::uint32_t>();
    const auto indent = reader.Get<unsigned char>();
    const auto categoryCount = reader.Get<unsigned char>();
    unsigned char scratch[255];
    const unsigned char* const categoryIDs = reader.GetInPlace(categoryCount, scratch);
    // The filter is tested again, so that a category that was switched off since is not shown.
    const bool passes = PassesFilter(categoryCount, categoryIDs);

    const double moment = seconds + microseconds / 1e6;
    const double delta = collection.mLastSeconds != 0 ? moment - collection.mLastMoment : 0;
    collection.mLastSeconds = seconds;
    collection.mLastMoment = moment;

    CTextBuffer& text = collection.mText;
    text.Clear();
    if (type == 1) {
        collection.mMessage.Append(text, passes, reader, state.mFormatStrings);
        const StructuredOutputCallback callback = GetStructuredOutputCallback();
        if (passes && callback != nullptr) {
            callback(text.CString(), context.mName, indent, categoryCount, categoryIDs, seconds,
                     microseconds);
        }
        return;
    }
    if (passes) {
        collection.mHeader.Append(text, sequence, seconds, microseconds, delta, context.mName);
        for (int i = 0; i < indent; ++i) {
            text.Append("|  ");
        }
    }
    collection.mMessage.Append(text, passes, reader, state.mFormatStrings);
    const OutputCallback callback = GetOutputCallback();
    if (passes && callback != nullptr) {
        text.Append('\n');
        callback(text.CString());
    }
}

} // namespace HSL
