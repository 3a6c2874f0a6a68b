#include "runtime/workqueue/WorkerThreadExtension.h"

#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/AutoreleasePool.h"

WorkerThreadExtension::WorkerThreadExtension() {
    if (!NyThread::IsMainThread()) {
        mPool = NewAutoreleasePool();
    }
}

void WorkerThreadExtension::ReleasePool(bool renew) {
    if (!NyThread::IsMainThread()) {
        ReleaseAutoreleasePool(mPool);
        mPool = renew ? NewAutoreleasePool() : nullptr;
    }
    mCount = 0;
}

void* NyWorkQueuePreTaskRun() {
    return new WorkerThreadExtension;
}

void NyWorkQueuePreCommandBlock(void* /*extension*/) {}

void NyWorkQueuePreCommand(void* extension) {
    if (extension != nullptr) {
        static_cast<WorkerThreadExtension*>(extension)->CountCommand();
    }
}

void NyWorkQueuePostCommand(void* extension) {
    auto* record = static_cast<WorkerThreadExtension*>(extension);
    if (record != nullptr && record->IsDue()) {
        record->ReleasePool(true);
    }
}

void NyWorkQueuePostCommandBlock(void* extension) {
    if (extension != nullptr) {
        static_cast<WorkerThreadExtension*>(extension)->ReleasePool(true);
    }
}

void NyWorkQueuePostTaskRun(void* extension) {
    auto* record = static_cast<WorkerThreadExtension*>(extension);
    if (record != nullptr) {
        // Released twice, because what the first release frees may process commands of the queue,
        // and that makes a new pool.
        record->ReleasePool(false);
        record->ReleasePool(false);
        delete record;
    }
}

void NyWorkQueueDiscardTaskRun(void* extension) {
    delete static_cast<WorkerThreadExtension*>(extension);
}
