#include "platform/CoreFoundation/src/plugin/BundleModule.h"

#include "platform/CoreFoundation/src/plugin/ModuleExtent.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListFile.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/FileReading.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t kLongestList = std::size_t{1024} * 1024;

CFPropertyListRef CopyList(const std::string& path) {
    const std::string expected = path + ": expected a bundle's property list: ";
    std::string bytes;
    if (const FileFailure failure = ReadWholeFile(path, kLongestList, bytes)) {
        throw PlugInFault{expected + failure.text};
    }
    CFPropertyListFormat format = 0;
    PropertyListFailure failure;
    CFOwned<CFPropertyListRef> list(ParsePropertyList(bytes, false, format, failure));
    if (!list) {
        throw PlugInFault{expected + failure.text};
    }
    if (CFRuntimeTypeOf(list.Get()) != kCFRuntimeDictionaryType) {
        throw PlugInFault{expected + "its top is no dictionary"};
    }
    return list.Release();
}

} // namespace

BundleModule::BundleModule(const std::string& folder)
    : mFolder(folder), mListPath(folder + "/Contents/Info.plist"), mInfo(CopyList(mListPath)) {}

std::string BundleModule::ExecutablePath() const {
    return mFolder + "/Contents/Linux/" + ExecutableName(Info(), mListPath);
}

void BundleModule::Load() {
    const std::string path = ExecutablePath();
    const std::string expected =
        "expected the module that key CFBundleExecutable of " + mListPath + " names";
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw PlugInFault{path + ": " + std::strerror(errno) + "; " + expected};
    }
    if (!S_ISREG(status.st_mode)) {
        throw PlugInFault{path + ": " + expected + ", found no regular file"};
    }
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const std::uint64_t due = file ? ModuleExtent(file.Get()).value_or(0) : 0;
    if (due > static_cast<std::uint64_t>(status.st_size)) {
        throw PlugInFault{path + ": cut off: by its headers the module has " + std::to_string(due) +
                          " bytes, the file has " + std::to_string(status.st_size)};
    }
    mHandle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr) {
        const char* const reason = dlerror();
        throw PlugInFault{path + ": expected a module that can be loaded: " +
                          (reason == nullptr ? "no reason given" : reason)};
    }
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
    if (mHandle == nullptr) {
        Load();
    }
    return dlsym(mHandle, function.c_str());
}

BundleRegistry& BundleRegistry::Instance() {
    // Never destroyed: plug-ins may be released by static destructors.
    static BundleRegistry* const registry = new BundleRegistry;
    return *registry;
}

bool BundleRegistry::Entry::IsUnused() const {
    return bundle == nullptr && uses == 0 &&
           std::all_of(factories.begin(), factories.end(),
                       [](const PlugInFactory& factory) { return factory.instances == 0; });
}

template <typename Body>
bool BundleRegistry::WithFactory(const UuidBytes& uuid, const Body& body) {
    for (Entry& entry : mEntries) {
        for (PlugInFactory& factory : entry.factories) {
            if (factory.uuid == uuid && body(entry, factory)) {
                return true;
            }
        }
    }
    return false;
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
    auto module = std::make_shared<BundleModule>(folder);
    // The place first: a bundle that was made is known, as its end takes the lock held here.
    mEntries.reserve(mEntries.size() + 1);
    auto* const bundle = new __CFBundle(module);
    mEntries.push_back({std::move(module), bundle, {}, 0});
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
        if (!entry->IsUnused()) {
            return;
        }
        Take(*entry);
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

BundleRegistry::FactoryUse::FactoryUse(const UuidBytes& uuid) {
    BundleRegistry& registry = Instance();
    const MutexLock lock(registry.mMutex);
    const bool found = registry.WithFactory(uuid, [this](Entry& entry, const PlugInFactory& each) {
        if (entry.bundle == nullptr) {
            return false;
        }
        factory = each;
        module = entry.module;
        ++entry.uses;
        return true;
    });
    if (!found) {
        throw PlugInFault{"expected a plug-in with factory " + UuidText(uuid) +
                          " to have been created, found none"};
    }
}

BundleRegistry::FactoryUse::~FactoryUse() {
    BundleRegistry& registry = Instance();
    const MutexLock lock(registry.mMutex);
    if (Entry* const entry = registry.EntryOf(*module)) {
        --entry->uses;
    }
}

void BundleRegistry::AddInstance(const UuidBytes& factory) {
    const MutexLock lock(mMutex);
    WithFactory(factory, [](const Entry&, PlugInFactory& each) { return ++each.instances != 0; });
}

void BundleRegistry::RemoveInstance(const UuidBytes& factory) {
    const MutexLock lock(mMutex);
    WithFactory(factory, [](const Entry&, PlugInFactory& each) {
        return each.instances != 0 && each.instances-- != 0;
    });
}

std::size_t BundleRegistry::UnloadUnused() {
    std::size_t count = 0;
    while (true) {
        std::shared_ptr<BundleModule> module;
        {
            const MutexLock lock(mMutex);
            const auto unused = std::find_if(mEntries.begin(), mEntries.end(),
                                             [](const Entry& entry) { return entry.IsUnused(); });
            if (unused == mEntries.end()) {
                return count;
            }
            module = Take(*unused);
        }
        // With the lock let go, since a module may have destructors that use bundles.
        count += module->IsLoaded() ? 1U : 0U;
        module->Unload();
    }
}

std::shared_ptr<BundleModule> BundleRegistry::Take(const Entry& entry) {
    std::shared_ptr<BundleModule> module = entry.module;
    mEntries.erase(mEntries.begin() + (&entry - mEntries.data()));
    return module;
}
