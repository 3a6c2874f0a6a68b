#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace MidiServer {

// Turns MIDI bytes into events of the ALSA sequencer, a message each, and System Exclusive in
// pieces. One thread uses the object; it allocates in the constructor only.
class EventEncoder {
public:
    // Small enough for the memory of every receiver: the library gives a client 5600 bytes.
    static constexpr std::size_t kPieceBytes = 256;

    // Throws std::bad_alloc.
    EventEncoder();

    // Makes an event of these bytes, which are one whole message with its status byte or, in at
    // most kPieceBytes, a piece of a System Exclusive message. The event has neither source nor
    // destination, and refers to the bytes. Returns false if they are no MIDI.
    bool Encode(std::span<const std::uint8_t> bytes, snd_seq_event_t& event);

private:
    struct Free {
        void operator()(snd_midi_event_t* encoder) const { snd_midi_event_free(encoder); }
    };

    std::unique_ptr<snd_midi_event_t, Free> mEncoder;
};

} // namespace MidiServer
