// What the service answers on the control port.
#include "midiserver/errors/Errors.h"
#include "midiserver/json/Json.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/midi/HexText.h"
#include "midiserver/midi/MidiMessage.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "midiserver/service/Service.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace MidiServer {

namespace {

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// The ports of other programs that a port can be connected to, or disconnected from.
std::vector<std::string> PeersOf(const Backend& backend) {
    std::vector<std::string> peers = backend.Peers();
    for (const BackendConnection& connection : backend.Connections()) {
        if (!Contains(peers, connection.peer)) {
            peers.push_back(connection.peer);
        }
    }
    return peers;
}

// The JSON library would convert any number, also one that no integer can hold.
std::uint64_t RecordingNumber(const Json& arguments) {
    const Json& number = arguments.at("recording");
    if (!number.is_number_unsigned()) {
        throw InputError("\"recording\" must be a whole number");
    }
    return number.get<std::uint64_t>();
}

StreamDirection DirectionOf(const std::string& stream) {
    if (stream == "fromDaw") {
        return StreamDirection::kFromDaw;
    }
    if (stream == "toDaw") {
        return StreamDirection::kToDaw;
    }
    if (stream == "toSurface") {
        return StreamDirection::kToSurface;
    }
    throw InputError(
        fmt::format("a port has no stream \"{}\"; there are: fromDaw, toDaw, toSurface", stream));
}

} // namespace

Json Service::Answer(ControlRequest request, const Json& arguments) {
    switch (request) {
    case ControlRequest::kStatus:
        return {{"status", StatusJson(Status())}};
    case ControlRequest::kList:
        return List();
    case ControlRequest::kConnect:
    case ControlRequest::kDisconnect:
        return Connect(request, arguments);
    case ControlRequest::kStartRecording:
        return StartRecording(arguments);
    case ControlRequest::kTakeRecorded:
        return mRecordings.Take(RecordingNumber(arguments), Clock::now());
    case ControlRequest::kEndRecording:
        return mRecordings.End(RecordingNumber(arguments));
    case ControlRequest::kInject:
        return Inject(arguments);
    case ControlRequest::kEmit:
        return Emit(arguments);
    }
    throw InputError("the service does not know this request; is it of another version?");
}

Json Service::List() const {
    Json ports = Json::array();
    for (const std::string& name : PortNames()) {
        const Protocol protocol = mConfiguration.protocols.at(ports.size());
        ports.push_back({{"name", name}, {"protocol", ProtocolJson(protocol)}});
    }
    Json backends = Json::array();
    for (const auto& backend : mBackends.All()) {
        const BackendState state = backend->State();
        Json privateSources = Json::array();
        for (const PrivateSourceAddress& source : backend->PrivateSources()) {
            privateSources.push_back({{"uniqueId", source.uniqueId}, {"address", source.address}});
        }
        backends.push_back({{"name", backend->Name()},
                            {"isUp", state.isUp},
                            {"detail", state.detail},
                            {"peers", backend->Peers()},
                            {"connections", ConnectionsJson(backend->Connections())},
                            {"privateSources", std::move(privateSources)}});
    }
    return {{"ports", std::move(ports)}, {"backends", std::move(backends)}};
}

Json Service::Connect(ControlRequest request, const Json& arguments) const {
    const std::size_t port = PortIndex(arguments.at("port").get<std::string>());
    const auto peer = arguments.at("peer").get<std::string>();
    std::vector<std::string> allPeers;
    for (const auto& backend : mBackends.All()) {
        const std::vector<std::string> peers = PeersOf(*backend);
        allPeers.insert(allPeers.end(), peers.begin(), peers.end());
        if (!Contains(peers, peer)) {
            continue;
        }
        const bool connect = request == ControlRequest::kConnect;
        connect ? backend->Connect(port, peer) : backend->Disconnect(port, peer);
        Log(kServiceLog[HSL::kInfo], "%s port %u %s %s", backend->Name(), port + 1,
            connect ? "connected with" : "disconnected from", peer);
        return {{"port", PortNames()[port]}, {"peer", peer}, {"backend", backend->Name()}};
    }
    for (const auto& backend : mBackends.All()) {
        if (request == ControlRequest::kDisconnect && backend->Forget(port, peer)) {
            Log(kServiceLog[HSL::kInfo], "%s port %u: the connection with %s is not kept any more",
                backend->Name(), port + 1, peer);
            return {{"port", PortNames()[port]},
                    {"peer", peer},
                    {"backend", backend->Name()},
                    {"wasThere", false}};
        }
    }
    throw InputError(fmt::format("no other program has a port \"{}\"; there {}", peer,
                                 allPeers.empty()
                                     ? std::string("are none")
                                     : fmt::format("are: {}", fmt::join(allPeers, ", "))));
}

