#pragma once

#include "platform/support/FileFailure.h"

#include <CoreMIDI/CoreMIDIBase.h>

#include <mutex>
#include <optional>
#include <string>

namespace CoreMIDI {

// Where the setup is kept. Any thread; not under the lock of World, which is taken inside.
class SetupStore {
public:
    // See MIDIServerHostOpenSetup; nothing: in memory only. Throws std::bad_alloc while nothing has
    // changed yet.
    OSStatus Open(std::optional<std::string> path);
    // See MIDIServerHostSaveSetup.
    OSStatus Save();
    // Saves if there is a file; says so in the system log when that fails.
    void SaveAfterChange() noexcept;

private:
    FileFailure SaveLocked();

    // Held while the setup is read and written, so that files replace each other in the order of
    // the changes. Taken before the lock of World.
    std::mutex mMutex;
    std::optional<std::string> mPath; // under mMutex
};

} // namespace CoreMIDI
