#pragma once

#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/support/FileFailure.h"

#include <CoreMIDI/CoreMIDIBase.h>

#include <optional>
#include <string>

namespace CoreMIDI {

// The SetupStore reads the setup from its file and writes it back. Any thread may use it.
class SetupStore {
public:
    // See MIDIServerHostOpenSetup. Without a path, the setup is kept in memory only. Throws
    // std::bad_alloc and then changes nothing.
    OSStatus Open(std::optional<std::string> path) QUORVEL_EXCLUDES(sStateMutex);
    // See MIDIServerHostSaveSetup.
    OSStatus Save() QUORVEL_EXCLUDES(sStateMutex);
    // Saves the setup if it has a file. A failure is reported in the system log.
    void SaveAfterChange() noexcept QUORVEL_EXCLUDES(sStateMutex);

private:
    FileFailure WriteFile() QUORVEL_REQUIRES(mMutex);

    // Held while the setup is read and written, so that files replace each other in the order of
    // the changes. Taken before the lock of the state.
    Mutex mMutex;
    std::optional<std::string> mPath QUORVEL_GUARDED_BY(mMutex);
};

} // namespace CoreMIDI
