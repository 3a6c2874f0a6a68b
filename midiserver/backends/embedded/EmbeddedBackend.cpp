#include "midiserver/backends/embedded/EmbeddedBackend.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace MidiServer {

namespace {

// Small enough that the pacing queue has room for the messages of a whole one.
constexpr std::size_t kLargestPiece = 4096;

std::uint64_t Now() {
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

[[noreturn]] void RefusePeer(const std::string& peer) {
    throw InputError(fmt::format("{}: the embedded backend has no ports of other programs", peer));
}

} // namespace

std::size_t EmbeddedBackend::Deliver(std::size_t port, std::span<const std::uint8_t> bytes) {
    if (port >= mPortCount) {
        return 0;
    }
    std::size_t taken = 0;
    while (taken < bytes.size()) {
        const std::size_t room = mInput.Room(port).value_or(0);
        if (room == 0) {
            break;
        }
        const std::size_t piece = std::min({bytes.size() - taken, room, kLargestPiece});
        mInput.Write(port, Now(), bytes.subspan(taken, piece));
        taken += piece;
    }
    mInput.Wake();
    return taken;
}

void EmbeddedBackend::EmitFromPort(std::size_t port, const MIDIPacketList& packets) {
    if (mListeners.fromPort) {
        mListeners.fromPort(port, packets);
    }
}

void EmbeddedBackend::EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) {
    if (mListeners.fromPrivateSource) {
        mListeners.fromPrivateSource(port, packets);
    }
}

void EmbeddedBackend::Connect(std::size_t /*port*/, const std::string& peer) {
    RefusePeer(peer);
}

void EmbeddedBackend::Disconnect(std::size_t /*port*/, const std::string& peer) {
    RefusePeer(peer);
}

} // namespace MidiServer
