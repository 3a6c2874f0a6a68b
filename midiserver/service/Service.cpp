#include "midiserver/service/Service.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/AddressSpace.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "midiserver/preferences/ReadPortConfiguration.h"
#include "midiserver/service/ServiceManagerNotice.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <exception>
#include <utility>

namespace MidiServer {

Service::Service(const ServiceOptions& options)
    : mOptions(options),
      mSetup(options.setup),
      mBackends(options.backends, mInputSignal),
      mRouter(mBackends.Routed(), mInputSignal, {.coalescing = options.coalescing},
              [this] { mControl.Post([this] { Wake(mStalled); }); }) {
    RequireAddressSpace();
    if (mSetup.Warning()) {
        TellUser(kHostLog, *mSetup.Warning());
    }
    for (const BackendChoice& choice : options.backends) {
        Log(kServiceLog[HSL::kInfo], "backend %s, because %s", choice.name, choice.reason);
    }
    mControlPort.emplace([this](ControlRequest request, const nlohmann::ordered_json& arguments) {
        return Answer(request, arguments);
    });
    Watch::Options watched{PreferencesEditor::File(), std::nullopt};
    if (const auto watchdog = ServiceManagerNotice::WatchdogTime()) {
        watched.tickInterval = *watchdog / 2;
    }
    mWatch.emplace(std::move(watched), WatchCallbacks());
}

Service::~Service() {
    mWatch.reset();
    StopDriver();
}

Watch::Callbacks Service::WatchCallbacks() {
    return {
        [this] { mControl.Post([this] { Wake(mEndWanted); }); },
        [this] { mControl.Post([this] { Wake(mRestartWanted); }); },
        [this] { mControl.Post([this] { Wake(mPreferencesChanged); }); },
        // The main thread says that it is alive: the watchdog is to notice if it hangs.
        [this] { mControl.Post([] { ServiceManagerNotice::KeepAlive(); }); },
    };
}

void Service::Wake(bool& wanted) {
    wanted = true;
    mAwake = true;
}

void Service::Run() {
    StartDriver();
    ServiceManagerNotice::Ready(StatusLine());
    while (!mEndWanted) {
        mAwake = false;
        if (std::exchange(mStalled, false)) {
            Log(kServiceLog[HSL::kError],
                "the driver forwards nothing any more; it is restarted, and what it had is lost");
            RestartDriver("the driver had stalled");
        } else if (std::exchange(mRestartWanted, false)) {
            RestartDriver("SIGHUP");
        } else if (std::exchange(mPreferencesChanged, false)) {
            RestartIfPortsChanged();
        } else {
            mControl.ServeUntil(mAwake);
        }
    }
    ServiceManagerNotice::Stopping();
    Log(kServiceLog[HSL::kInfo], "stopping");
    StopDriver();
}

void Service::StartDriver() {
    // A file that goes while the service runs may come again.
    mConfiguration =
        ReadPortConfiguration(mOptions.preferencesFolderWasGiven && mDriverStarts == 0);
    for (const std::filesystem::path& bundle : mOptions.plugIns) {
        mHosts.push_back(std::make_unique<Host>(bundle, mSetup));
        mHosts.back()->Start();
    }
    mRouter.Start(mHosts.front()->Ports(), mConfiguration.protocols);
    ++mDriverStarts;
    mFailure.reset();
    Log(kServiceLog[HSL::kInfo], "serving %u ports", mHosts.front()->Ports().size());
}

void Service::StopDriver() {
    mRouter.Stop();
    mHosts.clear();
}

void Service::RestartDriver(const std::string& why) {
    ServiceManagerNotice::Reloading();
    Log(kServiceLog[HSL::kInfo], "restarting the driver: %s", why);
    mRouter.Suspend();
    mHosts.clear();
    try {
        StartDriver();
    } catch (const std::exception& error) {
        // What was started of it is of no use alone.
        mRouter.Suspend();
        mHosts.clear();
        mFailure = error.what();
        Log(kServiceLog[HSL::kError],
            "the driver does not run: %s; tried again when the preferences change or SIGHUP comes",
            *mFailure);
    }
    ServiceManagerNotice::Ready(StatusLine());
}

void Service::RestartIfPortsChanged() {
    PreferencesEditor preferences;
    preferences.Load();
    const PortConfiguration configuration = preferences.Configuration();
    if (!mFailure && configuration.publishedPorts == mConfiguration.publishedPorts &&
        configuration.protocols == mConfiguration.protocols) {
        Log(kServiceLog[HSL::kInfo],
            "the preferences changed; ports and protocols are the same, the driver goes on");
        return;
    }
    RestartDriver("the preferences changed");
}

std::string Service::StatusLine() const {
    if (mFailure) {
        return "no driver runs: " + *mFailure;
    }
    std::string line = fmt::format("{} ports", mHosts.front()->Ports().size());
    for (const auto& backend : mBackends.All()) {
        line += fmt::format("; {} {}", backend->Name(), backend->State().isUp ? "up" : "waiting");
    }
    return line;
}

} // namespace MidiServer
