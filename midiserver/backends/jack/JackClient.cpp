#include "midiserver/backends/jack/JackClient.h"

#include "midiserver/backends/jack/JackLibrary.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <jack/metadata.h>
#include <jack/midiport.h>
#include <jack/uuid.h>

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

namespace MidiServer {

namespace {

using Clock = std::chrono::steady_clock;

// Names and values of a port's metadata, for applications that look a port up by its unique ID.
constexpr const char* kUniqueIdKey = "urn:quorvel:midi:unique-id";
constexpr const char* kIntegerType = "http://www.w3.org/2001/XMLSchema#int";
constexpr const char* kTextType = "text/plain";

// The library's threads are still at the end of their work when they tell that the server has
// ended, and closing a client cancels them wherever they are, with what they hold.
constexpr auto kLastGasp = std::chrono::milliseconds(40);

// The server refuses a name that is taken, but its library may call that no more than an error.
bool IsClient(const std::string& name) {
    jack_client_t* const probe = jack_client_open(kProbeName, JackNoStartServer, nullptr);
    if (probe == nullptr) {
        return false;
    }
    char* const uuid = jack_get_uuid_for_client_name(probe, name.c_str());
    jack_free(uuid);
    jack_client_close(probe);
    return uuid != nullptr;
}

std::string WhyNotOpened(const std::string& name, jack_status_t status) {
    if ((status & JackServerFailed) != 0) {
        return "no JACK server answers";
    }
    if ((status & JackVersionError) != 0) {
        return "the JACK server has another version than its library";
    }
    if ((status & JackNameNotUnique) != 0 || IsClient(name)) {
        return "another program is JACK client \"" + name + "\" already";
    }
    return "the JACK server refuses client \"" + name + "\" (status " +
           std::to_string(static_cast<int>(status)) + ")";
}

std::int64_t NanosecondsNow() {
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

struct JackFree {
    void operator()(const char** names) const { jack_free(names); }
};

std::vector<std::string> TakeNames(const char** names) {
    const std::unique_ptr<const char*, JackFree> owner(names);
    std::vector<std::string> list;
    for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
        list.emplace_back(*name);
    }
    return list;
}

} // namespace

JackClient::JackClient(const std::string& name, JackProcess& process, WakeUpSignal& changed)
    : mProcess(process), mChanged(changed) {
    // Each period counts itself in it. Whether the limits allow this is said about the ports.
    static_cast<void>(mlock(this, sizeof *this));
    jack_status_t status{};
    constexpr auto kOptions = static_cast<jack_options_t>(JackUseExactName | JackNoStartServer);
    mClient = jack_client_open(name.c_str(), kOptions, &status);
    if (mClient == nullptr) {
        throw HostError(WhyNotOpened(name, status));
    }
    // In this order, a pause between the two puts what arrives into the past, not into the future.
    const std::int64_t now = NanosecondsNow();
    mClockOffset = now - static_cast<std::int64_t>(jack_get_time()) * 1000;
    mPeriodFrames = jack_get_buffer_size(mClient);
    mSampleRate = jack_get_sample_rate(mClient);
    try {
        SetCallbacks();
    } catch (...) {
        jack_client_close(mClient);
        throw;
    }
}

void JackClient::SetCallbacks() {
    // The library calls all of them on threads of its own. They leave a note and wake the backend;
    // from within them no call that asks the server would be safe.
    jack_on_shutdown(
        mClient,
        [](void* self) {
            auto& client = *static_cast<JackClient*>(self);
            client.mEnded.store(true, std::memory_order_release);
            client.mChanged.Raise();
        },
        this);
    int failed = jack_set_process_thread(mClient, RunProcessThread, this);
    failed |= jack_set_buffer_size_callback(
        mClient,
        [](jack_nframes_t frames, void* self) {
            static_cast<JackClient*>(self)->SettingChanged(&JackClient::mPeriodFrames, frames);
            return 0;
        },
        this);
    failed |= jack_set_sample_rate_callback(
        mClient,
        [](jack_nframes_t rate, void* self) {
            static_cast<JackClient*>(self)->SettingChanged(&JackClient::mSampleRate, rate);
            return 0;
        },
        this);
    failed |= jack_set_port_connect_callback(
        mClient,
        [](jack_port_id_t, jack_port_id_t, int, void* self) {
            static_cast<JackClient*>(self)->GraphChanged();
        },
        this);
    failed |= jack_set_port_registration_callback(
        mClient,
        [](jack_port_id_t port, int isThere, void* self) {
            auto& client = *static_cast<JackClient*>(self);
            if (isThere == 0) {
                client.NoteRemoval(jack_port_by_id(client.mClient, port));
            }
            client.GraphChanged();
        },
        this);
    if (failed != 0) {
        throw HostError("the JACK server refuses a callback");
    }
}

JackClient::~JackClient() {
    // The server tells a client of each of its ports that goes with a description, and waits until
    // it has told it. A client that is being closed does not listen any more, so with many ports
    // the server would wait for ever: the ports go first.
    if (ServerHasEnded()) {
        std::this_thread::sleep_for(kLastGasp);
    } else {
        jack_deactivate(mClient);
        for (jack_port_t* const port : mPorts) {
            jack_port_unregister(mClient, port);
        }
    }
    jack_client_close(mClient);
}

void JackClient::Activate() {
    ActivateOnce();
    // PipeWire's library notes that a client is active in a byte that the process thread changes in
    // its first period, with no lock. Now and then that undoes the note, and closing such a client
    // crashes. A second call after that period makes the note again; where it is there, the call
    // does nothing.
    if (JackIsPipeWire()) {
        WaitForPeriod();
        ActivateOnce();
    }
}

void JackClient::ActivateOnce() {
    if (jack_activate(mClient) != 0) {
        throw HostError("the JACK server does not activate the client");
    }
}

void JackClient::SettingChanged(std::atomic<jack_nframes_t> JackClient::*setting,
                                jack_nframes_t value) {
    (this->*setting).store(value, std::memory_order_relaxed);
    mChanged.Raise();
}

void JackClient::GraphChanged() {
    mGraphChanged.store(true, std::memory_order_release);
    mChanged.Raise();
}

void JackClient::NoteRemoval(const jack_port_t* port) {
    std::string name = port == nullptr ? "" : NameOf(port);
    const MutexLock lock(mRemovedMutex);
    if (!name.empty()) {
        mRemoved.insert(std::move(name));
    }
}

std::set<std::string> JackClient::TakeRemovedPorts() {
    const MutexLock lock(mRemovedMutex);
    return std::exchange(mRemoved, {});
}

// JACK's library ends this thread by cancelling it, at any instruction (asynchronously), and when
// the server has died by pthread_exit within jack_cycle_wait. So the thread can be cancelled only
// while it waits, and this function has nothing to unwind.
void* JackClient::RunProcessThread(void* self) {
    auto* const client = static_cast<JackClient*>(self);
    for (;;) {
        const jack_nframes_t frames = jack_cycle_wait(client->mClient);
        if (frames == 0) {
            // PipeWire's library says so that the client is being closed, or that it failed.
            client->mStopped.store(true, std::memory_order_release);
            client->mChanged.Raise();
            return nullptr;
        }
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        client->RunPeriod(frames);
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    }
}

void JackClient::RunPeriod(jack_nframes_t frames) {
    // Acquire: a period that is counted from here on sees what was stored before WaitForPeriod.
    mPeriods.fetch_add(1, std::memory_order_acq_rel);
    jack_nframes_t firstFrame = 0;
    jack_time_t start = 0;
    jack_time_t next = 0;
    float length = 0;
    const bool known = jack_get_cycle_times(mClient, &firstFrame, &start, &next, &length) == 0;
    const auto time =
        known ? static_cast<std::int64_t>(start) * 1000 + mClockOffset : NanosecondsNow();
    mProcess.Process(frames, static_cast<std::uint64_t>(time));
    jack_cycle_signal(mClient, 0);
    mProcess.AfterProcess();
    mPeriods.fetch_add(1, std::memory_order_release);
}

void JackClient::WaitForPeriod() const {
    const std::uint32_t first = mPeriods.load(std::memory_order_acquire);
    // The end of the one that goes on, and then a whole one.
    const std::uint32_t enough = 2 + first % 2;
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    while (mPeriods.load(std::memory_order_acquire) - first < enough && !ServerHasEnded() &&
           Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

jack_port_t* JackClient::RegisterPort(const std::string& name, JackPortFlags direction) {
    jack_port_t* const port = jack_port_register(mClient, name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                                 static_cast<unsigned long>(direction), 0);
    if (port != nullptr) {
        mPorts.push_back(port);
    }
    return port;
}

void JackClient::UnregisterPort(jack_port_t* port) {
    if (jack_port_unregister(mClient, port) != 0) {
        throw HostError("the JACK server does not take port " + NameOf(port) + " away");
    }
    std::erase(mPorts, port);
}

bool JackClient::DescribePort(jack_port_t* port, const std::string& alias,
                              const std::string& prettyName, const std::string& uniqueId) {
    const jack_uuid_t uuid = jack_port_uuid(port);
    // Without the port's own, its description would become one of nothing.
    int failed = uuid == JACK_UUID_EMPTY_INITIALIZER ? ENOENT : 0;
    if (failed == 0) {
        failed = jack_set_property(mClient, uuid, JACK_METADATA_PRETTY_NAME, prettyName.c_str(),
                                   kTextType);
    }
    if (failed == 0 && !uniqueId.empty()) {
        failed |= jack_set_property(mClient, uuid, kUniqueIdKey, uniqueId.c_str(), kIntegerType);
    }
    // A port that stays when the driver starts anew gets another ID.
    char first[512] = {};
    char second[512] = {};
    constexpr int kMostAliases = 2; // JACK's own limit
    char* const aliases[kMostAliases] = {first, second};
    if (!alias.empty() && jack_port_name_size() <= static_cast<int>(sizeof first)) {
        const int count = std::min(jack_port_get_aliases(port, aliases), kMostAliases);
        bool isSet = false;
        for (int i = 0; i < count; ++i) {
            if (alias == aliases[i]) {
                isSet = true;
            } else {
                failed |= jack_port_unset_alias(port, aliases[i]);
            }
        }
        failed |= isSet ? 0 : jack_port_set_alias(port, alias.c_str());
    }
    return failed == 0;
}

std::string JackClient::NameOf(const jack_port_t* port) {
    const char* const name = jack_port_name(port);
    return name == nullptr ? "" : name;
}

std::vector<std::string> JackClient::ConnectionsOf(jack_port_t* port) const {
    return TakeNames(jack_port_get_all_connections(mClient, port));
}

std::vector<std::string> JackClient::PortNames(unsigned long flags) const {
    return TakeNames(jack_get_ports(mClient, nullptr, "midi", flags));
}

jack_port_t* JackClient::FindPort(const std::string& name) const {
    return jack_port_by_name(mClient, name.c_str());
}

int JackClient::Connect(const std::string& from, const std::string& to) {
    const int result = jack_connect(mClient, from.c_str(), to.c_str());
    return result == EEXIST || result == -EEXIST ? 0 : result;
}

int JackClient::Disconnect(const std::string& from, const std::string& to) {
    return jack_disconnect(mClient, from.c_str(), to.c_str());
}

} // namespace MidiServer
