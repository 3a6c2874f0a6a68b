#pragma once

#include "tests/unit/platform/CoreMIDI/MidiTestSupport.h"

#include <thread>

namespace MidiTest {

// What a client was told, as text.
class Told {
public:
    static void Notify(const MIDINotification* message, void* refCon) {
        auto& self = *static_cast<Told*>(refCon);
        self.mThread = std::this_thread::get_id();
        self.mMessages.push_back(Describe(message));
    }

    // Runs this thread's loop until nothing is left to be told.
    std::vector<std::string> All() {
        while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) == kCFRunLoopRunHandledSource) {
        }
        return std::exchange(mMessages, {});
    }
    std::thread::id Thread() const { return mThread; }

private:
    static std::string Describe(const MIDINotification* message) {
        switch (message->messageID) {
        case kMIDIMsgSetupChanged:
            EXPECT_EQ(message->messageSize, sizeof *message);
            return "changed";
        case kMIDIMsgObjectAdded:
        case kMIDIMsgObjectRemoved: {
            const auto* change = reinterpret_cast<const MIDIObjectAddRemoveNotification*>(message);
            EXPECT_EQ(change->messageSize, sizeof *change);
            return (message->messageID == kMIDIMsgObjectAdded ? "added " : "removed ") +
                   std::to_string(change->childType) + " in " + std::to_string(change->parentType);
        }
        case kMIDIMsgPropertyChanged: {
            const auto* change =
                reinterpret_cast<const MIDIObjectPropertyChangeNotification*>(message);
            EXPECT_EQ(change->messageSize, sizeof *change);
            return "property " + ToString(change->propertyName) + " of " +
                   std::to_string(change->objectType);
        }
        case kMIDIMsgIOError: {
            const auto* error = reinterpret_cast<const MIDIIOErrorNotification*>(message);
            return "error " + std::to_string(error->errorCode);
        }
        default:
            return "unknown";
        }
    }

    std::vector<std::string> mMessages;
    std::thread::id mThread;
};

} // namespace MidiTest
