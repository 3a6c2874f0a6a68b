#include "platform/CoreFoundation/src/plugin/BundleModule.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/Utf8String.h"

#include <CoreFoundation/CFBundle.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

const CFStringRef kCFBundleIdentifierKey = CFSTR("CFBundleIdentifier");
const CFStringRef kCFBundleExecutableKey = CFSTR("CFBundleExecutable");

namespace {

CFURLRef CopyUrl(const std::string& path, bool isDirectory) {
    return CFURLCreateFromFileSystemRepresentation(nullptr,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), isDirectory);
}

} // namespace

CFTypeID CFBundleGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFBundle");
    return id;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL) {
    const bool isUrl = CFRuntimeIsArgument(bundleURL, kCFRuntimeURLType, "bundleURL");
    return CFRuntimeGuard<CFBundleRef>(nullptr, [&]() -> CFBundleRef {
        char path[PATH_MAX];
        char folder[PATH_MAX];
        if (!isUrl || CFURLGetFileSystemRepresentation(
                          bundleURL, true, reinterpret_cast<UInt8*>(path), sizeof path) == 0) {
            SetPlugInError("expected the URL of a bundle's folder, found none");
            return nullptr;
        }
        if (realpath(path, folder) == nullptr) {
            SetPlugInError(std::string(path) + ": " + std::strerror(errno) +
                           "; expected a bundle's folder");
            return nullptr;
        }
        return BundleRegistry::Instance().CopyOrMake(folder);
    });
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    return object == nullptr ? nullptr : object->mModule->Info();
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    return object == nullptr || !CFRuntimeIsArgument(key, kCFRuntimeStringType, "key")
               ? nullptr
               : CFDictionaryGetValue(object->mModule->Info(), key);
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) {
    if (CFRuntimeArgument<__CFBundle>(bundle, "bundle") == nullptr) {
        return nullptr;
    }
    const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, kCFBundleIdentifierKey);
    return CFRuntimeTypeOf(value) == kCFRuntimeStringType ? static_cast<CFStringRef>(value)
                                                          : nullptr;
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    if (object == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFURLRef>(nullptr, [&] {
        const auto path = object->mModule->ExecutablePath();
        return path ? CopyUrl(*path, false) : nullptr;
    });
}

Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    return object != nullptr && object->mModule->IsLoaded();
}

void CFBundleUnloadExecutable(CFBundleRef bundle) {
    auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    if (object != nullptr && !BundleRegistry::Instance().HasInstances(*object->mModule)) {
        object->mModule->Unload();
    }
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName) {
    auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    if (object == nullptr ||
        !CFRuntimeIsArgument(functionName, kCFRuntimeStringType, "functionName")) {
        return nullptr;
    }
    return CFRuntimeGuard<void*>(nullptr, [&]() -> void* {
        const auto name = Utf8Of(functionName);
        return name ? object->mModule->Find(*name) : nullptr;
    });
}
