#pragma once

#include "platform/support/CFOwned.h"
#include "runtime/workqueue/NyWorkQueue.h"

#include <CoreFoundation/CFRunLoop.h>

#include <functional>

namespace MidiServer {

// The control queue runs the host's control work (loading, starting and stopping a driver) in the
// order in which it was posted, always on one thread: the owner, which is the thread that made the
// queue. The owner's run loop performs the work beside the driver's own sources, because a driver
// has to be made, started and stopped on the thread whose run loop serves its message port.
//
//     ControlQueue control;                  // on the main thread, the owner
//     control.Run([&] { host.Start(); });    // returns once the host has started
//     control.Post([&] { finished = true; }); // from any thread
//     control.ServeUntil(finished);
//
// The owner destroys the queue; work that has not begun by then is dropped. No other thread may
// post during the destruction.
class ControlQueue {
public:
    using Work = std::function<void()>;

    ControlQueue();
    ~ControlQueue();
    ControlQueue(const ControlQueue&) = delete;
    ControlQueue& operator=(const ControlQueue&) = delete;

    // Queues work, which must not throw. Any thread may call; the call allocates and does not wait
    // for the work.
    void Post(Work work);

    // Queues work behind what is pending, runs the run loop until the work is done, and rethrows
    // what it threw. Only the owner may call, and not from within work.
    void Run(const Work& work);

    // Runs the run loop until posted work has set `done`. Only the owner may call, and not from
    // within work.
    void ServeUntil(const bool& done);

private:
    static void Perform(void* queue);

    CFRunLoopRef mLoop;
    CFOwned<CFRunLoopSourceRef> mSource;
    NyWorkQueue mQueue;
};

} // namespace MidiServer
