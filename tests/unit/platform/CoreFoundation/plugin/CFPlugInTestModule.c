/* The module of the bundle that CFPlugInTest loads: a COM-style object with a reference count that
 * registers itself with its factory as a driver does. */
#include <CoreFoundation/CFPlugIn.h>
#include <CoreFoundation/CFPlugInCOM.h>

#include <stdlib.h>

#define EXPORT __attribute__((visibility("default")))

typedef struct Instance {
    const IUnknownVTbl* table;
    CFUUIDRef factory;
    ULONG references;
} Instance;

static HRESULT QueryInterface(void* self, REFIID iid, LPVOID* result) {
    const CFUUIDRef wanted = CFUUIDCreateFromUUIDBytes(NULL, iid);
    const Boolean known = CFEqual(wanted, IUnknownUUID);
    CFRelease(wanted);
    *result = known ? self : NULL;
    if (!known) {
        return E_NOINTERFACE;
    }
    ++((Instance*)self)->references;
    return S_OK;
}

static ULONG AddRef(void* self) {
    return ++((Instance*)self)->references;
}

static ULONG Release(void* self) {
    Instance* const instance = self;
    const ULONG left = --instance->references;
    if (left == 0) {
        CFPlugInRemoveInstanceForFactory(instance->factory);
        CFRelease(instance->factory);
        free(instance);
    }
    return left;
}

static const IUnknownVTbl kTable = {NULL, QueryInterface, AddRef, Release};

EXPORT void* MakeTestInstance(CFAllocatorRef allocator, CFUUIDRef type) {
    (void)allocator;
    (void)type;
    Instance* const instance = malloc(sizeof *instance);
    if (instance == NULL) {
        return NULL;
    }
    instance->table = &kTable;
    instance->factory = CFUUIDCreateFromString(NULL, CFSTR("6F6B0A54-7E3D-4C59-9D0C-0B5A7C1E2D01"));
    instance->references = 1;
    CFPlugInAddInstanceForFactory(instance->factory);
    return instance;
}

EXPORT void* MakeNothing(CFAllocatorRef allocator, CFUUIDRef type) {
    (void)allocator;
    (void)type;
    return NULL;
}
