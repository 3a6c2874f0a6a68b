#pragma once

#include "midiserver/host/PlugInLoader.h"

#include <CoreMIDI/MIDIServices.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace MidiServer {

// The driver or the platform failed at run time; what() is one line. Exit status 1.
class HostError : public std::runtime_error {
public:
    explicit HostError(const std::string& line) : std::runtime_error(line) {}
};

// The message port through which the driver tells applications the unique IDs of its private
// sources.
inline constexpr const char* kMessagePortName = "Quorvel Virtual Source IDs Port";

// A port of the driver's device: an entity with its two endpoints.
struct DriverPort {
    std::string name;
    MIDIEndpointRef source;      // what the driver says to a DAW; 0 if the entity has none
    MIDIEndpointRef destination; // what a DAW says to the driver; 0 if the entity has none
};

// Loads a driver plug-in and runs it as a MIDI server does: opens the setup, hands the driver the
// devices of its last run, and stops it in order.
//
// Construct, start, stop and destroy on one thread whose run loop then runs: the driver serves its
// message port there. One host at a time in a process. Ports() may be read from any thread while
// the driver runs.
class Host {
public:
    // Loads the plug-in. `setupFile` keeps the devices from one run to the next; without it they
    // are forgotten. Throws InputError for the bundle (PlugInLoader.h) and for a setup that cannot
    // be opened, HostError when the platform fails.
    Host(const std::filesystem::path& bundle,
         const std::optional<std::filesystem::path>& setupFile);
    // Stops the driver if it runs.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Starts the driver and lists its ports. Throws HostError when the driver refuses, and when it
    // runs but could not make its message port, without which no application finds its sources;
    // InputError when the setup file cannot be written.
    void Start();
    // Stops the driver; what it was sent before is with its worker by then. Does nothing twice.
    void Stop();

    // One line when the setup file was none and was moved aside.
    const std::optional<std::string>& SetupWarning() const { return mSetupWarning; }

    const std::vector<DriverPort>& Ports() const { return mPorts; }

private:
    void OpenSetup(const std::optional<std::filesystem::path>& file);
    void ListPorts();

    PlugInLoader mLoader;
    std::optional<std::filesystem::path> mSetupFile; // which keeps the setup
    std::optional<std::string> mSetupWarning;
    bool mAttached = false;
    bool mRunning = false;
    std::vector<DriverPort> mPorts;
};

} // namespace MidiServer
