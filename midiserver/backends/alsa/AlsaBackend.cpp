#include "midiserver/backends/alsa/AlsaBackend.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"
#include "midiserver/host/RealTimePriority.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace MidiServer {

namespace {

using Clock = std::chrono::steady_clock;

// What the driver forwards comes in packets of up to 65535 bytes, the largest of which fits an
// empty queue.
constexpr std::size_t kQueueBytes = 131072;

constexpr auto kRetry = std::chrono::seconds(5);
constexpr auto kOverflowLinePause = std::chrono::seconds(10);

constexpr PortAddress kAnnouncements{SND_SEQ_CLIENT_SYSTEM, SND_SEQ_PORT_SYSTEM_ANNOUNCE};

bool Has(unsigned capability, unsigned all) {
    return (capability & all) == all;
}

bool IsAnnouncement(const snd_seq_event_t& event) {
    return event.type >= SND_SEQ_EVENT_CLIENT_START &&
           event.type <= SND_SEQ_EVENT_PORT_UNSUBSCRIBED;
}

std::string PrivateName(std::size_t index) {
    return fmt::format("Quorvel Virtual Source {}", index + 1);
}

std::vector<std::unique_ptr<PortOutput>> MakeOutputs(std::size_t count, std::size_t queueBytes) {
    std::vector<std::unique_ptr<PortOutput>> outputs;
    for (std::size_t i = 0; i < count; ++i) {
        outputs.push_back(std::make_unique<PortOutput>(queueBytes));
    }
    return outputs;
}

} // namespace

AlsaBackend::AlsaBackend(InputQueue& input, const std::filesystem::path& savedConnections)
    : mInput(input),
      mSaved(savedConnections, "alsa"),
      mToDaws(MakeOutputs(input.Ports(), kQueueBytes)),
      mToPrivate(MakeOutputs(input.Ports(), kQueueBytes)),
      mTurns(input.Ports()),
      mKeeper(mSaved.Load()) {
    mCarrier = std::thread([this] { CarryMidi(); });
    try {
        mConnectionKeeper = std::thread([this] { KeepConnections(); });
    } catch (...) {
        Stop();
        throw;
    }
}

AlsaBackend::~AlsaBackend() {
    Stop();
}

void AlsaBackend::Stop() {
    mStopping.store(true, std::memory_order_relaxed);
    mWake.Raise();
    mGraphChange.Raise();
    mCarrier.join();
    if (mConnectionKeeper.joinable()) {
        mConnectionKeeper.join();
    }
}

// The thread that carries MIDI.

void AlsaBackend::CarryMidi() {
    RealTimePriority("the ALSA sequencer's thread").Take();
    while (!mStopping.load(std::memory_order_relaxed)) {
        std::array<int, 2> descriptors = {-1, -1};
        Time due;
        {
            const MutexLock lock(mMutex);
            due = Attend(Clock::now());
            if (mDaws) {
                descriptors = {mDaws->Descriptor(), mPrivate->Descriptor()};
            }
        }
        mInput.Wake();
        // A client that another thread closes meanwhile stays there until this has returned.
        mWake.WaitUntil(due, descriptors);
    }
    const MutexLock lock(mMutex);
    Close();
    HSL::CLogManager::Instance()->CleanupTLSContext();
}

AlsaBackend::Time AlsaBackend::Attend(Time now) {
    if (!mDaws) {
        SeekSequencer(now);
        if (!mDaws) {
            return mPublished.empty() ? Time::max() : mNextAttempt;
        }
    }
    try {
        // What a program sent before it left comes before the news that it has left.
        Receive(*mDaws, now);
        Receive(*mPrivate, now);
    } catch (const HostError& error) {
        Fail(error, now);
        return mNextAttempt;
    }
    Time due = Time::max();
    for (std::size_t port = 0; port < mShown; ++port) {
        mTurns[port].EndOverdue(now, DeliverTo(port));
        due = std::min(due, mTurns[port].Due().value_or(Time::max()));
    }
    return std::min({due, Play(*mDaws, mToDaws, now), Play(*mPrivate, mToPrivate, now)});
}