Json Service::Inject(const Json& arguments) {
    const std::size_t port = PortIndex(arguments.at("port").get<std::string>());
    std::size_t taken = 0;
    for (const Json& message : arguments.at("messages")) {
        if (!mRouter.Inject(port, BytesOfHexText(message.get<std::string>())).taken) {
            break;
        }
        ++taken;
    }
    return {{"port", PortNames()[port]}, {"taken", taken}};
}

Json Service::Emit(const Json& arguments) {
    const std::size_t port = PortIndex(arguments.at("port").get<std::string>());
    std::vector<std::vector<std::uint8_t>> messages;
    for (const Json& message : arguments.at("messages")) {
        const auto text = message.get<std::string>();
        messages.push_back(BytesOfHexText(text));
        if (!IsWholeMessage(messages.back()) || messages.back().size() > Router::kLongestEmitted) {
            throw InputError(fmt::format("\"{:.24}\" is not one MIDI message of at most {} bytes",
                                         text, Router::kLongestEmitted));
        }
    }
    std::size_t emitted = 0;
    for (const std::vector<std::uint8_t>& message : messages) {
        emitted += mRouter.Emit(port, message) ? 1 : 0;
    }
    return {{"port", PortNames()[port]}, {"emitted", emitted}};
}

Json Service::StartRecording(const Json& arguments) {
    const std::size_t port = PortIndex(arguments.at("port").get<std::string>());
    const StreamDirection stream = DirectionOf(arguments.value("stream", "fromDaw"));
    const std::uint64_t number =
        mRecordings.Start(mRouter.Tap(port, stream, Recordings::kCapacity), Clock::now());
    Log(kServiceLog[HSL::kInfo], "recording port %u", port + 1);
    return {{"recording", number}, {"port", PortNames()[port]}};
}

std::size_t Service::PortIndex(const std::string& nameOrNumber) const {
    const std::vector<std::string> names = PortNames();
    for (std::size_t port = 0; port < names.size(); ++port) {
        if (names[port] == nameOrNumber || fmt::format("{}", port + 1) == nameOrNumber) {
            return port;
        }
    }
    throw InputError(fmt::format("the service has no port \"{}\"; there {}", nameOrNumber,
                                 names.empty()
                                     ? std::string("are none, because the driver does not run")
                                     : fmt::format("are: {}", fmt::join(names, ", "))));
}

std::vector<std::string> Service::PortNames() const {
    std::vector<std::string> names;
    if (!mHosts.empty()) {
        for (const DriverPort& port : mHosts.front()->Ports()) {
            names.push_back(port.name);
        }
    }
    return names;
}

std::vector<PortStatus> Service::PortStates() const {
    std::vector<PortStatus> ports;
    if (mHosts.empty()) {
        return ports;
    }
    const std::vector<PortCounters> counters = mRouter.Counters();
    for (const DriverPort& port : mHosts.front()->Ports()) {
        const std::size_t index = ports.size();
        PortStatus& status = ports.emplace_back();
        status.name = port.name;
        status.protocol = mConfiguration.protocols.at(index);
        status.sourceId = port.sourceId;
        status.destinationId = port.destinationId;
        if (index < mRouter.ShownPorts().size()) {
            status.privateSourceId = mRouter.ShownPorts()[index].privateId;
        }
        if (index < counters.size()) {
            status.counters = counters[index];
        }
    }
    return ports;
}

ServiceStatus Service::Status() const {
    ServiceStatus status;
    status.now = Clock::now();
    status.started = mStarted;
    status.failure = mFailure;
    status.driverStarts = mDriverStarts;
    status.driverStalls = mRouter.Stalls();
    status.setupFile = mOptions.setup ? mOptions.setup->string() : std::string();
    status.preferencesFile = PreferencesEditor::File().string();
    if (!mHosts.empty() && !mHosts.front()->Ports().empty()) {
        status.deviceName = mHosts.front()->DeviceName();
        status.deviceId = mHosts.front()->DeviceId();
    }
    for (const auto& host : mHosts) {
        status.plugIns.push_back(host->Identity());
    }
    for (const auto& backend : mBackends.All()) {
        status.backends.push_back(
            {backend->Name(), backend->State(), backend->LostToDaws(), backend->Connections()});
    }
    status.ports = PortStates();
    return status;
}

} // namespace MidiServer
