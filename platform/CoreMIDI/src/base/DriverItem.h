#pragma once

#include <CoreMIDI/MIDIDriver.h>

#include <list>
#include <memory>
#include <vector>

namespace CoreMIDI {

struct DriverOutput;
struct OutputTarget;

// The bytes of a packet list.
using ListBuffer = std::vector<Byte>;

// What the driver I/O thread is to do: a call of a driver's function, or packets to hand over.
struct DriverItem {
    enum class Task { kPackets, kEnableSource, kDisableSource, kFlush };

    Task mTask = Task::kPackets;
    std::shared_ptr<const OutputTarget> mTarget; // of packets and flushes
    std::shared_ptr<DriverOutput> mDriver;       // of the other tasks, and null otherwise
    MIDIEndpointRef mSource = 0;
    MIDITimeStamp mDue = 0;
    ListBuffer mList;

    DriverOutput* Driver() const;
};

// Items change places as nodes, which needs no memory.
using DriverItems = std::list<DriverItem>;

} // namespace CoreMIDI
