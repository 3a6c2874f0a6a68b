#include "platform/CoreMIDI/src/state/SetupStore.h"

#include "platform/CoreMIDI/src/base/SetupFile.h"
#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/SetupFormat.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace CoreMIDI {

namespace {

CFOwned<CFDataRef> BytesOf(CFPropertyListRef propertyList) {
    return CFOwned<CFDataRef>(
        CFPropertyListCreateData(nullptr, propertyList, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
}

// Whether CoreFoundation was built with property-list files.
bool CanKeepFiles() {
    return static_cast<bool>(BytesOf(DictionaryOf({}).Get()));
}

std::optional<SetupDescription> Parse(const CFOwned<CFDataRef>& contents) {
    const CFOwned<CFPropertyListRef> propertyList(CFPropertyListCreateWithData(
        nullptr, contents.Get(), kCFPropertyListImmutable, nullptr, nullptr));
    return ReadSetup(propertyList.Get());
}

void Take(PropertyObject& object, const PartDescription& description) {
    World::Get().TakeUniqueID(object, description.mUniqueID);
    object.mProperties = description.mProperties;
}

void Populate(Change& change, const SetupDescription& setup) {
    World& world = World::Get();
    for (const DeviceDescription& description : setup) {
        auto& device = world.Add<Device>(Kind::kDevice);
        world.mSetupDevices.push_back(&device);
        device.mIsInSetup = true;
        Take(device, description);
        for (const EntityDescription& entityDescription : description.mEntities) {
            Entity& entity = AddEntity(device);
            Take(entity, entityDescription);
            for (const PartDescription& source : entityDescription.mSources) {
                Take(AddEndpoint(entity, Kind::kSource), source);
            }
            for (const PartDescription& destination : entityDescription.mDestinations) {
                Take(AddEndpoint(entity, Kind::kDestination), destination);
            }
        }
        if (device.mProperties.contains(kDriverOwnerProperty)) {
            GiveToDriver(device, nullptr);
        }
        change.NotifyAdded(device);
    }
}

} // namespace

OSStatus SetupStore::Open(std::optional<std::string> path) {
    std::unique_lock lock(mMutex);
    OSStatus status = noErr;
    SetupDescription setup;
    int error = 0;
    if (path && !CanKeepFiles()) {
        status = kMIDINotPermitted;
        error = ENOTSUP;
    } else if (path) {
        CFOwned<CFDataRef> contents;
        error = ReadWholeFile(*path, contents);
        if (error == ENOENT) {
            error = 0;
        } else if (error == 0 || error == EFBIG) {
            std::optional<SetupDescription> parsed;
            if (error == 0) {
                parsed = Parse(contents);
            }
            if (parsed) {
                setup = std::move(*parsed);
            } else {
                std::string aside;
                error = MoveFileAside(*path, aside);
                status = error == 0 ? kMIDISetupFormatErr : kMIDINotPermitted;
                if (error == 0) {
                    syslog(LOG_ERR, "CoreMIDI: %s is not a MIDI setup; it was moved to %s",
                           path->c_str(), aside.c_str());
                }
            }
        } else {
            status = kMIDINotPermitted;
        }
    }
    mPath = status == kMIDINotPermitted ? std::nullopt : std::move(path);

    auto change = std::make_unique<Change>();
    const auto before = World::Get().mSetupDevices;
    for (Device* device : before) {
        change->NotifyRemoved(*device);
        DestroyDevice(*change, *device);
    }
    Populate(*change, setup);
    // Read procedures that are waited for may themselves change the setup.
    lock.unlock();
    change.reset();
    if (error != 0) {
        errno = error;
    }
    return status;
}

OSStatus SetupStore::Save() {
    const std::lock_guard lock(mMutex);
    return mPath ? SaveLocked() : kMIDINoCurrentSetup;
}

void SetupStore::SaveAfterChange() {
    const std::lock_guard lock(mMutex);
    if (mPath && SaveLocked() != noErr) {
        syslog(LOG_ERR, "CoreMIDI: the MIDI setup cannot be written to %s: %s", mPath->c_str(),
               std::strerror(errno));
    }
}

OSStatus SetupStore::SaveLocked() {
    CFOwned<CFPropertyListRef> propertyList;
    {
        World& world = World::Get();
        const std::lock_guard lock(world.mMutex);
        propertyList = WriteSetup(world);
    }
    const CFOwned<CFDataRef> contents = BytesOf(propertyList.Get());
    const int error = contents ? WriteFileAtomically(*mPath, contents.Get()) : EINVAL;
    if (error != 0) {
        errno = error;
        return kMIDINotPermitted;
    }
    return noErr;
}

} // namespace CoreMIDI
