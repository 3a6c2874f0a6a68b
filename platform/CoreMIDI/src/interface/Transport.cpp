// The way of packets: MIDISend, MIDIReceived and MIDIFlushOutput.
#include "platform/CoreMIDI/src/base/HostTime.h"
#include "platform/CoreMIDI/src/interface/PacketList.h"
#include "platform/CoreMIDI/src/state/DriverIO.h"
#include "platform/CoreMIDI/src/state/ServerState.h"
#include "platform/packetlist/PacketListBuilder.h"

#include <CoreMIDI/MIDIServices.h>

#include <utility>

namespace CoreMIDI {

namespace {

// Why a reference is not that of an endpoint of the right kind.
OSStatus EndpointError(const ServerState& state, MIDIEndpointRef endpoint, Kind otherKind) {
    return state.mObjects.IsLive(endpoint, otherKind) ? kMIDIWrongEndpointType
                                                      : kMIDIUnknownEndpoint;
}

bool HasPacketAfter(const MIDIPacketList* list, std::size_t bytes, MIDITimeStamp now) {
    bool has = false;
    ForEachPacket(list, bytes,
                  [&](const MIDIPacket* packet) { has = has || PacketTime(packet) > now; });
    return has;
}

void Append(PacketListBuilder& builder, const MIDIPacket* packet) {
    builder.Add({PacketData(packet), PacketLength(packet)}, PacketTime(packet));
}

OSStatus SendDue(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* list,
                 std::size_t bytes) {
    if (target->mReceiver != nullptr) {
        target->mReceiver->Deliver(list);
        return noErr;
    }
    if (!DriverIO::Get().Submit(target, list, bytes, {})) {
        return kMIDIMessageSendErr;
    }
    return noErr;
}

// Sends a list of which some packets have to wait.
OSStatus SendSplit(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* list,
                   std::size_t bytes, MIDITimeStamp now) {
    PacketListBuilder due;
    std::vector<LaterList> later;
    ForEachPacket(list, bytes, [&](const MIDIPacket* packet) {
        const MIDITimeStamp time = PacketTime(packet);
        if (time <= now) {
            Append(due, packet);
        } else {
            // Neighbours of the same time stay together.
            if (later.empty() || later.back().mTime != time) {
                later.push_back({time, {}});
            }
            Append(later.back().mList, packet);
        }
    });
    const MIDIPacketList* const dueList = due.Empty() ? nullptr : due.List();
    const bool isDriver = target->mDriver != nullptr;
    if (!DriverIO::Get().Submit(target, isDriver ? dueList : nullptr, due.ByteSize(),
                                std::move(later))) {
        return kMIDIMessageSendErr;
    }
    if (!isDriver && dueList != nullptr) {
        target->mReceiver->Deliver(dueList);
    }
    return noErr;
}

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

OSStatus MIDISend(MIDIPortRef port, MIDIEndpointRef dest, const MIDIPacketList* pktlist) {
    return Answer([&]() -> OSStatus {
        const ServerState& state = ServerState::Get();
        if (pktlist == nullptr) {
            return paramErr;
        }
        if (!state.mObjects.IsLive(port, Kind::kOutputPort)) {
            return kMIDIInvalidPort;
        }
        if (ObjectRegistry::KindOf(dest) != Kind::kDestination) {
            return EndpointError(state, dest, Kind::kSource);
        }
        std::shared_ptr<const OutputTarget> target;
        {
            const ObjectRegistry::Reader route(state.mObjects, dest);
            if (route.Get() == nullptr) {
                return kMIDIUnknownEndpoint;
            }
            target = route.Get()->mTarget;
        }
        const std::size_t bytes = ListBytes(pktlist);
        if (target == nullptr || bytes == 0) {
            return kMIDIMessageSendErr;
        }
        if (PacketCount(pktlist) == 0) {
            return noErr;
        }
        const MIDITimeStamp now = HostTimeNow();
        const bool mustWait = !target->mSchedulesItself && HasPacketAfter(pktlist, bytes, now);
        return mustWait ? SendSplit(target, pktlist, bytes, now) : SendDue(target, pktlist, bytes);
    });
}

OSStatus MIDIReceived(MIDIEndpointRef src, const MIDIPacketList* pktlist) {
    return Answer([&]() -> OSStatus {
        const ServerState& state = ServerState::Get();
        if (pktlist == nullptr) {
            return paramErr;
        }
        if (ObjectRegistry::KindOf(src) != Kind::kSource) {
            return EndpointError(state, src, Kind::kDestination);
        }
        const ObjectRegistry::Reader route(state.mObjects, src);
        if (route.Get() == nullptr) {
            return kMIDIUnknownEndpoint;
        }
        if (PacketCount(pktlist) != 0) {
            for (const std::shared_ptr<Connection>& connection : route.Get()->mConnections) {
                connection->Deliver(pktlist);
            }
        }
        return noErr;
    });
}

OSStatus MIDIFlushOutput(MIDIEndpointRef dest) {
    return Answer([&]() -> OSStatus {
        ServerState& state = ServerState::Get();
        DriverItems flushes;
        const auto flush = [&flushes](std::shared_ptr<const OutputTarget> target) {
            DriverItem& item = flushes.emplace_back();
            item.mTask = DriverItem::Task::kFlush;
            item.mTarget = std::move(target);
        };
        {
            const MutexLock lock(sStateMutex);
            if (dest != 0) {
                OSStatus status = noErr;
                if (state.FindEndpoint(dest, Kind::kDestination, status) == nullptr) {
                    return status;
                }
                const ObjectRegistry::Reader route(state.mObjects, dest);
                const auto& target = route.Get()->mTarget;
                if (target != nullptr && target->mDriver != nullptr) {
                    flush(target);
                }
            } else {
                for (const std::shared_ptr<DriverOutput>& driver : state.mDrivers) {
                    auto everything = std::make_shared<OutputTarget>();
                    everything->mDriver = driver;
                    flush(std::move(everything));
                }
            }
        }
        DriverIO::Get().DropWaiting(dest);
        DriverIO::Get().Post(std::move(flushes));
        return noErr;
    });
}
