#include "platform/CoreMIDI/src/state/SetupStore.h"

#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/SetupFormat.h"
#include "platform/support/FileReading.h"
#include "platform/support/LockedFile.h"

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

std::optional<SetupDescription> Parse(const std::string& bytes) {
    const CFOwned<CFDataRef> contents(CFDataCreate(
        nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    const CFOwned<CFPropertyListRef> propertyList(CFPropertyListCreateWithData(
        nullptr, contents.Get(), kCFPropertyListImmutable, nullptr, nullptr));
    return ReadSetup(propertyList.Get());
}

// The setup in the file, none where there is no file. What is no setup is moved aside; the status
// says so. The result is a value of errno, 0 but for kMIDINotPermitted.
int Read(const std::string& path, SetupDescription& setup, OSStatus& status) {
    constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;
    std::string bytes;
    const FileFailure failure = ReadWholeFile(path, kMaximumBytes, bytes);
    if (failure.error == ENOENT) {
        return 0;
    }
    status = kMIDINotPermitted;
    if (failure && failure.error != EFBIG) {
        return failure.error;
    }
    auto parsed = failure ? std::nullopt : Parse(bytes);
    if (parsed) {
        setup = std::move(*parsed);
        status = noErr;
        return 0;
    }
    std::string aside;
    if (const FileFailure unmoved = LockedFile(path).MoveAside(aside)) {
        return unmoved.error;
    }
    syslog(LOG_ERR, "CoreMIDI: %s is not a MIDI setup; it was moved to %s", path.c_str(),
           aside.c_str());
    status = kMIDISetupFormatErr;
    return 0;
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
        error = Read(*path, setup, status);
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
    if (!mPath) {
        return kMIDINoCurrentSetup;
    }
    if (const FileFailure failure = SaveLocked()) {
        errno = failure.error;
        return kMIDINotPermitted;
    }
    return noErr;
}

void SetupStore::SaveAfterChange() {
    const std::lock_guard lock(mMutex);
    if (mPath) {
        if (const FileFailure failure = SaveLocked()) {
            syslog(LOG_ERR, "CoreMIDI: the MIDI setup is not saved: %s: %s", mPath->c_str(),
                   failure.text.c_str());
        }
    }
}

FileFailure SetupStore::SaveLocked() {
    CFOwned<CFPropertyListRef> propertyList;
    {
        World& world = World::Get();
        const std::lock_guard lock(world.mMutex);
        propertyList = WriteSetup(world);
    }
    const CFOwned<CFDataRef> contents = BytesOf(propertyList.Get());
    if (!contents) {
        return {EINVAL, "no property list can be made of it"};
    }
    return LockedFile(*mPath).Replace(
        {reinterpret_cast<const char*>(CFDataGetBytePtr(contents.Get())),
         static_cast<std::size_t>(CFDataGetLength(contents.Get()))});
}

} // namespace CoreMIDI
