#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/ContainerCallBacks.h"

#include <CoreFoundation/CFArray.h>

#include <vector>

struct __CFArray final : CFRuntimeObject {
    __CFArray(bool isMutable, const CFArrayCallBacks* callBacks)
        : CFRuntimeObject(kCFRuntimeArrayType),
          mMutable(isMutable),
          mCallBacks(callBacks == nullptr ? CFArrayCallBacks{} : *callBacks) {}
    ~__CFArray() override {
        for (const void* value : mValues) {
            ContainerRelease(mCallBacks, value);
        }
    }

    bool Equals(const CFRuntimeObject& other) const override;
    CFHashCode Hash() const override { return mValues.size(); }
    std::u16string Description(unsigned depth) const override;

    CFIndex Count() const { return static_cast<CFIndex>(mValues.size()); }
    bool HasIndex(CFIndex index) const { return index >= 0 && index < Count(); }
    void Append(const void* value) {
        // The place is made first: nothing can fail any more once the value is retained.
        mValues.push_back(nullptr);
        mValues.back() = ContainerRetain(mCallBacks, value);
    }

    const bool mMutable;
    const CFArrayCallBacks mCallBacks;
    std::vector<const void*> mValues;
};

constinit const CFArrayCallBacks kCFTypeArrayCallBacks = {
    0, RetainContainedObject, ReleaseContainedObject, CFCopyDescription, CFEqual};

namespace {

// Returns a new array of the values, or null if there is no memory.
__CFArray* MakeArray(CFAllocatorRef allocator, bool isMutable, const void* const* values,
                     std::size_t count, const CFArrayCallBacks* callBacks) {
    return CFRuntimeGuard<__CFArray*>(nullptr, [&]() -> __CFArray* {
        CFOwned<CFMutableArrayRef> array(
            CFRuntimeCreate<__CFArray>(allocator, isMutable, callBacks));
        if (!array) {
            return nullptr;
        }
        array->mValues.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            array->Append(values[i]);
        }
        return array.Release();
    });
}

} // namespace

bool __CFArray::Equals(const CFRuntimeObject& other) const {
    const auto& array = static_cast<const __CFArray&>(other);
    if (mValues.size() != array.mValues.size()) {
        return false;
    }
    for (std::size_t i = 0; i < mValues.size(); ++i) {
        if (!ContainerValuesAreEqual(mCallBacks, mValues[i], array.mValues[i])) {
            return false;
        }
    }
    return true;
}

std::u16string __CFArray::Description(unsigned depth) const {
    if (depth == 0) {
        return u"(...)";
    }
    std::u16string text = u"(";
    for (std::size_t i = 0; i < mValues.size(); ++i) {
        text += i == 0 ? u"" : u", ";
        text += ContainerDescription(mCallBacks, mValues[i], depth - 1);
    }
    return text + u")";
}

CFTypeID CFArrayGetTypeID(void) {
    return kCFRuntimeArrayType;
}

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks) {
    if (numValues < 0 || (values == nullptr && numValues != 0)) {
        return nullptr;
    }
    return MakeArray(allocator, false, values, static_cast<std::size_t>(numValues), callBacks);
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks) {
    return capacity < 0 ? nullptr : MakeArray(allocator, true, nullptr, 0, callBacks);
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                           CFArrayRef theArray) {
    const auto* array = CFRuntimeArgument<__CFArray>(theArray, "theArray");
    return array == nullptr || capacity < 0 ? nullptr
                                            : MakeArray(allocator, true, array->mValues.data(),
                                                        array->mValues.size(), &array->mCallBacks);
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
    const auto* array = CFRuntimeArgument<__CFArray>(theArray, "theArray");
    return array == nullptr ? 0 : array->Count();
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
    const auto* array = CFRuntimeArgument<__CFArray>(theArray, "theArray");
    return array == nullptr || !array->HasIndex(idx)
               ? nullptr
               : array->mValues[static_cast<std::size_t>(idx)];
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value) {
    if (auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray")) {
        CFRuntimeGuard([&] { array->Append(value); });
    }
}

void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    if (array != nullptr && idx == array->Count()) {
        CFArrayAppendValue(theArray, value);
        return;
    }
    if (array == nullptr || !array->HasIndex(idx)) {
        return;
    }
    const void* retained = ContainerRetain(array->mCallBacks, value);
    std::swap(array->mValues[static_cast<std::size_t>(idx)], retained);
    ContainerRelease(array->mCallBacks, retained);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    if (array == nullptr || !array->HasIndex(idx)) {
        return;
    }
    const void* value = array->mValues[static_cast<std::size_t>(idx)];
    array->mValues.erase(array->mValues.begin() + idx);
    ContainerRelease(array->mCallBacks, value);
}
