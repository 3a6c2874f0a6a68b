#include "platform/CoreFoundation/src/plugin/BundleModule.h"

#include "platform/CoreFoundation/src/plugin/ModuleExtent.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/FileReading.h"

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFPropertyList.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr std::size_t kLongestList = std::size_t{1024} * 1024;

CFDictionaryRef CopyDictionary(const std::string& bytes, std::string& reason) {
    const CFOwned<CFDataRef> data(CFDataCreate(
        nullptr, reinterpret_cast<const UInt8*>(bytes.data()), static_cast<CFIndex>(bytes.size())));
    if (!data) {
        throw std::bad_alloc();
    }
    CFErrorRef error = nullptr;
    CFOwned<CFPropertyListRef> list(CFPropertyListCreateWithData(
        nullptr, data.Get(), kCFPropertyListImmutable, nullptr, &error));
    const CFOwned<CFErrorRef> ownedError(error);
    if (!list && error == nullptr) {
        throw std::bad_alloc(); // not the list's fault
    }
    if (!list) {
        const CFOwned<CFStringRef> text(CFErrorCopyDescription(error));
        reason = UTF8OfString(text.Get()).value_or("it cannot be read");
        return nullptr;
    }
    if (CFRuntimeTypeOf(list.Get()) != kCFRuntimeDictionaryType) {
        reason = "its top is no dictionary";
        return nullptr;
    }
    return static_cast<CFDictionaryRef>(list.Release());
}

} // namespace

std::shared_ptr<BundleModule> BundleModule::Read(const std::string& folder) {
    const std::string listPath = folder + "/Contents/Info.plist";
    std::string reason;
    std::string bytes;
    const FileFailure failure = ReadWholeFile(listPath, kLongestList, bytes);
    CFOwned<CFDictionaryRef> info(failure ? nullptr : CopyDictionary(bytes, reason));
    if (!info) {
        SetPlugInError(listPath +
                       ": expected a bundle's property list: " + (failure ? failure.text : reason));
        return nullptr;
    }
    return std::make_shared<BundleModule>(folder, std::move(info));
}

BundleModule::BundleModule(const std::string& folder, CFOwned<CFDictionaryRef> info)
    : mFolder(folder), mInfo(std::move(info)) {}

BundleModule::~BundleModule() = default;

std::string BundleModule::ListPath() const {
    return mFolder + "/Contents/Info.plist";
}

std::optional<std::string> BundleModule::ExecutablePath() const {
    const auto name = RequiredString(Info(), "CFBundleExecutable", ListPath());
    if (!name) {
        return std::nullopt;
    }
    if (name->find('/') != std::string::npos) {
        SetPlugInError(ListPath() + ": key CFBundleExecutable: expected a file name, found \"" +
                       *name + "\"");
        return std::nullopt;
    }
    return mFolder + "/Contents/Linux/" + *name;
}

bool BundleModule::Load() {
    const MutexLock lock(mLoadMutex);
    if (mHandle != nullptr) {
        return true;
    }
    const auto path = ExecutablePath();
    if (!path) {
        return false;
    }
    struct stat status {};
    if (stat(path->c_str(), &status) != 0) {
        return SetPlugInError(*path + ": " + std::strerror(errno) +
                              "; expected the module that key CFBundleExecutable of " + ListPath() +
                              " names");
    }
    if (!S_ISREG(status.st_mode)) {
        return SetPlugInError(*path + ": expected the module that key CFBundleExecutable of " +
                              ListPath() + " names, found no regular file");
    }
    const FileDescriptor file(open(path->c_str(), O_RDONLY | O_CLOEXEC));
    const std::uint64_t due = file ? ModuleExtent(file.Get()).value_or(0) : 0;
    if (due > static_cast<std::uint64_t>(status.st_size)) {
        return SetPlugInError(*path + ": cut off: by its headers the module has " +
                              std::to_string(due) + " bytes, the file has " +
                              std::to_string(status.st_size));
    }
    mHandle = dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr) {
        const char* const reason = dlerror();
        return SetPlugInError(*path + ": expected a module that can be loaded: " +
                              (reason == nullptr ? "no reason given" : reason));
    }
    return true;
}

bool BundleModule::IsLoaded() const {
    const MutexLock lock(mLoadMutex);
    return mHandle != nullptr;
}

void BundleModule::Unload() {
    const MutexLock lock(mLoadMutex);
    if (mHandle != nullptr) {
        dlclose(std::exchange(mHandle, nullptr));
    }
}

void* BundleModule::Find(const std::string& function) {
    const MutexLock lock(mLoadMutex);
    return Load() ? dlsym(mHandle, function.c_str()) : nullptr;
}

BundleRegistry& BundleRegistry::Instance() {
    // Never destroyed: plug-ins may be released by static destructors.
    static BundleRegistry* const registry = new BundleRegistry;
    return *registry;
}

