#pragma once

#include "tests/integration/ardour/Ardour.h"
#include "tests/integration/jack/JackService.h"
#include "tests/integration/jack/TestServer.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

namespace ArdourTest {

// A server and the service, which run once StartService has returned, and a place for the DAW.
class ArdourFixture : public testing::Test {
protected:
    explicit ArdourFixture(const std::string& protocol) : mPreferences("1-4", protocol) {}

    void StartService() {
        for (const std::string& missing : {Ardour::Missing(), JackTest::TestServer::Missing()}) {
            if (!missing.empty()) {
                GTEST_SKIP() << missing << " is not installed";
            }
        }
        mServer.Start();
        mService.Start();
    }

    void StartArdour(const std::string& device) {
        mArdour = std::make_unique<Ardour>((mFolder.Path() / "session").string(), device);
        mArdour->Start();
    }

    void TearDown() override {
        if (HasFailure() && mArdour) {
            std::cerr << mArdour->Log() << mService.Log() << mServer.Log();
        }
        mArdour.reset();
    }

    // Connects or disconnects both ways of the DAW's surface; one that is connected already stays.
    void WithArdour(const std::string& command) const {
        for (const char* port : {Ardour::kInput, Ardour::kOutput}) {
            ASSERT_TRUE(TestSupport::WaitUntil(command, [&] {
                return mService.Ask({command, "1", port}).status == 0;
            }));
        }
    }

    // Whether the DAW brings this about. It asks once when it is connected, and if a busy machine
    // loses that period, never again: so it is connected anew a few times, as its user would do.
    template <typename Condition>
    testing::AssertionResult HappensAtLast(const std::string& what, const Condition& condition) {
        for (int attempt = 0; attempt < 8; ++attempt) {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (std::chrono::steady_clock::now() < deadline) {
                if (condition()) {
                    return testing::AssertionSuccess();
                }
                if (!mArdour->IsAlive()) {
                    return testing::AssertionFailure() << "Ardour has ended";
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            std::cout << "connecting anew: " << mService.Status() << "\n";
            WithArdour("disconnect");
            WithArdour("connect");
        }
        return testing::AssertionFailure() << "not yet: " << what << ": " << mService.Status();
    }

    const QuorvelTest::Preferences mPreferences;
    const QuorvelTest::TemporaryFolder mFolder;
    JackTest::TestServer mServer;
    JackTest::JackService mService{mPreferences.Folder()};
    std::unique_ptr<Ardour> mArdour;
};

} // namespace ArdourTest
