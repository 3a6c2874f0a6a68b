// Checks what every reader of recorded sessions promises.
#pragma once

#include "fuzz/AllocationPeak.h"
#include "fuzz/Require.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/replay/session/CaptureFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

inline const std::string kInputName = "input";

// Returns the session that a reader makes of the content, or nothing if the reader refuses the
// content in the way that it promises.
template <typename Reader>
std::optional<MidiServer::RecordedSession> ReadSession(Reader read, std::string_view content) {
    std::optional<MidiServer::RecordedSession> session;
    const AllocationPeak peak;
    try {
        session = read(content, kInputName);
    } catch (const MidiServer::InputError& error) {
        const std::string_view text = error.what();
        Require(text.starts_with("input:"), "a refusal names the file");
        Require(std::none_of(text.begin(), text.end(),
                             [](char c) { return static_cast<unsigned char>(c) < ' '; }),
                "a refusal is one line");
        Require(text.size() < 200, "a refusal is short");
    }
    Require(peak.Bytes() <= 3 * content.size() + (std::size_t{128} << 10),
            "memory is bounded by the content's size");
    return session;
}

// Returns the session as the text of a capture with the same messages.
inline std::string CaptureOf(const MidiServer::RecordedSession& session) {
    std::string text;
    for (const MidiServer::RecordedMessage& message : session) {
        fmt::format_to(std::back_inserter(text), "{}", message.microseconds);
        for (const std::uint8_t byte : message.bytes) {
            fmt::format_to(std::back_inserter(text), " {:02x}", byte);
        }
        text += '\n';
    }
    return text;
}

inline bool SameMessage(const MidiServer::RecordedMessage& a,
                        const MidiServer::RecordedMessage& b) {
    return a.microseconds == b.microseconds &&
           std::equal(a.bytes.begin(), a.bytes.end(), b.bytes.begin(), b.bytes.end());
}

// Checks that times never decrease and messages are whole, so that the session can be written as a
// capture.
inline void CheckSession(const MidiServer::RecordedSession& session) {
    std::size_t messages = 0;
    std::size_t bytes = 0;
    std::uint64_t time = 0;
    for (const MidiServer::RecordedMessage& message : session) {
        Require(!message.bytes.empty(), "no message is empty");
        Require(message.microseconds >= time, "times do not decrease");
        time = message.microseconds;
        bytes += message.bytes.size();
        ++messages;
    }
    Require(messages > 0, "a session holds messages");
    Require(messages == session.MessageCount() && bytes == session.ByteCount(),
            "the counts are those of the messages");
    const auto again = ReadSession(MidiServer::ReadCaptureFile, CaptureOf(session));
    Require(again && std::equal(session.begin(), session.end(), again->begin(), again->end(),
                                SameMessage),
            "the session, written as a capture, reads back as itself");
}
