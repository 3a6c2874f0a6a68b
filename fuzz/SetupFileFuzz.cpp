// Opens arbitrary bytes as a saved setup. The file is opened or renamed, and a setup that was
// opened can be saved and opened again.
#include "fuzz/Require.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/CFText.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// The folder lies in memory, because every run writes and reads files.
const std::string& File() {
    static const std::string file = [] {
        ::setenv("TMPDIR", "/dev/shm", 1);
        static const TemporaryDirectory folder;
        return folder.Path() + "/setup.plist";
    }();
    return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::ofstream(File(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    const auto path = TestSupport::MakeString(File());
    const OSStatus status = MIDIServerHostOpenSetup(path.Get());
    if (status == kMIDISetupFormatErr) {
        Require(std::filesystem::remove(File() + ".broken"), "it was moved aside");
        Require(MIDIGetNumberOfDevices() == 0, "the setup is empty");
    } else {
        Require(status == noErr, "every file is a setup or moved aside");
        const ItemCount devices = MIDIGetNumberOfDevices();
        Require(MIDIServerHostSaveSetup() == noErr, "it can be saved");
        Require(MIDIServerHostOpenSetup(path.Get()) == noErr, "what was saved opens");
        Require(MIDIGetNumberOfDevices() == devices, "with as many devices");
    }
    Require(MIDIServerHostOpenSetup(nullptr) == noErr, "a setup can be closed");
    return 0;
}
