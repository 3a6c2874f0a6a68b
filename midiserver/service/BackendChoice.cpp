#include "midiserver/service/BackendChoice.h"

#include <algorithm>
#include <utility>

namespace MidiServer {

namespace {

std::vector<BackendChoice> ChooseAutomatically(const BackendSurvey& survey) {
    const auto isOffered = [&survey](const char* name) {
        return std::find(survey.offered.begin(), survey.offered.end(), name) !=
               survey.offered.end();
    };
    std::vector<BackendChoice> choices;
    if (isOffered("jack") && survey.jackAnswers) {
        choices.push_back({"jack", survey.jackIsPipeWire ? "PipeWire answers as a JACK server"
                                                         : "a JACK server answers"});
    }
    const bool shownByPipeWire = !choices.empty() && survey.jackIsPipeWire;
    if (isOffered("alsa") && survey.hasSequencer && !shownByPipeWire) {
        choices.push_back({"alsa", "the ALSA sequencer is there"});
    }
    if (choices.empty() && isOffered("jack")) {
        choices.push_back({"jack", "there is neither a JACK server nor the ALSA sequencer yet, and "
                                   "a JACK server may come"});
    }
    if (choices.empty() && isOffered("alsa")) {
        choices.push_back({"alsa", "the ALSA sequencer may come"});
    }
    if (choices.empty()) {
        choices.push_back({"embedded", "this program was built without a backend for what there "
                                       "is"});
    }
    return choices;
}

} // namespace

std::vector<BackendChoice> ChooseBackends(const std::vector<std::string>& wanted,
                                          const BackendSurvey& survey) {
    std::vector<BackendChoice> choices;
    const auto add = [&choices](BackendChoice choice) {
        const bool isThere =
            std::any_of(choices.begin(), choices.end(),
                        [&choice](const auto& other) { return other.name == choice.name; });
        if (!isThere) {
            choices.push_back(std::move(choice));
        }
    };
    for (const std::string& name : wanted) {
        if (name != kAutoBackend) {
            add({name, "it was asked for"});
            continue;
        }
        for (BackendChoice& choice : ChooseAutomatically(survey)) {
            add(std::move(choice));
        }
    }
    return choices;
}

} // namespace MidiServer
