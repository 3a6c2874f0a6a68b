#include "tests/support/platform/ReceivedLists.h"

#include "platform/packetlist/PacketListWalk.h"

#include <dlfcn.h>

#include <condition_variable>
#include <mutex>

namespace TestSupport {

namespace {

struct Record {
    std::mutex mutex;
    std::condition_variable added;
    std::vector<ReceivedList> lists;
    OSStatus status = noErr;
};

// Never destroyed: threads may call while the process ends.
Record& TheRecord() {
    static auto* const record = new Record;
    return *record;
}

OSStatus Keep(MIDIEndpointRef source, const MIDIPacketList* list) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(list);
    Record& record = TheRecord();
    const std::lock_guard lock(record.mutex);
    record.lists.push_back(
        {source, {bytes, bytes + PacketListSize(list)}, std::this_thread::get_id()});
    record.added.notify_all();
    return record.status;
}

} // namespace

std::vector<ReceivedList> ReceivedLists() {
    Record& record = TheRecord();
    const std::lock_guard lock(record.mutex);
    return record.lists;
}

void ClearReceivedLists() {
    Record& record = TheRecord();
    const std::lock_guard lock(record.mutex);
    record.lists.clear();
}

bool WaitForReceivedLists(std::size_t count, std::chrono::seconds deadline) {
    Record& record = TheRecord();
    std::unique_lock lock(record.mutex);
    return record.added.wait_for(lock, deadline,
                                 [&record, count] { return record.lists.size() >= count; });
}

void SetReceivedStatus(OSStatus status) {
    Record& record = TheRecord();
    const std::lock_guard lock(record.mutex);
    record.status = status;
}

} // namespace TestSupport

OSStatus MIDIReceived(MIDIEndpointRef src, const MIDIPacketList* pktlist) {
    if (const OSStatus status = TestSupport::Keep(src, pktlist); status != noErr) {
        return status;
    }
    static auto* const real =
        reinterpret_cast<decltype(&MIDIReceived)>(dlsym(RTLD_NEXT, "MIDIReceived"));
    return real(src, pktlist);
}
