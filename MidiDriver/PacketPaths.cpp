#include "MidiDriver/PacketPaths.h"

#include "MidiDriver/MidiPlugin.h"
#include "MidiDriver/worker/DriverDiagnostics.h"
#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "platform/packetlist/PacketListWalk.h"

#include <syslog.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace {

constexpr unsigned int kSendPacketBufferSize = 16;
constexpr unsigned int kLongestReply = 255; // the buffer's size is counted modulo 256

// The buffer of ReplyMIDIPacketList. It is a bare pointer, which is freed with the instance,
// because a destructor at exit could free it while a thread is replying.
unsigned char*& SendPacketBuffer() {
    static unsigned char* sendPacketBuffer =
        new (std::nothrow) unsigned char[kSendPacketBufferSize];
    return sendPacketBuffer;
}

// Zeroes the time stamps of all packets and returns the list's size in bytes.
unsigned int ResetTimeStamps(MIDIPacketList* list) {
    const PacketListExtent extent =
        ForEachPacket(list, kUnknownListSize, [](const MIDIPacket* packet) {
            SetPacketTime(const_cast<MIDIPacket*>(packet), 0);
        });
    return static_cast<unsigned int>(extent.bytes);
}

} // namespace

OSStatus MIDIDriverSend(MIDIDriverRef self, const MIDIPacketList* list, void* /*destRef1*/,
                        void* destRef2) {
    const MIDIPlugin& plugin = *PluginOf(self);
    if (plugin.device.load(std::memory_order_acquire) == MIDIDeviceRef{}) {
        return noErr;
    }
    const auto port = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(destRef2));
    if (port >= plugin.virtualSources.Size()) {
        return kMIDIInvalidPort;
    }
    auto* const packets = const_cast<MIDIPacketList*>(list);
    const unsigned int size = ResetTimeStamps(packets);
    WriteCBBytes(plugin.worker, port, packets, size, true);
    return noErr;
}

void ForwardMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int /*length*/,
                           void* /*refcon*/) {
    const MIDIPlugin* const plugin = sPluginRef.load(std::memory_order_acquire);
    if (plugin == nullptr || plugin->device.load(std::memory_order_acquire) == MIDIDeviceRef{}) {
        return;
    }
    if (const auto source = plugin->virtualSources.At(port)) {
        MIDIReceived(*source, reinterpret_cast<const MIDIPacketList*>(data));
    }
}

void ReplyMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int length) {
    unsigned char*& sendPacketBuffer = SendPacketBuffer();
    if (data == nullptr || length == 0 || length > kLongestReply) {
        return;
    }
    const MIDIPlugin* const plugin = sPluginRef.load(std::memory_order_acquire);
    if (plugin == nullptr || plugin->device.load(std::memory_order_acquire) == MIDIDeviceRef{}) {
        return;
    }
    const auto source = plugin->portSources.At(port);
    if (!source) {
        return;
    }

    delete[] sendPacketBuffer;
    sendPacketBuffer = new (std::nothrow) unsigned char[length % 256 + kSendPacketBufferSize];
    if (sendPacketBuffer == nullptr) {
        syslog(LOG_ERR, "ReplyMIDIPacketList: Error dynamically allocating sendPacketBuffer");
        return;
    }
    LogDebugInfo("ReplyMIDIPacketList: sendPacketBuffer dynamically increased to %d", length % 256);

    auto* const list = reinterpret_cast<MIDIPacketList*>(sendPacketBuffer);
    list->numPackets = 1;
    list->packet[0].timeStamp = 0; // to MIDIReceived this does not mean "now", see PacketPaths.h
    list->packet[0].length = static_cast<UInt16>(length);
    std::memcpy(PacketData(&list->packet[0]), data, length);
    MIDIReceived(*source, list);
}

void FreeSendPacketBuffer() {
    delete[] SendPacketBuffer();
    SendPacketBuffer() = nullptr;
}
