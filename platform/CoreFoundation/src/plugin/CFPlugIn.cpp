#include "platform/CoreFoundation/src/plugin/BundleModule.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFPlugIn.h>
#include <CoreFoundation/CFPlugInHost.h>

#include <algorithm>
#include <cstring>
#include <optional>

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

void* MakeInstance(const BundleRegistry::FactoryUse& use, CFAllocatorRef allocator,
                   CFUUIDRef typeUUID, const UuidBytes& type) {
    const PlugInFactory& factory = use.factory;
    BundleModule& module = *use.module;
    if (std::count(factory.types.begin(), factory.types.end(), type) == 0) {
        throw PlugInFault{module.ListPath() + ": key CFPlugInTypes: expected factory " +
                          UuidText(factory.uuid) + " under type " + UuidText(type) +
                          ", found it not there"};
    }
    void* const symbol = module.Find(factory.function);
    if (symbol == nullptr) {
        throw PlugInFault{module.ExecutablePath() + ": expected the function \"" +
                          factory.function + "\" that key CFPlugInFactories/" +
                          UuidText(factory.uuid) + " of " + module.ListPath() +
                          " names, found no such symbol"};
    }
    void* const instance = reinterpret_cast<CFPlugInFactoryFunction>(symbol)(allocator, typeUUID);
    if (instance == nullptr) {
        throw PlugInFault{module.ExecutablePath() + ": the factory function \"" + factory.function +
                          "\" made no instance of type " + UuidText(type)};
    }
    return instance;
}

} // namespace

CFPlugInRef CFPlugInCreate(CFAllocatorRef allocator, CFURLRef plugInURL) {
    CFOwned<CFPlugInRef> plugIn(CFBundleCreate(allocator, plugInURL));
    return !plugIn ? nullptr : AnswerPlugInCall([&] {
        const auto& module = plugIn->mModule;
        module->ExecutablePath(); // is named
        BundleRegistry::Instance().Register(module,
                                            PlugInFactories(module->Info(), module->ListPath()));
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
    return AnswerPlugInCall([&] {
        if (!factory || !type) {
            throw PlugInFault{"expected the UUIDs of a factory and of a type, found none"};
        }
        return MakeInstance(BundleRegistry::FactoryUse(*factory), allocator, typeUUID, *type);
    });
}

void CFPlugInAddInstanceForFactory(CFUUIDRef factoryID) {
    if (const auto factory = BytesOf(factoryID, "factoryID")) {
        BundleRegistry::Instance().AddInstance(*factory);
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
