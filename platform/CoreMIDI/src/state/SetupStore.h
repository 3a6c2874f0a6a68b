#pragma once

#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/support/FileFailure.h"

#include <CoreMIDI/CoreMIDIBase.h>

#include <optional>
#include <string>

namespace CoreMIDI {

// Where the setup is kept. Any thread.
class SetupStore {
public:
    // See MIDIServerHostOpenSetup; nothing: in memory only. Throws std::bad_alloc while nothing has
    // changed yet.
    OSStatus Open(std::optional<std::string> path) QUORVEL_EXCLUDES(sStateMutex);
    // See MIDIServerHostSaveSetup.
    OSStatus Save() QUORVEL_EXCLUDES(sStateMutex);
    // Saves if there is a file; says so in the system log when that fails.
    void SaveAfterChange() noexcept QUORVEL_EXCLUDES(sStateMutex);

private:
    FileFailure WriteFile() QUORVEL_REQUIRES(mMutex);

    // Held while the setup is read and written, so that files replace each other in the order of
    // the changes. Taken before the lock of the state.
    Mutex mMutex;
    std::optional<std::string> mPath QUORVEL_GUARDED_BY(mMutex);
};

} // namespace CoreMIDI
