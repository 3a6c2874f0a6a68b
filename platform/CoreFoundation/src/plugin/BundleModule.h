// A bundle's contents and its loaded module are kept apart from the `CFBundleRef` that hosts hold:
// if a host releases that while instances of the module live, the module has to stay, and the code
// that removes the last instance has to find it.
//
//     const CFBundleRef bundle = BundleRegistry::Instance().CopyOrMake(folder);
//     void* const symbol = bundle->mModule->Find("MakeInstance"); // loads the module
//
// Both classes are thread-safe. While the dynamic loader, the module's constructors or a factory
// run, a thread holds no lock except the module's own recursive `mLoadMutex`. Functions that fail
// throw a PlugInFault.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/plugin/PlugInDescription.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFBundle.h>
#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

class BundleModule {
public:
    // Reads the bundle at a folder, which is given by its real path.
    explicit BundleModule(const std::string& folder);
    BundleModule(const BundleModule&) = delete;
    BundleModule& operator=(const BundleModule&) = delete;

    const std::string& Folder() const { return mFolder; }
    const std::string& ListPath() const { return mListPath; }
    CFDictionaryRef Info() const { return static_cast<CFDictionaryRef>(mInfo.Get()); }
    std::string ExecutablePath() const;

    bool IsLoaded() const;
    void Unload();
    // Loads the module if it is not loaded, and returns a function of it or null.
    void* Find(const std::string& function);

private:
    void Load() QUORVEL_REQUIRES(mLoadMutex);

    const std::string mFolder;
    const std::string mListPath;
    const CFOwned<CFPropertyListRef> mInfo; // a dictionary
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

    // A FactoryUse keeps the module of a factory from being unloaded as long as it exists.
    struct FactoryUse {
        explicit FactoryUse(const UuidBytes& factory);
        ~FactoryUse();
        FactoryUse(const FactoryUse&) = delete;
        FactoryUse& operator=(const FactoryUse&) = delete;

        std::shared_ptr<BundleModule> module;
        PlugInFactory factory;
    };

    void AddInstance(const UuidBytes& factory);
    void RemoveInstance(const UuidBytes& factory);

    // Unloads the modules that nobody holds any more and returns how many there were.
    std::size_t UnloadUnused();

private:
    struct Entry {
        std::shared_ptr<BundleModule> module;
        CFBundleRef bundle = nullptr; // no reference is held; null once released
        std::vector<PlugInFactory> factories;
        std::size_t uses = 0;

        bool IsUnused() const;
    };

    // Calls `body` with each entry that has a factory of this UUID, and with that factory, until it
    // returns true; returns whether it did.
    template <typename Body>
    bool WithFactory(const UuidBytes& uuid, const Body& body) QUORVEL_REQUIRES(mMutex);
    Entry* EntryOf(const BundleModule& module) QUORVEL_REQUIRES(mMutex);
    // Removes an entry and returns its module.
    std::shared_ptr<BundleModule> Take(const Entry& entry) QUORVEL_REQUIRES(mMutex);

    Mutex mMutex;
    std::vector<Entry> mEntries QUORVEL_GUARDED_BY(mMutex);
};

struct __CFBundle final : CFRuntimeObject {
    explicit __CFBundle(std::shared_ptr<BundleModule> module)
        : CFRuntimeObject(CFBundleGetTypeID()), mModule(std::move(module)) {}
    ~__CFBundle() override { BundleRegistry::Instance().Released(this, mModule); }

    const std::shared_ptr<BundleModule> mModule;
};
