// File URLs: the places of files and folders.
//
// A URL is kept as an absolute path in the file system's bytes, which need not be UTF-8. A relative
// path is completed with the working directory when the URL is made. Paths are not looked up:
// "." and ".." parts and symbolic links stay; repeated slashes and slashes at the end are left out.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFURL* CFURLRef;

typedef CFIndex CFURLPathStyle;
enum { kCFURLPOSIXPathStyle = 0 };

CF_EXPORT CFTypeID CFURLGetTypeID(void);

// Null for an empty path, one with a NUL, a path that is not a string, and a style other than
// POSIX.
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                           const UInt8* buffer, CFIndex bufLen,
                                                           Boolean isDirectory);
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                                 CFURLPathStyle pathStyle, Boolean isDirectory);

// The absolute path and a NUL; false when it does not fit into `maxBufLen` bytes.
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                   UInt8* buffer, CFIndex maxBufLen);
// Null when the path is not UTF-8.
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
// "file://" and the path, bytes that have a meaning in URLs as "%XX", a "/" at the end of a
// folder's. The URL owns the string.
CF_EXPORT CFStringRef CFURLGetString(CFURLRef anURL);
CF_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef anURL);

CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                                         CFStringRef pathComponent,
                                                         Boolean isDirectory);
// The folder that the path lies in; "/" stays "/".
CF_EXPORT CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);
// The last part of the path ("/" for the root); null when it is not UTF-8.
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
// What follows the last dot of the last part; null when there is none (a dot in front is not one).
CF_EXPORT CFStringRef CFURLCopyPathExtension(CFURLRef url);
