// Preferences: property lists that applications keep under a key, in a domain that is made up of an
// application's identifier, whose preferences they are, and on which host they count.
//
// A domain is a property-list file, `<identifier>.plist`:
//
//   any user, current host       DIR
//   any user, any host           DIR/AnyHost
//   current user, any host       USERDIR
//   current user, current host   USERDIR/ByHost
//
// DIR is `$QUORVEL_PREFERENCES_DIR`, else `/etc/quorvel/preferences`. USERDIR is
// `$QUORVEL_PREFERENCES_DIR/Users/<uid>`, else `$XDG_CONFIG_HOME/quorvel/preferences`, else
// `$HOME/.config/quorvel/preferences`. The environment is read at each access; an empty
// value counts as none. The identifier `kCFPreferencesAnyApplication` is the file
// ".GlobalPreferences.plist"; an identifier that is empty, starts with a dot or has a "/" or NUL
// names no domain.
//
// Reading takes the file as it is now, with the process's changes that are not yet written.
// Changes stay in the process until `CFPreferencesSynchronize` writes them: it locks the folder
// against other writers, reads the file anew, applies the changes to it and replaces it in one
// step, so that a reader sees either all of them or none and two writers of different keys both
// win. A file that is not a property list with a dictionary counts as empty for readers, and is not
// overwritten.
//
// A file that is replaced keeps its format, owner and mode, and a symbolic link to it stays one.
//
// Threads: any; calls that reach a domain's file block for as long as the file system and other
// writers take.
#pragma once

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFPropertyList.h>

CF_EXPORT const CFStringRef kCFPreferencesAnyApplication;
CF_EXPORT const CFStringRef kCFPreferencesAnyHost;
CF_EXPORT const CFStringRef kCFPreferencesCurrentHost;
CF_EXPORT const CFStringRef kCFPreferencesAnyUser;
CF_EXPORT const CFStringRef kCFPreferencesCurrentUser;

// The value, whatever its type: callers check. Null when there is none, the file cannot be read, or
// an argument is not one of those described. Copy rule.
CF_EXPORT CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                                   CFStringRef userName, CFStringRef hostName);
// The values of the keys that are there, or of all keys for null `keysToFetch`. Never null unless
// an argument is wrong or there is no memory. Copy rule.
CF_EXPORT CFDictionaryRef CFPreferencesCopyMultiple(CFArrayRef keysToFetch,
                                                    CFStringRef applicationID, CFStringRef userName,
                                                    CFStringRef hostName);
// The keys; null when there is none. Copy rule.
CF_EXPORT CFArrayRef CFPreferencesCopyKeyList(CFStringRef applicationID, CFStringRef userName,
                                              CFStringRef hostName);

// Sets a value in this process; null removes it. The value is copied. What is not a property list,
// and a change to what is no domain, is ignored with a line in syslog.
CF_EXPORT void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value,
                                     CFStringRef applicationID, CFStringRef userName,
                                     CFStringRef hostName);

// Writes the process's changes to a domain and flushes them to the disk. Makes missing folders
// (mode 0755) and the file (XML, mode 0644). True when nothing is left to be written. When it
// fails syslog gets a line with file and cause, and the changes are kept for the next time.
CF_EXPORT Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName);
