#include "midiserver/service/Backends.h"

#ifdef MIDISERVER_HAS_ALSA
#include "midiserver/backends/alsa/AlsaBackend.h"
#endif
#ifdef MIDISERVER_HAS_JACK
#include "midiserver/backends/jack/JackBackend.h"
#include "midiserver/backends/jack/JackLibrary.h"
#endif
#include "midiserver/backends/SavedConnections.h"
#include "midiserver/backends/embedded/EmbeddedBackend.h"
#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <unistd.h>

#include <utility>

namespace MidiServer {

namespace {

constexpr const char* kEmbedded = "embedded";
#ifdef MIDISERVER_HAS_JACK
constexpr const char* kJack = "jack";
#endif
#ifdef MIDISERVER_HAS_ALSA
constexpr const char* kAlsa = "alsa";
#endif

std::unique_ptr<Backend> MakeBackend(const std::string& name, InputQueue& input) {
#ifdef MIDISERVER_HAS_JACK
    if (name == kJack) {
        return std::make_unique<JackBackend>(input, SavedConnections::DefaultFile());
    }
#endif
#ifdef MIDISERVER_HAS_ALSA
    if (name == kAlsa) {
        return std::make_unique<AlsaBackend>(input, SavedConnections::DefaultFile());
    }
#endif
    if (name != kEmbedded) {
        throw HostError(fmt::format("this program was built without the backend {}", name));
    }
    return std::make_unique<EmbeddedBackend>(input, EmbeddedBackend::Listeners{});
}

} // namespace

std::vector<std::string> Backends::Offered() {
    return {
#ifdef MIDISERVER_HAS_JACK
        kJack,
#endif
#ifdef MIDISERVER_HAS_ALSA
        kAlsa,
#endif
        kEmbedded,
    };
}

void Backends::Prepare() {
#ifdef MIDISERVER_HAS_JACK
    PrepareJackLibrary();
#endif
}

BackendSurvey Backends::Survey() {
    BackendSurvey survey;
    survey.offered = Offered();
#ifdef MIDISERVER_HAS_JACK
    survey.jackAnswers = JackServerAnswers();
    survey.jackIsPipeWire = JackIsPipeWire();
#endif
    survey.hasSequencer = ::access("/dev/snd/seq", R_OK | W_OK) == 0;
    return survey;
}

Backends::Backends(const std::vector<BackendChoice>& choices, WakeUpSignal& signal) {
    for (const BackendChoice& choice : choices) {
        auto queue = std::make_unique<InputQueue>(kMaximumPorts, signal);
        mBackends.push_back(MakeBackend(choice.name, *queue));
        mQueues.push_back(std::move(queue));
    }
}

std::vector<RoutedBackend> Backends::Routed() const {
    std::vector<RoutedBackend> routed;
    for (std::size_t i = 0; i < mBackends.size(); ++i) {
        const bool holdsBack = mBackends[i]->Name() == kEmbedded;
        routed.push_back({mBackends[i].get(), mQueues[i].get(), holdsBack});
    }
    return routed;
}

} // namespace MidiServer
