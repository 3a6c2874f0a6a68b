#pragma once

#include "runtime/thread/NyThread.h"

namespace HSL {

// The thread that collects the records of all log contexts, and the only one that does. It runs
// CLogManager::Collect every 100 ms until a pass returns that collecting is to stop. That pass is a
// complete one, so everything that was pending before it is delivered. The manager starts the
// thread in Initialize and waits for its end in Cleanup.
class CCollectionThread : public NyThread {
public:
    void Run() override;
};

} // namespace HSL
