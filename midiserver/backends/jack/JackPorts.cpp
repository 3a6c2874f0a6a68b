#include "midiserver/backends/jack/JackPorts.h"

#include <jack/midiport.h>

#include <sys/mman.h>

#include <algorithm>
#include <span>

namespace MidiServer {

namespace {

// What an event takes in a period's buffer. JACK needs less for it; but PipeWire's library copies
// the events into a buffer of the same size with larger headers, and what does not fit there is
// lost without a word.
constexpr std::size_t kHeaderCost = 16;

std::size_t Cost(std::size_t bytes) {
    return kHeaderCost + (bytes + 7) / 8 * 8;
}

std::size_t LargestEvent(std::size_t room) {
    return room < kHeaderCost ? 0 : (room - kHeaderCost) / 8 * 8;
}

// A shorter piece is not worth its event.
constexpr std::size_t kSmallestPiece = 256;

void Play(OutputQueue& events, void* buffer) noexcept {
    jack_midi_clear_buffer(buffer);
    const std::size_t empty = jack_midi_max_event_size(buffer);
    // The copy has a header of its own.
    std::size_t left = empty - std::min(empty, kHeaderCost);
    const std::size_t largest = LargestEvent(left);
    while (std::size_t size = events.Next()) {
        const std::size_t room = std::min(LargestEvent(left), jack_midi_max_event_size(buffer));
        if (size > room) {
            if (size <= largest || room < kSmallestPiece) {
                return; // in the next period
            }
            size = room;
        }
        jack_midi_data_t* const bytes = jack_midi_event_reserve(buffer, 0, size);
        if (bytes == nullptr) {
            return;
        }
        events.Take({bytes, size});
        left -= std::min(left, Cost(size));
    }
}

} // namespace

JackPorts::JackPorts(std::size_t count, std::size_t queueBytes, InputQueue* input)
    : mCount(count), mInput(input) {
    for (std::size_t i = 0; i < count; ++i) {
        mPorts.push_back(std::make_unique<Port>(queueBytes));
    }
}

// Release and acquire: whoever takes a port sees it as it was registered.

void JackPorts::SetInput(std::size_t index, jack_port_t* port) {
    mPorts[index]->input.store(port, std::memory_order_release);
}

void JackPorts::SetOutput(std::size_t index, jack_port_t* port) {
    mPorts[index]->output.store(port, std::memory_order_release);
}

jack_port_t* JackPorts::Input(std::size_t index) const {
    return mPorts[index]->input.load(std::memory_order_acquire);
}

jack_port_t* JackPorts::Output(std::size_t index) const {
    return mPorts[index]->output.load(std::memory_order_acquire);
}

std::uint64_t JackPorts::Lost() const {
    std::uint64_t lost = 0;
    for (const auto& port : mPorts) {
        lost += port->stream.Lost();
    }
    return lost;
}

bool JackPorts::LockMemory() noexcept {
    bool locked = mInput == nullptr || mInput->LockMemory();
    locked = locked && mlock(this, sizeof *this) == 0 &&
             mlock(mPorts.data(), mPorts.size() * sizeof mPorts[0]) == 0;
    for (const auto& port : mPorts) {
        locked =
            locked && mlock(port.get(), sizeof *port) == 0 && port->stream.Events().LockMemory();
    }
    return locked;
}

void JackPorts::Process(jack_nframes_t frames, std::uint64_t time) noexcept {
    for (std::size_t i = 0; i < mCount; ++i) {
        if (jack_port_t* const output = Output(i)) {
            if (void* const buffer = jack_port_get_buffer(output, frames)) {
                Play(mPorts[i]->stream.Events(), buffer);
            }
        }
        if (jack_port_t* const input = Input(i)) {
            if (void* const buffer = jack_port_get_buffer(input, frames)) {
                Receive(i, buffer, time);
            }
        }
    }
}

void JackPorts::Receive(std::size_t index, void* buffer, std::uint64_t time) noexcept {
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event;
        if (jack_midi_event_get(&event, buffer, i) == 0) {
            mInput->Write(index, time, {event.buffer, event.size});
        } else {
            mInput->CountLost(index, 1);
        }
    }
    mInput->CountLost(index, jack_midi_get_lost_event_count(buffer));
}

void JackPorts::AfterProcess() noexcept {
    if (mInput != nullptr) {
        mInput->Wake();
    }
}

} // namespace MidiServer
