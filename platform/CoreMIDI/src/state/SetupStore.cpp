#include "platform/CoreMIDI/src/state/SetupStore.h"

#include "platform/CoreMIDI/src/base/OnFailure.h"
#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/SetupFormat.h"
#include "platform/support/FileReading.h"
#include "platform/support/LockedFile.h"

#include <syslog.h>

#include <cerrno>
#include <exception>
#include <new>
#include <utility>
#include <vector>

namespace CoreMIDI {

namespace {

// Throws std::bad_alloc if a property-list function has returned null without an error, which it
// does only if there is no memory.
void RequireMemory(CFTypeRef made, const CFOwned<CFErrorRef>& error) {
    if (made == nullptr && !error) {
        throw std::bad_alloc();
    }
}

// Returns null if the setup cannot be written as a property list.
CFOwned<CFDataRef> BytesOf(CFPropertyListRef propertyList) {
    CFErrorRef error = nullptr;
    CFOwned<CFDataRef> bytes(
        CFPropertyListCreateData(nullptr, propertyList, kCFPropertyListXMLFormat_v1_0, 0, &error));
    RequireMemory(bytes.Get(), CFOwned<CFErrorRef>(error));
    return bytes;
}

std::optional<SetupDescription> Parse(const std::string& bytes) {
    const CFOwned<CFDataRef> contents(CFDataCreate(
        nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    if (!contents) {
        throw std::bad_alloc();
    }
    CFErrorRef error = nullptr;
    const CFOwned<CFPropertyListRef> propertyList(CFPropertyListCreateWithData(
        nullptr, contents.Get(), kCFPropertyListImmutable, nullptr, &error));
    RequireMemory(propertyList.Get(), CFOwned<CFErrorRef>(error));
    return ReadSetup(propertyList.Get());
}

// A Replacement makes the devices that a file describes. They are not in the setup, and have unique
// IDs other than those of the file, until TakePlace puts them into the place of the present
// devices. The destructor destroys them if that has not happened.
class Replacement {
public:
    // Throws std::bad_alloc, with nothing changed.
    Replacement(Transaction& transaction, const SetupDescription& setup)
        : mTransaction(transaction) {
        mDevices.reserve(setup.size());
        const OnFailure destroy([this]() QUORVEL_REQUIRES(sStateMutex) { Destroy(mDevices); });
        for (const DeviceDescription& description : setup) {
            AddDevice(description);
        }
    }
    ~Replacement() { Destroy(mDevices); }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void TakePlace() noexcept QUORVEL_REQUIRES(sStateMutex) {
        ServerState& state = ServerState::Get();
        for (const Device* device : state.mSetupDevices) {
            mTransaction.NotifyRemoved(*device);
        }
        Destroy(state.mSetupDevices);
        state.mSetupDevices.swap(mDevices);
        for (const auto& [object, uniqueID] : mUniqueIDs) {
            state.TakeUniqueID(*object, uniqueID);
        }
        for (Device* device : state.mSetupDevices) {
            device->mIsInSetup = true;
            mTransaction.NotifyAdded(*device);
        }
    }

private:
    void AddDevice(const DeviceDescription& description) QUORVEL_REQUIRES(sStateMutex) {
        auto& device = ServerState::Get().Add<Device>(Kind::kDevice);
        mDevices.push_back(&device); // there is room
        Describe(device, description);
        if (device.mProperties.contains(kDriverOwnerProperty)) {
            device.mProperties[kOfflineProperty] =
                CFOwned<CFPropertyListRef>(MakeNumber(1).Release());
        }
        for (const EntityDescription& entityDescription : description.mEntities) {
            Entity& entity = AddEntity(device);
            Describe(entity, entityDescription);
            for (const PartDescription& source : entityDescription.mSources) {
                Describe(AddEndpoint(entity, Kind::kSource), source);
            }
            for (const PartDescription& destination : entityDescription.mDestinations) {
                Describe(AddEndpoint(entity, Kind::kDestination), destination);
            }
        }
    }

    void Describe(PropertyObject& object, const PartDescription& description)
        QUORVEL_REQUIRES(sStateMutex) {
        object.mProperties = description.mProperties;
        mUniqueIDs.emplace_back(&object, description.mUniqueID);
    }

    void Destroy(std::vector<Device*>& devices) noexcept QUORVEL_REQUIRES(sStateMutex) {
        while (!devices.empty()) {
            Device& device = *devices.back();
            devices.pop_back();
            DestroyDevice(mTransaction, device);
        }
    }

    Transaction& mTransaction;
    std::vector<Device*> mDevices;
    std::vector<std::pair<PropertyObject*, MIDIUniqueID>> mUniqueIDs; // of all objects, by the file
};

// Reads the setup from the file, or an empty one if there is no file. A file that is no setup is
// renamed, and `status` becomes kMIDISetupFormatErr. If the file can neither be read nor renamed,
// `status` becomes kMIDINotPermitted and the result is a value of errno; otherwise the result is 0.
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

} // namespace

OSStatus SetupStore::Open(std::optional<std::string> path) {
    OSStatus status = noErr;
    int error = 0;
    {
        MutexLock lock(mMutex);
        SetupDescription setup;
        error = path ? Read(*path, setup, status) : 0;
        if (status == kMIDINotPermitted) {
            path.reset();
        }
        Transaction transaction;
        Replacement(transaction, setup).TakePlace();
        mPath = std::move(path);
        // The transaction's destructor waits for read procedures, which may themselves change the
        // setup and so need this lock.
        lock.Unlock();
    }
    if (error != 0) {
        errno = error;
    }
    return status;
}

OSStatus SetupStore::Save() {
    const MutexLock lock(mMutex);
    if (!mPath) {
        return kMIDINoCurrentSetup;
    }
    if (const FileFailure failure = WriteFile()) {
        errno = failure.error;
        return kMIDINotPermitted;
    }
    return noErr;
}

void SetupStore::SaveAfterChange() noexcept {
    const MutexLock lock(mMutex);
    if (!mPath) {
        return;
    }
    const auto report = [this](const char* why) QUORVEL_REQUIRES(mMutex) {
        syslog(LOG_ERR, "CoreMIDI: the MIDI setup is not saved: %s: %s", mPath->c_str(), why);
    };
    try {
        if (const FileFailure failure = WriteFile()) {
            report(failure.text.c_str());
        }
    } catch (const std::exception&) {
        report("there is no memory for it");
    }
}

FileFailure SetupStore::WriteFile() {
    CFOwned<CFPropertyListRef> propertyList;
    {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        propertyList = WriteSetup(state);
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
