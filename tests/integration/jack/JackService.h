#pragma once

#include "tests/integration/midiserver/Midiserver.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace JackTest {

// The service as a user runs it, with the JACK backend alone, and in folders of its own. It can be
// started several times, one after the other. One thread uses the object; a service that still runs
// is killed with it.
class JackService {
public:
    explicit JackService(std::string preferencesFolder);

    // Returns when it serves and its ports are on the server; adds a failure if that never happens.
    void Start();
    // Asks it to end, and adds a failure unless it ends well.
    void End();

    // What a command of midiserver answers.
    QuorvelTest::ProgramResult Ask(const std::vector<std::string>& arguments) const;
    nlohmann::json Status() const;
    nlohmann::json Port(std::size_t number) const; // from 1
    nlohmann::json Backend() const;
    // What it has logged since it was started.
    std::string Log() const;
    // Where it keeps the connections.
    std::filesystem::path ConnectionsFile() const;
    // With which its commands, and other programs of its user, find it.
    std::vector<std::string> Environment() const;

private:
    std::string mPreferences;
    QuorvelTest::TemporaryFolder mFolder;
    std::unique_ptr<QuorvelTest::Program> mProgram;
};

} // namespace JackTest
