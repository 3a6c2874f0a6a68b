#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <iterator>

namespace MidiServer {

// The message of a session at a place that it has.
inline RecordedMessage MessageAt(const RecordedSession& session, std::ptrdiff_t index) {
    return *std::next(session.begin(), index);
}

} // namespace MidiServer
