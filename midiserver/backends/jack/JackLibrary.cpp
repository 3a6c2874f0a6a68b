#include "midiserver/backends/jack/JackLibrary.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <fmt/format.h>
#include <jack/jack.h>

#include <cstdlib>
#include <mutex>

namespace MidiServer {

namespace {

// The library calls these on its own threads too, but not from within a process callback.
void LogLibraryMessage(const char* message) {
    Log(kJackLog[HSL::kChatty], "library: %s", OneLine(message).c_str());
}

} // namespace

std::string JackAliasOf(std::int32_t uniqueId) {
    return fmt::format("Quorvel MIDI ID:{}", uniqueId);
}

void PrepareJackLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        constexpr const char* kVariable = "PIPEWIRE_PROPS";
        const char* const given = std::getenv(kVariable);
        setenv(kVariable, WithMidiLeftAlone(given == nullptr ? "" : given).c_str(), 1);
        jack_set_error_function(LogLibraryMessage);
        jack_set_info_function(LogLibraryMessage);
    });
}

std::string WithMidiLeftAlone(std::string_view properties) {
    constexpr std::string_view kKey = "jack.fix-midi-events";
    if (properties.find(kKey) != std::string_view::npos) {
        return std::string(properties);
    }
    const std::string property = std::string(kKey) + " = false";
    const std::size_t brace = properties.find('{');
    if (brace == std::string_view::npos) {
        return "{ " + property + " " + std::string(properties) + " }";
    }
    return std::string(properties.substr(0, brace + 1)) + " " + property +
           std::string(properties.substr(brace + 1));
}

bool JackIsPipeWire() {
    return std::string_view(jack_get_version_string()).find("PipeWire") != std::string_view::npos;
}

bool JackServerAnswers() {
    jack_client_t* const client = jack_client_open(kProbeName, JackNoStartServer, nullptr);
    if (client == nullptr) {
        return false;
    }
    jack_client_close(client);
    return true;
}

} // namespace MidiServer
