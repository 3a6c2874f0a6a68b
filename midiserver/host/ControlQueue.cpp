#include "midiserver/host/ControlQueue.h"

#include "runtime/workqueue/NyAutoWorkerCommand.h"

#include <exception>
#include <new>
#include <utility>

namespace MidiServer {

ControlQueue::ControlQueue()
    : mLoop(CFRunLoopGetCurrent()),
      mQueue(
          "midiserver control",
          [this](NyWorkQueue*) {
              CFRunLoopSourceSignal(mSource.Get());
              CFRunLoopWakeUp(mLoop);
          },
          NyWorkQueue::kCallbackMode) {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.perform = Perform;
    mSource = CFOwned<CFRunLoopSourceRef>(CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    if (!mSource) {
        throw std::bad_alloc();
    }
    CFRunLoopAddSource(mLoop, mSource.Get(), kCFRunLoopDefaultMode);
}

ControlQueue::~ControlQueue() {
    mQueue.Stop(NyWorkQueue::kStopNow, false);
    mQueue.ProcessCommands(); // the one that ends the queue
    CFRunLoopSourceInvalidate(mSource.Get());
}

void ControlQueue::Post(Work work) {
    boost::shared_ptr<NyWorkQueue::CCommand> command =
        boost::make_shared<NyAutoWorkerCommand>(boost::function<void()>(std::move(work)));
    mQueue.AdoptCommand(command, false);
}

void ControlQueue::Run(const Work& work) {
    bool done = false;
    std::exception_ptr failure;
    // No exception may pass through the run loop, which calls the work.
    Post([&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        done = true;
    });
    ServeUntil(done);
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void ControlQueue::ServeUntil(const bool& done) {
    // Only work sets the flag, so a turn in which no source is performed may be endless.
    constexpr CFTimeInterval kForever = 1e10;
    while (!done) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, kForever, 1);
    }
}

void ControlQueue::Perform(void* queue) {
    static_cast<ControlQueue*>(queue)->mQueue.ProcessCommands();
}

} // namespace MidiServer
