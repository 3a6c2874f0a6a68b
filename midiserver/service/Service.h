#pragma once

#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/host/ControlQueue.h"
#include "midiserver/host/Host.h"
#include "midiserver/host/Setup.h"
#include "midiserver/preferences/PortConfiguration.h"
#include "midiserver/routing/Router.h"
#include "midiserver/service/Backends.h"
#include "midiserver/service/Recordings.h"
#include "midiserver/service/ServiceLock.h"
#include "midiserver/service/StatusReport.h"
#include "midiserver/service/control/ControlPort.h"
#include "midiserver/service/control/ControlProtocol.h"
#include "midiserver/service/watch/Watch.h"

#include <nlohmann/json_fwd.hpp>

#include <bitset>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

struct ServiceOptions {
    std::vector<BackendChoice> backends;
    // At least one. The backends show the ports of the first; the others run beside it.
    std::vector<std::filesystem::path> plugIns;
    std::optional<std::filesystem::path> setup; // without it the devices are forgotten
    bool preferencesFolderWasGiven = false;
    std::bitset<kMaximumPorts> coalescing; // see RouterOptions
};

// A Service does what `midiserver run` is for. It keeps the driver running between the backends,
// restarts it when its preferences change or when it forwards nothing any more, and answers the
// control port.
//
//     Service service(options);
//     service.Run(); // until SIGTERM or SIGINT
//
// The main thread makes it, runs it and destroys it. A process has one.
class Service {
public:
    // Throws ServiceStateError if another service runs, InputError for what the user gave, and
    // HostError if the platform fails.
    explicit Service(const ServiceOptions& options);
    // Stops the driver if it runs.
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Starts the driver, serves until a signal asks for the end, and stops the driver in order.
    // Throws InputError and HostError if the driver does not start; when a restart fails, the
    // service goes on without a driver and tries again at the next request or change.
    void Run();

private:
    using Clock = std::chrono::steady_clock;

    Watch::Callbacks WatchCallbacks();
    void Wake(bool& wanted);
    void StartDriver();
    void StopDriver();
    void RestartDriver(const std::string& why);
    void RestartIfPortsChanged();
    std::string StatusLine() const;

    nlohmann::ordered_json Answer(ControlRequest request, const nlohmann::ordered_json& arguments);
    nlohmann::ordered_json List() const;
    nlohmann::ordered_json Connect(ControlRequest request,
                                   const nlohmann::ordered_json& arguments) const;
    nlohmann::ordered_json Inject(const nlohmann::ordered_json& arguments);
    nlohmann::ordered_json Emit(const nlohmann::ordered_json& arguments);
    nlohmann::ordered_json StartRecording(const nlohmann::ordered_json& arguments);
    std::size_t PortIndex(const std::string& nameOrNumber) const;
    ServiceStatus Status() const;
    // Empty while no driver runs.
    std::vector<std::string> PortNames() const;
    std::vector<PortStatus> PortStates() const;

    const ServiceOptions mOptions;
    const Clock::time_point mStarted = Clock::now();
    const ServiceLock mLock;
    ControlQueue mControl;
    const Setup mSetup;
    WakeUpSignal mInputSignal;
    Backends mBackends;
    Router mRouter;
    std::vector<std::unique_ptr<Host>> mHosts; // empty while no driver runs
    PortConfiguration mConfiguration;          // that the driver was started with last
    std::optional<std::string> mFailure;       // why no driver runs
    std::uint64_t mDriverStarts = 0;
    Recordings mRecordings;

    // What the other threads want. They post it; it is set and done on the main thread. Only Run
    // acts on it, not the run loop, which also runs while a driver is started.
    bool mAwake = false;
    bool mEndWanted = false;
    bool mRestartWanted = false;
    bool mStalled = false;
    bool mPreferencesChanged = false;

    std::optional<ControlPort> mControlPort;
    std::optional<Watch> mWatch;
};

} // namespace MidiServer
