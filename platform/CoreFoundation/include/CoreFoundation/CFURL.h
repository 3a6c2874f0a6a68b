// A file URL names the place of a file or a folder.
//
// It is kept as an absolute path in the file system's bytes, which need not be UTF-8. A relative
// path is completed with the working directory when the URL is made. Paths are not looked up in the
// file system, so "." and ".." parts and symbolic links stay. Repeated slashes and slashes at the
// end are left out.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFURL* CFURLRef;

// Returns null if the path is empty or has a NUL. `isDirectory` is not used.
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                           const UInt8* buffer, CFIndex bufLen,
                                                           Boolean isDirectory);

// Writes the absolute path and a NUL. Returns false if they do not fit into `maxBufLen` bytes.
// `resolveAgainstBase` is not used.
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                   UInt8* buffer, CFIndex maxBufLen);
