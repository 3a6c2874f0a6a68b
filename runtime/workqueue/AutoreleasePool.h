// The consumer's autorelease pool: the Objective-C runtime's on macOS, none elsewhere. Each
// platform has one source file for it. The functions are called on the consumer thread only.
#pragma once

// Makes a new pool, which becomes the thread's current one. Null where there are no pools.
void* NewAutoreleasePool();

// Releases the pool, and with it everything that was autoreleased since it was made. Does nothing
// for null.
void ReleaseAutoreleasePool(void* pool);
