#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

struct __CFAllocator final : CFRuntimeObject {
    constexpr explicit __CFAllocator(CFRuntimeImmortal immortal)
        : CFRuntimeObject(kCFRuntimeAllocatorType, immortal) {}
};

namespace {

constinit CFRuntimeConstant<__CFAllocator> sSystemAllocator;
constinit CFRuntimeConstant<__CFAllocator> sMallocAllocator;
constinit CFRuntimeConstant<__CFAllocator> sNullAllocator;

} // namespace

constinit const CFAllocatorRef kCFAllocatorDefault = nullptr;
constinit const CFAllocatorRef kCFAllocatorSystemDefault = &sSystemAllocator.mObject;
constinit const CFAllocatorRef kCFAllocatorMalloc = &sMallocAllocator.mObject;
constinit const CFAllocatorRef kCFAllocatorNull = &sNullAllocator.mObject;

CFAllocatorRef CFAllocatorGetDefault(void) {
    return kCFAllocatorSystemDefault;
}

bool CFRuntimeCanAllocate(CFAllocatorRef allocator) {
    return allocator == nullptr ||
           (CFRuntimeCast<__CFAllocator>(allocator) != nullptr && allocator != kCFAllocatorNull);
}
