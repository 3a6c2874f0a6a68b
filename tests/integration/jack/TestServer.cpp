#include "tests/integration/jack/TestServer.h"

#include "midiserver/backends/jack/JackLibrary.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace JackTest {

namespace {

bool Exists(const std::string& program) {
    return access(program.c_str(), X_OK) == 0;
}

constexpr const char* kJack = "/usr/bin/jackd";

// JACK knows eight servers a machine, and keeps the place of one that was killed until another one
// of the same name starts. So the tests have a few names for all of their servers, each locked by
// the test that uses it.
int TakeName(std::string& name) {
    for (int number = 0;; number = (number + 1) % 4) {
        name = "quorvel-test-" + std::to_string(number);
        const std::string path = "/tmp/" + name + ".lock";
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0) {
            return file;
        }
        close(file);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

} // namespace

std::string TestServer::Missing() {
    const char* const wanted = std::getenv("QUORVEL_TEST_SERVER");
    if (wanted != nullptr && !MidiServer::JackIsPipeWire()) {
        return "PipeWire's JACK library";
    }
    if (!MidiServer::JackIsPipeWire()) {
        return Exists(kJack) ? "" : kJack;
    }
    for (const char* program : {"/usr/bin/pipewire", "/usr/bin/pw-metadata", "/usr/bin/wireplumber",
                                "/usr/bin/dbus-run-session"}) {
        if (!Exists(program)) {
            return program;
        }
    }
    return "";
}

TestServer::TestServer(int frames) : mFrames(frames), mIsPipeWire(MidiServer::JackIsPipeWire()) {
    std::string name;
    mNameLock = TakeName(name);
    setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
    setenv("JACK_NO_START_SERVER", "1", 1);
    for (const char* variable : {"XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "HOME"}) {
        setenv(variable, mFolder.Path().c_str(), 1);
    }
    unsetenv("PIPEWIRE_RUNTIME_DIR");
    unsetenv("PIPEWIRE_REMOTE");
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    if (mIsPipeWire) {
        const std::filesystem::path settings =
            std::filesystem::path(mFolder.Path()) / "pipewire" / "pipewire.conf.d";
        std::filesystem::create_directories(settings);
        std::ofstream(settings / "period.conf")
            << "context.properties = { default.clock.rate = 48000 default.clock.quantum = "
            << frames << " default.clock.min-quantum = " << frames
            << " default.clock.max-quantum = " << frames << " }\n";
    }
}

TestServer::~TestServer() {
    Stop();
    close(mNameLock);
}

void TestServer::Start(int sampleRate) {
    const std::string log = LogFile();
    if (mIsPipeWire) {
        // Each ends with the one that started it, even if that is killed.
        const std::string bound = "/usr/bin/setpriv --pdeathsig KILL ";
        mServer = std::make_unique<ChildProcess>(
            std::vector<std::string>{"/usr/bin/dbus-run-session", "--", "/usr/bin/setpriv",
                                     "--pdeathsig", "KILL", "/bin/sh", "-c",
                                     bound + "pipewire & " + bound + "wireplumber & wait"},
            log);
        return;
    }
    // Synchronous, so that a client that a busy machine runs late loses no period's events.
    mServer = std::make_unique<ChildProcess>(
        std::vector<std::string>{kJack, "-n", std::getenv("JACK_DEFAULT_SERVER"), "--no-realtime",
                                 "-S", "-d", "dummy", "-r", std::to_string(sampleRate), "-p",
                                 std::to_string(mFrames)},
        log);
}

void TestServer::SetPeriod(int frames) const {
    if (mIsPipeWire) {
        SetPipeWire("clock.force-quantum", frames);
    } else {
        ChildProcess({"/usr/bin/jack_bufsize", std::to_string(frames)}, LogFile()).End();
    }
}

void TestServer::SetRate(int sampleRate) const {
    SetPipeWire("clock.force-rate", sampleRate);
}

void TestServer::SetPipeWire(const std::string& setting, int value) const {
    ChildProcess({"/usr/bin/pw-metadata", "-n", "settings", "0", setting, std::to_string(value)},
                 LogFile())
        .End();
}

void TestServer::Stop() {
    if (mServer) {
        mServer->Signal();
    }
    mServer.reset();
}

void TestServer::Kill() {
    mServer->Kill();
    mServer.reset();
}

std::string TestServer::Log() const {
    std::ifstream file(LogFile());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace JackTest
