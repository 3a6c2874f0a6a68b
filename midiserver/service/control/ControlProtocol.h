#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFData.h>

#include <nlohmann/json_fwd.hpp>

namespace MidiServer {

// The message port through which the running service is asked. A request's ID says what is wanted
// and its data is a JSON object. The reply is a JSON object too: its member `ok` tells whether the
// service did what was wanted; if not, `error` is one line that says why.
inline constexpr const char* kControlPortName = "Quorvel MIDI Server Control Port";

enum class ControlRequest : SInt32 {
    // -> {status: see StatusReport.h}
    kStatus = 1,
    // -> {ports: [{name, protocol}], backends: [{name, isUp, detail, peers, connections}]}
    kList = 2,
    // {port, peer} -> {port, peer, backend}
    kConnect = 3,
    // likewise; with `wasThere`: false, there was no such port of another program, and a connection
    // that was kept for it is forgotten
    kDisconnect = 4,
    // {port, stream} -> {recording: a number, port: its name}. `stream` is "fromDaw", which it is
    // too
    // if it is missing, "toDaw" or "toSurface", see StreamDirection.
    kStartRecording = 5,
    // {recording} -> {messages: [[microseconds since the start, "90 00 7F"]], lost: pieces so far}.
    // Each is a message, or a piece of a System Exclusive message. A recording that nobody asks for
    // in a minute ends.
    kTakeRecorded = 6,
    // {recording} -> {lost}
    kEndRecording = 7,
    // {port, messages: ["90 00 7F"]} -> {port: its name, taken: how many of the messages}
    kInject = 8,
    // {port, messages: ["90 5E 7F"]} -> {port: its name, emitted: how many of the messages}. The
    // port's own source carries them to DAWs, as a surface's. Either all are whole messages, or
    // none is emitted. Fewer than all only while a driver that has other ports is being started.
    kEmit = 9,
};

// Returns a request or a reply as the port carries it. A name in it may hold anything; what is not
// UTF-8 is replaced. Throws std::bad_alloc.
CFOwned<CFDataRef> ControlData(const nlohmann::ordered_json& message);
// Returns what the port has carried; a value that is no object if it is no JSON.
nlohmann::ordered_json ControlMessage(CFDataRef data);

} // namespace MidiServer
