#include "hsl/CollectionThread.h"

#include "hsl/LogManager.h"

namespace HSL {

namespace {

constexpr int kPeriodMicroseconds = 100000;

} // namespace

void CCollectionThread::Run() {
    while (CLogManager::Instance()->Collect() == 0) {
        Sleep(kPeriodMicroseconds);
    }
}

} // namespace HSL
