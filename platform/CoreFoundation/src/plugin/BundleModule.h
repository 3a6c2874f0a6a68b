// A bundle's contents and its loaded module are kept apart from the `CFBundleRef` that hosts hold:
// if a host releases that while instances of the module live, the module has to stay, and the code
// that removes the last instance has to find it.
//
// Both classes are thread-safe. While the dynamic loader, the module's constructors or a factory
// run, a thread holds no lock except the module's own recursive `mLoadMutex`.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/plugin/PlugInDescription.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class BundleModule {
public:
    // Reads the bundle at a folder, which is given by its real path. If its property list cannot be
    // read, sets the thread's plug-in error and returns null.
    static std::shared_ptr<BundleModule> Read(const std::string& folder);

    BundleModule(const std::string& folder, CFOwned<CFDictionaryRef> info);
    BundleModule(const BundleModule&) = delete;
    BundleModule& operator=(const BundleModule&) = delete;
    ~BundleModule();

    const std::string& Folder() const { return mFolder; }
    std::string ListPath() const;
    CFDictionaryRef Info() const { return mInfo.Get(); }

    // If the property list does not name it, sets the thread's plug-in error and returns nothing.
    std::optional<std::string> ExecutablePath() const;

    bool Load();
    bool IsLoaded() const;
    void Unload();
    void* Find(const std::string& function);

private:
    const std::string mFolder;
    const CFOwned<CFDictionaryRef> mInfo;
    // Recursive: the module's constructors may ask for their own bundle.
    mutable RecursiveMutex mLoadMutex;
    void* mHandle QUORVEL_GUARDED_BY(mLoadMutex) = nullptr;
};

// The registry knows the bundles and plug-ins of this process. One mutex guards all of them. A
// thread holds it while it reads a new bundle's property list, so that a folder never gives two
// bundles.
class BundleRegistry {
public:
    static BundleRegistry& Instance();

    // Returns the bundle of a folder with a further reference, or a new one if there is none.
    CFBundleRef CopyOrMake(const std::string& folder);

    // A bundle calls this when its last reference goes. Unloads the module unless instances live.
    void Released(CFBundleRef bundle, const std::shared_ptr<BundleModule>& module);

    // Makes the factories known, once.
    void Register(const std::shared_ptr<BundleModule>& module,
                  const std::vector<PlugInFactory>& factories);

    // Returns the module's factories that make a type.
    std::vector<UuidBytes> FactoriesFor(const UuidBytes& type, const BundleModule& module);

    struct FactoryUse {
        std::shared_ptr<BundleModule> module;
        PlugInFactory factory;
    };
    // Finds a factory and keeps its module from being unloaded until `EndUse`.
    std::optional<FactoryUse> BeginUse(const UuidBytes& factory);
    void EndUse(const FactoryUse& use);

    void AddInstance(const UuidBytes& factory);
    void RemoveInstance(const UuidBytes& factory);

    // Unloads the modules that nobody holds any more and returns how many there were.
    std::size_t UnloadUnused();

private:
    struct Entry {
        std::shared_ptr<BundleModule> module;
        CFBundleRef bundle = nullptr; // no reference is held; null once released
        std::vector<PlugInFactory> factories;
        std::vector<UuidBytes> instances; // the factory of each instance
        std::size_t uses = 0;
    };

    Entry* EntryWithFactory(const UuidBytes& factory) QUORVEL_REQUIRES(mMutex);
    Entry* EntryOf(const BundleModule& module) QUORVEL_REQUIRES(mMutex);
    // Removes and returns a module that nobody holds any more, or null if there is none.
    std::shared_ptr<BundleModule> TakeUnused();

    Mutex mMutex;
    std::vector<Entry> mEntries QUORVEL_GUARDED_BY(mMutex);
};

struct __CFBundle final : CFRuntimeObject {
    explicit __CFBundle(std::shared_ptr<BundleModule> module)
        : CFRuntimeObject(CFBundleGetTypeID()), mModule(std::move(module)) {}
    ~__CFBundle() override { BundleRegistry::Instance().Released(this, mModule); }

    const std::shared_ptr<BundleModule> mModule;
};
