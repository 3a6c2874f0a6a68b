// The table of constant strings. It keeps copies of the texts and not the literals, which vanish
// with the module that they are in.
#include "platform/CoreFoundation/src/CFStringObject.h"
#include "platform/CoreFoundation/src/StringEncoding.h"

#include <mutex>
#include <string>
#include <unordered_map>

CFStringRef __CFStringMakeConstantString(const char* cStr) {
    // Made on first use, which may be before this file's own statics are, and never destroyed.
    static std::mutex* const mutex = new std::mutex;
    static auto* const constants = new std::unordered_map<std::string, CFStringRef>;
    if (cStr == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        const std::lock_guard<std::mutex> guard(*mutex);
        const auto [entry, added] = constants->try_emplace(cStr, nullptr);
        if (entry->second == nullptr) {
            entry->second = new __CFString(UTF16FromCString(cStr), CFRuntimeImmortal{});
        }
        return entry->second;
    });
}
