// What a program that edits preferences needs beyond the platform's interface: it works on a
// domain's file and says what is wrong with it. Linux only; never used by plug-ins.
//
// The arguments that name a domain are those of CFPreferences.h. Changes that the process has set
// there and not yet written are left out of it. Threads: any; calls block for as long as the file
// system and other writers take.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFError.h>

// Codes of errors, in `kCFErrorDomainCocoa`. Their descriptions are about the file, and do not name
// it.
enum {
    kCFPreferencesHostNoFileError = 260,
    kCFPreferencesHostUnusableFileError = 259, // cannot be read, or is no property list with a
                                               // dictionary
    kCFPreferencesHostWriteError = 512,
};

// The path of the domain's file, there or not, as bytes with a NUL at the end. False when the
// arguments name no domain or the buffer is too small.
CF_EXPORT Boolean CFPreferencesHostGetPath(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName, char* buffer, CFIndex bufferSize);

// All values of the domain's file. Null, and an error, when there is none; null without one when
// the arguments name no domain or there is no memory. The caller owns the result and the error.
CF_EXPORT CFDictionaryRef CFPreferencesHostCopyFile(CFStringRef applicationID, CFStringRef userName,
                                                    CFStringRef hostName, CFErrorRef* error);

// Changes the values of a file. False to leave the file as it is. Must neither throw nor call the
// functions of CFPreferences.
typedef Boolean (*CFPreferencesHostChangeCallBack)(CFMutableDictionaryRef values, void* info);

// Reads the domain's file (a missing one has no values), has it changed and writes it, as
// `CFPreferencesSynchronize` does and under the same lock, so that no change of another writer
// comes between and none is lost. False, and an error or none as above, when that fails; the file
// is then as it was. True, too, when the call-back left it as it is.
CF_EXPORT Boolean CFPreferencesHostChangeFile(CFStringRef applicationID, CFStringRef userName,
                                              CFStringRef hostName,
                                              CFPreferencesHostChangeCallBack change, void* info,
                                              CFErrorRef* error);
