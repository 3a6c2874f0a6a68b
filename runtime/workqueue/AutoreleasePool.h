// The consumer's autorelease pool: the Objective-C runtime's on macOS, none elsewhere. One source
// file a host. Called on the consumer thread only.
#pragma once

// A new pool, which becomes the thread's current one; null where there are no pools.
void* NewAutoreleasePool();

// Releases the pool, and with it what was autoreleased since it was made. Null does nothing.
void ReleaseAutoreleasePool(void* pool);