AlsaBackend::Time AlsaBackend::Play(SequencerClient& client, const Outputs& outputs, Time now) {
    Time due = Time::max();
    for (std::size_t port = 0; port < mShown; ++port) {
        due = std::min(due, outputs[port]
                                ->Play(client, static_cast<int>(port), mEncoder, now)
                                .value_or(Time::max()));
    }
    return due;
}

void AlsaBackend::Receive(SequencerClient& client, Time now) {
    client.ReceiveAll([&](const snd_seq_event_t& event)
                          QUORVEL_REQUIRES(mMutex) { Take(client, event, now); },
                      [&]() QUORVEL_REQUIRES(mMutex) { TakeOverflow(now); });
}

void AlsaBackend::Take(const SequencerClient& client, const snd_seq_event_t& event, Time now) {
    if (IsAnnouncement(event)) {
        if (event.type == SND_SEQ_EVENT_CLIENT_EXIT) {
            for (std::size_t port = 0; port < mTurns.size(); ++port) {
                mTurns[port].Leave(event.data.addr.client, DeliverTo(port));
            }
        }
        FindReceivers();
        mGraphChange.Raise();
        return;
    }
    const std::size_t port = event.dest.port;
    if (&client != mDaws.get() || port >= mShown) {
        return;
    }
    if (!mTurns[port].Take({event.source.client, event.source.port}, now, mDecoder.Decode(event),
                           DeliverTo(port))) {
        mInput.CountLost(port, 1);
    }
}

SenderTurns::Deliver AlsaBackend::DeliverTo(std::size_t port) {
    return [this, port](Time time, std::span<const std::uint8_t> bytes) {
        const std::chrono::nanoseconds sinceStart = time.time_since_epoch();
        mInput.Write(port, static_cast<std::uint64_t>(sinceStart.count()), bytes);
    };
}

void AlsaBackend::TakeOverflow(Time now) {
    // The sequencer does not tell what it has dropped.
    mInput.CountLostSomewhere();
    for (std::size_t port = 0; port < mShown; ++port) {
        mTurns[port].EndAll(DeliverTo(port));
    }
    // Announcements may be among them.
    FindReceivers();
    mGraphChange.Raise();
    if (now >= mNextOverflowLine) {
        mNextOverflowLine = now + kOverflowLinePause;
        Log(kAlsaLog[HSL::kWarning],
            "DAWs send faster than this program reads: the ALSA sequencer has dropped events");
    }
}

// The clients and their ports.

void AlsaBackend::SeekSequencer(Time now) {
    if (mPublished.empty() || now < mNextAttempt) {
        return;
    }
    try {
        Open();
    } catch (const HostError& error) {
        Fail(error, now);
        return;
    }
    SetState(kAlsaLog, true,
             fmt::format("ALSA sequencer, clients {} and {}", mDaws->Id(), mPrivate->Id()));
}

void AlsaBackend::Open() {
    auto daws = std::make_unique<SequencerClient>(kClientName);
    mPrivate = std::make_unique<SequencerClient>(kPrivateClientName);
    mDaws = std::move(daws);
    // Behind the ports that there can be. Nobody sees it but the sequencer.
    const int announcements = static_cast<int>(mInput.Ports());
    int status = mPrivate->CreatePort(announcements, "announcements",
                                      SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT);
    if (status >= 0) {
        status = mPrivate->Connect(kAnnouncements, {mPrivate->Id(), announcements});
    }
    if (status < 0) {
        throw HostError(fmt::format("the ALSA sequencer does not tell of other programs: {}",
                                    snd_strerror(status)));
    }
    ShowPorts();
}

void AlsaBackend::Close() {
    HidePorts(0);
    mDaws.reset();
    mPrivate.reset();
}

