#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/backends/InputQueue.h"

#include <atomic>
#include <functional>
#include <span>

namespace MidiServer {

// The embedded backend needs no service of the machine: the DAW and the control-surface application
// are within the process, or there are none. Its ports are reached through the running service
// alone. It holds its senders back: route it with `RoutedBackend::holdsBack`.
//
//     EmbeddedBackend backend(input, {});
//     for (std::span<const std::uint8_t> rest = session; !rest.empty();) {
//         rest = rest.subspan(backend.Deliver(0, rest)); // takes what fits now
//     }
class EmbeddedBackend : public Backend {
public:
    // Called on the driver's threads; must not block for long. An empty one drops what comes.
    using Receive = std::function<void(std::size_t port, const MIDIPacketList& packets)>;
    struct Listeners {
        Receive fromPort;
        Receive fromPrivateSource;
    };

    // `input` must outlive the backend.
    EmbeddedBackend(InputQueue& input, Listeners listeners)
        : Backend({true, "within the service; no other program sees the ports"}),
          mInput(input),
          mListeners(std::move(listeners)) {}

    // Sends to a port as a DAW, in pieces of any lengths that make whole messages together. Returns
    // how many of the bytes it took: fewer than all if there is no room for more now, and none if
    // the port is not published. One thread at a time.
    std::size_t Deliver(std::size_t port, std::span<const std::uint8_t> bytes);

    std::string Name() const override { return "embedded"; }
    void Publish(const std::vector<BackendPort>& ports) override { mPortCount = ports.size(); }
    void Withdraw() override { mPortCount = 0; }
    void EmitFromPort(std::size_t port, const MIDIPacketList& packets) override;
    void EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) override;
    std::vector<BackendConnection> Connections() const override { return {}; }
    std::vector<std::string> Peers() const override { return {}; }
    // There is nothing to connect to, so both throw an InputError.
    void Connect(std::size_t port, const std::string& peer) override;
    void Disconnect(std::size_t port, const std::string& peer) override;
    bool Forget(std::size_t, const std::string&) override { return false; }
    std::uint64_t LostToDaws() const override { return 0; }

private:
    InputQueue& mInput;
    Listeners mListeners;
    // Sequentially consistent: it is alone, and seldom touched.
    std::atomic<std::size_t> mPortCount{0};
};

} // namespace MidiServer
