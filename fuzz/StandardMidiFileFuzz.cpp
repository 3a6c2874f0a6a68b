// Gives arbitrary bytes to the reader of Standard MIDI Files, either as the file itself or as the
// events of tracks in chunks whose lengths are right, which mutation alone would rarely hit.
#include "midiserver/replay/session/StandardMidiFile.h"

#include "fuzz/SessionReading.h"

#include <cstddef>
#include <cstdint>

namespace {

std::string BigEndian(std::size_t value, unsigned bytes) {
    std::string text;
    for (unsigned i = bytes; i > 0; --i) {
        text += static_cast<char>(value >> 8 * (i - 1) & 0xFF);
    }
    return text;
}

// One to four tracks that share the events evenly.
std::string FileOf(std::string_view events, unsigned tracks, std::size_t division) {
    std::string file =
        "MThd" + BigEndian(6, 4) + BigEndian(1, 2) + BigEndian(tracks, 2) + BigEndian(division, 2);
    for (unsigned left = tracks; left > 0; --left) {
        const std::string_view track = events.substr(0, events.size() / left);
        events.remove_prefix(track.size());
        constexpr std::string_view kEnd("\0\xFF\x2F\0", 4);
        file.append("MTrk").append(BigEndian(track.size() + kEnd.size(), 4));
        file.append(track).append(kEnd);
    }
    return file;
}

} // namespace

// The first byte says how the rest is taken: 0 as it is, else the number of tracks; then a division
// of two bytes comes first.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::string content = data[0] == 0
                                    ? std::string(rest)
                                    : FileOf(rest.substr(2), 1 + data[0] % 4,
                                             static_cast<std::size_t>(data[1]) << 8 | data[2]);
    if (const auto session = ReadSession(MidiServer::ReadStandardMidiFile, content)) {
        Require(MidiServer::IsStandardMidiFile(content), "what is read is recognised");
        Require(session->ByteCount() <= 2 * content.size(), "messages are no longer than the file");
        CheckSession(*session);
    }
    return 0;
}