void AlsaBackend::Fail(const HostError& error, Time now) {
    Close();
    SetState(kAlsaLog, false, std::string(error.what()) + "; trying again every 5 seconds");
    mNextAttempt = now + kRetry;
}

void AlsaBackend::ShowPorts() {
    for (; mShown < mPublished.size(); ++mShown) {
        const int number = static_cast<int>(mShown);
        int status = mDaws->CreatePort(number, mPublished[mShown].name,
                                       kReadablePort | kWritablePort | SND_SEQ_PORT_CAP_DUPLEX);
        if (status >= 0) {
            status = mPrivate->CreatePort(number, PrivateName(mShown),
                                          kReadablePort | SND_SEQ_PORT_CAP_NO_EXPORT);
        }
        if (status < 0) {
            throw HostError(fmt::format("the ALSA sequencer refuses the port \"{}\": {}",
                                        mPublished[mShown].name, snd_strerror(status)));
        }
        mToDaws[mShown]->Open();
        mToPrivate[mShown]->Open();
    }
    FindReceivers();
    mGraphChange.Raise();
}

void AlsaBackend::HidePorts(std::size_t first) {
    if (first == 0) {
        mKeeper.PortsGone();
    }
    while (mShown > first) {
        --mShown;
        mToDaws[mShown]->Close();
        mToPrivate[mShown]->Close();
        mTurns[mShown] = {};
        mDaws->DeletePort(static_cast<int>(mShown));
        mPrivate->DeletePort(static_cast<int>(mShown));
    }
}

void AlsaBackend::FindReceivers() {
    for (std::size_t port = 0; port < mShown; ++port) {
        mToDaws[port]->FindReceivers(*mDaws, static_cast<int>(port));
        mToPrivate[port]->FindReceivers(*mPrivate, static_cast<int>(port));
    }
}

void AlsaBackend::Publish(const std::vector<BackendPort>& ports) {
    {
        const MutexLock lock(mMutex);
        // Ports differ by their numbers: a name that has changed takes all behind it along.
        std::size_t same = 0;
        const std::size_t count = std::min(ports.size(), mInput.Ports());
        while (same < std::min(mShown, count) && mPublished[same].name == ports[same].name) {
            ++same;
        }
        HidePorts(same);
        mPublished.assign(ports.begin(), ports.begin() + static_cast<std::ptrdiff_t>(count));
        mNextAttempt = Time{};
        if (!mDaws) {
            SeekSequencer(Clock::now());
        } else {
            try {
                ShowPorts();
            } catch (const HostError& error) {
                Fail(error, Clock::now());
            }
        }
    }
    mWake.Raise();
}

void AlsaBackend::Withdraw() {
    const MutexLock lock(mMutex);
    if (mDaws) {
        UpdateConnections(Clock::now()); // those of the last moment too
    }
    HidePorts(0);
    mPublished.clear();
    mGraphChange.Raise(); // to store them
}

void AlsaBackend::EmitFromPort(std::size_t port, const MIDIPacketList& packets) {
    mToDaws.at(port)->Stream().Emit(packets);
    mWake.Raise();
}

void AlsaBackend::EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) {
    mToPrivate.at(port)->Stream().Emit(packets);
    mWake.Raise();
}

std::uint64_t AlsaBackend::LostToDaws() const {
    std::uint64_t lost = 0;
    for (std::size_t port = 0; port < mToDaws.size(); ++port) {
        lost += mToDaws[port]->Lost() + mToPrivate[port]->Lost();
    }
    return lost;
}

// Connections.