BundleRegistry::Entry* BundleRegistry::EntryWithFactory(const UuidBytes& factory) {
    for (Entry& entry : mEntries) {
        for (const PlugInFactory& each : entry.factories) {
            if (each.uuid == factory) {
                return &entry;
            }
        }
    }
    return nullptr;
}

BundleRegistry::Entry* BundleRegistry::EntryOf(const BundleModule& module) {
    const auto found = std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.module.get() == &module;
    });
    return found == mEntries.end() ? nullptr : &*found;
}

CFBundleRef BundleRegistry::CopyOrMake(const std::string& folder) {
    const MutexLock lock(mMutex);
    const auto known = std::find_if(mEntries.begin(), mEntries.end(), [&](const Entry& entry) {
        return entry.module->Folder() == folder;
    });
    if (known != mEntries.end()) {
        if (known->bundle == nullptr || !known->bundle->RetainIfAlive()) {
            known->bundle = new __CFBundle(known->module);
        }
        return known->bundle;
    }
    auto module = BundleModule::Read(folder);
    if (module == nullptr) {
        return nullptr;
    }
    // The place first: a bundle that was made is known, as its end takes the lock held here.
    mEntries.reserve(mEntries.size() + 1);
    auto* const bundle = new __CFBundle(module);
    mEntries.push_back({std::move(module), bundle, {}, {}, 0});
    return bundle;
}

void BundleRegistry::Released(CFBundleRef bundle, const std::shared_ptr<BundleModule>& module) {
    {
        const MutexLock lock(mMutex);
        Entry* const entry = EntryOf(*module);
        // Another bundle may have been made for the module since the last reference to this one
        // went.
        if (entry == nullptr || entry->bundle != bundle) {
            return;
        }
        entry->bundle = nullptr;
        if (!entry->instances.empty() || entry->uses != 0) {
            return;
        }
        mEntries.erase(mEntries.begin() + (entry - mEntries.data()));
    }
    module->Unload();
}

void BundleRegistry::Register(const std::shared_ptr<BundleModule>& module,
                              const std::vector<PlugInFactory>& factories) {
    const MutexLock lock(mMutex);
    Entry* const entry = EntryOf(*module);
    if (entry != nullptr && entry->factories.empty()) {
        entry->factories = factories;
    }
}

std::vector<UuidBytes> BundleRegistry::FactoriesFor(const UuidBytes& type,
                                                    const BundleModule& module) {
    std::vector<UuidBytes> found;
    const MutexLock lock(mMutex);
    if (const Entry* const entry = EntryOf(module)) {
        for (const PlugInFactory& factory : entry->factories) {
            if (std::count(factory.types.begin(), factory.types.end(), type) != 0) {
                found.push_back(factory.uuid);
            }
        }
    }
    return found;
}

std::optional<BundleRegistry::FactoryUse> BundleRegistry::BeginUse(const UuidBytes& factory) {
    const MutexLock lock(mMutex);
    for (Entry& entry : mEntries) {
        for (const PlugInFactory& each : entry.factories) {
            if (each.uuid == factory && entry.bundle != nullptr) {
                FactoryUse use{entry.module, each};
                ++entry.uses;
                return use;
            }
        }
    }
    return std::nullopt;
}

void BundleRegistry::EndUse(const FactoryUse& use) {
    const MutexLock lock(mMutex);
    if (Entry* const entry = EntryOf(*use.module)) {
        --entry->uses;
    }
}

void BundleRegistry::AddInstance(const UuidBytes& factory) {
    const MutexLock lock(mMutex);
    if (Entry* const entry = EntryWithFactory(factory)) {
        entry->instances.push_back(factory);
    }
}

void BundleRegistry::RemoveInstance(const UuidBytes& factory) {
    const MutexLock lock(mMutex);
    for (Entry& entry : mEntries) {
        const auto instance = std::find(entry.instances.begin(), entry.instances.end(), factory);
        if (instance != entry.instances.end()) {
            entry.instances.erase(instance);
            return;
        }
    }
}

std::size_t BundleRegistry::UnloadUnused() {
    std::size_t count = 0;
    // One by one, since there may be no memory for a list of them; with the lock let go, since a
    // module may have destructors that use bundles.
    while (const std::shared_ptr<BundleModule> module = TakeUnused()) {
        count += module->IsLoaded() ? 1U : 0U;
        module->Unload();
    }
    return count;
}

std::shared_ptr<BundleModule> BundleRegistry::TakeUnused() {
    const MutexLock lock(mMutex);
    const auto unused = std::find_if(mEntries.begin(), mEntries.end(), [](const Entry& entry) {
        return entry.bundle == nullptr && entry.instances.empty() && entry.uses == 0;
    });
    if (unused == mEntries.end()) {
        return nullptr;
    }
    std::shared_ptr<BundleModule> module = std::move(unused->module);
    mEntries.erase(unused);
    return module;
}
