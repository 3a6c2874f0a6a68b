#include "midiserver/backends/jack/JackBackend.h"

#include "midiserver/backends/jack/JackLibrary.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string_view>

namespace MidiServer {

namespace {

using Clock = std::chrono::steady_clock;

// The driver answers DAWs with a few bytes at a time. What it forwards comes in packets of up to
// 65535 bytes, the largest of which fits an empty queue.
constexpr std::size_t kDawQueueBytes = 16384;
constexpr std::size_t kPrivateQueueBytes = 131072;

constexpr auto kRetry = std::chrono::seconds(1);
// Programs make and break several connections at a time.
constexpr auto kBetweenLooks = std::chrono::milliseconds(100);
// A program shows its ports before they can be connected, which no notice tells.
constexpr int kMostRetries = 60;
// For how long one client waits to hear of an end that the other has heard of.
constexpr auto kHearsay = std::chrono::milliseconds(200);

std::string InputName(std::size_t index) {
    return fmt::format("Quorvel Port {:02} in", index + 1);
}

std::string OutputName(std::size_t index) {
    return fmt::format("Quorvel Port {:02} out", index + 1);
}

std::string PrivateName(std::size_t index) {
    return fmt::format("Quorvel Virtual Source {:02}", index + 1);
}

bool IsOurs(std::string_view port) {
    return port.starts_with(std::string(kClientName) + ":") ||
           port.starts_with(std::string(kPrivateClientName) + ":");
}

} // namespace

JackBackend::JackBackend(InputQueue& input, const std::filesystem::path& savedConnections)
    : mSaved(savedConnections, "jack"),
      mDaws(input.Ports(), kDawQueueBytes, &input),
      mPrivate(input.Ports(), kPrivateQueueBytes, nullptr),
      mKeeper(mSaved.Load()) {
    PrepareJackLibrary();
    const bool locked = mDaws.ports.LockMemory() && mPrivate.ports.LockMemory();
    if (locked) {
        Log(kJackLog[HSL::kInfo], "the memory of the process threads is locked");
    } else {
        Log(kJackLog[HSL::kInfo], "the limits do not let this program lock the memory of its "
                                  "process threads (ulimit -l)");
    }
    mSupervisor = std::thread([this] { Supervise(); });
}

JackBackend::~JackBackend() {
    mStopping.store(true, std::memory_order_relaxed);
    mWake.Raise();
    mSupervisor.join();
    const MutexLock lock(mMutex);
    Close();
}

void JackBackend::Supervise() {
    Time wake{};
    while (!mStopping.load(std::memory_order_relaxed)) {
        mWake.WaitUntil(wake);
        const MutexLock lock(mMutex);
        wake = Attend();
    }
    HSL::CLogManager::Instance()->CleanupTLSContext();
}

JackBackend::Time JackBackend::Attend() {
    const Time now = Clock::now();
    if (mDaws.client && (mDaws.client->ServerHasEnded() || mPrivate.client->ServerHasEnded())) {
        WaitUntilBothHaveHeard();
        GiveUp("the JACK server has ended");
    } else if (mDaws.client && (mDaws.client->HasStopped() || mPrivate.client->HasStopped())) {
        GiveUp("the JACK library has ended a process thread");
    }
    if (mPublished.empty()) {
        return Time::max();
    }
    return mDaws.client ? KeepConnections(now) : SeekServer(now);
}

void JackBackend::GiveUp(const std::string& why) {
    Close();
    SetState(kJackLog, false, why + "; trying again every second");
    mNextAttempt = Clock::now() + kRetry;
}

void JackBackend::WaitUntilBothHaveHeard() const {
    // A server may also throw out one client alone; the other one then says nothing.
    const Time latest = Clock::now() + kHearsay;
    while (!(mDaws.client->ServerHasEnded() && mPrivate.client->ServerHasEnded()) &&
           Clock::now() < latest) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

JackBackend::Time JackBackend::SeekServer(Time now) {
    if (now < mNextAttempt) {
        return mNextAttempt;
    }
    try {
        Open();
    } catch (const HostError& error) {
        GiveUp(error.what());
        return mNextAttempt;
    }
    return KeepConnections(now);
}

JackBackend::Time JackBackend::KeepConnections(Time now) {
    SetState(kJackLog, true,
             fmt::format("{}, {} Hz, {} frames a period", JackIsPipeWire() ? "PipeWire" : "JACK",
                         mDaws.client->SampleRate(), mDaws.client->PeriodFrames()));
    // Both are asked, as each keeps its own note.
    const bool dawsChanged = mDaws.client->TakeGraphChange();
    const bool privateChanged = mPrivate.client->TakeGraphChange();
    if (dawsChanged || privateChanged) {
        mNextLook = std::max(now, mLastLook + kBetweenLooks);
        mRetries = 0;
    }
    const std::optional<Time> next = mKeeper.NextUpdate();
    if ((mNextLook && now >= *mNextLook) || (next && now >= *next)) {
        mNextLook.reset();
        UpdateConnections(now);
    }
    if (!mIncomplete.empty() && now >= mNextShow) {
        ShowIncompletePorts();
        mNextShow = now + kRetry;
    }
    return std::min({mNextLook.value_or(Time::max()), mKeeper.NextUpdate().value_or(Time::max()),
                     mIncomplete.empty() ? Time::max() : mNextShow});
}

void JackBackend::Open() {
    mDaws.client = std::make_unique<JackClient>(kClientName, mDaws.ports, mWake);
    mPrivate.client = std::make_unique<JackClient>(kPrivateClientName, mPrivate.ports, mWake);
    ShowPorts();
    for (Side* const side : {&mDaws, &mPrivate}) {
        for (std::size_t i = 0; i < side->ports.Count(); ++i) {
            side->ports.Stream(i).Open();
        }
        side->client->Activate();
    }
    UpdateConnections(Clock::now());
}

void JackBackend::Close() {
    for (Side* const side : {&mPrivate, &mDaws}) {
        side->client.reset();
        for (std::size_t i = 0; i < side->ports.Count(); ++i) {
            side->ports.SetInput(i, nullptr);
            side->ports.SetOutput(i, nullptr);
            side->ports.Stream(i).Close();
        }
    }
    mIncomplete.clear();
    mNextLook.reset();
    mKeeper.PortsGone();
}

void JackBackend::ShowPorts() {
    HidePorts(mPublished.size());
    mIncomplete.clear();
    for (std::size_t i = 0; i < mPublished.size(); ++i) {
        ShowPort(i);
    }
    mNextShow = Clock::now() + kRetry;
}

void JackBackend::ShowIncompletePorts() {
    const std::set<std::size_t> incomplete = mIncomplete;
    for (const std::size_t index : incomplete) {
        ShowPort(index);
        if (!mIncomplete.contains(index)) {
            Log(kJackLog[HSL::kInfo], "port %u is complete now", index + 1);
        }
    }
}

void JackBackend::ShowPort(std::size_t index) {
    const bool wasIncomplete = mIncomplete.erase(index) != 0;
    bool isComplete = true;
    const auto show = [&](Side& side, JackPortFlags direction, const std::string& name,
                          const std::string& prettyName, std::optional<std::int32_t> uniqueId) {
        const bool isInput = direction == JackPortIsInput;
        jack_port_t* port = isInput ? side.ports.Input(index) : side.ports.Output(index);
        if (port == nullptr) {
            port = side.client->RegisterPort(name, direction);
            isInput ? side.ports.SetInput(index, port) : side.ports.SetOutput(index, port);
        }
        if (port == nullptr) {
            isComplete = false;
            Log(kJackLog[wasIncomplete ? HSL::kChatty : HSL::kError],
                "the server refuses port %s; trying again every second", name);
        } else if (!side.client->DescribePort(port, uniqueId ? JackAliasOf(*uniqueId) : "",
                                              prettyName,
                                              uniqueId ? std::to_string(*uniqueId) : "")) {
            isComplete = false;
            Log(kJackLog[wasIncomplete ? HSL::kChatty : HSL::kWarning],
                "the server takes no description of %s; trying again every second",
                JackClient::NameOf(port));
        }
    };
    const BackendPort& port = mPublished[index];
    show(mDaws, JackPortIsInput, InputName(index), port.name, std::nullopt);
    show(mDaws, JackPortIsOutput, OutputName(index), port.name, port.sourceId);
    show(mPrivate, JackPortIsOutput, PrivateName(index),
         fmt::format("Quorvel Virtual Source {}", index + 1), port.privateId);
    if (!isComplete) {
        mIncomplete.insert(index);
    }
}

void JackBackend::HidePorts(std::size_t first) {
    for (Side* const side : {&mDaws, &mPrivate}) {
        std::vector<jack_port_t*> hidden;
        for (std::size_t i = first; i < side->ports.Count(); ++i) {
            for (jack_port_t* const port : {side->ports.Input(i), side->ports.Output(i)}) {
                if (port != nullptr) {
                    hidden.push_back(port);
                }
            }
            side->ports.SetInput(i, nullptr);
            side->ports.SetOutput(i, nullptr);
        }
        if (!hidden.empty()) {
            side->client->WaitForPeriod();
        }
        for (jack_port_t* const port : hidden) {
            side->client->UnregisterPort(port);
        }
    }
}

void JackBackend::UpdateConnections(Time now) {
    mLastLook = now;
    ConnectionGraph graph;
    for (std::string& name : mDaws.client->PortNames(0)) {
        graph.ports.insert(std::move(name));
    }
    graph.connections = ConnectionsNow();
    graph.wereAway = mDaws.client->TakeRemovedPorts();
    const auto isInput = [this](const BackendConnection& connection) {
        const jack_port_t* const port = mDaws.client->FindPort(connection.port);
        return port != nullptr && (jack_port_flags(port) & JackPortIsInput) != 0;
    };
    // A DAW talks as soon as it is connected, and what it says is to find its way out.
    std::vector<BackendConnection> inOrder = mKeeper.Update(graph, now);
    std::stable_partition(inOrder.begin(), inOrder.end(), std::not_fn(isInput));
    bool failed = false;
    for (const BackendConnection& missing : inOrder) {
        const int error = isInput(missing) ? mDaws.client->Connect(missing.peer, missing.port)
                                           : mDaws.client->Connect(missing.port, missing.peer);
        failed = failed || error != 0;
        Log(kJackLog[error == 0 ? HSL::kInfo : HSL::kChatty], "%s %s and %s",
            error == 0 ? "connected again:" : "cannot be connected yet:", missing.port.c_str(),
            missing.peer.c_str());
    }
    if (failed && mRetries < kMostRetries) {
        ++mRetries;
        mNextLook = now + kRetry;
    }
    StoreConnections();
}

void JackBackend::StoreConnections() {
    if (mKeeper.TakeChange()) {
        mSaved.Store(mKeeper.Wanted());
    }
}

void JackBackend::Publish(const std::vector<BackendPort>& ports) {
    const MutexLock lock(mMutex);
    mPublished = ports;
    if (mPublished.size() > mDaws.ports.Count()) {
        mPublished.resize(mDaws.ports.Count());
    }
    if (mDaws.client) {
        try {
            ShowPorts();
        } catch (const HostError& error) {
            GiveUp(error.what());
        }
    } else {
        mNextAttempt = {};
        SeekServer(Clock::now());
    }
    mWake.Raise();
}

void JackBackend::Withdraw() {
    const MutexLock lock(mMutex);
    if (mDaws.client && !mDaws.client->ServerHasEnded()) {
        UpdateConnections(Clock::now()); // those of the last moment too
    }
    Close();
    mPublished.clear();
    SetState(kJackLog, false, "the ports are withdrawn");
}

void JackBackend::EmitFromPort(std::size_t port, const MIDIPacketList& packets) {
    if (port < mDaws.ports.Count()) {
        mDaws.ports.Stream(port).Emit(packets);
    }
}

void JackBackend::EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) {
    if (port < mPrivate.ports.Count()) {
        mPrivate.ports.Stream(port).Emit(packets);
    }
}

std::vector<BackendConnection> JackBackend::ConnectionsNow() const {
    std::vector<BackendConnection> connections;
    for (const Side* const side : {&mDaws, &mPrivate}) {
        for (std::size_t i = 0; side->client && i < side->ports.Count(); ++i) {
            for (jack_port_t* const port : {side->ports.Input(i), side->ports.Output(i)}) {
                if (port == nullptr) {
                    continue;
                }
                for (std::string& peer : side->client->ConnectionsOf(port)) {
                    connections.push_back({JackClient::NameOf(port), std::move(peer)});
                }
            }
        }
    }
    return connections;
}

std::vector<std::string> JackBackend::PeersNow() const {
    if (!mDaws.client) {
        return {};
    }
    std::vector<std::string> peers = mDaws.client->PortNames(0);
    std::erase_if(peers, [](const std::string& name) { return IsOurs(name); });
    return peers;
}

std::vector<BackendConnection> JackBackend::Connections() const {
    const MutexLock lock(mMutex);
    return ConnectionsNow();
}

std::vector<std::string> JackBackend::Peers() const {
    const MutexLock lock(mMutex);
    return PeersNow();
}

std::vector<PrivateSourceAddress> JackBackend::PrivateSources() const {
    const MutexLock lock(mMutex);
    std::vector<PrivateSourceAddress> sources;
    for (std::size_t i = 0; mPrivate.client && i < mPublished.size(); ++i) {
        if (const jack_port_t* const port = mPrivate.ports.Output(i)) {
            sources.push_back({mPublished[i].privateId, JackClient::NameOf(port)});
        }
    }
    return sources;
}

JackBackend::Link JackBackend::LinkWith(std::size_t port, const std::string& peer) const {
    if (!mDaws.client) {
        throw HostError("no JACK server answers, so nothing can be connected");
    }
    const std::vector<std::string> peers = PeersNow();
    if (std::find(peers.begin(), peers.end(), peer) == peers.end()) {
        throw InputError(
            fmt::format("there is no JACK port \"{}\"; there are: {}", peer,
                        peers.empty() ? "none" : fmt::to_string(fmt::join(peers, ", "))));
    }
    const jack_port_t* const theirs = mDaws.client->FindPort(peer);
    if (theirs == nullptr) {
        throw HostError(fmt::format("the JACK server does not find port {}", peer));
    }
    const bool theyReceive = (jack_port_flags(theirs) & JackPortIsInput) != 0;
    const jack_port_t* ours = nullptr;
    if (port < mDaws.ports.Count()) {
        ours = theyReceive ? mDaws.ports.Output(port) : mDaws.ports.Input(port);
    }
    if (ours == nullptr) {
        throw HostError(fmt::format("port {} is not shown on the JACK server", port + 1));
    }
    const std::string name = JackClient::NameOf(ours);
    return theyReceive ? Link{name, peer, name} : Link{peer, name, name};
}

void JackBackend::Connect(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    const Link link = LinkWith(port, peer);
    if (mDaws.client->Connect(link.from, link.to) != 0) {
        throw HostError(
            fmt::format("the JACK server does not connect {} to {}", link.from, link.to));
    }
    UpdateConnections(Clock::now());
}

void JackBackend::Disconnect(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    const Link link = LinkWith(port, peer);
    if (mDaws.client->Disconnect(link.from, link.to) != 0) {
        throw HostError(
            fmt::format("the JACK server does not disconnect {} from {}", link.from, link.to));
    }
    mKeeper.Forget({link.ours, peer});
    UpdateConnections(Clock::now());
}

bool JackBackend::Forget(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    const std::string daws = std::string(kClientName) + ":";
    bool forgotten = mKeeper.Forget({daws + InputName(port), peer});
    forgotten |= mKeeper.Forget({daws + OutputName(port), peer});
    forgotten |= mKeeper.Forget({std::string(kPrivateClientName) + ":" + PrivateName(port), peer});
    StoreConnections();
    return forgotten;
}

std::uint64_t JackBackend::LostToDaws() const {
    return mDaws.ports.Lost() + mPrivate.ports.Lost();
}

} // namespace MidiServer
