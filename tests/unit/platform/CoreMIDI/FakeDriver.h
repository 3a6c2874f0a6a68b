// A driver of which only the table is real: it keeps what it is called with.
#pragma once

#include "MidiTestSupport.h"

#include <thread>

namespace MidiTest {

class FakeDriver {
public:
    struct Call {
        std::string mFunction;
        void* mRefCon1;
        void* mRefCon2;
        MIDIEndpointRef mEndpoint;
        Packets mPackets;
        MIDITimeStamp mTime;
        std::thread::id mThread;
    };

    FakeDriver();
    FakeDriver(const FakeDriver&) = delete;
    FakeDriver& operator=(const FakeDriver&) = delete;

    MIDIDriverRef Ref() { return &mTable; }

    // `Send` blocks until it is let go.
    void HoldSend();
    void LetGo();
    // What `Send` answers.
    void SetResult(OSStatus result);

    std::vector<Call> Calls(const std::string& function);
    // Blocks until there are so many calls.
    void WaitForCalls(const std::string& function, std::size_t count);
    // Blocks until a call of `Send` has begun that is held.
    void WaitUntilHeld();

private:
    void Keep(Call call);

    static OSStatus Send(MIDIDriverRef self, const MIDIPacketList* list, void* refCon1,
                         void* refCon2);
    static OSStatus EnableSource(MIDIDriverRef self, MIDIEndpointRef source, Boolean enabled);
    static OSStatus Flush(MIDIDriverRef self, MIDIEndpointRef destination, void* refCon1,
                          void* refCon2);

    // The first word of a driver is the address of its table.
    MIDIDriverInterface* mTable;
    MIDIDriverInterface mFunctions{};
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Call> mCalls;
    bool mHold = false;
    bool mIsHeld = false;
    OSStatus mResult = noErr;
};

} // namespace MidiTest
