// Preferences are property lists that applications keep under a key in a domain. An application's
// identifier, a user (or any) and a host (or any) name a domain.
//
// A domain is a property-list file `<identifier>.plist` in one of these folders:
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
// A read returns the values of the file as it is now, with those changes of the process that are
// not written yet. Changes stay in the process until `CFPreferencesSynchronize` writes them. It
// locks the folder against other writers, reads the file anew, applies the changes and replaces the
// file in one step. So a reader sees either all of the changes or none, and two writers of
// different keys do not undo each other's changes. A file that is not a property list with a
// dictionary counts as empty for readers and is not overwritten.
//
// A file that is replaced keeps its format, owner and mode, and a symbolic link to it stays one.
//
// Threads: any thread may call. Calls that reach a domain's file block for as long as the file
// system and other writers take.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFPropertyList.h>

CF_EXPORT const CFStringRef kCFPreferencesAnyApplication;
CF_EXPORT const CFStringRef kCFPreferencesAnyHost;
CF_EXPORT const CFStringRef kCFPreferencesCurrentHost;
CF_EXPORT const CFStringRef kCFPreferencesAnyUser;
CF_EXPORT const CFStringRef kCFPreferencesCurrentUser;

// Returns the value, whose type the caller has to check. Returns null if there is none, if the file
// cannot be read, if there is no memory, or if an argument is not one of those described. The
// caller owns the result.
CF_EXPORT CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                                   CFStringRef userName, CFStringRef hostName);

// Sets a copy of the value in this process; null removes the value. If the value is not a property
// list or the arguments name no domain, nothing changes and syslog gets a line.
// Without memory nothing changes, and syslog gets none.
CF_EXPORT void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value,
                                     CFStringRef applicationID, CFStringRef userName,
                                     CFStringRef hostName);

// Writes the process's changes of a domain and flushes them to the disk. Makes missing folders
// (mode 0755) and a missing file (XML, mode 0644). Returns true if nothing is left to be written.
// If it fails, syslog gets a line with the file and the cause, and the changes are kept for the
// next call.
CF_EXPORT Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName);
