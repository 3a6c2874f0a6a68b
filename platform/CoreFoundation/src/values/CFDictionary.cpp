#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/ContainerCallBacks.h"

#include <CoreFoundation/CFDictionary.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

struct KeyHash {
    CFDictionaryHashCallBack hash = nullptr;
    std::size_t operator()(const void* key) const {
        return hash == nullptr ? std::hash<const void*>{}(key) : hash(key);
    }
};

struct KeyEqual {
    CFDictionaryEqualCallBack equal = nullptr;
    bool operator()(const void* a, const void* b) const {
        return a == b || (equal != nullptr && equal(a, b) != 0);
    }
};

using Map = std::unordered_map<const void*, const void*, KeyHash, KeyEqual>;

} // namespace

struct __CFDictionary final : CFRuntimeObject {
    __CFDictionary(bool isMutable, const CFDictionaryKeyCallBacks* keyCallBacks,
                   const CFDictionaryValueCallBacks* valueCallBacks)
        : CFRuntimeObject(kCFRuntimeDictionaryType),
          mMutable(isMutable),
          mKeyCallBacks(keyCallBacks == nullptr ? CFDictionaryKeyCallBacks{} : *keyCallBacks),
          mValueCallBacks(valueCallBacks == nullptr ? CFDictionaryValueCallBacks{}
                                                    : *valueCallBacks),
          mMap(0, KeyHash{mKeyCallBacks.hash}, KeyEqual{mKeyCallBacks.equal}) {}
    ~__CFDictionary() override {
        for (const auto& [key, value] : mMap) {
            ContainerRelease(mKeyCallBacks, key);
            ContainerRelease(mValueCallBacks, value);
        }
    }

    bool Equals(const CFRuntimeObject& other) const override;
    CFHashCode Hash() const override { return mMap.size(); }
    std::u16string Description(unsigned depth) const override;

    // Adds the key with the value. If the key is there, replaces its value or leaves it.
    void Put(const void* key, const void* value, bool replace) {
        const auto [entry, isNew] = mMap.try_emplace(key, nullptr);
        if (isNew) {
            // The place is made: nothing can fail any more once key and value are retained.
            Map::node_type node = mMap.extract(entry);
            node.key() = ContainerRetain(mKeyCallBacks, key);
            node.mapped() = ContainerRetain(mValueCallBacks, value);
            mMap.insert(std::move(node));
        } else if (replace) {
            const void* retained = ContainerRetain(mValueCallBacks, value);
            std::swap(entry->second, retained);
            ContainerRelease(mValueCallBacks, retained);
        }
    }
    void Remove(const void* key) {
        const Map::node_type node = mMap.extract(key);
        if (!node.empty()) {
            ContainerRelease(mKeyCallBacks, node.key());
            ContainerRelease(mValueCallBacks, node.mapped());
        }
    }

    const bool mMutable;
    const CFDictionaryKeyCallBacks mKeyCallBacks;
    const CFDictionaryValueCallBacks mValueCallBacks;
    Map mMap;
};

constinit const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, RetainContainedObject, ReleaseContainedObject, CFCopyDescription, CFEqual, CFHash};
constinit const CFDictionaryKeyCallBacks kCFCopyStringDictionaryKeyCallBacks = {
    0, RetainContainedObject, ReleaseContainedObject, CFCopyDescription, CFEqual, CFHash};
constinit const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {
    0, RetainContainedObject, ReleaseContainedObject, CFCopyDescription, CFEqual};

