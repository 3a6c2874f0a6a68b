// What a work queue's consumer does around its commands for the platform's sake: it keeps an
// autorelease pool, drained every 100 commands and after each batch. On a host without pools the
// counting stays and nothing else happens.
#pragma once

#include <cstdint>

// The consumer's record. Belongs to the consumer thread.
class WorkerThreadExtension {
public:
    // With a pool, unless the calling thread is the main thread, which has one of its own.
    WorkerThreadExtension();

    // Off the main thread, releases the pool and, if `renew`, makes a new one. Restarts the count
    // everywhere.
    void ReleasePool(bool renew);

    void CountCommand() { ++mCount; }
    bool IsDue() const { return mCount >= mLimit; }
    int32_t GetCount() const { return mCount; }

private:
    void* mPool = nullptr;
    int32_t mCount = 0; // commands since the last drain
    int32_t mLimit = 100;
};

// The hooks, on an opaque record so that the queue need not know what a host does in them. All but
// the first accept null.

// Makes the consumer's record.
void* NyWorkQueuePreTaskRun();
void NyWorkQueuePreCommandBlock(void* extension);
void NyWorkQueuePreCommand(void* extension);
void NyWorkQueuePostCommand(void* extension);
void NyWorkQueuePostCommandBlock(void* extension);
// Releases the pool and frees the record.
void NyWorkQueuePostTaskRun(void* extension);
// Frees the record of a consumer that never came to the end of its run. Any thread: the pool is
// left to the consumer's thread, with which it goes.
void NyWorkQueueDiscardTaskRun(void* extension);