void AlsaBackend::KeepConnections() {
    std::optional<Time> due;
    bool stopping = false;
    while (!stopping) {
        mGraphChange.WaitUntil(due.value_or(Time::max()));
        // What has changed until then is stored all the same.
        stopping = mStopping.load(std::memory_order_relaxed);
        std::optional<std::vector<BackendConnection>> changed;
        {
            const MutexLock lock(mMutex);
            if (mDaws && mShown > 0) {
                UpdateConnections(Clock::now());
            }
            due = mKeeper.NextUpdate();
            if (mKeeper.TakeChange()) {
                changed = mKeeper.Wanted();
            }
        }
        if (changed) {
            mSaved.Store(*changed);
        }
    }
    HSL::CLogManager::Instance()->CleanupTLSContext();
}

void AlsaBackend::UpdateConnections(Time now) {
    const std::vector<SequencerPort> others = OtherPorts();
    ConnectionGraph graph;
    for (const SequencerPort& other : others) {
        graph.ports.insert(other.name);
    }
    for (std::size_t port = 0; port < mShown; ++port) {
        graph.ports.insert(mPublished[port].name + " in");
        graph.ports.insert(mPublished[port].name + " out");
        graph.ports.insert(PrivateName(port));
    }
    for (const Link& link : Links(others)) {
        graph.connections.push_back(link.connection);
    }
    for (const BackendConnection& missing : mKeeper.Update(graph, now)) {
        Restore(missing, others);
    }
}

void AlsaBackend::Restore(const BackendConnection& missing,
                          const std::vector<SequencerPort>& others) {
    for (std::size_t port = 0; port < mShown; ++port) {
        for (const SequencerPort& other : others) {
            for (const Link& link : PossibleLinks(port, other)) {
                if (link.connection.port == missing.port && other.name == missing.peer) {
                    // A port that is not in the lists is connected by its own client only.
                    SequencerClient& client =
                        link.sender.client == mPrivate->Id() ? *mPrivate : *mDaws;
                    const int status = client.Connect(link.sender, link.receiver);
                    Log(kAlsaLog[HSL::kInfo], "%s - %s: %s", missing.port.c_str(),
                        missing.peer.c_str(),
                        status < 0 ? snd_strerror(status) : "connected again");
                    return;
                }
            }
        }
    }
}

bool AlsaBackend::IsOurs(PortAddress address) const {
    return address.client == mDaws->Id() || address.client == mPrivate->Id();
}

std::vector<SequencerPort> AlsaBackend::OtherPorts() const {
    std::vector<SequencerPort> ports = mDaws->Ports();
    std::erase_if(ports, [this](const SequencerPort& port) QUORVEL_REQUIRES(mMutex) {
        return IsOurs(port.address) || port.address.client == SND_SEQ_CLIENT_SYSTEM;
    });
    return ports;
}

std::vector<AlsaBackend::Link> AlsaBackend::PossibleLinks(std::size_t port,
                                                          const SequencerPort& other) const {
    const PortAddress ours{mDaws->Id(), static_cast<int>(port)};
    const PortAddress ourPrivate{mPrivate->Id(), static_cast<int>(port)};
    std::vector<Link> links;
    if (Has(other.capability, kReadablePort)) {
        links.push_back({other.address, ours, {mPublished[port].name + " in", other.name}});
    }
    if (Has(other.capability, kWritablePort)) {
        links.push_back({ours, other.address, {mPublished[port].name + " out", other.name}});
        links.push_back({ourPrivate, other.address, {PrivateName(port), other.name}});
    }
    return links;
}

std::vector<AlsaBackend::Link> AlsaBackend::Links(const std::vector<SequencerPort>& others) const {
    std::vector<Link> links;
    for (std::size_t port = 0; port < mShown; ++port) {
        const int number = static_cast<int>(port);
        const PortAddress ours{mDaws->Id(), number};
        const std::vector<PortAddress> senders = mDaws->Senders(number);
        const std::vector<PortAddress> receivers = mDaws->Receivers(number);
        const std::vector<PortAddress> privateReceivers = mPrivate->Receivers(number);
        const auto contains = [](const std::vector<PortAddress>& all, PortAddress one) {
            return std::find(all.begin(), all.end(), one) != all.end();
        };
        for (const SequencerPort& other : others) {
            for (Link& link : PossibleLinks(port, other)) {
                const bool exists = link.receiver == ours ? contains(senders, link.sender)
                                    : link.sender == ours
                                        ? contains(receivers, link.receiver)
                                        : contains(privateReceivers, link.receiver);
                if (exists) {
                    links.push_back(std::move(link));
                }
            }
        }
    }
    return links;
}

