#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

#include <atomic>
#include <cstdint>

namespace CoreMIDI {

// The way to a client's procedure: open until it is closed, after which the procedure is not called
// any more.
//
// Any thread. Calls do not block nor allocate; Close waits for calls on other threads.
class CallGate {
public:
    // `owner`: the object that the procedure belongs to, its port for instance.
    explicit CallGate(MIDIObjectRef owner) : mOwner(owner) {}
    CallGate(const CallGate&) = delete;
    CallGate& operator=(const CallGate&) = delete;

    // A call in progress, on the stack of the thread that makes it. False: the gate is closed and
    // the procedure must not be called. The gate must outlive it.
    class Call {
    public:
        explicit Call(CallGate& gate);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        explicit operator bool() const { return mIsOpen; }

    private:
        friend class CallGate;

        CallGate& mGate;
        const Call* const mOuter;
        bool mIsOpen = false;
    };

    // No call begins from now on. Then waits until none is in progress, unless this thread is
    // itself within a call of the same owner: its end cannot be waited for.
    void Close();

private:
    static constexpr std::uint32_t kClosed = std::uint32_t{1} << 31;

    bool IsOwnerCalledByThisThread() const;

    const MIDIObjectRef mOwner;
    // The number of calls in progress, and kClosed. One word, so that a call either sees the gate
    // closed or is seen by Close.
    std::atomic<std::uint32_t> mState{0};
};

} // namespace CoreMIDI
