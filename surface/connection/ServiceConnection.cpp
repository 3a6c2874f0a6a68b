#include "surface/connection/ServiceConnection.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"
#include "midiserver/midi/HexText.h"
#include "midiserver/routing/PrivateSourceIds.h"
#ifdef QUORVEL_SURFACE_HAS_ALSA
#include "surface/connection/AlsaListener.h"
#endif
#ifdef QUORVEL_SURFACE_HAS_JACK
#include "midiserver/backends/jack/JackLibrary.h"
#include "surface/connection/JackListener.h"
#endif
#include "surface/connection/RecordingListener.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Surface {

namespace {

using Json = nlohmann::ordered_json;
using MidiServer::ControlRequest;
using MidiServer::InputError;

constexpr const char* kAuto = "auto";
constexpr const char* kEmbedded = "embedded";
#ifdef QUORVEL_SURFACE_HAS_ALSA
constexpr const char* kAlsa = "alsa";
#endif
#ifdef QUORVEL_SURFACE_HAS_JACK
constexpr const char* kJack = "jack";
#endif

constexpr std::chrono::seconds kRetry(1);

bool Contains(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

std::vector<std::string> ServiceConnection::Backends() {
    return {
#ifdef QUORVEL_SURFACE_HAS_JACK
        kJack,
#endif
#ifdef QUORVEL_SURFACE_HAS_ALSA
        kAlsa,
#endif
        kEmbedded,
    };
}

ServiceConnection::ServiceConnection(std::vector<std::size_t> ports, std::string backend)
    : mPorts(std::move(ports)),
      mBackend(std::move(backend)),
      mInput(mPorts.size(), mArrived),
      mAssemblers(mPorts.size()) {
#ifdef QUORVEL_SURFACE_HAS_JACK
    MidiServer::PrepareJackLibrary();
#endif
    {
        const MutexLock lock(mMutex);
        mState.detail = "looking for the service";
        mState.protocols.resize(mPorts.size(), MidiServer::Protocol::kNone);
    }
    mThread = std::thread([this] { Run(); });
}

ServiceConnection::~ServiceConnection() {
    mStopping.store(true, std::memory_order_relaxed);
    mChanged.Raise();
    mThread.join();
}

FeedState ServiceConnection::State() const {
    const MutexLock lock(mMutex);
    return mState;
}

void ServiceConnection::Take(const Receive& receive) {
    std::uint64_t lost = 0;
    mTaken.clear();
    for (std::size_t index = 0; index < mPorts.size(); ++index) {
        MidiServer::MessageAssembler& assembler = mAssemblers[index];
        const MidiServer::InputLoss loss = mInput.TakeLoss(index);
        while (mInput.Read(index, mEvent)) {
            if (mEvent.followsLoss) {
                assembler.NoteLoss();
            }
            const TimePoint time{std::chrono::nanoseconds(mEvent.time)};
            assembler.Add(mEvent.bytes, [&](std::span<const std::uint8_t> message) {
                mTaken.push_back({index, time, {message.begin(), message.end()}});
            });
        }
        lost += std::uint64_t{loss.noRoom} + loss.upstream + assembler.TakeDropped().Total();
    }
    if (lost > 0) {
        const MutexLock lock(mMutex);
        mState.lost += lost;
    }
    std::stable_sort(mTaken.begin(), mTaken.end(),
                     [](const Arrived& a, const Arrived& b) { return a.time < b.time; });
    for (const Arrived& arrived : mTaken) {
        // What came just before the program began counts as if it came then.
        const auto time = std::chrono::duration_cast<SurfaceModel::Time>(arrived.time - mStart);
        receive(arrived.index, std::max(time, SurfaceModel::Time(0)), arrived.message);
    }
}

SurfaceModel::Time ServiceConnection::Now() const {
    return std::chrono::duration_cast<SurfaceModel::Time>(Clock::now() - mStart);
}

void ServiceConnection::Wait(std::chrono::milliseconds longest) {
    mArrived.WaitUntil(Clock::now() + longest);
}

void ServiceConnection::Send(std::size_t index, std::span<const std::uint8_t> message) {
    {
        const MutexLock lock(mMutex);
        if (!mState.isThere || mOutgoing.size() >= kMostWaiting) {
            ++mState.unsent;
            return;
        }
        mOutgoing.push_back({index, {message.begin(), message.end()}});
    }
    mChanged.Raise();
}

void ServiceConnection::SetState(bool isThere, const std::string& detail) {
    const MutexLock lock(mMutex);
    mState.isThere = isThere;
    mState.detail = detail;
    if (!isThere) {
        // A press that comes late does more harm than one that does not come.
        mState.unsent += mOutgoing.size();
        mOutgoing.clear();
    }
}

void ServiceConnection::CountUnsent(std::size_t messages) {
    const MutexLock lock(mMutex);
    mState.unsent += messages;
}

void ServiceConnection::Run() {
    while (!mStopping.load(std::memory_order_relaxed)) {
        mChanged.WaitUntil(Attend());
    }
    try {
        if (mService) {
            SendWhatWaits(); // what the user let go last
        }
    } catch (const std::exception&) {
        // It is counted, and nobody is left to be told.
    }
    mListener.reset();
}

// Does all that there is to do, and returns when there is more even if nothing happens.
ServiceConnection::TimePoint ServiceConnection::Attend() {
    try {
        if (!mService) {
            mSources.clear();
            mService.emplace();
        }
        SendWhatWaits();
        if (Clock::now() >= mNextLook) {
            LookAtSources();
            mNextLook = Clock::now() + kRetry;
        }
        mListener->Attend(*mService, mSources);
        SetState(true, mListener->Name());
        return std::min(mNextLook, Clock::now() + mListener->Pace());
    } catch (const std::exception& error) {
        SetState(false, error.what());
    }
    // Whatever failed may be because the service has ended, which is said the next time.
    mService.reset();
    mNextLook = {};
    return Clock::now() + kRetry;
}

// Asks for the sources' IDs. They are others with each start of the driver, and then so may be the
// protocols.
void ServiceConnection::LookAtSources() {
    const std::vector<SInt32> ids =
        MidiServer::AskForPrivateSourceIds(*std::max_element(mPorts.begin(), mPorts.end()));
    std::vector<PrivateSource> sources;
    for (const std::size_t port : mPorts) {
        sources.push_back({port, ids[port - 1]});
    }
    if (sources == mSources) {
        return;
    }
    const Json list = mService->Ask(ControlRequest::kList, Json::object());
    const Json& ports = list.at("ports");
    std::vector<MidiServer::Protocol> protocols;
    for (const PrivateSource& source : sources) {
        if (source.uniqueId == 0 || source.port > ports.size()) {
            throw InputError(fmt::format("the service has no port {}; it has {} ports", source.port,
                                         ports.size()));
        }
        const Json& protocol = ports[source.port - 1].at("protocol");
        protocols.push_back(protocol.is_string()
                                ? MidiServer::ProtocolFromName(protocol.get<std::string>())
                                : MidiServer::Protocol::kNone);
    }
    std::vector<std::string> backends;
    for (const Json& backend : list.at("backends")) {
        backends.push_back(backend.at("name").get<std::string>());
    }
    ChooseListener(backends);
    mSources = sources;
    const MutexLock lock(mMutex);
    mState.protocols = protocols;
}

void ServiceConnection::ChooseListener(const std::vector<std::string>& offered) {
    const std::vector<std::string> ours = Backends();
    std::string wanted = mBackend;
    if (wanted == kAuto) {
        const auto found = std::find_if(ours.begin(), ours.end(), [&](const std::string& name) {
            return Contains(offered, name);
        });
        if (found == ours.end()) {
            throw InputError(fmt::format("the service shows its ports by {}, this program hears "
                                         "them by {}",
                                         fmt::join(offered, ", "), fmt::join(ours, ", ")));
        }
        wanted = *found;
    } else if (wanted != kEmbedded && !Contains(offered, wanted)) {
        throw InputError(fmt::format("the service does not show its ports by {}, only by {}",
                                     wanted, fmt::join(offered, ", ")));
    }
    if (!mListener || mListener->Name() != wanted) {
        mListener.reset();
        mListener = MakeListener(wanted);
    }
}

std::unique_ptr<Listener> ServiceConnection::MakeListener(const std::string& backend) {
#ifdef QUORVEL_SURFACE_HAS_JACK
    if (backend == kJack) {
        return std::make_unique<JackListener>(mPorts.size(), mInput, mChanged);
    }
#endif
#ifdef QUORVEL_SURFACE_HAS_ALSA
    if (backend == kAlsa) {
        return std::make_unique<AlsaListener>(mInput, mChanged);
    }
#endif
    if (backend != kEmbedded) {
        throw InputError(fmt::format("this program was built without {}", backend));
    }
    return std::make_unique<RecordingListener>(mInput);
}

void ServiceConnection::SendWhatWaits() {
    std::deque<Outgoing> outgoing;
    {
        const MutexLock lock(mMutex);
        outgoing.swap(mOutgoing);
    }
    while (!outgoing.empty()) {
        // What goes to the same port goes in one request.
        const std::size_t index = outgoing.front().index;
        Json messages = Json::array();
        while (!outgoing.empty() && outgoing.front().index == index) {
            messages.push_back(MidiServer::HexText(outgoing.front().message));
            outgoing.pop_front();
        }
        const std::size_t count = messages.size();
        try {
            const Json reply =
                mService->Ask(ControlRequest::kEmit, {{"port", std::to_string(mPorts[index])},
                                                      {"messages", std::move(messages)}});
            CountUnsent(count - std::min(count, reply.at("emitted").get<std::size_t>()));
        } catch (...) {
            CountUnsent(count + outgoing.size());
            throw;
        }
    }
}

} // namespace Surface
