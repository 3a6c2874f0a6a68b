// The table of constant strings. It keeps copies of the texts and not the literals, which vanish
// with the module that they are in.
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/support/Mutex.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace {

struct Constants {
    Mutex mutex;
    std::map<std::string, CFStringRef, std::less<>> byText QUORVEL_GUARDED_BY(mutex);
};

} // namespace

CFStringRef __CFStringMakeConstantString(const char* cStr) {
    if (cStr == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        // Made on first use, which may be before this file's own statics are, and never destroyed.
        static auto* const constants = new Constants;
        const MutexLock lock(constants->mutex);
        // Looked for first: a constant that is there needs no memory.
        auto entry = constants->byText.find(std::string_view(cStr));
        if (entry == constants->byText.end()) {
            entry = constants->byText.try_emplace(cStr, nullptr).first;
        }
        if (entry->second == nullptr) {
            entry->second = new __CFString(UTF16FromCString(cStr), CFRuntimeImmortal{});
        }
        return entry->second;
    });
}
