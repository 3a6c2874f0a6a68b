#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace JackTest {

// A program that a test starts and talks to over its standard input and output. It ends with the
// test, however that ends, together with all that it has started itself.
class ChildProcess {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // Both of the program's outputs go into the file if one is named, and standard output into
    // ReadLine otherwise.
    explicit ChildProcess(std::vector<std::string> arguments, const std::string& outputFile = {},
                          const Environment& environment = {});
    // Ends the program as End does.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Id() const { return mProcess; }
    bool HasEnded();
    // Closes the program's input and, unless that is enough within a quarter of a minute, sends it
    // SIGTERM; kills it if it has not ended as long after that.
    void End();
    void Signal() const; // SIGTERM, to the program and all of its own
    // Kills the program and all of its own, and waits for its end.
    void Kill();

    void WriteLine(const std::string& line) const;
    // Waits for the program to write the next line. Returns false at the end of its output.
    bool ReadLine(std::string& line);

private:
    bool HasEndedSoon();

    pid_t mProcess = -1;
    int mInput = -1;
    int mOutput = -1;
    std::string mRead;
};

} // namespace JackTest
