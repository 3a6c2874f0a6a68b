#pragma once

#include "runtime/thread/NyThread.h"

namespace HSL {

// The only consumer of all log contexts: a collection pass every 100 ms, until one returns that
// collecting is to stop. That pass is complete, so what was pending before is delivered.
class CCollectionThread : public NyThread {
public:
    void Run() override;
};

} // namespace HSL