std::vector<std::string> AlsaBackend::PeersNow() const {
    std::vector<std::string> peers;
    for (const SequencerPort& other : OtherPorts()) {
        if (!Has(other.capability, SND_SEQ_PORT_CAP_NO_EXPORT) &&
            (Has(other.capability, kReadablePort) || Has(other.capability, kWritablePort)) &&
            std::find(peers.begin(), peers.end(), other.name) == peers.end()) {
            peers.push_back(other.name);
        }
    }
    return peers;
}

std::vector<AlsaBackend::Link> AlsaBackend::LinksWith(std::size_t port,
                                                      const std::string& peer) const {
    if (!mDaws || port >= mShown) {
        throw HostError("there is no such port: " + State().detail);
    }
    for (const SequencerPort& other : OtherPorts()) {
        if (other.name == peer) {
            std::vector<Link> links = PossibleLinks(port, other);
            std::erase_if(links, [this](const Link& link) QUORVEL_REQUIRES(mMutex) {
                return link.sender.client == mPrivate->Id();
            });
            return links;
        }
    }
    throw InputError(fmt::format("no ALSA port has the name \"{}\"; there are: {}", peer,
                                 fmt::join(PeersNow(), ", ")));
}

std::vector<BackendConnection> AlsaBackend::Connections() const {
    const MutexLock lock(mMutex);
    std::vector<BackendConnection> connections;
    if (mDaws) {
        for (Link& link : Links(OtherPorts())) {
            connections.push_back(std::move(link.connection));
        }
    }
    return connections;
}

std::vector<std::string> AlsaBackend::Peers() const {
    const MutexLock lock(mMutex);
    return mDaws ? PeersNow() : std::vector<std::string>();
}

std::vector<PrivateSourceAddress> AlsaBackend::PrivateSources() const {
    const MutexLock lock(mMutex);
    std::vector<PrivateSourceAddress> sources;
    for (std::size_t port = 0; port < mShown; ++port) {
        sources.push_back(
            {mPublished[port].privateId, AddressText({mPrivate->Id(), static_cast<int>(port)})});
    }
    return sources;
}

void AlsaBackend::Connect(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    for (const Link& link : LinksWith(port, peer)) {
        const int status = mDaws->Connect(link.sender, link.receiver);
        if (status < 0 && status != -EBUSY) { // busy: it is connected already
            throw HostError(fmt::format("the ALSA sequencer does not connect {} with {}: {}",
                                        link.connection.port, peer, snd_strerror(status)));
        }
    }
}

void AlsaBackend::Disconnect(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    for (const Link& link : LinksWith(port, peer)) {
        mKeeper.Forget(link.connection);
        const int status = mDaws->Disconnect(link.sender, link.receiver);
        if (status < 0 && status != -ENOENT) { // it is not connected
            throw HostError(fmt::format("the ALSA sequencer does not disconnect {} from {}: {}",
                                        link.connection.port, peer, snd_strerror(status)));
        }
    }
    mGraphChange.Raise();
}

bool AlsaBackend::Forget(std::size_t port, const std::string& peer) {
    const MutexLock lock(mMutex);
    bool forgotten = mKeeper.Forget({PrivateName(port), peer});
    if (port < mPublished.size()) {
        forgotten |= mKeeper.Forget({mPublished[port].name + " in", peer});
        forgotten |= mKeeper.Forget({mPublished[port].name + " out", peer});
    }
    mGraphChange.Raise(); // to store it
    return forgotten;
}

} // namespace MidiServer
