#include "runtime/workqueue/AutoreleasePool.h"

#include <objc/message.h>
#include <objc/runtime.h>

namespace {

// Sends a message without arguments, which is answered with an object.
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
    // Null is safe: the runtime ignores a message to null.
    Send(static_cast<id>(pool), "release");
}
