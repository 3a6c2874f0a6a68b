#include "midiserver/replay/session/SessionFile.h"

#include "midiserver/errors/Errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace MidiServer {
namespace {

class SessionFileTest : public testing::Test {
protected:
    SessionFileTest() {
        std::string name = testing::TempDir() + "quorvel-session-XXXXXX";
        mFolder = ::mkdtemp(name.data());
    }
    ~SessionFileTest() override { std::filesystem::remove_all(mFolder); }

    std::string Write(const std::string& name, std::string_view content) {
        const std::filesystem::path path = mFolder / name;
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }

    static std::string FailureOf(const std::string& path) {
        try {
            ReadSessionFile(path);
        } catch (const InputError& error) {
            return error.what();
        }
        return "no failure";
    }

    std::filesystem::path mFolder;
};

TEST_F(SessionFileTest, ReadsACapture) {
    EXPECT_EQ(ReadSessionFile(Write("session", "0 F8\n")).MessageCount(), 1U);
}

TEST_F(SessionFileTest, ReadsAStandardMidiFileByItsContentWhateverItsName) {
    const std::string_view content("MThd\0\0\0\6\0\0\0\1\0\x60"
                                   "MTrk\0\0\0\7\0\xC0\1\0\xFF\x2F\0",
                                   29);
    EXPECT_EQ(ReadSessionFile(Write("session.txt", content)).MessageCount(), 1U);
}

TEST_F(SessionFileTest, SaysWhyAFileCannotBeRead) {
    const std::string missing = (mFolder / "missing").string();
    EXPECT_EQ(FailureOf(missing), missing + ": No such file or directory");
    EXPECT_EQ(FailureOf(mFolder.string()), mFolder.string() + ": Is a directory");
}

TEST_F(SessionFileTest, KeepsItsMessageOnOneLineWhateverTheFileIsCalled) {
    const std::string failure = FailureOf((mFolder / "a\nb").string());
    EXPECT_EQ(failure.find('\n'), std::string::npos);
    EXPECT_THAT(failure, testing::HasSubstr("a?b"));
}

TEST_F(SessionFileTest, RefusesEndlessInput) {
    EXPECT_EQ(FailureOf("/dev/zero"), "/dev/zero: larger than 256 MiB, which is no MIDI session");
}

} // namespace
} // namespace MidiServer
