#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/ErrorReport.h"
#include "platform/CoreFoundation/src/preferences/PreferencesDomain.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListFile.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/support/FileReading.h"
#include "platform/support/LockedFile.h"
#include "platform/support/Mutex.h"

#include <CoreFoundation/CFPreferences.h>
#include <CoreFoundation/CFPreferencesHost.h>

#include <syslog.h>

#include <map>
#include <new>

const CFStringRef kCFPreferencesAnyApplication = CFSTR("kCFPreferencesAnyApplication");
const CFStringRef kCFPreferencesAnyHost = CFSTR("kCFPreferencesAnyHost");
const CFStringRef kCFPreferencesCurrentHost = CFSTR("kCFPreferencesCurrentHost");
const CFStringRef kCFPreferencesAnyUser = CFSTR("kCFPreferencesAnyUser");
const CFStringRef kCFPreferencesCurrentUser = CFSTR("kCFPreferencesCurrentUser");

namespace {

// The values that the process has set and not yet written, by key; null for a removed key.
using Changes = std::map<std::string, CFOwned<CFPropertyListRef>>;

struct State {
    // A call holds it throughout, also while it reads or writes the file: otherwise another call
    // could miss a change that has left `changes` and is not in the file yet.
    Mutex mutex;
    // The key is the path of the domain.
    std::map<std::string, Changes> changes QUORVEL_GUARDED_BY(mutex);
};

State& SharedState() {
    static State* const state = new State; // threads may use it until the process has ended
    return *state;
}

enum class FileContents { kDictionary, kMissing, kUnusable };

struct DomainFile {
    FileContents contents = FileContents::kUnusable;
    CFOwned<CFMutableDictionaryRef> values; // empty unless the file has a dictionary
    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    std::string cause; // the reason why there is no dictionary
};

DomainFile ReadDomain(const std::string& path) {
    DomainFile file;
    std::string bytes;
    CFOwned<CFPropertyListRef> read;
    if (const FileFailure unread = ReadWholeFile(path, kPropertyListMaximumSize, bytes)) {
        file.cause = unread.text;
        if (unread.error == ENOENT) {
            file.contents = FileContents::kMissing;
        }
    } else {
        PropertyListFailure failure;
        read.Reset(ParsePropertyList(bytes, false, file.format, failure));
        if (!read) {
            file.cause = "not a property list: " + failure.text;
        } else if (CFGetTypeID(read.Get()) != kCFRuntimeDictionaryType) {
            file.cause = "a property list that is no dictionary";
        } else {
            file.contents = FileContents::kDictionary;
        }
    }
    file.values.Reset(
        file.contents == FileContents::kDictionary
            ? CFDictionaryCreateMutableCopy(nullptr, 0, static_cast<CFDictionaryRef>(read.Get()))
            : CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                        &kCFTypeDictionaryValueCallBacks));
    if (!file.values) {
        throw std::bad_alloc();
    }
    return file;
}

void ApplyChanges(const Changes& changes, CFMutableDictionaryRef values) {
    for (const auto& [key, value] : changes) {
        const CFOwned<CFStringRef> name(CopyUTF8String(key));
        if (!name) {
            throw std::bad_alloc();
        }
        if (value) {
            CFDictionarySetValue(values, name.Get(), value.Get());
            // Setting a value reports no lack of memory. A change that is not applied must be kept.
            if (CFDictionaryGetValue(values, name.Get()) != value.Get()) {
                throw std::bad_alloc();
            }
        } else {
            CFDictionaryRemoveValue(values, name.Get());
        }
    }
}

// Refuses arguments that are no strings in strict mode. Without it, the search for the domain finds
// none.
void CheckDomain(CFStringRef applicationID, CFStringRef userName, CFStringRef hostName,
                 const char* function = __builtin_FUNCTION()) {
    CFRuntimeIsArgument(applicationID, kCFRuntimeStringType, "applicationID", function);
    CFRuntimeIsArgument(userName, kCFRuntimeStringType, "userName", function);
    CFRuntimeIsArgument(hostName, kCFRuntimeStringType, "hostName", function);
}

