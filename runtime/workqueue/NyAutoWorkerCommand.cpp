#include "runtime/workqueue/NyAutoWorkerCommand.h"

#include "runtime/workqueue/NyWorkQueueHelper.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace {

// The entries are atomic so that an owner may set one while others look. Release and acquire make a
// queue visible as its owner built it.
constinit std::array<std::atomic<NyWorkQueue*>, 3> msWorkQueues{};

bool HasEntry(tNyWorkQueueID id) {
    return id >= 0 && static_cast<std::size_t>(id) < msWorkQueues.size();
}

// Returns the queue that a command goes to, or null when it goes nowhere.
NyWorkQueue* SelectQueue(tNyWorkQueueID id, NyWorkQueue* given) {
    return id == kGivenWorkQueue ? given : NyAutoWorkerCommand::GetWorkQueue(id);
}

} // namespace

NyAutoWorkerCommand::NyAutoWorkerCommand(const boost::function<void()>& f)
    : CCommand(false), mFunction(f) {}

void NyAutoWorkerCommand::Do() {
    mFunction();
}

void NyAutoWorkerCommand::SetWorkQueue(tNyWorkQueueID id, NyWorkQueue* queue) {
    if (HasEntry(id)) {
        msWorkQueues[static_cast<std::size_t>(id)].store(queue, std::memory_order_release);
    }
}

NyWorkQueue* NyAutoWorkerCommand::GetWorkQueue(tNyWorkQueueID id) {
    return HasEntry(id) ? msWorkQueues[static_cast<std::size_t>(id)].load(std::memory_order_acquire)
                        : nullptr;
}

int NyAutoWorkerCommand::Queue(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, tNyWorkQueueID id,
                               NyWorkQueue* queue) {
    int handle = -1;
    return QueueGetHandle(cmd, handle, id, queue);
}

int NyAutoWorkerCommand::QueueGetHandle(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, int& handle,
                                        tNyWorkQueueID id, NyWorkQueue* queue) {
    NyWorkQueue* const target = SelectQueue(id, queue);
    return target == nullptr ? NyWorkQueue::kQueueOK : target->AdoptCommand(cmd, handle, false);
}

int NyAutoWorkerCommand::QueueWithHelper(boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
                                         const boost::shared_ptr<NyWorkQueueHelper>& funcs,
                                         tNyWorkQueueID id, NyWorkQueue* queue) {
    int handle = -1;
    return QueueWithHelperAndGetHandle(cmd, funcs, handle, id, queue);
}

int NyAutoWorkerCommand::QueueWithHelperAndGetHandle(
    boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
    const boost::shared_ptr<NyWorkQueueHelper>& funcs, int& handle, tNyWorkQueueID id,
    NyWorkQueue* queue) {
    if (cmd == nullptr) {
        return NyWorkQueue::kQueueOK;
    }
    cmd->RegisterHelperFuncs(funcs);
    return QueueGetHandle(cmd, handle, id, queue);
}
