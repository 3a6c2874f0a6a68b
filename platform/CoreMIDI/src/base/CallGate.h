#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

#include <atomic>
#include <cstdint>

namespace CoreMIDI {

// A gate stands in front of a client's procedure. It is open at first; once Close has returned, the
// procedure is not called any more, so that the client may free what the procedure uses.
//
//     const CallGate::Call call(gate);
//     if (call) {
//         procedure(...);
//     }
//
// Any thread may use a gate. A Call neither blocks nor allocates.
class CallGate {
public:
    // `owner` is the object that the procedure belongs to, for instance its port.
    explicit CallGate(MIDIObjectRef owner) : mOwner(owner) {}
    CallGate(const CallGate&) = delete;
    CallGate& operator=(const CallGate&) = delete;

    // A Call marks a call of the procedure as in progress while it exists, on the stack of the
    // calling thread. It is false if the gate is closed: the procedure must not be called then. The
    // gate must outlive its calls.
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

    // Closes the gate and waits for the calls in progress. It does not wait if the calling thread
    // is itself within a call of the same owner, which could never end meanwhile.
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
