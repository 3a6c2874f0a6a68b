#include "tests/integration/jack/TestServer.h"

#include "midiserver/backends/jack/JackLibrary.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace JackTest {

namespace {

bool Exists(const std::string& program) {
    return access(program.c_str(), X_OK) == 0;
}

constexpr const char* kJack = "/usr/bin/jackd";

} // namespace

std::string TestServer::Missing() {
    if (!MidiServer::JackIsPipeWire()) {
        return Exists(kJack) ? "" : kJack;
    }
    for (const char* program :
         {"/usr/bin/pipewire", "/usr/bin/wireplumber", "/usr/bin/dbus-run-session"}) {
        if (!Exists(program)) {
            return program;
        }
    }
    return "";
}

TestServer::TestServer(int frames) : mFrames(frames), mIsPipeWire(MidiServer::JackIsPipeWire()) {
    static int number = 0;
    const std::string name =
        "quorvel-test-" + std::to_string(getpid()) + "-" + std::to_string(++number);
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

TestServer::~TestServer() = default;

void TestServer::Start() {
    const std::string log = mFolder.Path() + "/server.log";
    if (mIsPipeWire) {
        mServer = std::make_unique<ChildProcess>(
            std::vector<std::string>{"/usr/bin/dbus-run-session", "--", "/bin/sh", "-c",
                                     "pipewire & wireplumber & wait"},
            log);
        return;
    }
    // Synchronous, so that a client that a busy machine runs late loses no period's events.
    mServer = std::make_unique<ChildProcess>(
        std::vector<std::string>{kJack, "-n", std::getenv("JACK_DEFAULT_SERVER"), "--no-realtime",
                                 "-S", "-d", "dummy", "-r", "48000", "-p", std::to_string(mFrames)},
        log);
}

void TestServer::Stop() {
    mServer.reset();
}

void TestServer::Kill() {
    mServer->Kill();
    mServer.reset();
}

std::string TestServer::Log() const {
    std::ifstream file(mFolder.Path() + "/server.log");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace JackTest
