#pragma once

#include "midiserver/host/CFOwned.h"
#include "runtime/workqueue/NyWorkQueue.h"

#include <CoreFoundation/CFRunLoop.h>

#include <functional>

namespace MidiServer {

// The host's control work (loading, starting, stopping a driver), in the order in which it was
// posted and always on one thread, the owner: the one that makes the queue. There the work runs
// from the run loop, beside the driver's own sources; a driver is made, started and stopped on the
// thread whose run loop serves its message port.
//
// The owner destroys the queue; work that has not begun by then is dropped. No other thread may
// post while it goes.
class ControlQueue {
public:
    using Work = std::function<void()>;

    ControlQueue();
    ~ControlQueue();
    ControlQueue(const ControlQueue&) = delete;
    ControlQueue& operator=(const ControlQueue&) = delete;

    // Queues work, which must not throw. Any thread; does not wait for the work. Allocates.
    void Post(Work work);

    // Queues work behind what is pending and runs the run loop until it is done. Rethrows what it
    // threw. The owner only, and not from within work.
    void Run(const Work& work);

    // Runs the run loop until `done`, which posted work sets. The owner only, and not from within
    // work.
    void ServeUntil(const bool& done);

private:
    static void Perform(void* queue);

    CFRunLoopRef mLoop;
    CFOwned<CFRunLoopSourceRef> mSource;
    NyWorkQueue mQueue;
};

} // namespace MidiServer
