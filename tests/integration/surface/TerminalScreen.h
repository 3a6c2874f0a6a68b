#pragma once

#include "tests/support/Program.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace SurfaceTest {

// A terminal with a shell's script in it, which a terminal multiplexer of the test's own plays, and
// which ends with the object. One thread uses it.
//
//     TerminalScreen screen({"quorvel-surface", "--play", file}, 80, 24);
//     ASSERT_TRUE(WaitUntil("...", [&] { return screen.Text().find("Kick") != npos; }));
//     screen.Type({"3", "m"});
class TerminalScreen {
public:
    // Runs the program, then prints "ended with STATUS" and, if they are, "settings as before", and
    // waits.
    TerminalScreen(const std::vector<std::string>& command, int columns, int rows,
                   const std::vector<std::string>& environment = {});
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    // What is missing on this machine, or an empty text.
    static std::string Missing();

    // The rows' text, without the spaces at their ends, each ended by a newline.
    std::string Text() const;
    // Presses keys, one after the other, by the multiplexer's names: "m", "Up", "F1".
    void Type(const std::vector<std::string>& keys) const;
    // Sends these bytes as the terminal does for a mouse.
    void Send(const std::string& bytes) const;
    void Resize(int columns, int rows) const;
    // One of the multiplexer's variables, for instance "alternate_on".
    std::string Variable(const std::string& name) const;
    // The program's process.
    pid_t Process() const;

private:
    QuorvelTest::ProgramResult Ask(std::vector<std::string> arguments) const;

    QuorvelTest::TemporaryFolder mFolder;
};

} // namespace SurfaceTest
