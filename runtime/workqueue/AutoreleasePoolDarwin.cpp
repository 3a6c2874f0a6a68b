#include "runtime/workqueue/AutoreleasePool.h"

#include <objc/message.h>
#include <objc/runtime.h>

namespace {

// A message without arguments that answers an object.
id Send(id receiver, const char* message) {
    using Function = id (*)(id, SEL);
    return reinterpret_cast<Function>(objc_msgSend)(receiver, sel_registerName(message));
}

} // namespace

void* NewAutoreleasePool() {
    const Class poolClass = objc_getClass("NSAutoreleasePool");
    return Send(Send(reinterpret_cast<id>(poolClass), "alloc"), "init");
}

void ReleaseAutoreleasePool(void* pool) {
    // A message to null is answered with nothing.
    Send(static_cast<id>(pool), "release");
}
