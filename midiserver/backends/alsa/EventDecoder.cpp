#include "midiserver/backends/alsa/EventDecoder.h"

#include <new>

namespace MidiServer {

EventDecoder::EventDecoder() {
    snd_midi_event_t* decoder = nullptr;
    if (snd_midi_event_new(mBytes.size(), &decoder) < 0) {
        throw std::bad_alloc();
    }
    mDecoder.reset(decoder);
    // Every message carries its status byte: what leaves here goes through many hands.
    snd_midi_event_no_status(decoder, 1);
}

std::span<const std::uint8_t> EventDecoder::Decode(const snd_seq_event_t& event) {
    if (event.type == SND_SEQ_EVENT_SYSEX) {
        return {static_cast<const std::uint8_t*>(event.data.ext.ptr), event.data.ext.len};
    }
    const long size = snd_midi_event_decode(mDecoder.get(), mBytes.data(),
                                            static_cast<long>(mBytes.size()), &event);
    return std::span(mBytes).first(size > 0 ? static_cast<std::size_t>(size) : 0);
}

} // namespace MidiServer
