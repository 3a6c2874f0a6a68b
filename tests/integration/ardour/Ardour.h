#pragma once

#include "tests/integration/jack/ChildProcess.h"

#include <cstddef>
#include <memory>
#include <string>

namespace ArdourTest {

// Ardour without a screen, a DAW with a Mackie Control surface on JACK ports: its interpreter for
// scripts, which answers what the test asks. Its settings are beside the session.
//
// Nothing but the surface may be connected with its ports: when any program leaves them, Ardour
// switches the surface off until one is connected anew.
class Ardour {
public:
    // The surface's ports. It begins to talk when both are connected.
    static constexpr const char* kInput = "ardour:mackie control in";
    static constexpr const char* kOutput = "ardour:mackie control out";

    // What Ardour takes the surface for. Of its devices of Mackie Control this one waits for an
    // answer before it is driven. For HUI it has none; that one is in the examples of the package.
    static constexpr const char* kMackieControl = "Mackie Control Universal Pro";
    static constexpr const char* kHui = "Quorvel HUI";

    // What is missing on this machine, or an empty text.
    static std::string Missing();

    // Makes a session in this folder, which must not exist. Throws std::runtime_error with what
    // Ardour said if there is none then.
    Ardour(const std::string& folder, const std::string& device);

    ~Ardour();
    Ardour(const Ardour&) = delete;
    Ardour& operator=(const Ardour&) = delete;

    // Loads the session, which stands still then. Throws std::runtime_error with what Ardour said
    // if it does not come up.
    void Start();
    // Closes the session, and does not save it.
    void End();

    // The value of an expression of Ardour's scripting language, with the session as `session` and
    // a track's fader as `gain("NAME")`; adds a failure if there is no answer.
    std::string Ask(const std::string& expression);

    // Whether it runs and has its server.
    bool IsAlive();
    // What it wrote.
    std::string Log() const;

private:
    bool ComesUp();
    std::string Home() const; // where it keeps its settings

    std::string mFolder;
    std::string mLog;
    std::unique_ptr<JackTest::ChildProcess> mProgram;
    std::size_t mQuestions = 0; // that were asked since it started
    std::size_t mStart = 0;     // where in the log it started
};

} // namespace ArdourTest
