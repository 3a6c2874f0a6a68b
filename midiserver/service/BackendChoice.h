#pragma once

#include <string>
#include <vector>

namespace MidiServer {

// The name that stands for those backends that suit the machine.
inline constexpr const char* kAutoBackend = "auto";

// What there is on this machine for backends to serve.
struct BackendSurvey {
    std::vector<std::string> offered; // the backends that this program was built with
    bool jackAnswers = false;         // a JACK server runs, or PipeWire
    bool jackIsPipeWire = false;      // the JACK library is PipeWire's
    bool hasSequencer = false;        // the ALSA sequencer is there
};

struct BackendChoice {
    std::string name;
    std::string reason; // follows "because"

    bool operator==(const BackendChoice&) const = default;
};

// Returns the backends that are wanted, each once. In place of "auto" stand JACK if a server
// answers, and the ALSA sequencer if it is there, unless PipeWire shows JACK's clients the
// sequencer's ports already. If neither is there, the one that can wait for its server is taken.
std::vector<BackendChoice> ChooseBackends(const std::vector<std::string>& wanted,
                                          const BackendSurvey& survey);

} // namespace MidiServer
