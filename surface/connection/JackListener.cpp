#include "surface/connection/JackListener.h"

#include "midiserver/backends/jack/JackLibrary.h"
#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace Surface {

namespace {

using MidiServer::HostError;
using MidiServer::JackClient;

constexpr const char* kName = "Quorvel Surface";
constexpr int kMostSurfaces = 8;
// The surface has no outputs here; what it sends goes through the service.
constexpr std::size_t kNoOutput = 64;

std::string ClientName(int number) {
    return number == 1 ? kName : fmt::format("{} {}", kName, number);
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
        jack_port_t* const port =
            mClient->RegisterPort(fmt::format("Port {:02}", sources[i].port), JackPortIsInput);
        if (port == nullptr) {
            throw HostError("the JACK server refuses a port");
        }
        mPorts.SetInput(i, port);
    }
    mClient->Activate();
}

void JackListener::Connect(std::size_t index, const PrivateSource& source) {
    const std::string alias = MidiServer::JackAliasOf(source.uniqueId);
    const jack_port_t* const theirs = mClient->FindPort(alias);
    if (theirs == nullptr) {
        throw HostError(fmt::format("there is no JACK port \"{}\" yet", alias));
    }
    const std::string from = JackClient::NameOf(theirs);
    const std::vector<std::string> connected = mClient->ConnectionsOf(mPorts.Input(index));
    if (std::find(connected.begin(), connected.end(), from) != connected.end()) {
        return;
    }
    const std::string to = JackClient::NameOf(mPorts.Input(index));
    if (mClient->Connect(from, to) != 0) {
        throw HostError(fmt::format("the JACK server does not connect {} to {}", from, to));
    }
}

void JackListener::Attend(const MidiServer::ControlClient&,
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
    for (std::size_t i = 0; i < sources.size(); ++i) {
        Connect(i, sources[i]);
    }
}

} // namespace Surface
