#include "surface/connection/AlsaListener.h"

#include "midiserver/errors/Errors.h"
#include "surface/connection/SourceAddresses.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Surface {

namespace {

using MidiServer::HostError;
using MidiServer::PortAddress;
using MidiServer::SequencerClient;

using Clock = std::chrono::steady_clock;

// The service may connect them too: it keeps the connection, and makes it as soon as it shows its
// ports again, before a DAW says anything.
constexpr unsigned kCapability = MidiServer::kWritablePort | SND_SEQ_PORT_CAP_NO_EXPORT;

} // namespace

AlsaListener::AlsaListener(MidiServer::InputQueue& input, MidiServer::WakeUpSignal& changed)
    : mInput(input), mChanged(changed) {}

AlsaListener::~AlsaListener() {
    Close();
}

void AlsaListener::Open(const std::vector<PrivateSource>& sources) {
    auto client = std::make_unique<SequencerClient>(kSurfaceClientName);
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const int status =
            client->CreatePort(static_cast<int>(i), NameOfInput(sources[i]), kCapability);
        if (status < 0) {
            throw HostError(
                fmt::format("the ALSA sequencer refuses a port: {}", snd_strerror(status)));
        }
    }
    {
        const MutexLock lock(mMutex);
        mClient = std::move(client);
    }
    mReader = std::thread([this] { Read(); });
}

void AlsaListener::Close() {
    if (mReader.joinable()) {
        mStopping.store(true, std::memory_order_relaxed);
        mWake.Raise();
        mReader.join();
        mStopping.store(false, std::memory_order_relaxed);
    }
    const MutexLock lock(mMutex);
    mClient.reset();
}

void AlsaListener::CheckReader() {
    std::string failure;
    {
        const MutexLock lock(mMutex);
        failure.swap(mFailure);
    }
    if (!failure.empty()) {
        Close();
        throw HostError(failure);
    }
}

void AlsaListener::Read() {
    while (!mStopping.load(std::memory_order_relaxed)) {
        int descriptor = -1;
        try {
            const MutexLock lock(mMutex);
            mClient->ReceiveAll([this](const snd_seq_event_t& event) { Take(event); },
                                [this] { mInput.CountLostSomewhere(); });
            descriptor = mClient->Descriptor();
        } catch (const HostError& error) {
            const MutexLock lock(mMutex);
            mFailure = error.what();
            mChanged.Raise();
            return;
        }
        mInput.Wake();
        // The client stays there until this thread has ended.
        mWake.WaitUntil(Clock::time_point::max(), {descriptor, -1});
    }
}

void AlsaListener::Take(const snd_seq_event_t& event) {
    if (event.type == SND_SEQ_EVENT_PORT_UNSUBSCRIBED) {
        mChanged.Raise(); // a source has gone
        return;
    }
    const std::span<const std::uint8_t> bytes = mDecoder.Decode(event);
    if (!bytes.empty()) {
        const std::chrono::nanoseconds now = Clock::now().time_since_epoch();
        mInput.Write(event.dest.port, static_cast<std::uint64_t>(now.count()), bytes);
    }
}

bool AlsaListener::HearsAll() const {
    const MutexLock lock(mMutex);
    for (std::size_t i = 0; i < mAddresses.size(); ++i) {
        if (mClient->Senders(static_cast<int>(i)) != std::vector{mAddresses[i]}) {
            return false;
        }
    }
    return true;
}

void AlsaListener::Connect(int port) {
    const PortAddress source = mAddresses[static_cast<std::size_t>(port)];
    const MutexLock lock(mMutex);
    const PortAddress ours{mClient->Id(), port};
    for (const PortAddress& sender : mClient->Senders(port)) {
        // Another service's source of the same name, which that one has connected.
        if (sender != source) {
            mClient->Disconnect(sender, ours);
        }
    }
    const int status = mClient->Connect(source, ours);
    if (status < 0 && status != -EBUSY) { // busy: it is connected already
        throw HostError(fmt::format("the ALSA sequencer does not connect port {}: {}",
                                    MidiServer::AddressText(source), snd_strerror(status)));
    }
}

void AlsaListener::Attend(const MidiServer::ControlClient& service,
                          const std::vector<PrivateSource>& sources) {
    CheckReader();
    if (!mReader.joinable()) {
        Open(sources);
    }
    if (sources == mSources && HearsAll()) {
        return;
    }
    mAddresses.clear();
    for (const std::string& address : SourceAddresses(sources, service, Name())) {
        mAddresses.push_back(MidiServer::AddressOfText(address));
    }
    mSources = sources;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        Connect(static_cast<int>(i));
    }
}

} // namespace Surface
