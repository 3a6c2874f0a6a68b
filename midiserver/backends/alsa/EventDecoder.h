#pragma once

#include <alsa/asoundlib.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>

namespace MidiServer {

// Turns events of the ALSA sequencer into MIDI bytes, each message with its status byte. One thread
// uses the object; it allocates in the constructor only.
class EventDecoder {
public:
    // Throws std::bad_alloc.
    EventDecoder();

    // Returns the event's bytes: one or more messages, or a piece of System Exclusive. They are
    // empty if the event is no MIDI. They are valid until the next call, or as long as the event.
    std::span<const std::uint8_t> Decode(const snd_seq_event_t& event);

private:
    struct Free {
        void operator()(snd_midi_event_t* decoder) const { snd_midi_event_free(decoder); }
    };

    std::unique_ptr<snd_midi_event_t, Free> mDecoder;
    // The longest is a 14-bit parameter, which is four control changes.
    std::array<std::uint8_t, 16> mBytes{};
};

} // namespace MidiServer
