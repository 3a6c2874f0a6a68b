#include <CoreFoundation/CFPreferences.h>

#include "platform/CoreFoundation/src/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/CFStringObject.h"
#include "platform/CoreFoundation/src/FileReplace.h"
#include "platform/CoreFoundation/src/PreferencesDomain.h"
#include "platform/CoreFoundation/src/PropertyListFile.h"
#include "platform/CoreFoundation/src/PropertyListLimits.h"

#include <syslog.h>

#include <map>
#include <mutex>
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
    std::mutex mutex;
    std::map<std::string, Changes> changes; // by the domain's path
};

State& SharedState() {
    static State* const state = new State; // threads may use it until the process has ended
    return *state;
}

enum class FileContents { kDictionary, kMissing, kUnusable };

// The domain's file as it is, as a mutable dictionary, which is empty unless the file has one.
FileContents ReadDomain(const PreferencesDomain& domain, CFOwned<CFMutableDictionaryRef>& values,
                        std::string& cause) {
    values.reset(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
    std::string bytes;
    const ReadResult result = ReadWholeFile(domain.Path(), kPropertyListMaximumSize, bytes, cause);
    if (result != ReadResult::kRead) {
        return result == ReadResult::kMissing ? FileContents::kMissing : FileContents::kUnusable;
    }
    CFPropertyListFormat format = 0;
    PropertyListFailure failure;
    const CFOwned<CFPropertyListRef> read(ParsePropertyList(bytes, false, format, failure));
    if (CFRuntimeTypeOf(read.get()) != kCFRuntimeDictionaryType) {
        cause = read ? "holds no dictionary" : "is not a property list: " + failure.text;
        return FileContents::kUnusable;
    }
    values.reset(
        CFDictionaryCreateMutableCopy(nullptr, 0, static_cast<CFDictionaryRef>(read.get())));
    return FileContents::kDictionary;
}

void ApplyChanges(const Changes& changes, CFMutableDictionaryRef values) {
    for (const auto& [key, value] : changes) {
        const CFOwned<CFStringRef> name(CFStringCreateWithBytes(
            nullptr, reinterpret_cast<const UInt8*>(key.data()), static_cast<CFIndex>(key.size()),
            kCFStringEncodingUTF8, false));
        if (value) {
            CFDictionarySetValue(values, name.get(), value.get());
        } else {
            CFDictionaryRemoveValue(values, name.get());
        }
    }
}

// The domain's values, changes included; empty when its file cannot be used. Under the mutex.
CFOwned<CFMutableDictionaryRef> CurrentValues(State& state, const PreferencesDomain& domain) {
    CFOwned<CFMutableDictionaryRef> values;
    std::string cause;
    ReadDomain(domain, values, cause);
    const auto changes = state.changes.find(domain.Path());
    if (changes != state.changes.end()) {
        ApplyChanges(changes->second, values.get());
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
        const std::lock_guard<std::mutex> guard(state.mutex);
        const CFOwned<CFMutableDictionaryRef> values = CurrentValues(state, *domain);
        return body(values.get());
    });
}

// Writes the changes to the domain's file. Under the mutex.
bool WriteChanges(const PreferencesDomain& domain, const Changes& changes, std::string& cause) {
    LockedFolder folder(domain.folder);
    if (!folder.Cause().empty()) {
        cause = folder.Cause();
        return false;
    }
    CFOwned<CFMutableDictionaryRef> values;
    if (ReadDomain(domain, values, cause) == FileContents::kUnusable) {
        return false;
    }
    ApplyChanges(changes, values.get());
    PropertyListFailure failure;
    std::string bytes;
    if (!WritePropertyList(values.get(), kCFPropertyListXMLFormat_v1_0, bytes, failure)) {
        cause = "cannot be written: " + failure.text;
        return false;
    }
    return folder.Replace(domain.fileName, bytes, cause);
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
            CFMutableDictionaryRef result = CFDictionaryCreateMutable(
                nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
            for (CFIndex i = 0; i < CFArrayGetCount(keysToFetch); ++i) {
                const void* key = CFArrayGetValueAtIndex(keysToFetch, i);
                const void* value = nullptr;
                if (CFDictionaryGetValueIfPresent(values, key, &value)) {
                    CFDictionarySetValue(result, key, value);
                }
            }
            return result;
        });
}

CFArrayRef CFPreferencesCopyKeyList(CFStringRef applicationID, CFStringRef userName,
                                    CFStringRef hostName) {
    return WithValues<CFArrayRef>(
        applicationID, userName, hostName, [&](CFDictionaryRef values) -> CFArrayRef {
            std::vector<const void*> keys(static_cast<size_t>(CFDictionaryGetCount(values)));
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
            copy.reset(CFPropertyListCreateDeepCopy(nullptr, value, kCFPropertyListImmutable));
            if (!copy) {
                syslog(LOG_ERR,
                       "CFPreferencesSetValue: the value for \"%s\" is not a property list",
                       name->c_str());
                return false;
            }
        }
        State& state = SharedState();
        const std::lock_guard<std::mutex> guard(state.mutex);
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
        const std::lock_guard<std::mutex> guard(state.mutex);
        const auto changes = state.changes.find(domain->Path());
        if (changes == state.changes.end()) {
            return true;
        }
        std::string cause;
        if (!WriteChanges(*domain, changes->second, cause)) {
            syslog(LOG_ERR, "CFPreferencesSynchronize: %s: %s", domain->Path().c_str(),
                   cause.c_str());
            return false;
        }
        state.changes.erase(changes);
        return true;
    });
}
