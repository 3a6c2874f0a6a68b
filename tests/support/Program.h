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
    long peakKibibytes; // the most memory that the program had at any time
};

// A program that runs beside the test. Its output is kept in files, so that it never waits for the
// test. One thread uses the object, whose destructor kills the program if it still runs.
//
//     Program program({"/bin/cat"}, "text");
//     EXPECT_EQ(program.Wait().out, "text");
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
    // Return the text that the program has written to standard output and to standard error so far.
    std::string OutputSoFar() const;
    std::string ErrorSoFar() const;
    // Waits for the end of the program. If it does not end, hangs until ctest's time-out.
    ProgramResult Wait();

private:
    std::filesystem::path mFolder;
    pid_t mProcess = -1;
};

// Starts a program and waits for it.
ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input = {},
                         const std::vector<std::string>& environment = {});

// A folder that exists as long as the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& Path() const { return mPath; }
    // Writes a new file with this content and returns its path.
    std::string Write(const std::string& name, std::string_view content) const;

private:
    std::filesystem::path mPath;
};

std::string ContentOf(const std::filesystem::path& file);

} // namespace QuorvelTest
