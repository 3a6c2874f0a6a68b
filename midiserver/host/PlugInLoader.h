#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFPlugIn.h>
#include <CoreMIDI/MIDIDriver.h>

#include <filesystem>
#include <string>

namespace MidiServer {

// A loader loads a MIDI driver plug-in from its bundle and owns the driver that the plug-in's
// factory made.
//
//     PlugInLoader loader(PlugInLoader::DefaultBundle());
//     MIDIServerHostAttachDriver(loader.Driver(), MakeCFString(loader.Identity()).Get());
//
// Destroying the loader releases the driver and unloads the module, so no thread may run or call
// the driver's code any more by then. One thread uses a loader.
class PlugInLoader {
public:
    // Throws InputError if the bundle is missing or broken, has no factory of MIDI drivers, or
    // makes no driver with the interface that this host speaks. The error's line names the bundle
    // and what is wrong with it: the file, the key and what was expected there.
    explicit PlugInLoader(const std::filesystem::path& bundle);
    ~PlugInLoader();
    PlugInLoader(const PlugInLoader&) = delete;
    PlugInLoader& operator=(const PlugInLoader&) = delete;

    MIDIDriverRef Driver() const { return mDriver; }
    // The name under which the driver owns its devices: the bundle's identifier or, if it has none,
    // its file name.
    const std::string& Identity() const { return mIdentity; }

    // Returns the path of the plug-in that belongs to this program, in the build tree as well as
    // after installation.
    static std::filesystem::path DefaultBundle();

private:
    void CreateDriver(const std::string& name);

    CFOwned<CFPlugInRef> mPlugIn;
    MIDIDriverRef mDriver = nullptr;
    std::string mIdentity;
};

} // namespace MidiServer
