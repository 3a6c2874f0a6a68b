// Measures `midiserver run` at an ALSA sequencer, beside the sequencer by itself and beside
// a2jmidid, the usual bridge between the sequencer and JACK: what the way from the DAW to the
// private source and that of a ping add, and what processor time the service and the bridge take.
// Where there is no sequencer it measures in the emulated machine of scripts/alsa-machine: what it
// prints then compares the three with each other, and says nothing of a real machine.
#include "bench/ProcessorTime.h"
#include "tests/integration/alsa/SequencerPeer.h"
#include "tests/integration/jack/ChildProcess.h"
#include "tests/integration/jack/TestServer.h"

#include <jack/jack.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using JackTest::ChildProcess;
using JackTest::TestServer;
using QuorvelTest::Bytes;
using QuorvelTest::PortsNamed;
using QuorvelTest::SequencerPeer;
using Clock = std::chrono::steady_clock;

constexpr const char* kSequencer = "/dev/snd/seq";
constexpr const char* kBridge = "/usr/bin/a2jmidid";
constexpr const char* kServer = "/usr/bin/jackd";
constexpr std::size_t kPorts = 32;
constexpr int kRounds = 300;
constexpr int kBridgePeriod = 256; // of JACK's server, at 48000 Hz
constexpr auto kPatience = std::chrono::minutes(2);
constexpr auto kWatched = std::chrono::seconds(10);
constexpr auto kStep = std::chrono::milliseconds(5);
constexpr int kLoadBytesPerSecond = 500; // a port: as much as the emulated processor has time for
const Bytes kNote = {0x91, 1, 64};
const Bytes kHuiPing = {0x90, 0, 0};

