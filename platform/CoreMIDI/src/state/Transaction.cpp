#include "platform/CoreMIDI/src/state/Transaction.h"

#include <new>
#include <string>
#include <utility>

namespace CoreMIDI {

namespace {

const Device* DeviceOf(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex) {
    const PropertyObject* top = &object;
    while (top->Parent() != nullptr) {
        top = top->Parent();
    }
    return dynamic_cast<const Device*>(top);
}

} // namespace

Transaction::~Transaction() {
    if (mIsNotified) {
        const Notice setupChanged;
        NotificationCentre::Get().Post(mNotices);
        NotificationCentre::Get().Post({&setupChanged, 1});
    }
    sStateMutex.Unlock();
    if (mSetupChanged) {
        ServerState::Get().mSetup.SaveAfterChange();
    }
    while (mEnded != nullptr) {
        const std::shared_ptr<Connection> ended = std::move(mEnded);
        mEnded = std::move(ended->mNextEnded);
        ended->mGate.Close();
    }
}

void Transaction::SetupChanged(const PropertyObject& object) noexcept {
    const Device* const device = DeviceOf(object);
    mSetupChanged = mSetupChanged || (device != nullptr && device->mIsInSetup);
}

void Transaction::Notify(MIDINotificationMessageID message, const PropertyObject& object,
                         std::string_view property) noexcept {
    const Device* const device = DeviceOf(object);
    if (device != nullptr && !device->mIsInSetup) {
        return;
    }
    mIsNotified = true;
    if (mIsCutShort) {
        return;
    }
    try {
        mNotices.push_back({message, object.mReference,
                            object.Parent() == nullptr ? 0 : object.Parent()->mReference,
                            std::string(property), noErr});
    } catch (const std::bad_alloc&) {
        mNotices.clear();
        mIsCutShort = true;
    }
}

} // namespace CoreMIDI
