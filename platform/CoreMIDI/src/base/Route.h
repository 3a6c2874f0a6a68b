// Where packets go. Routes are made anew at each change and never altered, so that packets find
// their way without a lock (ObjectRegistry.h).
#pragma once

#include "platform/CoreMIDI/src/base/CallGate.h"
#include "platform/CoreMIDI/src/base/DriverItem.h"

#include <CoreMIDI/MIDIDriver.h>

#include <memory>
#include <utility>
#include <vector>

namespace CoreMIDI {

// A read procedure and what it is called with: of an input port for one source, or of a virtual
// destination.
struct Connection {
    Connection(MIDIObjectRef owner, MIDIEndpointRef endpoint, MIDIReadProc procedure,
               void* procedureRefCon, void* connectionRefCon)
        : mGate(owner),
          mOwner(owner),
          mEndpoint(endpoint),
          mProcedure(procedure),
          mProcedureRefCon(procedureRefCon),
          mConnectionRefCon(connectionRefCon) {}

    void Deliver(const MIDIPacketList* list) {
        const CallGate::Call call(mGate);
        if (call) {
            mProcedure(list, mProcedureRefCon, mConnectionRefCon);
        }
    }

    CallGate mGate;
    const MIDIObjectRef mOwner;
    const MIDIEndpointRef mEndpoint;
    const MIDIReadProc mProcedure;
    void* const mProcedureRefCon;
    void* const mConnectionRefCon;
    // To tell the source's driver with, should this be its last connection: one item, made with the
    // connection, since ending it must not fail for want of memory.
    DriverItems mRoomToDisable;
    std::shared_ptr<Connection> mNextEnded; // Transaction's
};

// What becomes of packets for a destination: exactly one of `mReceiver` and `mDriver` is set.
struct OutputTarget {
    MIDIEndpointRef mEndpoint = 0;
    bool mSchedulesItself = false;
    std::shared_ptr<Connection> mReceiver;
    std::shared_ptr<DriverOutput> mDriver;
    MIDIDeviceRef mDevice = 0;
    std::pair<void*, void*> mRefCons{nullptr, nullptr};
};

struct Route {
    std::vector<std::shared_ptr<Connection>> mConnections; // of a source
    std::shared_ptr<const OutputTarget> mTarget;           // of a destination; null: nobody
    std::unique_ptr<Route> mNextRetired;                   // ObjectRegistry's
};

} // namespace CoreMIDI
