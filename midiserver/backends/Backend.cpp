#include "midiserver/backends/Backend.h"

#include "midiserver/log/Logging.h"

namespace MidiServer {

BackendState Backend::State() const {
    const MutexLock lock(mStateMutex);
    return mState;
}

void Backend::SetState(const HSL::CCategoryHolder& category, bool isUp, const std::string& detail) {
    const MutexLock lock(mStateMutex);
    if (mState.isUp != isUp || mState.detail != detail) {
        Log(category[HSL::kInfo], "%s", detail);
        mState = {isUp, detail};
    }
}

} // namespace MidiServer
