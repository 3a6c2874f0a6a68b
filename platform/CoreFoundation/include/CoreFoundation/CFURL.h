// A file URL names the place of a file or a folder.
//
// It is kept as an absolute path in the file system's bytes, which need not be UTF-8. A relative
// path is completed with the working directory when the URL is made. Paths are not looked up in the
// file system, so "." and ".." parts and symbolic links stay. Repeated slashes and slashes at the
// end are left out.
#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct __CFURL* CFURLRef;

typedef CFIndex CFURLPathStyle;
enum { kCFURLPOSIXPathStyle = 0 };

CF_EXPORT CFTypeID CFURLGetTypeID(void);

// Return null if the path is empty, has a NUL or is not a string, or if the style is not POSIX.
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                           const UInt8* buffer, CFIndex bufLen,
                                                           Boolean isDirectory);
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                                 CFURLPathStyle pathStyle, Boolean isDirectory);

// Writes the absolute path and a NUL. Returns false if they do not fit into `maxBufLen` bytes.
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                   UInt8* buffer, CFIndex maxBufLen);
// Returns null if the path is not UTF-8.
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
// Returns "file://" and the path. Bytes that have a meaning in URLs appear as "%XX", and the path
// of a folder ends in "/". The URL owns the string.
CF_EXPORT CFStringRef CFURLGetString(CFURLRef anURL);
CF_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef anURL);

CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                                         CFStringRef pathComponent,
                                                         Boolean isDirectory);
// Returns the folder that the path lies in; "/" stays "/".
CF_EXPORT CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);
// Returns the last part of the path ("/" for the root), or null if it is not UTF-8.
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
// Returns the text after the last dot of the last part, or null if there is no dot. A dot at the
// front of the part does not count.
CF_EXPORT CFStringRef CFURLCopyPathExtension(CFURLRef url);
