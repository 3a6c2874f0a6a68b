#pragma once

#include "tests/integration/jack/ChildProcess.h"
#include "tests/integration/jack/Peer.h"

#include <memory>
#include <string>

namespace ArdourTest {

// Ardour without a screen, a DAW with a Mackie Control surface on JACK ports. It plays as soon as
// it stands, and keeps its settings where HOME and XDG_CONFIG_HOME lead.
//
// Nothing but the surface may be connected with its ports: when any program leaves them, Ardour
// switches the surface off until one is connected anew.
class Ardour {
public:
    // The surface's ports. It begins to talk when both are connected.
    static constexpr const char* kInput = "ardour:mackie control in";
    static constexpr const char* kOutput = "ardour:mackie control out";

    // What is missing on this machine, or an empty text.
    static std::string Missing();

    // Makes a session in this folder, which must not exist, and loads it. Returns when `observer`
    // sees the ports. Throws std::runtime_error with what Ardour said if it does not come up.
    Ardour(const std::string& folder, JackTest::Peer& observer);

    ~Ardour();
    Ardour(const Ardour&) = delete;
    Ardour& operator=(const Ardour&) = delete;

    // Whether it runs and has its server.
    bool IsAlive();
    // What it wrote.
    std::string Log() const;

private:
    void MakeSession() const;
    void AddSurface() const;
    void Start();
    void End();
    bool ComesUp(JackTest::Peer& observer);

    std::string mFolder;
    std::string mLog;
    std::unique_ptr<JackTest::ChildProcess> mProgram;
};

} // namespace ArdourTest
