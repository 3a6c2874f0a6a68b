#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/routing/Router.h"
#include "midiserver/service/BackendChoice.h"

#include <memory>
#include <string>
#include <vector>

namespace MidiServer {

// A Backends holds the backends of a service, each with the queue that it writes into.
//
//     WakeUpSignal signal;
//     Backends backends(ChooseBackends({"auto"}, Backends::Survey()), signal);
//     Router router(backends.Routed(), signal, {}, stalled);
//
// One thread makes and destroys it, and uses the backends as Backend.h says.
class Backends {
public:
    // The backends that this program was built with.
    static std::vector<std::string> Offered();
    // Configures JACK's library, which takes that from the environment. A process calls it before
    // another thread runs, and before anything else here but Offered.
    static void Prepare();
    // Looks which servers there are on the machine. Blocks for some round trips to a JACK server.
    static BackendSurvey Survey();

    // `signal` must outlive the object. `choices` are of Offered.
    Backends(const std::vector<BackendChoice>& choices, WakeUpSignal& signal);
    Backends(const Backends&) = delete;
    Backends& operator=(const Backends&) = delete;

    std::vector<RoutedBackend> Routed() const;
    const std::vector<std::unique_ptr<Backend>>& All() const { return mBackends; }

private:
    std::vector<std::unique_ptr<InputQueue>> mQueues; // outlive the backends
    std::vector<std::unique_ptr<Backend>> mBackends;
};

} // namespace MidiServer
