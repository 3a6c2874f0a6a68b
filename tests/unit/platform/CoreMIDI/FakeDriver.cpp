#include "FakeDriver.h"

#include "tests/support/WaitUntil.h"

#include <algorithm>

namespace MidiTest {

FakeDriver::FakeDriver() : mTable(&mFunctions) {
    mFunctions.Send = Send;
    mFunctions.EnableSource = EnableSource;
    mFunctions.Flush = Flush;
}

void FakeDriver::Keep(Call call) {
    call.mTime = Now();
    call.mThread = std::this_thread::get_id();
    const std::lock_guard lock(mMutex);
    mCalls.push_back(std::move(call));
}

OSStatus FakeDriver::Send(MIDIDriverRef self, const MIDIPacketList* list, void* refCon1,
                          void* refCon2) {
    auto& driver = *reinterpret_cast<FakeDriver*>(self);
    const Packets packets = PacketsOf(list);
    // Drivers may write to the list that they are sent.
    auto* const writable = const_cast<MIDIPacketList*>(list);
    if (writable->numPackets != 0) {
        writable->packet[0].timeStamp = 0;
    }
    {
        std::unique_lock lock(driver.mMutex);
        driver.mIsHeld = driver.mHold;
        driver.mLetGo.wait(lock, [&driver] { return !driver.mHold; });
        driver.mIsHeld = false;
    }
    driver.Keep({"Send", refCon1, refCon2, 0, packets, 0, {}});
    const std::lock_guard lock(driver.mMutex);
    return driver.mResult;
}

OSStatus FakeDriver::EnableSource(MIDIDriverRef self, MIDIEndpointRef source, Boolean enabled) {
    reinterpret_cast<FakeDriver*>(self)->Keep(
        {enabled != 0 ? "Enable" : "Disable", nullptr, nullptr, source, {}, 0, {}});
    return noErr;
}

OSStatus FakeDriver::Flush(MIDIDriverRef self, MIDIEndpointRef destination, void* refCon1,
                           void* refCon2) {
    reinterpret_cast<FakeDriver*>(self)->Keep({"Flush", refCon1, refCon2, destination, {}, 0, {}});
    return noErr;
}

void FakeDriver::HoldSend() {
    const std::lock_guard lock(mMutex);
    mHold = true;
}

void FakeDriver::LetGo() {
    {
        const std::lock_guard lock(mMutex);
        mHold = false;
    }
    mLetGo.notify_all();
}

void FakeDriver::SetResult(OSStatus result) {
    const std::lock_guard lock(mMutex);
    mResult = result;
}

std::vector<FakeDriver::Call> FakeDriver::Calls(const std::string& function) {
    const std::lock_guard lock(mMutex);
    std::vector<Call> calls;
    std::copy_if(mCalls.begin(), mCalls.end(), std::back_inserter(calls),
                 [&function](const Call& call) { return call.mFunction == function; });
    return calls;
}

void FakeDriver::WaitForCalls(const std::string& function, std::size_t count) {
    EXPECT_TRUE(
        TestSupport::WaitUntil("there are " + std::to_string(count) + " calls of " + function,
                               [&] { return Calls(function).size() >= count; }));
}

void FakeDriver::WaitUntilHeld() {
    EXPECT_TRUE(TestSupport::WaitUntil("a call of Send is held", [this] {
        const std::lock_guard lock(mMutex);
        return mIsHeld;
    }));
}

} // namespace MidiTest
