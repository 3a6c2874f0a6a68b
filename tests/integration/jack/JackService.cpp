#include "tests/integration/jack/JackService.h"

#include "tests/support/WaitUntil.h"

#include <csignal>
#include <utility>

namespace JackTest {

using QuorvelTest::Midiserver;
using QuorvelTest::Program;
using QuorvelTest::ProgramResult;
using TestSupport::WaitUntil;

JackService::JackService(std::string preferencesFolder)
    : mPreferences(std::move(preferencesFolder)) {}

std::vector<std::string> JackService::Environment() const {
    return {"JOURNAL_STREAM=", "NOTIFY_SOCKET=",
            "QUORVEL_RUNTIME_DIR=" + (mFolder.Path() / "runtime").string(),
            "XDG_STATE_HOME=" + (mFolder.Path() / "state").string()};
}

void JackService::Start() {
    mProgram = std::make_unique<Program>(
        QuorvelTest::MidiserverCommand({"run", "--backend", "jack", "--prefs", mPreferences}), "",
        Environment());
    EXPECT_TRUE(WaitUntil("it serves", [&] {
        return Log().find("\tserving ") != std::string::npos;
    })) << Log();
    EXPECT_TRUE(WaitUntil("its ports are there", [&] { return Backend()["isUp"] == true; }));
}

void JackService::End() {
    mProgram->Signal(SIGTERM);
    const ProgramResult result = mProgram->Wait();
    EXPECT_EQ(result.status, 0) << result.err;
    mProgram.reset();
}

ProgramResult JackService::Ask(const std::vector<std::string>& arguments) const {
    return Midiserver(arguments, "", Environment());
}

nlohmann::json JackService::Status() const {
    return QuorvelTest::Summary(Ask({"status", "--json"}));
}

nlohmann::json JackService::Port(std::size_t number) const {
    return Status()["ports"][number - 1];
}

nlohmann::json JackService::Backend() const {
    return Status()["backends"][0];
}

std::string JackService::Log() const {
    return mProgram ? mProgram->ErrorSoFar() : "";
}

std::filesystem::path JackService::ConnectionsFile() const {
    return mFolder.Path() / "state" / "quorvel-midi" / "connections.json";
}

} // namespace JackTest
