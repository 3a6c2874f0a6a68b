#pragma once

#include "midiserver/host/PlugInLoader.h"

#include <CoreMIDI/MIDIServices.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace MidiServer {

// A HostError says that the driver or the platform failed at run time. Its what() is one line; the
// program prints it and exits with status 1.
class HostError : public std::runtime_error {
public:
    explicit HostError(const std::string& line) : std::runtime_error(line) {}
};

// The name of the message port through which the driver tells applications the unique IDs of its
// private sources.
inline constexpr const char* kMessagePortName = "Quorvel Virtual Source IDs Port";

// A port of the driver's device, which is an entity with its two endpoints.
struct DriverPort {
    std::string name;
    MIDIEndpointRef source;      // carries MIDI from the driver to a DAW; 0 if there is none
    MIDIEndpointRef destination; // carries MIDI from a DAW to the driver; 0 if there is none
};

// A host loads a driver plug-in and runs it as a MIDI server does: it opens the setup, hands the
// driver the devices of its last run, and stops it in order.
//
//     Host host(PlugInLoader::DefaultBundle(), std::nullopt);
//     host.Start();
//     ... // run the run loop; host.Ports() are the driver's
//     host.Stop();
//
// One thread constructs, starts, stops and destroys the host, and runs its run loop in between: the
// driver serves its message port there. A process has one host at a time. Any thread may read
// Ports() while the driver runs.
class Host {
public:
    // Loads the plug-in. `setupFile` keeps the devices from one run to the next; without it they
    // are forgotten. Throws InputError if the bundle is unusable (see PlugInLoader.h) or the setup
    // cannot be opened, and HostError if the platform fails.
    Host(const std::filesystem::path& bundle,
         const std::optional<std::filesystem::path>& setupFile);
    // Stops the driver if it runs.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Starts the driver and lists its ports. Throws HostError if the driver refuses to start, or if
    // it runs but could not make its message port, without which no application finds its sources.
    // Throws InputError if the setup file cannot be written.
    void Start();
    // Stops the driver. All that was sent to it before has reached its output worker when this
    // returns. A second call does nothing.
    void Stop();

    // Set if the setup file could not be read and was renamed: one line that says so.
    const std::optional<std::string>& SetupWarning() const { return mSetupWarning; }

    const std::vector<DriverPort>& Ports() const { return mPorts; }

private:
    void OpenSetup(const std::optional<std::filesystem::path>& file);
    void ListPorts();

    PlugInLoader mLoader;
    std::optional<std::filesystem::path> mSetupFile; // keeps the devices between runs
    std::optional<std::string> mSetupWarning;
    bool mAttached = false;
    bool mRunning = false;
    std::vector<DriverPort> mPorts;
};

} // namespace MidiServer
