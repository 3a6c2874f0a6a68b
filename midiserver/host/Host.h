#pragma once

#include "midiserver/errors/Errors.h"
#include "midiserver/host/PlugInLoader.h"
#include "midiserver/host/Setup.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// The name of the message port through which the driver tells applications the unique IDs of its
// private sources.
inline constexpr const char* kMessagePortName = "Quorvel Virtual Source IDs Port";

// A port of the driver's device, which is an entity with its two endpoints.
struct DriverPort {
    std::string name;
    MIDIEndpointRef source;      // carries MIDI from the driver to a DAW; 0 if there is none
    MIDIEndpointRef destination; // carries MIDI from a DAW to the driver; 0 if there is none
    // The endpoints' unique IDs; empty if there is no endpoint.
    std::optional<std::int32_t> sourceId;
    std::optional<std::int32_t> destinationId;
};

// A host loads a driver plug-in and runs it as a MIDI server does: it hands the driver the devices
// of its last run, and stops it in order.
//
//     Host host(PlugInLoader::DefaultBundle(), setup);
//     host.Start();
//     ... // run the run loop; host.Ports() are the driver's
//     host.Stop();
//
// One thread constructs, starts, stops and destroys the host, and runs its run loop in between: the
// driver serves its message port there. A process has one host of a plug-in at a time. Any thread
// may read Ports() while the driver runs.
class Host {
public:
    // Loads the plug-in. `setup` must outlive the host. Throws InputError if the bundle is unusable
    // (see PlugInLoader.h), and HostError if the platform fails.
    Host(const std::filesystem::path& bundle, const Setup& setup);
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

    // The name under which the driver owns its devices (see PlugInLoader.h).
    const std::string& Identity() const { return mLoader.Identity(); }
    const std::vector<DriverPort>& Ports() const { return mPorts; }
    // The name and the unique ID of the device that the first port belongs to.
    const std::string& DeviceName() const { return mDeviceName; }
    std::optional<std::int32_t> DeviceId() const { return mDeviceId; }

private:
    void ListPorts();

    PlugInLoader mLoader;
    const Setup& mSetup;
    bool mAttached = false;
    bool mRunning = false;
    std::vector<DriverPort> mPorts;
    std::string mDeviceName;
    std::optional<std::int32_t> mDeviceId;
};

} // namespace MidiServer
