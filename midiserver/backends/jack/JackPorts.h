#pragma once

#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/OutputStream.h"
#include "midiserver/backends/jack/JackProcess.h"

#include <jack/jack.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace MidiServer {

// What a client does with its ports in each period: it plays what waits in each output's stream,
// and hands what came on each input to the InputQueue.
//
// A period's events all stand at its first frame, in the order in which they were emitted: they are
// late already by the time from their emission to the period, and a surface is better served early
// than evenly. What does not fit a period waits for the next one. An event that is larger than what
// a period carries, a System Exclusive message, goes in pieces, which receivers join.
class JackPorts : public JackProcess {
public:
    // `queueBytes` is what waits at each output at most. Without `input` there are no inputs.
    // Throws std::bad_alloc.
    JackPorts(std::size_t count, std::size_t queueBytes, InputQueue* input);

    std::size_t Count() const { return mCount; }

    // The ports in use; null for none. One thread sets them, at any time: a port that was replaced
    // is not used by the period after next any more.
    void SetInput(std::size_t index, jack_port_t* port);
    void SetOutput(std::size_t index, jack_port_t* port);
    jack_port_t* Input(std::size_t index) const;
    jack_port_t* Output(std::size_t index) const;

    OutputStream& Stream(std::size_t index) { return mPorts[index]->stream; }
    std::uint64_t Lost() const; // by the streams

    // Locks what Process touches into memory, as far as the limits allow. Returns whether they do.
    bool LockMemory() noexcept;

    void Process(jack_nframes_t frames, std::uint64_t time) noexcept override;
    void AfterProcess() noexcept override;

private:
    struct Port {
        explicit Port(std::size_t queueBytes) : stream(queueBytes) {}

        std::atomic<jack_port_t*> input{nullptr};
        std::atomic<jack_port_t*> output{nullptr};
        OutputStream stream;
    };

    void Receive(std::size_t index, void* buffer, std::uint64_t time) noexcept;

    std::size_t mCount;
    std::vector<std::unique_ptr<Port>> mPorts;
    InputQueue* mInput;
};

} // namespace MidiServer
