#include "platform/CoreFoundation/src/plugin/BundleModule.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFBundle.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

const CFStringRef kCFBundleIdentifierKey = CFSTR("CFBundleIdentifier");
const CFStringRef kCFBundleExecutableKey = CFSTR("CFBundleExecutable");

CFTypeID CFBundleGetTypeID() {
    static const CFTypeID id = CFRuntimeRegisterType("CFBundle");
    return id;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL) {
    const bool isUrl = CFRuntimeIsArgument(bundleURL, kCFRuntimeURLType, "bundleURL");
    return AnswerPlugInCall([&] {
        char path[PATH_MAX];
        char folder[PATH_MAX];
        if (!isUrl || CFURLGetFileSystemRepresentation(
                          bundleURL, true, reinterpret_cast<UInt8*>(path), sizeof path) == 0) {
            throw PlugInFault{"expected the URL of a bundle's folder, found none"};
        }
        if (realpath(path, folder) == nullptr) {
            throw PlugInFault{std::string(path) + ": " + std::strerror(errno) +
                              "; expected a bundle's folder"};
        }
        return BundleRegistry::Instance().CopyOrMake(folder);
    });
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    return object == nullptr ? nullptr : object->mModule->Info();
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    if (object == nullptr) {
        return nullptr;
    }
    const CFTypeRef value = CFDictionaryGetValue(object->mModule->Info(), kCFBundleIdentifierKey);
    return CFRuntimeTypeOf(value) == kCFRuntimeStringType ? static_cast<CFStringRef>(value)
                                                          : nullptr;
}

Boolean CFBundleIsExecutableLoaded(CFBundleRef bundle) {
    const auto* object = CFRuntimeArgument<__CFBundle>(bundle, "bundle");
    return object != nullptr && object->mModule->IsLoaded();
}
