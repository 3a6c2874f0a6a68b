// Measures `midiserver run` on a JACK server without hardware, beside a client that only copies its
// inputs to its outputs: what the way from the DAW to the private source and that of a ping add,
// what processor time both take, and how often the idle service wakes up.
//
//     ServiceBench                the measurement
//     ServiceBench pass-through   the client, until its input ends
#include "bench/ProcessorTime.h"
#include "tests/integration/jack/ChildProcess.h"
#include "tests/integration/jack/TestServer.h"

#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using JackTest::ChildProcess;
using JackTest::TestServer;

constexpr std::size_t kPorts = 32;
constexpr int kPeriodFrames = 256;
constexpr double kRate = 48000;
constexpr int kRounds = 500;
constexpr auto kPatience = std::chrono::minutes(2);
constexpr auto kWatched = std::chrono::seconds(10);
constexpr int kLoadBytesPerSecond = 14000; // a port

std::string Numbered(const char* format, std::size_t number) {
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), format, static_cast<unsigned>(number));
    return name.data();
}

jack_client_t* OpenClient(const char* name) {
    constexpr auto kOptions = static_cast<jack_options_t>(JackUseExactName | JackNoStartServer);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        if (jack_client_t* const client = jack_client_open(name, kOptions, nullptr)) {
            return client;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("no JACK server answers");
}

jack_port_t* Register(jack_client_t* client, const std::string& name, JackPortFlags direction) {
    return jack_port_register(client, name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                              static_cast<unsigned long>(direction), 0);
}

// The peer.

struct PassedPort {
    jack_port_t* in;
    jack_port_t* out;
};

int PassThrough(jack_nframes_t frames, void* context) {
    for (const PassedPort& port : *static_cast<std::vector<PassedPort>*>(context)) {
        void* const in = jack_port_get_buffer(port.in, frames);
        void* const out = jack_port_get_buffer(port.out, frames);
        jack_midi_clear_buffer(out);
        const std::uint32_t count = jack_midi_get_event_count(in);
        for (std::uint32_t i = 0; i < count; ++i) {
            jack_midi_event_t event;
            if (jack_midi_event_get(&event, in, i) == 0) {
                jack_midi_event_write(out, event.time, event.buffer, event.size);
            }
        }
    }
    return 0;
}

void RunPassThrough() {
    jack_client_t* const client = OpenClient("pass");
    std::vector<PassedPort> ports;
    for (std::size_t i = 1; i <= kPorts; ++i) {
        ports.push_back({Register(client, Numbered("in %02u", i), JackPortIsInput),
                         Register(client, Numbered("out %02u", i), JackPortIsOutput)});
    }
    jack_set_process_callback(client, PassThrough, &ports);
    jack_activate(client);
    for (std::string line; std::getline(std::cin, line);) {
    }
    jack_client_close(client);
}

// The DAW and the surface.

class Prober {
public:
    Prober() : mClient(OpenClient("bench")), mIn(Register(mClient, "in", JackPortIsInput)) {
        for (std::size_t i = 1; i <= kPorts; ++i) {
            mOut.push_back(Register(mClient, Numbered("out %02u", i), JackPortIsOutput));
        }
        jack_set_process_callback(
            mClient,
            [](jack_nframes_t frames, void* self) {
                static_cast<Prober*>(self)->Process(frames);
                return 0;
            },
            this);
        jack_activate(mClient);
    }
    ~Prober() { jack_client_close(mClient); }
    Prober(const Prober&) = delete;
    Prober& operator=(const Prober&) = delete;

    void Connect(const std::string& from, const std::string& to) const {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (jack_connect(mClient, from.c_str(), to.c_str()) != 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error("cannot connect " + from + " with " + to);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    void Disconnect(const std::string& from, const std::string& to) const {
        jack_disconnect(mClient, from.c_str(), to.c_str());
    }

    // Sends a message from "out 01" and waits for the next one on "in", again and again; returns
    // how many frames each took from the period in which it was sent to its own.
    std::vector<jack_nframes_t> RoundTrips(const std::array<std::uint8_t, 3>& message) {
        std::vector<jack_nframes_t> frames;
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        mMessage = message;
        for (int i = 0; i < kRounds; ++i) {
            mArrived.store(false);
            mSend.store(true);
            while (!mArrived.load()) {
                if (std::chrono::steady_clock::now() > deadline) {
                    throw std::runtime_error("a message did not arrive");
                }
                std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
            frames.push_back(mTaken.load());
        }
        return frames;
    }

    void Load(bool on) { mLoad.store(on); }
    std::uint64_t Periods() const { return mPeriods.load(); }

private:
    // Everything is handed over through the flags, which are sequentially consistent.
    void Process(jack_nframes_t frames) {
        mPeriods.fetch_add(1);
        const jack_nframes_t now = jack_last_frame_time(mClient);
        void* const in = jack_port_get_buffer(mIn, frames);
        jack_midi_event_t event;
        if (mWaiting && jack_midi_get_event_count(in) > 0 &&
            jack_midi_event_get(&event, in, 0) == 0) {
            mTaken.store(now + event.time - mSentAt);
            mWaiting = false;
            mArrived.store(true);
        }
        if (mLoad.load()) {
            mOwed += kLoadBytesPerSecond * static_cast<double>(frames) / kRate;
        }
        const bool probes = mSend.exchange(false);
        std::size_t events = 0;
        for (; mOwed >= 3; mOwed -= 3) {
            ++events;
        }
        for (std::size_t i = 0; i < mOut.size(); ++i) {
            void* const out = jack_port_get_buffer(mOut[i], frames);
            jack_midi_clear_buffer(out);
            if (i == 0 && probes) {
                jack_midi_event_write(out, 0, mMessage.data(), mMessage.size());
                mSentAt = now;
                mWaiting = true;
            }
            for (std::size_t k = 0; k < events; ++k) {
                const std::array<std::uint8_t, 3> note{0x91, static_cast<std::uint8_t>(k % 128),
                                                       64};
                jack_midi_event_write(out, 0, note.data(), note.size());
            }
        }
    }

    jack_client_t* mClient;
    jack_port_t* mIn;
    std::vector<jack_port_t*> mOut;
    std::array<std::uint8_t, 3> mMessage{};
    std::atomic<bool> mSend{false};
    std::atomic<bool> mArrived{false};
    std::atomic<bool> mLoad{false};
    std::atomic<jack_nframes_t> mTaken{0};
    std::atomic<std::uint64_t> mPeriods{0};
    jack_nframes_t mSentAt = 0; // this and the rest: the process thread's
    bool mWaiting = false;
    double mOwed = 0;
};

// What the system knows of a process.

// How often each thread has waited, by its number.
std::map<int, std::uint64_t> Waits(pid_t process) {
    std::map<int, std::uint64_t> waits;
    const std::string folder = "/proc/" + std::to_string(process) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(task.path() / "status");
        for (std::string line; std::getline(file, line);) {
            constexpr std::string_view kField = "voluntary_ctxt_switches:";
            if (line.starts_with(kField)) {
                waits[std::stoi(task.path().filename())] = std::stoull(line.substr(kField.size()));
            }
        }
    }
    return waits;
}

double ShareOfProcessor(pid_t process) {
    return QuorvelBench::ShareOfProcessor(process, [] { std::this_thread::sleep_for(kWatched); });
}

void PrintTrips(const char* name, std::vector<jack_nframes_t> frames) {
    std::sort(frames.begin(), frames.end());
    const auto at = [&](double share) {
        return static_cast<double>(
            frames[static_cast<std::size_t>(share * static_cast<double>(frames.size() - 1))]);
    };
    std::printf("%-44s %8.1f %8.1f %10.0f %10.0f\n", name, at(0.5) / kPeriodFrames,
                at(0.99) / kPeriodFrames, at(0.5) / kRate * 1e6, at(0.99) / kRate * 1e6);
}

void PrintIdleWaits(pid_t process, const Prober& prober) {
    const auto before = Waits(process);
    const std::uint64_t firstPeriod = prober.Periods();
    std::this_thread::sleep_for(kWatched);
    const double periods = static_cast<double>(prober.Periods() - firstPeriod);
    std::vector<double> waits;
    for (const auto& [thread, count] : Waits(process)) {
        const auto earlier = before.find(thread);
        waits.push_back(
            static_cast<double>(count - (earlier == before.end() ? 0 : earlier->second)));
    }
    std::sort(waits.rbegin(), waits.rend());
    waits.resize(std::max<std::size_t>(waits.size(), 2));
    double others = 0;
    for (std::size_t i = 2; i < waits.size(); ++i) {
        others += waits[i];
    }
    std::printf("idle wake-ups a period: process threads %.2f and %.2f; all others %.0f in %.0f "
                "periods\n",
                waits[0] / periods, waits[1] / periods, others, periods);
}

void Measure() {
    TestServer server(kPeriodFrames);
    server.Start();
    const TemporaryDirectory folder;
    const auto run = [](const std::vector<std::string>& arguments) {
        ChildProcess program(arguments);
        for (std::string line; program.ReadLine(line);) {
        }
    };
    run({MIDISERVER_PROGRAM, "prefs", "set", "Bench", "--ports", "1-4", "--protocol", "HUI",
         "--prefs", folder.Path()});
    run({MIDISERVER_PROGRAM, "prefs", "set", "Bench 2", "--ports", "29-32", "--protocol", "HUI",
         "--prefs", folder.Path()});
    Prober prober;
    ChildProcess passThrough({"/proc/self/exe", "pass-through"});
    ChildProcess service({MIDISERVER_PROGRAM, "run", "--backend", "jack", "--prefs", folder.Path(),
                          "--plugin", MIDISERVER_PLUGIN},
                         folder.Path() + "/log",
                         {{"QUORVEL_RUNTIME_DIR", folder.Path() + "/runtime"},
                          {"XDG_STATE_HOME", folder.Path()},
                          {"NOTIFY_SOCKET", ""}});

    const std::string ours = "Quorvel MIDI:Quorvel Port 01 in";
    const std::string answers = "Quorvel MIDI:Quorvel Port 01 out";
    const std::string privateSource = "Quorvel MIDI private:Quorvel Virtual Source 01";
    std::printf("%-44s %8s %8s %10s %10s\n", "from a DAW and back, periods and us", "p50", "p99",
                "p50 us", "p99 us");
    const auto trips = [&](const char* name, const std::string& to, const std::string& from,
                           const std::array<std::uint8_t, 3>& message) {
        prober.Connect("bench:out 01", to);
        prober.Connect(from, "bench:in");
        PrintTrips(name, prober.RoundTrips(message));
        prober.Disconnect("bench:out 01", to);
        prober.Disconnect(from, "bench:in");
    };
    trips("pass-through client", "pass:in 01", "pass:out 01", {0x91, 1, 64});
    trips("service: to the private source", ours, privateSource, {0x91, 1, 64});
    trips("service: a ping and its answer", ours, answers, {0x90, 0, 0});

    const double idle = ShareOfProcessor(service.Id());
    const double passIdle = ShareOfProcessor(passThrough.Id());
    PrintIdleWaits(service.Id(), prober);
    for (std::size_t i = 1; i <= kPorts; ++i) {
        prober.Connect(Numbered("bench:out %02u", i),
                       Numbered("Quorvel MIDI:Quorvel Port %02u in", i));
        prober.Connect(Numbered("bench:out %02u", i), Numbered("pass:in %02u", i));
    }
    prober.Load(true);
    const double loaded = ShareOfProcessor(service.Id());
    const double passLoaded = ShareOfProcessor(passThrough.Id());
    prober.Load(false);
    std::printf("%-44s %9s %13s %7s\n", "processor, of one core", "service", "pass-through",
                "ratio");
    const auto shares = [](const char* name, double ofService, double ofPeer) {
        std::printf("%-44s %8.2f%% %12.2f%% %7.1f\n", name, ofService * 100, ofPeer * 100,
                    ofPeer > 0 ? ofService / ofPeer : 0.0);
    };
    shares("idle, 32 ports", idle, passIdle);
    shares("32 ports with 14 kB/s each", loaded, passLoaded);
}

} // namespace

int main(int count, char** arguments) {
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    try {
        if (count > 1 && std::string(arguments[1]) == "pass-through") {
            RunPassThrough();
        } else if (const std::string missing = TestServer::Missing(); !missing.empty()) {
            std::printf("not measured: %s is not installed\n", missing.c_str());
        } else {
            Measure();
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ServiceBench: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
