// A route tells where the packets of an endpoint go. A route never changes: each change of the
// connections makes a new one. Packets can therefore follow a route without a lock (see
// ObjectRegistry.h).
#pragma once

#include "platform/CoreMIDI/src/base/CallGate.h"
#include "platform/CoreMIDI/src/base/DriverItem.h"

#include <CoreMIDI/MIDIDriver.h>

#include <memory>
#include <utility>
#include <vector>

namespace CoreMIDI {

// A Connection holds a read procedure with the arguments that it is called with. It belongs to an
// input port and one source that the port is connected to, or to a virtual destination.
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
    // One item, to tell the source's driver that nobody listens any more if this was its last
    // connection. It is made together with the connection, because ending a connection must not
    // fail for want of memory.
    DriverItems mRoomToDisable;
    std::shared_ptr<Connection> mNextEnded; // links the ended connections of a Transaction
};

// An OutputTarget tells who takes the packets that are sent to a destination: a read procedure or a
// driver. Exactly one of `mReceiver` and `mDriver` is set.
struct OutputTarget {
    MIDIEndpointRef mEndpoint = 0;
    bool mSchedulesItself = false;
    std::shared_ptr<Connection> mReceiver;
    std::shared_ptr<DriverOutput> mDriver;
    MIDIDeviceRef mDevice = 0;
    std::pair<void*, void*> mRefCons{nullptr, nullptr};
};

struct Route {
    std::vector<std::shared_ptr<Connection>> mConnections; // the listeners of a source
    std::shared_ptr<const OutputTarget> mTarget; // of a destination; null if nobody takes packets
    std::unique_ptr<Route> mNextRetired;         // links the routes that the registry has replaced
};

} // namespace CoreMIDI
