#include "surface/connection/JackListener.h"

#include "midiserver/backends/jack/JackLibrary.h"
#include "midiserver/errors/Errors.h"
#include "surface/connection/SourceAddresses.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace Surface {

namespace {

using MidiServer::HostError;
using MidiServer::JackClient;

constexpr int kMostSurfaces = 8;
// The surface has no outputs here; what it sends goes through the service.
constexpr std::size_t kNoOutput = 64;

std::string ClientName(int number) {
    return number == 1 ? kSurfaceClientName : fmt::format("{} {}", kSurfaceClientName, number);
}

} // namespace

JackListener::JackListener(std::size_t ports, MidiServer::InputQueue& input,
                           MidiServer::WakeUpSignal& changed)
    : mChanged(changed), mPorts(ports, kNoOutput, &input) {
    MidiServer::PrepareJackLibrary();
    // Where the limits do not allow it, a machine short of memory may lose messages.
    static_cast<void>(mPorts.LockMemory());
}

JackListener::~JackListener() {
    Close();
}

void JackListener::Open() {
    for (int number = 1; !mClient; ++number) {
        try {
            mClient = std::make_unique<JackClient>(ClientName(number), mPorts, mChanged);
        } catch (const HostError&) {
            if (number == kMostSurfaces || !MidiServer::JackServerAnswers()) {
                throw;
            }
        }
    }
}

void JackListener::Close() {
    mClient.reset();
    for (std::size_t i = 0; i < mPorts.Count(); ++i) {
        mPorts.SetInput(i, nullptr);
    }
}

void JackListener::Show(const std::vector<PrivateSource>& sources) {
    for (std::size_t i = 0; i < sources.size(); ++i) {
        jack_port_t* const port = mClient->RegisterPort(NameOfInput(sources[i]), JackPortIsInput);
        if (port == nullptr) {
            throw HostError("the JACK server refuses a port");
        }
        mPorts.SetInput(i, port);
    }
    mClient->Activate();
}

bool JackListener::HearsAll() const {
    for (std::size_t i = 0; i < mAddresses.size(); ++i) {
        const std::vector<std::string> connected = mClient->ConnectionsOf(mPorts.Input(i));
        if (std::find(connected.begin(), connected.end(), mAddresses[i]) == connected.end()) {
            return false;
        }
    }
    return true;
}

void JackListener::Attend(const MidiServer::ControlClient& service,
                          const std::vector<PrivateSource>& sources) {
    if (mClient && (mClient->ServerHasEnded() || mClient->HasStopped())) {
        Close();
    }
    if (!mClient) {
        Open();
        try {
            Show(sources);
        } catch (const HostError&) {
            Close();
            throw;
        }
    }
    if (sources == mSources && HearsAll()) {
        return;
    }
    mAddresses = SourceAddresses(sources, service, Name());
    mSources = sources;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const std::string to = JackClient::NameOf(mPorts.Input(i));
        if (mClient->Connect(mAddresses[i], to) != 0) {
            throw HostError(
                fmt::format("the JACK server does not connect {} to {}", mAddresses[i], to));
        }
    }
}

} // namespace Surface
