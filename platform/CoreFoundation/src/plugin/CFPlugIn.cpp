#include "platform/CoreFoundation/src/plugin/BundleModule.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFPlugIn.h>
#include <CoreFoundation/CFPlugInHost.h>

#include <cstring>

const CFStringRef kCFPlugInDynamicRegistrationKey = CFSTR("CFPlugInDynamicRegistration");
const CFStringRef kCFPlugInFactoriesKey = CFSTR("CFPlugInFactories");
const CFStringRef kCFPlugInTypesKey = CFSTR("CFPlugInTypes");

namespace {

std::optional<UuidBytes> BytesOf(CFUUIDRef uuid, const char* argument,
                                 const char* function = __builtin_FUNCTION()) {
    if (!CFRuntimeIsArgument(uuid, kCFRuntimeUUIDType, argument, function)) {
        return std::nullopt;
    }
    const CFUUIDBytes bytes = CFUUIDGetUUIDBytes(uuid);
    UuidBytes result{};
    static_assert(sizeof bytes == sizeof result);
    std::memcpy(result.data(), &bytes, sizeof bytes);
    return result;
}

// Returns null if there are none, as the platform answers for a type that nobody makes.
CFArrayRef CopyUuidArray(const std::vector<UuidBytes>& uuids) {
    if (uuids.empty()) {
        return nullptr;
    }
    std::vector<CFOwned<CFUUIDRef>> owned;
    std::vector<const void*> values;
    for (const UuidBytes& each : uuids) {
        CFUUIDBytes bytes;
        std::memcpy(&bytes, each.data(), sizeof bytes);
        CFOwned<CFUUIDRef> uuid(CFUUIDCreateFromUUIDBytes(nullptr, bytes));
        if (!uuid) {
            return nullptr;
        }
        values.push_back(uuid.Get());
        owned.push_back(std::move(uuid));
    }
    return CFArrayCreate(nullptr, values.data(), static_cast<CFIndex>(values.size()),
                         &kCFTypeArrayCallBacks);
}

// Ends the use of a factory when it is destroyed, however the making of the instance ends.
struct UseEnd {
    const BundleRegistry::FactoryUse& use;
    ~UseEnd() { BundleRegistry::Instance().EndUse(use); }
};

bool Makes(const PlugInFactory& factory, const UuidBytes& type) {
    for (const UuidBytes& each : factory.types) {
        if (each == type) {
            return true;
        }
    }
    return false;
}

void* MakeInstance(const BundleRegistry::FactoryUse& use, CFAllocatorRef allocator,
                   CFUUIDRef typeUUID, const UuidBytes& type) {
    if (!Makes(use.factory, type)) {
        SetPlugInError(use.module->ListPath() + ": key CFPlugInTypes: expected factory " +
                       UuidText(use.factory.uuid) + " under type " + UuidText(type) +
                       ", found it not there");
        return nullptr;
    }
    if (!use.module->Load()) {
        return nullptr;
    }
    void* const symbol = use.module->Find(use.factory.function);
    if (symbol == nullptr) {
        SetPlugInError(use.module->ExecutablePath().value_or("") + ": expected the function \"" +
                       use.factory.function + "\" that key CFPlugInFactories/" +
                       UuidText(use.factory.uuid) + " of " + use.module->ListPath() +
                       " names, found no such symbol");
        return nullptr;
    }
    const auto function = reinterpret_cast<CFPlugInFactoryFunction>(symbol);
    void* const instance = function(allocator, typeUUID);
    if (instance == nullptr) {
        SetPlugInError(use.module->ExecutablePath().value_or("") + ": the factory function \"" +
                       use.factory.function + "\" made no instance of type " + UuidText(type));
    }
    return instance;
}

} // namespace

CFPlugInRef CFPlugInCreate(CFAllocatorRef allocator, CFURLRef plugInURL) {
    return CFRuntimeGuard<CFPlugInRef>(nullptr, [&]() -> CFPlugInRef {
        CFOwned<CFPlugInRef> plugIn(CFBundleCreate(allocator, plugInURL));
        if (!plugIn) {
            return nullptr;
        }
        const auto& module = plugIn->mModule;
        const auto factories = module->ExecutablePath()
                                   ? PlugInFactories(module->Info(), module->ListPath())
                                   : std::nullopt;
        if (!factories) {
            return nullptr;
        }
        BundleRegistry::Instance().Register(module, *factories);
        return plugIn.Release();
    });
}

CFBundleRef CFPlugInGetBundle(CFPlugInRef plugIn) {
    return CFRuntimeArgument<__CFBundle>(plugIn, "plugIn");
}

CFArrayRef CFPlugInFindFactoriesForPlugInTypeInPlugIn(CFUUIDRef typeUUID, CFPlugInRef plugIn) {
    const auto type = BytesOf(typeUUID, "typeUUID");
    const auto* object = CFRuntimeArgument<__CFBundle>(plugIn, "plugIn");
    return !type || object == nullptr ? nullptr : CFRuntimeGuard<CFArrayRef>(nullptr, [&] {
        return CopyUuidArray(BundleRegistry::Instance().FactoriesFor(*type, *object->mModule));
    });
}

void* CFPlugInInstanceCreate(CFAllocatorRef allocator, CFUUIDRef factoryUUID, CFUUIDRef typeUUID) {
    const auto factory = BytesOf(factoryUUID, "factoryUUID");
    const auto type = BytesOf(typeUUID, "typeUUID");
    if (!factory || !type) {
        return CFRuntimeGuard<void*>(nullptr, []() -> void* {
            SetPlugInError("expected the UUIDs of a factory and of a type, found none");
            return nullptr;
        });
    }
    return CFRuntimeGuard<void*>(nullptr, [&]() -> void* {
        const auto use = BundleRegistry::Instance().BeginUse(*factory);
        if (!use) {
            SetPlugInError("expected a plug-in with factory " + UuidText(*factory) +
                           " to have been created, found none");
            return nullptr;
        }
        const UseEnd end{*use};
        return MakeInstance(*use, allocator, typeUUID, *type);
    });
}

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
    if (const auto factory = BytesOf(factoryID, "factoryID")) {
        CFRuntimeGuard([&] { BundleRegistry::Instance().AddInstance(*factory); });
    }
}

void CFPlugInRemoveInstanceForFactory(CFUUIDRef factoryID) {
    if (const auto factory = BytesOf(factoryID, "factoryID")) {
        BundleRegistry::Instance().RemoveInstance(*factory);
    }
}

CFStringRef CFPlugInHostCopyLastError() {
    const std::string& text = LastPlugInError();
    return text.empty() ? nullptr : CopyUTF8String(text);
}

CFIndex CFPlugInHostUnloadUnused() {
    return static_cast<CFIndex>(BundleRegistry::Instance().UnloadUnused());
}
