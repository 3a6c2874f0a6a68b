#pragma once

#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

namespace QuorvelTest {

inline const std::string kPort1 = "Quorvel MIDI:Quorvel Port 1";
inline const std::string kPrivate1 = "Quorvel MIDI private:Quorvel Virtual Source 1";

// The running service with four ports, in folders of its own.
class AlsaServiceFixture : public testing::Test {
protected:
    explicit AlsaServiceFixture(const std::string& protocol) : mPreferences("1-4", protocol) {}

    void Start() {
        mService = std::make_unique<Program>(
            MidiserverCommand({"run", "--prefs", mPreferences.Folder()}), "", Environment());
        ASSERT_TRUE(TestSupport::WaitUntil("it serves", [&] {
            return mService->ErrorSoFar().find("\tserving ") != std::string::npos;
        })) << mService->ErrorSoFar();
    }

    void Stop() {
        mService->Signal(SIGTERM);
        const ProgramResult result = mService->Wait();
        EXPECT_EQ(result.status, 0) << result.err;
    }

    // With which its commands, and a surface, find it.
    std::vector<std::string> Environment() const {
        return {"JOURNAL_STREAM=", "NOTIFY_SOCKET=",
                "QUORVEL_RUNTIME_DIR=" + (mFolder.Path() / "runtime").string(),
                "XDG_STATE_HOME=" + (mFolder.Path() / "state").string()};
    }

    const Preferences mPreferences;
    const TemporaryFolder mFolder;
    std::unique_ptr<Program> mService;
};

} // namespace QuorvelTest
