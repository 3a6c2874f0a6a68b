// A driver of which only the table is real: it keeps what it is called with.
#pragma once

#include "MidiTestSupport.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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

    // Makes `Send` block until LetGo is called.
    void HoldSend();
    void LetGo();
    // Sets the result of `Send`.
    void SetResult(OSStatus result);

    std::vector<Call> Calls(const std::string& function);
    // Blocks until there are `count` calls of the function.
    void WaitForCalls(const std::string& function, std::size_t count);
    // Blocks until a call of `Send` is held.
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
    std::condition_variable mLetGo;
    std::vector<Call> mCalls;
    bool mHold = false;
    bool mIsHeld = false;
    OSStatus mResult = noErr;
};

} // namespace MidiTest
