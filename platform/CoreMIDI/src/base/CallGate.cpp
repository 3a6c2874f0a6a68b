#include "platform/CoreMIDI/src/base/CallGate.h"

namespace CoreMIDI {

namespace {

thread_local const CallGate::Call* tlsInnermostCall = nullptr;

} // namespace

CallGate::Call::Call(CallGate& gate) : mGate(gate), mOuter(tlsInnermostCall) {
    // Acquire: what was written before the gate was made or, for a closed one, before Close.
    mIsOpen = (gate.mState.fetch_add(1, std::memory_order_acquire) & kClosed) == 0;
    if (mIsOpen) {
        tlsInnermostCall = this;
    }
}

CallGate::Call::~Call() {
    if (mIsOpen) {
        tlsInnermostCall = mOuter;
    }
    // Release: the call's effects are visible to the thread that Close lets go on.
    if ((mGate.mState.fetch_sub(1, std::memory_order_release) & kClosed) != 0) {
        mGate.mState.notify_all();
    }
}

bool CallGate::IsOwnerCalledByThisThread() const {
    for (const Call* call = tlsInnermostCall; call != nullptr; call = call->mOuter) {
        if (call->mGate.mOwner == mOwner) {
            return true;
        }
    }
    return false;
}

void CallGate::Close() {
    std::uint32_t state = mState.fetch_or(kClosed, std::memory_order_acq_rel) | kClosed;
    if (IsOwnerCalledByThisThread()) {
        return;
    }
    while (state != kClosed) {
        mState.wait(state, std::memory_order_acquire);
        state = mState.load(std::memory_order_acquire);
    }
}

} // namespace CoreMIDI
