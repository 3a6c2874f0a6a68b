#include "tests/integration/ardour/Ardour.h"

#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <vector>

namespace ArdourTest {

namespace {

using QuorvelTest::ContentOf;
using TestSupport::WaitUntil;

constexpr const char* kProgram = "/usr/bin/ardour7-lua";

// The rest of the line that begins with `start`, once the whole line is there.
std::optional<std::string> LineAfter(const std::string& text, const std::string& start) {
    const std::size_t place = text.find("\n" + start);
    const std::size_t end = text.find('\n', place == std::string::npos ? place : place + 1);
    if (place == std::string::npos || end == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t from = place + 1 + start.size();
    return text.substr(from, end - from);
}

} // namespace

std::string Ardour::Missing() {
    return std::filesystem::exists(kProgram) ? "" : "Ardour 7";
}

Ardour::Ardour(const std::string& folder, const std::string& device)
    : mFolder(folder), mLog(folder + ".log") {
    const std::filesystem::path devices = Home() + "/ardour7/mcp";
    std::filesystem::create_directories(devices);
    std::filesystem::copy(ARDOUR_HUI_DEVICE, devices);
    const QuorvelTest::ProgramResult made = QuorvelTest::RunProgram(
        {kProgram, ARDOUR_SCRIPTS "/MakeSession.lua"}, "",
        {"HOME=" + Home(), "XDG_CONFIG_HOME=" + Home(), "XDG_CACHE_HOME=" + Home(),
         "QUORVEL_TEST_SESSION=" + mFolder, "QUORVEL_TEST_DEVICE=" + device});
    if (ContentOf(mFolder + "/session.ardour").find(device) == std::string::npos) {
        throw std::runtime_error("no session: " + made.out + made.err);
    }
}

Ardour::~Ardour() {
    End();
}

void Ardour::Start() {
    // A server may throw out a client that a busy machine runs too late.
    for (int attempt = 0; attempt < 5; ++attempt) {
        mStart = Log().size();
        mQuestions = 0;
        mProgram = std::make_unique<JackTest::ChildProcess>(
            std::vector<std::string>{kProgram, "--exit-when-halted",
                                     ARDOUR_SCRIPTS "/RunSession.lua"},
            mLog,
            JackTest::ChildProcess::Environment{{"HOME", Home()},
                                                {"XDG_CONFIG_HOME", Home()},
                                                {"XDG_CACHE_HOME", Home()},
                                                {"LD_PRELOAD", ARDOUR_PRELOADED_LIBRARY},
                                                {"QUORVEL_TEST_SESSION", mFolder}});
        if (ComesUp()) {
            return;
        }
        End();
    }
    throw std::runtime_error("Ardour does not come up: " + Log());
}

bool Ardour::ComesUp() {
    bool isUp = false;
    const testing::AssertionResult answered = WaitUntil("Ardour is up or has ended", [&] {
        isUp = LineAfter(Log().substr(mStart), "loaded").has_value();
        return isUp || !IsAlive();
    });
    return answered && isUp;
}

void Ardour::End() {
    // However long that takes: a program that is ended by force says nothing to the surface.
    if (mProgram && IsAlive()) {
        Ask("close_session()");
    }
    mProgram.reset();
}

std::string Ardour::Ask(const std::string& expression) {
    mProgram->WriteLine(expression);
    const std::string start = "=" + std::to_string(++mQuestions) + " ";
    std::optional<std::string> answer;
    EXPECT_TRUE(WaitUntil("Ardour answers", [&] {
        answer = LineAfter(Log().substr(mStart), start);
        return answer || !IsAlive();
    }));
    EXPECT_TRUE(answer) << expression;
    return answer.value_or("");
}

bool Ardour::IsAlive() {
    return !mProgram->HasEnded();
}

std::string Ardour::Home() const {
    return mFolder + ".home";
}

std::string Ardour::Log() const {
    return ContentOf(mLog);
}

} // namespace ArdourTest
