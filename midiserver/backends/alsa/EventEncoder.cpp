#include "midiserver/backends/alsa/EventEncoder.h"

#include "midiserver/midi/MidiMessage.h"

#include <new>

namespace MidiServer {

EventEncoder::EventEncoder() {
    snd_midi_event_t* encoder = nullptr;
    if (snd_midi_event_new(kPieceBytes, &encoder) < 0) {
        throw std::bad_alloc();
    }
    mEncoder.reset(encoder);
}

bool EventEncoder::Encode(std::span<const std::uint8_t> bytes, snd_seq_event_t& event) {
    snd_seq_ev_clear(&event);
    if (bytes.empty()) {
        return false;
    }
    // A piece may begin with a data byte, or be nothing but the end.
    if (IsExclusive(bytes)) {
        event.type = SND_SEQ_EVENT_SYSEX;
        // The interface knows no constant data; the sequencer only reads it.
        snd_seq_ev_set_variable(&event, static_cast<unsigned>(bytes.size()),
                                const_cast<std::uint8_t*>(bytes.data()));
        return true;
    }
    snd_midi_event_reset_encode(mEncoder.get());
    const long used = snd_midi_event_encode(mEncoder.get(), bytes.data(),
                                            static_cast<long>(bytes.size()), &event);
    return used == static_cast<long>(bytes.size()) && event.type != SND_SEQ_EVENT_NONE;
}

} // namespace MidiServer
