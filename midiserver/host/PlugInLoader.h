#pragma once

#include "midiserver/host/CFOwned.h"

#include <CoreFoundation/CFPlugIn.h>
#include <CoreMIDI/MIDIDriver.h>

#include <filesystem>
#include <string>

namespace MidiServer {

// Loads a MIDI driver plug-in from its bundle and keeps the driver that its factory made.
//
// Destroying the loader releases the driver and unloads the module, so nothing may run or call the
// driver's code any more by then. Used by one thread.
class PlugInLoader {
public:
    // Throws InputError, one line that names the bundle and what is wrong with it (the file, the
    // key, what was expected), when the bundle is missing or broken, has no factory of MIDI
    // drivers, or makes no driver with the interface that this host speaks.
    explicit PlugInLoader(const std::filesystem::path& bundle);
    ~PlugInLoader();
    PlugInLoader(const PlugInLoader&) = delete;
    PlugInLoader& operator=(const PlugInLoader&) = delete;

    MIDIDriverRef Driver() const { return mDriver; }
    // Names the driver as the owner of its devices: the bundle's identifier, else its file name.
    const std::string& Identity() const { return mIdentity; }

    // Where the plug-in lies beside this program, in the build tree as once installed.
    static std::filesystem::path DefaultBundle();

private:
    void CreateDriver(const std::string& name);

    CFOwned<CFPlugInRef> mPlugIn;
    MIDIDriverRef mDriver = nullptr;
    std::string mIdentity;
};

} // namespace MidiServer
