// Functions for a program that edits preferences and has to work on a domain's file and to say what
// is wrong with it. Linux only; plug-ins never use them.
//
// The arguments that name a domain are those of CFPreferences.h. Changes that the process has set
// there and not written yet do not appear here. Any thread may call; calls block for as long as the
// file system and other writers take.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>

// The codes of errors, in `kCFErrorDomainCocoa`. Their descriptions say what is wrong with the file
// without its name.
enum {
    kCFPreferencesHostNoFileError = 260,
    kCFPreferencesHostUnusableFileError = 259, // cannot be read, or is no property list with a
                                               // dictionary
    kCFPreferencesHostWriteError = 512,
};

// Writes the path of the domain's file, whether the file exists or not, with a NUL at the end.
// Returns false if the arguments name no domain or the buffer is too small.
CF_EXPORT Boolean CFPreferencesHostGetPath(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName, char* buffer, CFIndex bufferSize);

// Returns all values of the domain's file. Returns null with an error if there is no usable file,
// and null without an error if the arguments name no domain or there is no memory. The caller owns
// the result and the error.
CF_EXPORT CFDictionaryRef CFPreferencesHostCopyFile(CFStringRef applicationID, CFStringRef userName,
                                                    CFStringRef hostName, CFErrorRef* error);

// Changes the values of a file. Returns false if the file is to stay as it is. Must neither throw
// nor call the functions of CFPreferences.
typedef Boolean (*CFPreferencesHostChangeCallBack)(CFMutableDictionaryRef values, void* info);

// Reads the domain's file (a missing one has no values), lets `change` change the values and writes
// them. It does so like `CFPreferencesSynchronize` and under the same lock, so that no change of
// another writer comes between or is lost. If that fails, returns false, with an error or none as
// above, and the file is as it was. Also returns true if `change` left the file as it is.
CF_EXPORT Boolean CFPreferencesHostChangeFile(CFStringRef applicationID, CFStringRef userName,
                                              CFStringRef hostName,
                                              CFPreferencesHostChangeCallBack change, void* info,
                                              CFErrorRef* error);
