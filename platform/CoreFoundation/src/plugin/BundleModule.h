// A bundle's contents and its loaded module, apart from the `CFBundleRef` that hosts hold: when
// that is released while the module's instances live, the module has to stay, and be found by the
// code that removes the last instance.
//
// Thread-safe. No lock is held while the dynamic loader, the module's constructors or a factory
// run, save the module's own recursive `mLoadMutex`.
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
    // The bundle at a folder given by its real path; null, with the thread's plug-in error set,
    // when its property list cannot be read.
    static std::shared_ptr<BundleModule> Read(const std::string& folder);

    BundleModule(const std::string& folder, CFOwned<CFDictionaryRef> info);
    BundleModule(const BundleModule&) = delete;
    BundleModule& operator=(const BundleModule&) = delete;
    ~BundleModule();

    const std::string& Folder() const { return mFolder; }
    std::string ListPath() const;
    CFDictionaryRef Info() const { return mInfo.Get(); }

    // Null, with the thread's plug-in error set, when the property list does not name it.
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

// The bundles and plug-ins that this process knows. One mutex guards all; a new bundle's property
// list is read under it, so that the same folder never gives two bundles.
class BundleRegistry {
public:
    static BundleRegistry& Instance();

    // The live bundle of a folder (retained), else a new one.
    CFBundleRef CopyOrMake(const std::string& folder);

    // Called as the last reference to a bundle goes. Unloads the module unless instances live.
    void Released(CFBundleRef bundle, const std::shared_ptr<BundleModule>& module);

    // Makes the factories known, once.
    void Register(const std::shared_ptr<BundleModule>& module,
                  const std::vector<PlugInFactory>& factories);

    // The factories that make a type, of one module or of all.
    std::vector<UuidBytes> FactoriesFor(const UuidBytes& type, const BundleModule* module);

    struct FactoryUse {
        std::shared_ptr<BundleModule> module;
        PlugInFactory factory;
    };
    // A factory, its module kept from being unloaded until `EndUse`.
    std::optional<FactoryUse> BeginUse(const UuidBytes& factory);
    void EndUse(const FactoryUse& use);

    void AddInstance(const UuidBytes& factory);
    void RemoveInstance(const UuidBytes& factory);
    bool HasInstances(const BundleModule& module);

    // Unloads the modules that nobody holds any more; how many.
    std::size_t UnloadUnused();

private:
    struct Entry {
        std::shared_ptr<BundleModule> module;
        CFBundleRef bundle = nullptr; // no reference is held; null once released
        std::vector<PlugInFactory> factories;
        std::vector<UuidBytes> instances; // one factory UUID for each
        std::size_t uses = 0;
    };

    Entry* EntryWithFactory(const UuidBytes& factory) QUORVEL_REQUIRES(mMutex);
    Entry* EntryOf(const BundleModule& module) QUORVEL_REQUIRES(mMutex);
    // A module that nobody holds any more, which is taken out; null when there is none.
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
