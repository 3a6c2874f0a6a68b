// The state of the log manager that its public header hides. Only the library's sources include it.
#pragma once

#include "hsl/CollectionThread.h"
#include "hsl/FormatString.h"
#include "hsl/LogManager.h"
#include "hsl/format/LineHeader.h"
#include "hsl/format/TextBuffer.h"
#include "runtime/sync/NyLock.h"
#include "runtime/sync/NyThreadLocal.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace HSL {

// What the collection thread keeps from record to record. No other thread uses it, but a test that
// holds the manager's lock and collects in the thread's place. It outlives Cleanup and Initialize.
struct CCollectionState {
    // The time stamp of the record before, shown or not; 0 before the first.
    std::uint32_t mLastSeconds = 0;
    double mLastMoment = 0; // seconds and microseconds

    // The text of the record that is being output. These three keep their memory.
    CTextBuffer mText;
    CLineHeader mHeader;
    CMessageText mMessage;
};

// Everything of the manager that is not a plain static. It is built on first use, so that client
// code may have contexts that are static objects.
struct CLogManager::State {
    State() = default;
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    short AddFormat(CFormatStringEntry entry);

    // The one instance, which msThis points to while logging runs.
    CLogManager mManager;

    // Guards the three vectors below, the names of the contexts and mStopCollecting. It is
    // recursive, because Cleanup destroys contexts while it holds it, and their destructors take it
    // again.
    NyLock mAddRemoveContextLock;
    std::vector<CLogContext*> mLogContexts; // all live contexts, in the order of construction
    std::vector<CLogContext*> mAdoptedTLSContexts;
    std::vector<CFormatStringEntry> mFormatStrings; // an id is an index

    // Guards the category names. It is a lock of its own because a thread that names a category
    // would have to wait for a whole collection pass under the one above.
    std::mutex mNameMutex;
    std::array<std::string, 256> mCategoryNames;

    NyThreadLocal<CLogContext*> mTLSLogContext;
    CCollectionState mCollection;
    CCollectionThread mCollectionThread;
};

} // namespace HSL
