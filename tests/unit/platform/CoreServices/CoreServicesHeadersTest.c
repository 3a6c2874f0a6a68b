// The headers serve C as well: this unit is compiled and linked with the tests.
#include <CoreServices/CoreServices.h>
#include <libkern/OSAtomic.h>

int UseCoreServicesFromC(void);

int UseCoreServicesFromC(void) {
    MPCriticalRegionID region;
    MPSemaphoreID semaphore;
    int32_t counter = 41;
    int good = MPCreateCriticalRegion(&region) == noErr &&
               MPEnterCriticalRegion(region, kDurationForever) == noErr &&
               MPExitCriticalRegion(region) == noErr && MPDeleteCriticalRegion(region) == noErr;
    good = good && MPCreateSemaphore(1, 1, &semaphore) == noErr &&
           MPWaitOnSemaphore(semaphore, kDurationImmediate) == noErr &&
           MPSignalSemaphore(semaphore) == noErr && MPDeleteSemaphore(semaphore) == noErr;
    return good && OSAtomicAdd32Barrier(1, &counter) == 42;
}
