#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace QuorvelTest {

struct ProgramResult {
    int status; // the exit status, or 128 and the number of the signal that ended it
    std::string out;
    std::string err;
    long peakKibibytes; // the most memory that it had at a time
};

// A program that runs beside the test, its output kept in files so that it never waits for the
// test. Used by one thread; killed when the object goes while it still runs.
class Program {
public:
    // Starts arguments[0] with the test's environment and these additions ("NAME=value").
    explicit Program(const std::vector<std::string>& arguments, const std::string& input = {},
                     const std::vector<std::string>& environment = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t Id() const { return mProcess; }
    void Signal(int number) const;
    // What it has written to standard error so far.
    std::string ErrorSoFar() const;
    // Waits for its end; hangs until ctest's time-out when it does not end.
    ProgramResult Wait();

private:
    std::filesystem::path mFolder;
    pid_t mProcess = -1;
};

// Starts a program and waits for it.
ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = {},
                         const std::vector<std::string>& environment = {});

// A folder that is there as long as the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return mPath; }
    // The path of a new file with this content.
    std::string Write(const std::string& name, std::string_view content) const;

private:
    std::filesystem::path mPath;
};

std::string ContentOf(const std::filesystem::path& file);

} // namespace QuorvelTest
