#include "MidiDriver/VirtualSourceIDPort.h"

#include "MidiDriver/MidiPlugin.h"

#include <array>
#include <cstring>

CFDataRef MessagePortListenerProc(CFMessagePortRef /*port*/, SInt32 msgid, CFDataRef /*data*/,
                                  void* /*info*/) {
    std::array<SInt32, 4> ids{};
    for (std::size_t i = 0; i < ids.size(); i++) {
        const SInt64 index = SInt64{msgid} - 1 + static_cast<SInt64>(i);
        if (index >= 0) {
            ids[i] = sVirtualSourceIDs.At(static_cast<std::size_t>(index)).value_or(0);
        }
    }
    std::array<UInt8, sizeof ids> bytes;
    std::memcpy(bytes.data(), ids.data(), bytes.size());
    return CFDataCreate(nullptr, bytes.data(), bytes.size());
}
