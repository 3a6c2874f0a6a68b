#include "tests/integration/ardour/Ardour.h"

#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace ArdourTest {

namespace {

using QuorvelTest::ContentOf;

constexpr const char* kPrograms = "/usr/lib/ardour7";
constexpr const char* kSessionMaker = "/usr/bin/ardour7-lua";

// The program's name ends with its version.
std::string HeadlessProgram() {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kPrograms, error)) {
        if (entry.path().filename().string().starts_with("hardour-")) {
            return entry.path();
        }
    }
    return "";
}

// Of the devices that Ardour knows this one waits for an answer before it is driven.
const std::string kSurface =
    R"(<Protocol name="Mackie" feedback="0" active="1" bank="0" ipmidi-base="21928")"
    R"( device-profile="User" device-name="Mackie Control Universal Pro"/>)";

} // namespace

std::string Ardour::Missing() {
    for (const std::string& program : {HeadlessProgram(), std::string(kSessionMaker)}) {
        if (program.empty() || !std::filesystem::exists(program)) {
            return "Ardour 7";
        }
    }
    return "";
}

Ardour::Ardour(const std::string& folder, JackTest::Peer& observer)
    : mFolder(folder), mLog(folder + ".log") {
    MakeSession();
    AddSurface();
    // A server may throw out a client that a busy machine runs too late.
    for (int attempt = 0; attempt < 5; ++attempt) {
        Start();
        if (ComesUp(observer)) {
            return;
        }
        End();
    }
    throw std::runtime_error("Ardour does not come up: " + Log());
}

Ardour::~Ardour() {
    End();
}

void Ardour::End() {
    if (mProgram) {
        mProgram->Signal(); // it does not read its input
    }
    mProgram.reset();
}

void Ardour::MakeSession() const {
    const QuorvelTest::ProgramResult made = QuorvelTest::RunProgram(
        {kSessionMaker, ARDOUR_SESSION_SCRIPT}, "", {"QUORVEL_TEST_SESSION=" + mFolder});
    if (!std::filesystem::exists(mFolder + "/session.ardour")) {
        throw std::runtime_error("no session: " + made.out + made.err);
    }
}

void Ardour::AddSurface() const {
    const std::string file = mFolder + "/session.ardour";
    const std::string switchedOff = R"(<Protocol name="Mackie" active="0"/>)";
    std::string session = ContentOf(file);
    const std::size_t place = session.find(switchedOff);
    if (place == std::string::npos) {
        throw std::runtime_error("the session knows no Mackie surface");
    }
    session.replace(place, switchedOff.size(), kSurface);
    std::ofstream(file) << session;
}

void Ardour::Start() {
    const std::string programs = kPrograms;
    mProgram = std::make_unique<JackTest::ChildProcess>(
        std::vector<std::string>{HeadlessProgram(), "-c", "ardour", mFolder, "session"}, mLog,
        JackTest::ChildProcess::Environment{{"LD_LIBRARY_PATH", programs},
                                            {"LD_PRELOAD", ARDOUR_PRELOADED_LIBRARY},
                                            {"ARDOUR_DATA_PATH", "/usr/share/ardour7"},
                                            {"ARDOUR_CONFIG_PATH", "/etc/ardour7"},
                                            {"ARDOUR_DLL_PATH", programs},
                                            {"VAMP_PATH", programs + "/vamp"}});
}

bool Ardour::ComesUp(JackTest::Peer& observer) {
    bool isUp = false;
    const testing::AssertionResult answered =
        TestSupport::WaitUntil("Ardour is up or has ended", [&] {
            const std::vector<std::string> ports = observer.Ports();
            isUp = std::count(ports.begin(), ports.end(), kInput) != 0 &&
                   std::count(ports.begin(), ports.end(), kOutput) != 0;
            return isUp || !IsAlive();
        });
    return answered && isUp;
}

bool Ardour::IsAlive() {
    return !mProgram->HasEnded() && Log().find("JACK HALTED") == std::string::npos;
}

std::string Ardour::Log() const {
    return ContentOf(mLog);
}

} // namespace ArdourTest
