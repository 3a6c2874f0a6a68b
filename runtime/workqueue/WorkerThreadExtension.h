// What the consumer of a work queue does around its commands for the platform's sake: it keeps an
// autorelease pool, which it drains every 100 commands and after each batch. On a platform without
// pools it counts the commands and does nothing else.
#pragma once

#include <cstdint>

// The consumer's record: its current pool and the commands since the pool was drained. It belongs
// to the consumer thread, which uses it through the hooks below.
class WorkerThreadExtension {
public:
    // Makes a pool, unless the calling thread is the main thread, which has one of its own.
    WorkerThreadExtension();

    // Off the main thread, releases the pool and, if `renew`, makes a new one. On every thread,
    // starts the count anew.
    void ReleasePool(bool renew);

    void CountCommand() { ++mCount; }
    bool IsDue() const { return mCount >= mLimit; }
    std::int32_t GetCount() const { return mCount; }

private:
    void* mPool = nullptr;
    std::int32_t mCount = 0; // commands since the last drain
    std::int32_t mLimit = 100;
};

// The hooks take the record as an opaque pointer, so that the queue need not know what a platform
// does in them. All but the first accept null. The queue calls them in this order:
//
//     void* record = NyWorkQueuePreTaskRun();    // when the consumer begins
//     NyWorkQueuePreCommandBlock(record);        // before each batch
//     NyWorkQueuePreCommand(record);             // before each command
//     NyWorkQueuePostCommand(record);            // after each command
//     NyWorkQueuePostCommandBlock(record);       // after each batch
//     NyWorkQueuePostTaskRun(record);            // when the queue has stopped

// Makes the consumer's record.
void* NyWorkQueuePreTaskRun();
// Does nothing.
void NyWorkQueuePreCommandBlock(void* extension);
// Counts the command.
void NyWorkQueuePreCommand(void* extension);
// Drains the pool after every hundredth command.
void NyWorkQueuePostCommand(void* extension);
// Drains the pool.
void NyWorkQueuePostCommandBlock(void* extension);
// Releases the pool and frees the record.
void NyWorkQueuePostTaskRun(void* extension);
// Frees the record of a consumer whose queue was never stopped. Any thread may call it: the pool is
// left to the consumer's thread and ends with it.
void NyWorkQueueDiscardTaskRun(void* extension);
