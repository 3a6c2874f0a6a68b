// Short forms of what the tests of CoreMIDI do often.
#pragma once

#include "tests/support/WaitUntil.h"
#include "tests/support/platform/PacketLists.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace MidiTest {

using Bytes = std::vector<Byte>;
using Packet = std::pair<MIDITimeStamp, Bytes>;
using Packets = std::vector<Packet>;

// A text of the process's life, as CFSTR is for literals.
inline CFStringRef Text(const char* text) {
    return __CFStringMakeConstantString(text);
}

inline std::string ToString(CFStringRef string) {
    char buffer[256] = "(none)";
    CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8);
    return buffer;
}

// A packet list in a block of exactly its size, so that reading past its end is noticed.
class List {
public:
    explicit List(const Packets& packets) {
        PacketListBuilder builder;
        for (const auto& [time, data] : packets) {
            builder.Add(data, time);
        }
        mBytes = builder.Release();
        mBytes.shrink_to_fit();
    }
    const MIDIPacketList* Get() const {
        return reinterpret_cast<const MIDIPacketList*>(mBytes.data());
    }

private:
    Bytes mBytes;
};

inline Packets PacketsOf(const MIDIPacketList* list) {
    Packets packets;
    ForEachPacket(list, kUnknownListSize, [&packets](const MIDIPacket* packet) {
        const Byte* const data = PacketData(packet);
        packets.emplace_back(PacketTime(packet), Bytes(data, data + PacketLength(packet)));
    });
    return packets;
}

inline MIDITimeStamp Now() {
    return static_cast<MIDITimeStamp>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}
constexpr MIDITimeStamp kMillisecond = 1'000'000;
constexpr MIDITimeStamp kHour = 3'600'000 * kMillisecond;

// How far ahead of now a packet is stamped that shall be held: far enough that it is sent before it
// is due however slow the machine, since one that is due already is delivered by its sender.
constexpr MIDITimeStamp kAhead = 2000 * kMillisecond;

// Keeps what read procedures get. As refCon of `Read`.
class Received {
public:
    static void Read(const MIDIPacketList* list, void* received, void* connection) {
        auto& self = *static_cast<Received*>(received);
        const std::lock_guard lock(self.mMutex);
        for (const Packet& packet : PacketsOf(list)) {
            self.mPackets.push_back(packet);
            self.mTimes.push_back(Now());
        }
        ++self.mLists;
        self.mConnection = connection;
    }

    Packets All() {
        const std::lock_guard lock(mMutex);
        return mPackets;
    }
    std::vector<MIDITimeStamp> Times() {
        const std::lock_guard lock(mMutex);
        return mTimes;
    }
    int Lists() {
        const std::lock_guard lock(mMutex);
        return mLists;
    }
    void* LastConnection() {
        const std::lock_guard lock(mMutex);
        return mConnection;
    }
    // Blocks until so many packets have come.
    void WaitFor(std::size_t packets) {
        EXPECT_TRUE(TestSupport::WaitUntil("there are " + std::to_string(packets) + " packets",
                                           [&] { return All().size() >= packets; }));
    }

private:
    std::mutex mMutex;
    Packets mPackets;
    std::vector<MIDITimeStamp> mTimes;
    int mLists = 0;
    void* mConnection = nullptr;
};

inline MIDIClientRef MakeClient() {
    MIDIClientRef client = 0;
    EXPECT_EQ(MIDIClientCreate(CFSTR("test"), nullptr, nullptr, &client), noErr);
    return client;
}
inline MIDIEndpointRef MakeSource(MIDIClientRef client, const char* name = "source") {
    MIDIEndpointRef source = 0;
    EXPECT_EQ(MIDISourceCreate(client, Text(name), &source), noErr);
    return source;
}
inline MIDIEndpointRef MakeDestination(MIDIClientRef client, Received& received) {
    MIDIEndpointRef destination = 0;
    EXPECT_EQ(MIDIDestinationCreate(client, CFSTR("destination"), Received::Read, &received,
                                    &destination),
              noErr);
    return destination;
}
inline MIDIPortRef MakeInput(MIDIClientRef client, Received& received) {
    MIDIPortRef port = 0;
    EXPECT_EQ(MIDIInputPortCreate(client, CFSTR("in"), Received::Read, &received, &port), noErr);
    return port;
}
inline MIDIPortRef MakeOutput(MIDIClientRef client) {
    MIDIPortRef port = 0;
    EXPECT_EQ(MIDIOutputPortCreate(client, CFSTR("out"), &port), noErr);
    return port;
}
// A device with entities of one source and one destination each, not in the setup.
inline MIDIDeviceRef MakeDevice(MIDIDriverRef owner, int entities, const char* name = "Box") {
    MIDIDeviceRef device = 0;
    EXPECT_EQ(MIDIDeviceCreate(owner, Text(name), CFSTR("Maker"), CFSTR("Model"), &device), noErr);
    for (int i = 1; i <= entities; ++i) {
        const std::string port = "Port " + std::to_string(i);
        EXPECT_EQ(MIDIDeviceAddEntity(device, Text(port.c_str()), false, 1, 1, nullptr), noErr);
    }
    return device;
}
inline MIDIEndpointRef DestinationOf(MIDIDeviceRef device, ItemCount entity) {
    return MIDIEntityGetDestination(MIDIDeviceGetEntity(device, entity), 0);
}
inline MIDIEndpointRef SourceOf(MIDIDeviceRef device, ItemCount entity) {
    return MIDIEntityGetSource(MIDIDeviceGetEntity(device, entity), 0);
}

inline std::string StringProperty(MIDIObjectRef object, CFStringRef name) {
    CFStringRef value = nullptr;
    const OSStatus status = MIDIObjectGetStringProperty(object, name, &value);
    if (status != noErr) {
        return "status " + std::to_string(status);
    }
    const std::string text = ToString(value);
    CFRelease(value);
    return text;
}
inline SInt32 IntegerProperty(MIDIObjectRef object, CFStringRef name) {
    SInt32 value = -1;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(object, name, &value), noErr);
    return value;
}

} // namespace MidiTest
