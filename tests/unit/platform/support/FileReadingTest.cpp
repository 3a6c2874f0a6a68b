#include "platform/support/FileReading.h"

#include "platform/support/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

namespace {

class FileReading : public testing::Test {
protected:
    std::string Path() const { return mFolder.Path() + "/file"; }
    void Write(const std::string& bytes) const { std::ofstream(Path(), std::ios::binary) << bytes; }

    TemporaryDirectory mFolder;
    std::string mBytes = "what was read before";
};

TEST_F(FileReading, ReadsAllBytes) {
    for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 100000U}) {
        std::string bytes(size, 'x');
        if (size > 1) {
            bytes[size / 2] = '\0';
        }
        Write(bytes);
        EXPECT_FALSE(ReadWholeFile(Path(), 100000, mBytes));
        EXPECT_TRUE(mBytes == bytes) << size;
    }
}

TEST_F(FileReading, RefusesMoreThanTheLimit) {
    Write(std::string(20000, 'x'));
    EXPECT_FALSE(ReadWholeFile(Path(), 20000, mBytes));
    const FileFailure failure = ReadWholeFile(Path(), 19999, mBytes);
    EXPECT_EQ(failure.error, EFBIG);
    EXPECT_EQ(failure.text, "too large");
    EXPECT_EQ(ReadWholeFile("/dev/zero", 100, mBytes).error, EINVAL);
}

TEST_F(FileReading, TellsWhatIsNoFileWithoutWaitingForIt) {
    FileFailure failure = ReadWholeFile(Path(), 100, mBytes);
    EXPECT_EQ(failure.error, ENOENT);
    EXPECT_EQ(failure.text, "cannot be opened: No such file or directory");
    failure = ReadWholeFile(mFolder.Path(), 100, mBytes);
    EXPECT_EQ(failure.error, EISDIR);
    EXPECT_EQ(failure.text, "not a regular file");
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    EXPECT_EQ(ReadWholeFile(Path(), 100, mBytes).error, EINVAL);
}

TEST_F(FileReading, ReadsAPipeToItsEnd) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const FileDescriptor reader(ends[0]);
    std::thread writing([writer = FileDescriptor(ends[1])] {
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(write(writer.Get(), "0123456789", 10), 10);
        }
    });
    const FileFailure failure = ReadToEnd(reader.Get(), 10000, mBytes);
    writing.join();
    EXPECT_FALSE(failure) << failure.text;
    EXPECT_EQ(mBytes.size(), 10000U);
    EXPECT_EQ(mBytes.substr(9990), "0123456789");
    EXPECT_EQ(ReadToEnd(-1, 100, mBytes).error, EBADF);
}

} // namespace
