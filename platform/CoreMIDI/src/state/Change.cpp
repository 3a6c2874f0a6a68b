#include "platform/CoreMIDI/src/state/Change.h"

namespace CoreMIDI {

namespace {

const Device* DeviceOf(const PropertyObject& object) {
    const PropertyObject* top = &object;
    while (top->Parent() != nullptr) {
        top = top->Parent();
    }
    return dynamic_cast<const Device*>(top);
}

} // namespace

Change::~Change() {
    if (!mNotices.empty()) {
        mNotices.emplace_back();
        NotificationCentre::Get().Post(mNotices);
    }
    mLock.unlock();
    if (mSetupChanged) {
        World::Get().mSetup.SaveAfterChange();
    }
    for (const std::shared_ptr<Connection>& connection : mEnded) {
        connection->mGate.Close();
    }
}

void Change::SetupChanged(const PropertyObject& object) {
    const Device* const device = DeviceOf(object);
    mSetupChanged = mSetupChanged || (device != nullptr && device->mIsInSetup);
}

void Change::Notify(MIDINotificationMessageID message, const PropertyObject& object,
                    const std::string& property) {
    const Device* const device = DeviceOf(object);
    if (device != nullptr && !device->mIsInSetup) {
        return;
    }
    Notice notice;
    notice.mMessage = message;
    notice.mObject = object.mReference;
    notice.mParent = object.Parent() == nullptr ? 0 : object.Parent()->mReference;
    notice.mProperty = property;
    mNotices.push_back(std::move(notice));
}

} // namespace CoreMIDI