template <typename Condition>
void WaitUntil(const char* what, const Condition& condition) {
    const auto deadline = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() > deadline) {
            throw std::runtime_error(std::string("waited in vain until ") + what);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

std::string PortName(std::size_t number) {
    return "Quorvel MIDI:Quorvel Port " + std::to_string(number);
}

// Sends the message and waits until something comes at the other end, again and again.
void PrintTrips(const char* name, SequencerPeer& from, SequencerPeer& to, const Bytes& message) {
    std::vector<double> microseconds;
    for (int i = 0; i < kRounds; ++i) {
        to.Read();
        const std::size_t before = to.Events();
        const auto start = Clock::now();
        from.Send(message);
        while (to.Events() == before) {
            if (Clock::now() - start > kPatience) {
                throw std::runtime_error("a message did not arrive");
            }
            to.WaitForInput(std::chrono::milliseconds(100));
            to.Read();
        }
        const std::chrono::duration<double, std::micro> took = Clock::now() - start;
        microseconds.push_back(took.count());
    }
    std::sort(microseconds.begin(), microseconds.end());
    const auto at = [&](double share) {
        return microseconds[static_cast<std::size_t>(share *
                                                     static_cast<double>(microseconds.size() - 1))];
    };
    std::printf("%-52s %10.0f %10.0f\n", name, at(0.5), at(0.99));
    std::fflush(stdout);
}

// A DAW on each port.
class Daws {
public:
    Daws() {
        for (std::size_t i = 1; i <= kPorts; ++i) {
            mPeers.push_back(std::make_unique<SequencerPeer>("DAW " + std::to_string(i)));
        }
    }

    void SendToTheService() const {
        for (std::size_t i = 0; i < kPorts; ++i) {
            mPeers[i]->SendTo(PortName(i + 1));
        }
    }

    // Sends for a while from each at the load's rate.
    void Send() const {
        const auto start = Clock::now();
        double sent = 0;
        for (auto now = start; now - start < kWatched; now = Clock::now()) {
            const std::chrono::duration<double> passed = now - start;
            for (; sent < kLoadBytesPerSecond * passed.count();
                 sent += static_cast<double>(kNote.size())) {
                for (const auto& peer : mPeers) {
                    peer->Send(kNote);
                }
            }
            std::this_thread::sleep_for(kStep);
        }
    }

private:
    std::vector<std::unique_ptr<SequencerPeer>> mPeers;
};

void PrintShares(const char* name, pid_t process, const Daws& daws) {
    const double idle =
        QuorvelBench::ShareOfProcessor(process, [] { std::this_thread::sleep_for(kWatched); });
    const double loaded = QuorvelBench::ShareOfProcessor(process, [&] { daws.Send(); });
    std::printf("%-52s %9.2f%% %9.2f%%\n", name, idle * 100, loaded * 100);
    std::fflush(stdout);
}

void MeasureSequencer() {
    SequencerPeer daw("DAW");
    SequencerPeer surface("surface");
    daw.SendTo("surface:port");
    PrintTrips("the sequencer by itself", daw, surface, kNote);
}

class Service {
public:
    Service() {
        const auto setPorts = [&](const char* name, const char* ports) {
            ChildProcess prefs({MIDISERVER_PROGRAM, "prefs", "set", name, "--ports", ports,
                                "--protocol", "HUI", "--prefs", mFolder.Path()});
            for (std::string line; prefs.ReadLine(line);) {
            }
        };
        setPorts("Bench", "1-4");
        setPorts("Bench 2", "29-32");
        mProgram = std::make_unique<ChildProcess>(
            std::vector<std::string>{MIDISERVER_PROGRAM, "run", "--backend", "alsa", "--prefs",
                                     mFolder.Path(), "--plugin", MIDISERVER_PLUGIN},
            mFolder.Path() + "/log",
            ChildProcess::Environment{{"QUORVEL_RUNTIME_DIR", mFolder.Path() + "/runtime"},
                                      {"XDG_STATE_HOME", mFolder.Path()},
                                      {"NOTIFY_SOCKET", ""}});
        WaitUntil("the service is there", [] { return !PortsNamed(PortName(kPorts)).empty(); });
    }

    pid_t Id() const { return mProgram->Id(); }

private:
    TemporaryDirectory mFolder;
    std::unique_ptr<ChildProcess> mProgram;
};

void MeasureServicesWays() {
    const Service service;
    SequencerPeer daw("DAW");
    SequencerPeer surface("surface");
    daw.SendTo(PortName(1));
    daw.ListenTo(PortName(1));
    surface.ListenTo("Quorvel MIDI private:Quorvel Virtual Source 1");
    PrintTrips("service: to the private source", daw, surface, kNote);
    PrintTrips("service: a ping and its answer", daw, daw, kHuiPing);
}

void MeasureServicesShares() {
    const Service service;
    const Daws daws;
    daws.SendToTheService();
    PrintShares("service", service.Id(), daws);
}

// The bridge shows every port of the sequencer to JACK.
class Bridge {
public:
    Bridge() : mServer(kBridgePeriod) {
        mServer.Start();
        WaitUntil("JACK's server is there", [this] {
            mClient = jack_client_open("bench", JackNoStartServer, nullptr);
            return mClient != nullptr;
        });
        // It does not heed the environment.
        mProgram = std::make_unique<ChildProcess>(
            std::vector<std::string>{kBridge, "-u", "-j", std::getenv("JACK_DEFAULT_SERVER")},
            mFolder.Path() + "/log");
    }
    ~Bridge() { jack_client_close(mClient); }
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    pid_t Id() const { return mProgram->Id(); }

    void Connect(const std::string& from, const std::string& to) const {
        const std::string source = "a2j:" + from + " (capture): port";
        const std::string target = "a2j:" + to + " (playback): port";
        WaitUntil("the bridge shows the ports",
                  [&] { return jack_connect(mClient, source.c_str(), target.c_str()) == 0; });
    }

private:
    TestServer mServer;
    TemporaryDirectory mFolder;
    std::unique_ptr<ChildProcess> mProgram;
    jack_client_t* mClient = nullptr;
};

void MeasureBridgesWay() {
    SequencerPeer daw("DAW");
    SequencerPeer surface("surface");
    const Bridge bridge;
    bridge.Connect("DAW", "surface");
    PrintTrips("a2jmidid: to JACK, and back in the same period", daw, surface, kNote);
}

void MeasureBridgesShares() {
    const Daws daws;
    const Bridge bridge;
    // The last one is shown when all the others are.
    bridge.Connect("DAW " + std::to_string(kPorts), "DAW 1");
    PrintShares("a2jmidid", bridge.Id(), daws);
}

void Measure() {
    const bool hasBridge = access(kBridge, X_OK) == 0 && access(kServer, X_OK) == 0;
    std::printf("%-52s %10s %10s\n", "from a DAW and back, in us", "p50", "p99");
    MeasureSequencer();
    MeasureServicesWays();
    if (hasBridge) {
        MeasureBridgesWay();
    }
    std::printf("processor, of one; %zu ports %22s %10s %10s\n", kPorts, "", "idle",
                (std::to_string(kLoadBytesPerSecond) + " B/s").c_str());
    MeasureServicesShares();
    if (hasBridge) {
        MeasureBridgesShares();
    } else {
        std::printf("not measured: a2jmidid or jackd is not installed\n");
    }
}

// Runs this program in the machine. Returns its status.
int RunInEmulatedMachine() {
    std::string command = QUORVEL_ALSA_MACHINE " -t 1500";
    for (const char* file :
         {MIDISERVER_PROGRAM, MIDISERVER_LIBRARIES, kBridge, kServer, QUORVEL_JACK_DUMMY_DRIVER}) {
        if (access(file, F_OK) == 0) {
            command += std::string(" -f '") + file + "'";
        }
    }
    std::array<char, 4096> self{};
    if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0) {
        return EXIT_FAILURE;
    }
    command += std::string(" '") + self.data() + "'";
    const int status = WEXITSTATUS(std::system(command.c_str()));
    constexpr int kSkipped = 77; // which says itself why
    return status == kSkipped ? EXIT_SUCCESS : status;
}

} // namespace

int main() {
    if (access(kSequencer, F_OK) != 0) {
        std::printf("there is no %s, so in the emulated machine:\n", kSequencer);
        std::fflush(stdout);
        return RunInEmulatedMachine();
    }
    jack_set_error_function([](const char*) {});
    jack_set_info_function([](const char*) {});
    try {
        Measure();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "AlsaBench: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
