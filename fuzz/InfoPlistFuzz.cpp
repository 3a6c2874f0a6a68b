// Writes arbitrary bytes as a bundle's Info.plist and reads it as a host of plug-ins does.
//
// The bundle lies in memory (/dev/shm). Runs in CoreFoundation's strict mode, so that no value of
// another type than expected reaches a function that takes one type.
#include "fuzz/Require.h"

#include <CoreFoundation/CFPlugInHost.h>
#include <CoreFoundation/CFRuntimeHost.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// A bundle folder of this process, removed as it ends.
class Bundle {
public:
    Bundle() {
        setenv("QUORVEL_CF_STRICT", "1", 1);
        Require(mkdtemp(mFolder.data()) != nullptr, "there is a folder to work in");
        std::filesystem::create_directory(mFolder + "/Contents");
        mUrl = CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(mFolder.data()),
            static_cast<CFIndex>(mFolder.size()), true);
    }
    ~Bundle() { std::filesystem::remove_all(mFolder); }
    Bundle(const Bundle&) = delete;
    Bundle& operator=(const Bundle&) = delete;

    CFURLRef Url() const { return mUrl; }
    void Write(const std::uint8_t* data, std::size_t size) const {
        std::FILE* const file = std::fopen((mFolder + "/Contents/Info.plist").c_str(), "wb");
        Require(file != nullptr && std::fwrite(data, 1, size, file) == size &&
                    std::fclose(file) == 0,
                "the file is written");
    }

private:
    std::string mFolder = "/dev/shm/quorvel-info-plist-XXXXXX";
    CFURLRef mUrl = nullptr;
};

void RequireLastError() {
    const CFStringRef error = CFPlugInHostCopyLastError();
    Require(error != nullptr && CFStringGetLength(error) > 0, "a refusal has a cause");
    CFRelease(error);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Bundle bundle;
    bundle.Write(data, size);
    const CFIndex objects = CFRuntimeHostLiveObjectCount(0);

    const CFBundleRef plain = CFBundleCreate(nullptr, bundle.Url());
    if (plain == nullptr) {
        RequireLastError();
    } else {
        const CFStringRef identifier = CFBundleGetIdentifier(plain);
        Require(identifier == nullptr || CFGetTypeID(identifier) == CFStringGetTypeID(),
                "an identifier is a string");
        CFRelease(CFCopyDescription(CFBundleGetInfoDictionary(plain)));
        Require(!CFBundleIsExecutableLoaded(plain), "nothing is loaded by reading");
        CFRelease(plain);
    }

    const CFPlugInRef plugIn = CFPlugInCreate(nullptr, bundle.Url());
    Require(plugIn == nullptr || plain != nullptr, "a plug-in is a bundle");
    if (plugIn == nullptr) {
        RequireLastError();
    } else {
        const CFDictionaryRef types = static_cast<CFDictionaryRef>(CFDictionaryGetValue(
            CFBundleGetInfoDictionary(CFPlugInGetBundle(plugIn)), kCFPlugInTypesKey));
        Require(types != nullptr && CFDictionaryGetCount(types) > 0, "a plug-in makes a type");
        CFRelease(plugIn);
    }
    Require(CFRuntimeHostLiveObjectCount(0) == objects, "nothing is left behind");
    return 0;
}
