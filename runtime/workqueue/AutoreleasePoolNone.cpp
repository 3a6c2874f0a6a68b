#include "runtime/workqueue/AutoreleasePool.h"

void* NewAutoreleasePool() {
    return nullptr;
}

void ReleaseAutoreleasePool(void* /*pool*/) {}
