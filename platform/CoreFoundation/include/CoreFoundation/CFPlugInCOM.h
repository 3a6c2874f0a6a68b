// The C form of COM that plug-ins use: an object's first word points to a table of functions, of
// which the first four are those of IUnknown.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFUUID.h>

#if !defined(COM_NO_WINDOWS_H)
#define COM_NO_WINDOWS_H
#endif

typedef SInt32 HRESULT;
typedef UInt32 ULONG;
typedef void* LPVOID;
typedef CFUUIDBytes REFIID;

#define STDMETHODCALLTYPE

#define S_OK ((HRESULT)0x00000000)
#define S_FALSE ((HRESULT)0x00000001)
#define E_UNEXPECTED ((HRESULT)0x8000FFFF)
#define E_NOTIMPL ((HRESULT)0x80000001)
#define E_OUTOFMEMORY ((HRESULT)0x80000002)
#define E_INVALIDARG ((HRESULT)0x80000003)
#define E_NOINTERFACE ((HRESULT)0x80000004)
#define E_POINTER ((HRESULT)0x80000005)
#define E_HANDLE ((HRESULT)0x80000006)
#define E_ABORT ((HRESULT)0x80000007)
#define E_FAIL ((HRESULT)0x80000008)
#define E_ACCESSDENIED ((HRESULT)0x80000009)

#define SUCCEEDED(status) ((HRESULT)(status) >= 0)
#define FAILED(status) ((HRESULT)(status) < 0)

// 00000000-0000-0000-C000-000000000046
#define IUnknownUUID                                                                               \
    CFUUIDGetConstantUUIDWithBytes(NULL, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0,     \
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46)

// The head of every interface's table. An object is passed as a pointer to its own first word,
// which is the address of the table.
#define IUNKNOWN_C_GUTS                                                                            \
    void* _reserved;                                                                               \
    HRESULT(STDMETHODCALLTYPE* QueryInterface)(void* thisPointer, REFIID iid, LPVOID* ppv);        \
    ULONG(STDMETHODCALLTYPE* AddRef)(void* thisPointer);                                           \
    ULONG(STDMETHODCALLTYPE* Release)(void* thisPointer)

typedef struct IUnknownVTbl {
    IUNKNOWN_C_GUTS;
} IUnknownVTbl;
