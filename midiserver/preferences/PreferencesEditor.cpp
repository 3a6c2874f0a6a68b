#include "midiserver/preferences/PreferencesEditor.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/CFText.h"
#include "midiserver/host/Environment.h"

#include <CoreFoundation/CFPreferencesHost.h>

#include <fmt/format.h>

#include <array>
#include <climits>
#include <exception>
#include <functional>
#include <new>

namespace MidiServer {

namespace {

const CFStringRef kIdentifier = CFSTR("com.quorvel.ControlSurface");
const CFStringRef kApplicationsKey = CFSTR("Sonaret Applications");
const CFStringRef kPortsKey = CFSTR("MIDI Ports");
const CFStringRef kProtocolKey = CFSTR("Protocol");
const CFStringRef kNameKey = CFSTR("App Name");

// Returns a value of a dictionary as the type that it should have, or null if it is absent or has
// another type.
template <typename Ref>
Ref ValueOf(CFDictionaryRef dictionary, CFStringRef key, CFTypeID type) {
    CFTypeRef value = CFDictionaryGetValue(dictionary, key);
    return value != nullptr && CFGetTypeID(value) == type ? static_cast<Ref>(value) : nullptr;
}

CFDictionaryRef DictionaryAt(CFArrayRef array, CFIndex index) {
    CFTypeRef value = CFArrayGetValueAtIndex(array, index);
    return CFGetTypeID(value) == CFDictionaryGetTypeID() ? static_cast<CFDictionaryRef>(value)
                                                         : nullptr;
}

PreferenceEntry EntryOf(CFDictionaryRef dictionary) {
    PreferenceEntry entry;
    entry.isDictionary = dictionary != nullptr;
    if (!entry.isDictionary) {
        return entry;
    }
    const auto read = [&](CFStringRef key) -> std::optional<std::string> {
        if (const auto text = ValueOf<CFStringRef>(dictionary, key, CFStringGetTypeID())) {
            return TextOf(text);
        }
        if (CFDictionaryContainsKey(dictionary, key)) {
            entry.wrongTyped.push_back(TextOf(key));
        }
        return std::nullopt;
    };
    entry.name = read(kNameKey);
    entry.ports = read(kPortsKey);
    entry.protocol = read(kProtocolKey);
    return entry;
}

// Returns the applications among the file's values, or null if there are none. Throws if they are
// not an array.
CFArrayRef ApplicationsOf(CFDictionaryRef values) {
    const auto applications = ValueOf<CFArrayRef>(values, kApplicationsKey, CFArrayGetTypeID());
    if (applications == nullptr && CFDictionaryContainsKey(values, kApplicationsKey)) {
        throw InputError(fmt::format("{}: \"{}\" is no array", PreferencesEditor::File().string(),
                                     TextOf(kApplicationsKey)));
    }
    return applications;
}

// What the platform could not do with the file.
std::string Fault(CFErrorRef error) {
    if (error == nullptr) {
        throw std::bad_alloc();
    }
    return fmt::format("{}: {}", PreferencesEditor::File().string(),
                       TextOf(CFOwned<CFStringRef>(CFErrorCopyDescription(error)).Get()));
}

// Changes the values of the file; false: they stay as they are. What it throws arrives at the
// caller of ChangeFile.
using Change = std::function<bool(CFMutableDictionaryRef values)>;

void ChangeFile(const Change& change) {
    struct Attempt {
        const Change& change;
        std::exception_ptr failure;
    } attempt{change, nullptr};
    const auto call = [](CFMutableDictionaryRef values, void* info) -> Boolean {
        auto& current = *static_cast<Attempt*>(info);
        try {
            return current.change(values) ? 1 : 0;
        } catch (...) {
            current.failure = std::current_exception();
            return 0;
        }
    };
    CFErrorRef rawError = nullptr;
    const bool changed =
        CFPreferencesHostChangeFile(kIdentifier, kCFPreferencesAnyUser, kCFPreferencesCurrentHost,
                                    call, &attempt, &rawError) != 0;
    const CFOwned<CFErrorRef> error(rawError);
    if (attempt.failure) {
        std::rethrow_exception(attempt.failure);
    }
    if (!changed) {
        throw InputError(fmt::format("{}; nothing was changed", Fault(error.Get())));
    }
}

template <typename Ref>
CFOwned<Ref> Made(Ref object) {
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return CFOwned<Ref>(object);
}

// A copy of the array, or a new one.
CFOwned<CFMutableArrayRef> MutableCopy(CFArrayRef array) {
    return Made(array == nullptr ? CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks)
                                 : CFArrayCreateMutableCopy(nullptr, 0, array));
}

bool IsNamed(CFDictionaryRef dictionary, const std::string& name) {
    return dictionary != nullptr && EntryOf(dictionary).name == name;
}

} // namespace

void UsePreferencesFolder(const std::filesystem::path& folder) {
    SetEnvironment("QUORVEL_PREFERENCES_DIR", std::filesystem::absolute(folder).string());
}

std::filesystem::path PreferencesEditor::File() {
    std::array<char, std::size_t{2} * PATH_MAX> path{};
    if (CFPreferencesHostGetPath(kIdentifier, kCFPreferencesAnyUser, kCFPreferencesCurrentHost,
                                 path.data(), CFIndex{path.size()}) == 0) {
        throw InputError("the preferences folder has too long a name");
    }
    return path.data();
}

