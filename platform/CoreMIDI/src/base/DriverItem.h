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

// A DriverItem is one piece of work for the driver I/O thread: a call of a driver's function, or
// packets that it hands to a driver or to a virtual destination.
struct DriverItem {
    enum class Task { kPackets, kEnableSource, kDisableSource, kFlush };

    Task mTask = Task::kPackets;
    std::shared_ptr<const OutputTarget> mTarget; // for packets and flushes, null otherwise
    std::shared_ptr<DriverOutput> mDriver;       // for the other tasks, null otherwise
    MIDIEndpointRef mSource = 0;
    MIDITimeStamp mDue = 0;
    ListBuffer mList;

    DriverOutput* Driver() const;
};

// A list, because splicing moves its nodes from one list to another without needing memory.
using DriverItems = std::list<DriverItem>;

} // namespace CoreMIDI
