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
#include <vector>

const CFStringRef kCFPreferencesAnyApplication = CFSTR("kCFPreferencesAnyApplication");
const CFStringRef kCFPreferencesAnyHost = CFSTR("kCFPreferencesAnyHost");
const CFStringRef kCFPreferencesCurrentHost = CFSTR("kCFPreferencesCurrentHost");
const CFStringRef kCFPreferencesAnyUser = CFSTR("kCFPreferencesAnyUser");
const CFStringRef kCFPreferencesCurrentUser = CFSTR("kCFPreferencesCurrentUser");

namespace {

// What the process has set and not yet written, by key; null where a key was removed.
using Changes = std::map<std::string, CFOwned<CFPropertyListRef>>;

struct State {
    // Held for whole calls, file access included, so that a change is never between the process and
    // the file when someone looks.
    Mutex mutex;
    // By the domain's path.
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
    std::string cause; // why there is no dictionary
};

DomainFile ReadDomain(const PreferencesDomain& domain) {
    DomainFile file;
    std::string bytes;
    CFOwned<CFPropertyListRef> read;
    if (const FileFailure unread = ReadWholeFile(domain.Path(), kPropertyListMaximumSize, bytes)) {
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
        const CFOwned<CFStringRef> name(CFStringCreateWithBytes(
            nullptr, reinterpret_cast<const UInt8*>(key.data()), static_cast<CFIndex>(key.size()),
            kCFStringEncodingUTF8, false));
        if (!name) {
            throw std::bad_alloc();
        }
        if (value) {
            CFDictionarySetValue(values, name.Get(), value.Get());
            // It says nothing where there is no memory, and what is not in the file must be kept.
            if (CFDictionaryGetValue(values, name.Get()) != value.Get()) {
                throw std::bad_alloc();
            }
        } else {
            CFDictionaryRemoveValue(values, name.Get());
        }
    }
}

// The domain's values, changes included; empty when its file cannot be used.
CFOwned<CFMutableDictionaryRef> CurrentValues(State& state, const PreferencesDomain& domain)
    QUORVEL_REQUIRES(state.mutex) {
    CFOwned<CFMutableDictionaryRef> values = ReadDomain(domain).values;
    const auto changes = state.changes.find(domain.Path());
    if (changes != state.changes.end()) {
        ApplyChanges(changes->second, values.Get());
    }
    return values;
}

// For strict mode: what names no domain is answered by the search for it.
void CheckDomain(CFStringRef applicationID, CFStringRef userName, CFStringRef hostName,
                 const char* function = __builtin_FUNCTION()) {
    CFRuntimeIsArgument(applicationID, kCFRuntimeStringType, "applicationID", function);
    CFRuntimeIsArgument(userName, kCFRuntimeStringType, "userName", function);
    CFRuntimeIsArgument(hostName, kCFRuntimeStringType, "hostName", function);
}

// Calls `body` with the domain's values; null when the arguments name none.
template <typename Result, typename Body>
Result WithValues(CFStringRef applicationID, CFStringRef userName, CFStringRef hostName,
                  const Body& body, const char* function = __builtin_FUNCTION()) {
    CheckDomain(applicationID, userName, hostName, function);
    return CFRuntimeGuard<Result>(nullptr, [&]() -> Result {
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        if (!domain) {
            return nullptr;
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        const CFOwned<CFMutableDictionaryRef> values = CurrentValues(state, *domain);
        return body(values.Get());
    });
}

// Has the values of the domain's file changed, and writes them unless `change` says that they are
// to stay as they are, all while no other writer can.
template <typename Change>
bool ChangeFile(const PreferencesDomain& domain, const Change& change,
                PropertyListFailure& failure) {
    failure.code = kCFPreferencesHostWriteError;
    LockedFile locked(domain.Path());
    if (locked.Failure()) {
        failure.text = locked.Failure().text;
        return false;
    }
    const DomainFile file = ReadDomain(domain);
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
    if (!CFRuntimeIsArgument(key, kCFRuntimeStringType, "key")) {
        return nullptr;
    }
    return WithValues<CFPropertyListRef>(
        applicationID, userName, hostName, [&](CFDictionaryRef values) -> CFPropertyListRef {
            const CFPropertyListRef value = CFDictionaryGetValue(values, key);
            return value == nullptr ? nullptr : CFRetain(value);
        });
}

CFDictionaryRef CFPreferencesCopyMultiple(CFArrayRef keysToFetch, CFStringRef applicationID,
                                          CFStringRef userName, CFStringRef hostName) {
    if (!CFRuntimeIsOptionalArgument(keysToFetch, kCFRuntimeArrayType, "keysToFetch")) {
        return nullptr;
    }
    return WithValues<CFDictionaryRef>(
        applicationID, userName, hostName, [&](CFDictionaryRef values) -> CFDictionaryRef {
            if (keysToFetch == nullptr) {
                return CFDictionaryCreateCopy(nullptr, values);
            }
            std::vector<const void*> keys;
            std::vector<const void*> found;
            for (CFIndex i = 0; i < CFArrayGetCount(keysToFetch); ++i) {
                const void* key = CFArrayGetValueAtIndex(keysToFetch, i);
                const void* value = nullptr;
                if (CFDictionaryGetValueIfPresent(values, key, &value)) {
                    keys.push_back(key);
                    found.push_back(value);
                }
            }
            return CFDictionaryCreate(
                nullptr, keys.data(), found.data(), static_cast<CFIndex>(keys.size()),
                &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
        });
}

CFArrayRef CFPreferencesCopyKeyList(CFStringRef applicationID, CFStringRef userName,
                                    CFStringRef hostName) {
    return WithValues<CFArrayRef>(
        applicationID, userName, hostName, [&](CFDictionaryRef values) -> CFArrayRef {
            std::vector<const void*> keys(static_cast<std::size_t>(CFDictionaryGetCount(values)));
            CFDictionaryGetKeysAndValues(values, keys.data(), nullptr);
            return keys.empty()
                       ? nullptr
                       : CFArrayCreate(nullptr, keys.data(), static_cast<CFIndex>(keys.size()),
                                       &kCFTypeArrayCallBacks);
        });
}

void CFPreferencesSetValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID,
                           CFStringRef userName, CFStringRef hostName) {
    CFRuntimeIsArgument(key, kCFRuntimeStringType, "key");
    CheckDomain(applicationID, userName, hostName);
    CFRuntimeGuard(false, [&] {
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        const std::optional<std::string> name = UTF8OfString(key);
        if (!domain || !name || name->find('\0') != std::string::npos) {
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
                return false; // for want of memory
            }
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        state.changes[domain->Path()].insert_or_assign(*name, std::move(copy));
        return true;
    });
}

Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName) {
    CheckDomain(applicationID, userName, hostName);
    return CFRuntimeGuard(false, [&] {
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        if (!domain) {
            return false;
        }
        State& state = SharedState();
        const MutexLock lock(state.mutex);
        const auto changes = state.changes.find(domain->Path());
        if (changes == state.changes.end()) {
            return true;
        }
        const auto change = [&](CFMutableDictionaryRef values) {
            ApplyChanges(changes->second, values);
            return true;
        };
        PropertyListFailure failure;
        if (!ChangeFile(*domain, change, failure)) {
            syslog(LOG_ERR, "CFPreferencesSynchronize: %s: %s", domain->Path().c_str(),
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
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        if (!domain) {
            return false;
        }
        const std::string path = domain->Path();
        if (bufferSize < 0 || path.size() >= static_cast<std::size_t>(bufferSize)) {
            return false;
        }
        buffer[path.copy(buffer, path.size())] = '\0';
        return true;
    });
}

CFDictionaryRef CFPreferencesHostCopyFile(CFStringRef applicationID, CFStringRef userName,
                                          CFStringRef hostName, CFErrorRef* error) {
    return CFRuntimeGuard<CFDictionaryRef>(nullptr, [&]() -> CFDictionaryRef {
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        if (!domain) {
            return nullptr;
        }
        DomainFile file = ReadDomain(*domain);
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
        const auto domain = FindPreferencesDomain(applicationID, userName, hostName);
        if (!domain) {
            return false;
        }
        PropertyListFailure failure;
        const bool changed = ChangeFile(
            *domain, [&](CFMutableDictionaryRef values) { return change(values, info) != 0; },
            failure);
        if (!changed) {
            ReportError(error, failure.code, failure.text);
        }
        return changed;
    });
}