void PreferencesEditor::Load() {
    mProblem.reset();
    mFileIsMissing = false;
    mEntries.clear();
    CFErrorRef rawError = nullptr;
    const CFOwned<CFDictionaryRef> values(CFPreferencesHostCopyFile(
        kIdentifier, kCFPreferencesAnyUser, kCFPreferencesCurrentHost, &rawError));
    const CFOwned<CFErrorRef> error(rawError);
    if (!values) {
        mProblem = Fault(error.Get());
        mFileIsMissing = CFErrorGetCode(error.Get()) == kCFPreferencesHostNoFileError;
        return;
    }
    try {
        const CFArrayRef applications = ApplicationsOf(values.Get());
        const CFIndex count = applications == nullptr ? 0 : CFArrayGetCount(applications);
        for (CFIndex i = 0; i < count; ++i) {
            mEntries.push_back(EntryOf(DictionaryAt(applications, i)));
        }
    } catch (const InputError& wrongType) {
        mProblem = wrongType.what();
    }
}

PortConfiguration PreferencesEditor::Configuration() const {
    PortConfiguration configuration = DerivePortConfiguration(mEntries);
    if (mProblem) {
        configuration.notices.insert(
            configuration.notices.begin(),
            {std::nullopt, mFileIsMissing ? *mProblem : fmt::format("ignored: {}", *mProblem)});
    }
    return configuration;
}

void PreferencesEditor::Set(const std::string& application, const std::optional<std::string>& ports,
                            const std::optional<std::string>& protocol) {
    ChangeFile([&](CFMutableDictionaryRef values) {
        const auto applications = MutableCopy(ApplicationsOf(values));
        CFIndex place = CFArrayGetCount(applications.Get());
        while (place > 0 && !IsNamed(DictionaryAt(applications.Get(), place - 1), application)) {
            --place;
        }
        const auto entry =
            Made(place > 0 ? CFDictionaryCreateMutableCopy(
                                 nullptr, 0, DictionaryAt(applications.Get(), place - 1))
                           : CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                       &kCFTypeDictionaryValueCallBacks));
        CFDictionarySetValue(entry.Get(), kNameKey, MakeCFString(application).Get());
        if (ports) {
            CFDictionarySetValue(entry.Get(), kPortsKey, MakeCFString(*ports).Get());
        }
        if (protocol) {
            CFDictionarySetValue(entry.Get(), kProtocolKey, MakeCFString(*protocol).Get());
        }
        if (place > 0) {
            CFArraySetValueAtIndex(applications.Get(), place - 1, entry.Get());
        } else {
            CFArrayAppendValue(applications.Get(), entry.Get());
        }
        CFDictionarySetValue(values, kApplicationsKey, applications.Get());
        return true;
    });
}

bool PreferencesEditor::Clear(const std::string& application) {
    PreferencesEditor current;
    current.Load();
    if (current.mFileIsMissing) {
        return false; // without making its folder
    }
    bool found = false;
    ChangeFile([&](CFMutableDictionaryRef values) {
        const auto applications = MutableCopy(ApplicationsOf(values));
        for (CFIndex i = CFArrayGetCount(applications.Get()); i-- > 0;) {
            if (IsNamed(DictionaryAt(applications.Get(), i), application)) {
                CFArrayRemoveValueAtIndex(applications.Get(), i);
                found = true;
            }
        }
        if (found) {
            CFDictionarySetValue(values, kApplicationsKey, applications.Get());
        }
        return found;
    });
    return found;
}

void PreferencesEditor::ClearAll() {
    PreferencesEditor current;
    current.Load();
    if (current.mFileIsMissing) {
        return;
    }
    ChangeFile([](CFMutableDictionaryRef values) {
        const bool there = CFDictionaryContainsKey(values, kApplicationsKey) != 0;
        CFDictionaryRemoveValue(values, kApplicationsKey);
        return there;
    });
}

void RequirePlainText(const std::string& what, const std::string& text) {
    const CFOwned<CFStringRef> string(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0));
    if (!string) {
        throw InputError(fmt::format("{} is not UTF-8", what));
    }
    for (CFIndex i = 0; i < CFStringGetLength(string.Get()); ++i) {
        const UniChar c = CFStringGetCharacterAtIndex(string.Get(), i);
        if (c < 0x20 || (c >= 0x7F && c < 0xA0)) {
            throw InputError(fmt::format("{} \"{}\" holds a control character", what, text));
        }
    }
}

std::vector<std::string> CheckPreferenceValues(const std::optional<std::string>& ports,
                                               const std::optional<std::string>& protocol,
                                               bool force) {
    std::vector<std::string> warnings;
    if (ports) {
        RequirePlainText("the range of ports", *ports);
        const std::optional<PortRange> range = ParsePortRange(*ports);
        if (!range || range->first > range->last) {
            throw InputError(fmt::format("\"{}\" is no range of ports: first and last port joined "
                                         "by \"-\", from 1 to {}, are due, for example 1-4",
                                         *ports, kMaximumPorts));
        }
        if (!IsPortBlock(*ports)) {
            warnings.push_back(fmt::format(
                "\"{}\" gives its ports a protocol and does not count for the number of "
                "ports: only the blocks 1-4, 5-8, ... 29-32 do",
                *ports));
        }
    }
    if (protocol) {
        RequirePlainText("the protocol", *protocol);
    }
    if (protocol && ProtocolFromName(*protocol) == Protocol::kNone) {
        const std::string text =
            fmt::format("\"{}\" is neither \"HUI\" nor \"MackieControl\" (exactly so written): no "
                        "ping is answered with it",
                        *protocol);
        if (!force) {
            throw InputError(text + "; --force writes it nevertheless");
        }
        warnings.push_back(text);
    }
    return warnings;
}

} // namespace MidiServer