// Lets `change` change the values of the domain's file, and writes them unless `change` returns
// false. No other writer can come between. If that fails, returns false and sets `failure`.
template <typename Change>
bool ChangeFile(const std::string& path, const Change& change, PropertyListFailure& failure) {
    failure.code = kCFPreferencesHostWriteError;
    LockedFile locked(path);
    if (locked.Failure()) {
        failure.text = locked.Failure().text;
        return false;
    }
    const DomainFile file = ReadDomain(path);
    if (file.contents == FileContents::kUnusable) {
        failure = {kCFPreferencesHostUnusableFileError, file.cause};
        return false;
    }
    if (!change(file.values.Get())) {
        return true;
    }
    std::string bytes;
    PropertyListFailure unwritable;
    if (!WritePropertyList(file.values.Get(), file.format, bytes, unwritable)) {
        failure.text = "cannot be written: " + unwritable.text;
        return false;
    }
    const FileFailure unwritten = locked.Replace(bytes);
    failure.text = unwritten.text;
    return !unwritten;
}

} // namespace

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                         CFStringRef userName, CFStringRef hostName) {
    const bool isKey = CFRuntimeIsArgument(key, kCFRuntimeStringType, "key");
    CheckDomain(applicationID, userName, hostName);
    return CFRuntimeGuard<CFPropertyListRef>(nullptr, [&]() -> CFPropertyListRef {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        if (!isKey || !path) {
            return nullptr;
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        // The values of a file that cannot be used are empty.
        const CFOwned<CFMutableDictionaryRef> values = ReadDomain(*path).values;
        const auto changes = state.changes.find(*path);
        if (changes != state.changes.end()) {
            ApplyChanges(changes->second, values.Get());
        }
        const CFPropertyListRef value = CFDictionaryGetValue(values.Get(), key);
        return value == nullptr ? nullptr : CFRetain(value);
    });
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID,
                           CFStringRef userName, CFStringRef hostName) {
    CFRuntimeIsArgument(key, kCFRuntimeStringType, "key");
    CheckDomain(applicationID, userName, hostName);
    CFRuntimeGuard(false, [&] {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        const std::optional<std::string> name = UTF8OfString(key);
        if (!path || !name || name->find('\0') != std::string::npos) {
            syslog(LOG_ERR, "CFPreferencesSetValue: no such preferences domain or key");
            return false;
        }
        CFOwned<CFPropertyListRef> copy;
        if (value != nullptr) {
            if (!CFPropertyListIsValid(value, kCFPropertyListXMLFormat_v1_0)) {
                syslog(LOG_ERR,
                       "CFPreferencesSetValue: the value for \"%s\" is not a property list",
                       name->c_str());
                return false;
            }
            copy.Reset(CFPropertyListCreateDeepCopy(nullptr, value, kCFPropertyListImmutable));
            if (!copy) {
                return false; // there is no memory
            }
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        state.changes[*path].insert_or_assign(*name, std::move(copy));
        return true;
    });
}

Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName) {
    CheckDomain(applicationID, userName, hostName);
    return CFRuntimeGuard(false, [&] {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        if (!path) {
            return false;
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        const auto changes = state.changes.find(*path);
        if (changes == state.changes.end()) {
            return true;
        }
        const auto change = [&](CFMutableDictionaryRef values) {
            ApplyChanges(changes->second, values);
            return true;
        };
        PropertyListFailure failure;
        if (!ChangeFile(*path, change, failure)) {
            syslog(LOG_ERR, "CFPreferencesSynchronize: %s: %s", path->c_str(),
                   failure.text.c_str());
            return false;
        }
        state.changes.erase(changes);
        return true;
    });
}

Boolean CFPreferencesHostGetPath(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName, char* buffer, CFIndex bufferSize) {
    return CFRuntimeGuard(false, [&] {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        if (!path || bufferSize < 0 || path->size() >= static_cast<std::size_t>(bufferSize)) {
            return false;
        }
        buffer[path->copy(buffer, path->size())] = '\0';
        return true;
    });
}

CFDictionaryRef CFPreferencesHostCopyFile(CFStringRef applicationID, CFStringRef userName,
                                          CFStringRef hostName, CFErrorRef* error) {
    return CFRuntimeGuard<CFDictionaryRef>(nullptr, [&]() -> CFDictionaryRef {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        if (!path) {
            return nullptr;
        }
        DomainFile file = ReadDomain(*path);
        if (file.contents != FileContents::kDictionary) {
            ReportError(error,
                        file.contents == FileContents::kMissing
                            ? kCFPreferencesHostNoFileError
                            : kCFPreferencesHostUnusableFileError,
                        file.cause);
            return nullptr;
        }
        return file.values.Release();
    });
}

Boolean CFPreferencesHostChangeFile(CFStringRef applicationID, CFStringRef userName,
                                    CFStringRef hostName, CFPreferencesHostChangeCallBack change,
                                    void* info, CFErrorRef* error) {
    return CFRuntimeGuard(false, [&] {
        const auto path = PreferencesPath(applicationID, userName, hostName);
        if (!path) {
            return false;
        }
        PropertyListFailure failure;
        const bool changed = ChangeFile(
            *path, [&](CFMutableDictionaryRef values) { return change(values, info) != 0; },
            failure);
        if (!changed) {
            ReportError(error, failure.code, failure.text);
        }
        return changed;
    });
}