namespace {

const __CFDictionary* Dictionary(CFDictionaryRef reference,
                                 const char* function = __builtin_FUNCTION()) {
    return CFRuntimeArgument<__CFDictionary>(reference, "theDict", function);
}

// Returns where a key's value is kept, or null if there is no such key or dictionary.
const void* const* PlaceOf(CFDictionaryRef reference, const void* key,
                           const char* function = __builtin_FUNCTION()) {
    const auto* dictionary = Dictionary(reference, function);
    if (dictionary == nullptr) {
        return nullptr;
    }
    const auto found = dictionary->mMap.find(key);
    return found == dictionary->mMap.end() ? nullptr : &found->second;
}

// Returns a new dictionary with the entries of another, or null if that is not a dictionary or
// there is no memory.
__CFDictionary* CopyDictionary(CFAllocatorRef allocator, bool isMutable, CFDictionaryRef other,
                               const char* function = __builtin_FUNCTION()) {
    const auto* original = Dictionary(other, function);
    if (original == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<__CFDictionary*>(nullptr, [&]() -> __CFDictionary* {
        CFOwned<CFMutableDictionaryRef> copy(CFRuntimeCreate<__CFDictionary>(
            allocator, isMutable, &original->mKeyCallBacks, &original->mValueCallBacks));
        if (!copy) {
            return nullptr;
        }
        for (const auto& [key, value] : original->mMap) {
            copy->Put(key, value, false);
        }
        return copy.Release();
    });
}

} // namespace

bool __CFDictionary::Equals(const CFRuntimeObject& other) const {
    const auto& dictionary = static_cast<const __CFDictionary&>(other);
    if (mMap.size() != dictionary.mMap.size()) {
        return false;
    }
    for (const auto& [key, value] : mMap) {
        const auto found = dictionary.mMap.find(key);
        if (found == dictionary.mMap.end() ||
            !ContainerValuesAreEqual(mValueCallBacks, value, found->second)) {
            return false;
        }
    }
    return true;
}

std::u16string __CFDictionary::Description(unsigned depth) const {
    if (depth == 0) {
        return u"{...}";
    }
    // Entries are sorted by their keys' texts, so that equal dictionaries give equal texts.
    std::vector<std::pair<std::u16string, std::u16string>> entries;
    for (const auto& [key, value] : mMap) {
        entries.emplace_back(ContainerDescription(mKeyCallBacks, key, depth - 1),
                             ContainerDescription(mValueCallBacks, value, depth - 1));
    }
    std::sort(entries.begin(), entries.end());
    std::u16string text = u"{";
    for (const auto& [key, value] : entries) {
        text += text.size() == 1 ? u"" : u", ";
        text += key;
        text += u" = ";
        text += value;
    }
    return text + u"}";
}

CFTypeID CFDictionaryGetTypeID(void) {
    return kCFRuntimeDictionaryType;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks) {
    if (numValues < 0 || (numValues != 0 && (keys == nullptr || values == nullptr))) {
        return nullptr;
    }
    return CFRuntimeGuard<CFDictionaryRef>(nullptr, [&]() -> CFDictionaryRef {
        CFOwned<CFMutableDictionaryRef> dictionary(
            CFRuntimeCreate<__CFDictionary>(allocator, false, keyCallBacks, valueCallBacks));
        for (CFIndex i = 0; dictionary && i < numValues; ++i) {
            dictionary->Put(keys[i], values[i], false);
        }
        return dictionary.Release();
    });
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict) {
    return CopyDictionary(allocator, false, theDict);
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    return capacity < 0
               ? nullptr
               : CFRuntimeCreate<__CFDictionary>(allocator, true, keyCallBacks, valueCallBacks);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFDictionaryRef theDict) {
    return capacity < 0 ? nullptr : CopyDictionary(allocator, true, theDict);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
    const auto* dictionary = Dictionary(theDict);
    return dictionary == nullptr ? 0 : static_cast<CFIndex>(dictionary->mMap.size());
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key) {
    return PlaceOf(theDict, key) != nullptr;
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key) {
    const void* const* place = PlaceOf(theDict, key);
    return place == nullptr ? nullptr : *place;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key,
                                      const void** value) {
    const void* const* place = PlaceOf(theDict, key);
    if (place != nullptr && value != nullptr) {
        *value = *place;
    }
    return place != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values) {
    const auto* dictionary = Dictionary(theDict);
    if (dictionary == nullptr) {
        return;
    }
    std::size_t i = 0;
    for (const auto& [key, value] : dictionary->mMap) {
        if (keys != nullptr) {
            keys[i] = key;
        }
        if (values != nullptr) {
            values[i] = value;
        }
        ++i;
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef theDict, CFDictionaryApplierFunction applier,
                               void* context) {
    const auto* dictionary = Dictionary(theDict);
    if (dictionary == nullptr || applier == nullptr) {
        return;
    }
    for (const auto& [key, value] : dictionary->mMap) {
        applier(key, value, context);
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    if (auto* dictionary = CFRuntimeMutableArgument<__CFDictionary>(theDict, "theDict")) {
        CFRuntimeGuard([&] { dictionary->Put(key, value, true); });
    }
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key) {
    if (auto* dictionary = CFRuntimeMutableArgument<__CFDictionary>(theDict, "theDict")) {
        dictionary->Remove(key);
    }
}
