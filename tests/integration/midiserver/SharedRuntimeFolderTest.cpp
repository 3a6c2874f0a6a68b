#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <csignal>

namespace QuorvelTest {
namespace {

// Runs of midiserver that share a folder for message ports.
class SharedRuntimeFolderTest : public testing::Test {
protected:
    std::vector<std::string> Arguments(const std::string& capture) const {
        return {"replay", Capture(capture), "--prefs", mPreferences.Folder()};
    }

    std::vector<std::string> Environment() const {
        return {"JOURNAL_STREAM=", "QUORVEL_RUNTIME_DIR=" + mRuntime.Path().string()};
    }

    std::filesystem::path Socket() const {
        return mRuntime.Path() / "Quorvel%20Virtual%20Source%20IDs%20Port.port";
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    const TemporaryFolder mRuntime;
};

TEST_F(SharedRuntimeFolderTest, NamesTheServerThatIsThereAlready) {
    Program first(MidiserverCommand(Arguments("ardour-mackie-a.txt")), {}, Environment());
    ASSERT_TRUE(TestSupport::WaitUntil("the server's socket is there",
                                       [this] { return std::filesystem::exists(Socket()); }));
    const ProgramResult second = Midiserver(Arguments("ardour-mackie-a.txt"), {}, Environment());

    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, "midiserver: the driver's message port \"Quorvel Virtual Source IDs "
                          "Port\" cannot be made: " +
                              Socket().string() + ": another midiserver (pid " +
                              std::to_string(first.Id()) +
                              ") already serves this port; end that one, or set "
                              "QUORVEL_RUNTIME_DIR to another folder\n");
    first.Signal(SIGINT);
    first.Signal(SIGINT);
    first.Wait();
}

TEST_F(SharedRuntimeFolderTest, SaysWhatIsWrongWithTheFolder) {
    ASSERT_EQ(chmod(mRuntime.Path().c_str(), 0777), 0);
    const ProgramResult result = Midiserver(Arguments("ardour-mackie-a.txt"), {}, Environment());

    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    EXPECT_THAT(result.err, testing::HasSubstr(mRuntime.Path().string() +
                                               ": other users may write to this folder; give it "
                                               "mode 0700"));
}

TEST_F(SharedRuntimeFolderTest, ServesFromTheSocketThatAKilledServerLeft) {
    Program killed(MidiserverCommand(Arguments("ardour-mackie-a.txt")), {}, Environment());
    ASSERT_TRUE(TestSupport::WaitUntil("the server's socket is there",
                                       [this] { return std::filesystem::exists(Socket()); }));
    killed.Signal(SIGKILL);
    killed.Wait();
    ASSERT_TRUE(std::filesystem::exists(Socket()));
    std::vector<std::string> arguments = Arguments("ardour-hui.txt");
    arguments.emplace_back("--as-fast-as-possible");
    const ProgramResult next = Midiserver(arguments, {}, Environment());

    EXPECT_EQ(next.status, 0) << next.err;
}

} // namespace
} // namespace QuorvelTest
