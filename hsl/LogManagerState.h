// What the manager's functions share. Inside the library only.
#pragma once

#include <array>
#include <mutex>
#include <string>
#include <vector>

#include "hsl/CollectionThread.h"
#include "hsl/FormatString.h"
#include "hsl/LogManager.h"
#include "hsl/TextBuffer.h"
#include "runtime/sync/NyLock.h"
#include "runtime/sync/NyThreadLocal.h"

namespace HSL {

// Built on first use, so that contexts may be static objects.
struct CLogManager::Statics {
    Statics() = default;
    ~Statics();
    Statics(const Statics&) = delete;
    Statics& operator=(const Statics&) = delete;

    short AddFormat(CFormatStringEntry entry);

    // The one instance. Here, so that it is there for as long as it may have to be cleaned up.
    CLogManager mManager;

    // Recursive: Cleanup destroys contexts under it, whose ends take it again.
    NyLock mAddRemoveContextLock;
    // Under the lock.
    std::vector<CLogContext*> mLogContexts; // all live contexts, in the order of construction
    std::vector<CLogContext*> mAdoptedTLSContexts;
    std::vector<CFormatStringEntry> mFormatStrings; // an id is an index

    // Apart from the lock above, which a naming thread would have to wait a whole pass for.
    std::mutex mNameMutex;
    std::array<std::string, 256> mCategoryNames;

    NyThreadLocal<CLogContext*> mTLSLogContext;
    // The text of the record that is being output, kept from record to record for its memory. The
    // collection thread's alone.
    CTextBuffer mText;
    CCollectionThread mCollectionThread;
};

} // namespace HSL
