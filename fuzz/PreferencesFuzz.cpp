// Writes arbitrary bytes as the preferences file and checks that the host describes what the driver
// does.
#include "fuzz/Require.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/DriversConfiguration.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

// The folder lies in memory, because every run writes and reads a file.
const TemporaryDirectory& Folder() {
    static const TemporaryDirectory& folder = []() -> const TemporaryDirectory& {
        ::setenv("TMPDIR", "/dev/shm", 1);
        static const TemporaryDirectory made;
        MidiServer::UsePreferencesFolder(made.Path());
        return made;
    }();
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Folder();
    std::ofstream(MidiServer::PreferencesEditor::File(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    MidiServer::PreferencesEditor host;
    host.Load();
    Require(!host.FileIsMissing(), "the file is found");
    const MidiServer::PortConfiguration said = host.Configuration();
    const MidiServer::PortConfiguration done = MidiServer::DriversConfiguration();
    Require(said.publishedPorts == done.publishedPorts, "the number of ports");
    Require(said.portsFromPreferences == done.portsFromPreferences, "where the number is from");
    Require(said.protocols == done.protocols, "the protocols");
    return 0;
}
