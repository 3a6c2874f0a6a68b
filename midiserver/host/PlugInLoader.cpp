#include "midiserver/host/PlugInLoader.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CFPlugInHost.h>

#include <fmt/format.h>

#include <system_error>

namespace MidiServer {

namespace {

constexpr const char* kBundleName = "QuorvelMIDI.plugin";

// Returns the platform's description of the failure or, if it has none, ours.
[[noreturn]] void Fail(const std::string& name, const std::string& otherwise) {
    const CFOwned<CFStringRef> cause(CFPlugInHostCopyLastError());
    const std::string text = TextOf(cause.Get());
    throw InputError(fmt::format("plug-in {}: {}", name, text.empty() ? otherwise : text));
}

} // namespace

PlugInLoader::PlugInLoader(const std::filesystem::path& bundle) {
    const std::string name = bundle.string();
    std::error_code error;
    if (!std::filesystem::is_directory(bundle, error)) {
        throw InputError(fmt::format("plug-in {}: {}", name,
                                     error ? error.message()
                                           : "not a folder; a bundle folder with "
                                             "Contents/Info.plist is expected"));
    }
    const CFOwned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(name.data()),
        static_cast<CFIndex>(name.size()), true));
    if (!url) {
        Fail(name, "its path cannot be used");
    }
    mPlugIn = CFOwned<CFPlugInRef>(CFPlugInCreate(kCFAllocatorDefault, url.Get()));
    if (!mPlugIn) {
        Fail(name, "not a plug-in bundle");
    }
    CreateDriver(name);
    mIdentity = TextOf(CFBundleGetIdentifier(CFPlugInGetBundle(mPlugIn.Get())));
    if (mIdentity.empty()) {
        mIdentity = bundle.filename().string();
    }
    Log(kPlugInLog[HSL::kInfo], "loaded plug-in %s from %s", mIdentity, name);
}

void PlugInLoader::CreateDriver(const std::string& name) {
    const CFOwned<CFArrayRef> factories(
        CFPlugInFindFactoriesForPlugInTypeInPlugIn(kMIDIDriverTypeID, mPlugIn.Get()));
    if (!factories || CFArrayGetCount(factories.Get()) == 0) {
        const CFOwned<CFStringRef> type(CFUUIDCreateString(kCFAllocatorDefault, kMIDIDriverTypeID));
        throw InputError(fmt::format("plug-in {}: Contents/Info.plist names no factory of MIDI "
                                     "drivers: the key CFPlugInTypes must hold {} with the UUID of "
                                     "a factory",
                                     name, TextOf(type.Get())));
    }
    const auto factory = static_cast<CFUUIDRef>(CFArrayGetValueAtIndex(factories.Get(), 0));
    void* instance = CFPlugInInstanceCreate(kCFAllocatorDefault, factory, kMIDIDriverTypeID);
    if (instance == nullptr) {
        Fail(name, "its factory made no MIDI driver");
    }
    // The instance is a pointer to a pointer to a table of functions that starts as IUnknown's.
    auto** unknown = static_cast<IUnknownVTbl**>(instance);
    void* driver = nullptr;
    const HRESULT result =
        (*unknown)->QueryInterface(unknown, CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID), &driver);
    (*unknown)->Release(unknown);
    if (result != S_OK || driver == nullptr) {
        throw InputError(
            fmt::format("plug-in {}: its driver has not the interface of this MIDI server (answer "
                        "{:#x})",
                        name, static_cast<UInt32>(result)));
    }
    mDriver = static_cast<MIDIDriverRef>(driver);
}

PlugInLoader::~PlugInLoader() {
    if (mDriver != nullptr) {
        (*mDriver)->Release(mDriver);
    }
    mPlugIn = {};
    CFPlugInHostUnloadUnused();
    Log(kPlugInLog[HSL::kInfo], "released plug-in %s", mIdentity);
}

std::filesystem::path PlugInLoader::DefaultBundle() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path() / ".." / MIDISERVER_PRIVATE_LIBDIR / kBundleName)
        .lexically_normal();
}

} // namespace MidiServer
