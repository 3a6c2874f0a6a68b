#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/CoreFoundation/src/values/ContainerCallBacks.h"

#include <CoreFoundation/CFArray.h>

#include <vector>

struct __CFArray final : CFRuntimeObject {
    __CFArray(bool isMutable, const CFArrayCallBacks* callBacks)
        : CFRuntimeObject(kCFRuntimeArrayType),
          mMutable(isMutable),
          mCallBacks(callBacks == nullptr ? CFArrayCallBacks{} : *callBacks) {}
    ~__CFArray() override { Clear(); }

    bool Equals(const CFRuntimeObject& other) const override;
    CFHashCode Hash() const override { return mValues.size(); }
    std::u16string Description(unsigned depth) const override;

    CFIndex Count() const { return static_cast<CFIndex>(mValues.size()); }
    bool ValuesAreEqual(const void* a, const void* b) const {
        return ContainerValuesAreEqual(mCallBacks, a, b);
    }
    void Insert(std::size_t index, const void* value) {
        // The place first: once the value is retained nothing may fail.
        mValues.insert(mValues.begin() + static_cast<std::ptrdiff_t>(index), nullptr);
        mValues[index] = ContainerRetain(mCallBacks, value);
    }
    void Clear() {
        // Out of the array first: a release may run code that looks at it.
        std::vector<const void*> values;
        values.swap(mValues);
        for (const void* value : values) {
            ContainerRelease(mCallBacks, value);
        }
    }

    const bool mMutable;
    const CFArrayCallBacks mCallBacks;
    std::vector<const void*> mValues;
};

constinit const CFArrayCallBacks kCFTypeArrayCallBacks = {
    0, RetainContainedObject, ReleaseContainedObject, CFCopyDescription, CFEqual};

namespace {

const __CFArray* ArrayWithRange(CFArrayRef reference, CFRange range,
                                const char* argument = "theArray",
                                const char* function = __builtin_FUNCTION()) {
    const auto* array = CFRuntimeArgument<__CFArray>(reference, argument, function);
    return array != nullptr && RangeIsWithin(range, array->mValues.size()) ? array : nullptr;
}

bool IsIndex(const __CFArray& array, CFIndex index) {
    return index >= 0 && index < array.Count();
}

// A new array of the values, null when there is no memory.
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
            array->Insert(i, values[i]);
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
        if (!ValuesAreEqual(mValues[i], array.mValues[i])) {
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

CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef theArray) {
    const auto* array = CFRuntimeArgument<__CFArray>(theArray, "theArray");
    return array == nullptr ? nullptr
                            : MakeArray(allocator, false, array->mValues.data(),
                                        array->mValues.size(), &array->mCallBacks);
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
    return array == nullptr || !IsIndex(*array, idx)
               ? nullptr
               : array->mValues[static_cast<std::size_t>(idx)];
}

void CFArrayGetValues(CFArrayRef theArray, CFRange range, const void** values) {
    const auto* array = ArrayWithRange(theArray, range);
    if (array == nullptr || values == nullptr) {
        return;
    }
    for (CFIndex i = 0; i < range.length; ++i) {
        values[i] = array->mValues[static_cast<std::size_t>(range.location + i)];
    }
}

CFIndex CFArrayGetCountOfValue(CFArrayRef theArray, CFRange range, const void* value) {
    const auto* array = ArrayWithRange(theArray, range);
    CFIndex count = 0;
    for (CFIndex i = 0; array != nullptr && i < range.length; ++i) {
        count += array->ValuesAreEqual(array->mValues[static_cast<std::size_t>(range.location + i)],
                                       value)
                     ? 1
                     : 0;
    }
    return count;
}

Boolean CFArrayContainsValue(CFArrayRef theArray, CFRange range, const void* value) {
    return ArrayWithRange(theArray, range) != nullptr &&
           CFArrayGetFirstIndexOfValue(theArray, range, value) != kCFNotFound;
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef theArray, CFRange range, const void* value) {
    const auto* array = ArrayWithRange(theArray, range);
    for (CFIndex i = 0; array != nullptr && i < range.length; ++i) {
        const CFIndex index = range.location + i;
        if (array->ValuesAreEqual(array->mValues[static_cast<std::size_t>(index)], value)) {
            return index;
        }
    }
    return kCFNotFound;
}

void CFArrayApplyFunction(CFArrayRef theArray, CFRange range, CFArrayApplierFunction applier,
                          void* context) {
    const auto* array = ArrayWithRange(theArray, range);
    if (array == nullptr || applier == nullptr) {
        return;
    }
    for (CFIndex i = 0; i < range.length; ++i) {
        // Asked for anew each time, since the function may shorten the array.
        if (range.location + i >= array->Count()) {
            return;
        }
        applier(array->mValues[static_cast<std::size_t>(range.location + i)], context);
    }
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value) {
    if (auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray")) {
        CFArrayInsertValueAtIndex(theArray, array->Count(), value);
    }
}

void CFArrayAppendArray(CFMutableArrayRef theArray, CFArrayRef otherArray, CFRange otherRange) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    const auto* other = ArrayWithRange(otherArray, otherRange, "otherArray");
    if (array == nullptr || other == nullptr) {
        return;
    }
    CFRuntimeGuard(false, [&] {
        array->mValues.reserve(array->mValues.size() + static_cast<std::size_t>(otherRange.length));
        for (CFIndex i = 0; i < otherRange.length; ++i) {
            array->Insert(array->mValues.size(),
                          other->mValues[static_cast<std::size_t>(otherRange.location + i)]);
        }
        return true;
    });
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    if (array == nullptr || idx < 0 || idx > array->Count()) {
        return;
    }
    CFRuntimeGuard(false, [&] {
        array->Insert(static_cast<std::size_t>(idx), value);
        return true;
    });
}

void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    if (array == nullptr || !IsIndex(*array, idx)) {
        if (array != nullptr && idx == array->Count()) {
            CFArrayAppendValue(theArray, value);
        }
        return;
    }
    const void* retained = ContainerRetain(array->mCallBacks, value);
    std::swap(array->mValues[static_cast<std::size_t>(idx)], retained);
    ContainerRelease(array->mCallBacks, retained);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx) {
    auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray");
    if (array == nullptr || !IsIndex(*array, idx)) {
        return;
    }
    const void* value = array->mValues[static_cast<std::size_t>(idx)];
    array->mValues.erase(array->mValues.begin() + idx);
    ContainerRelease(array->mCallBacks, value);
}

void CFArrayRemoveAllValues(CFMutableArrayRef theArray) {
    if (auto* array = CFRuntimeMutableArgument<__CFArray>(theArray, "theArray")) {
        array->Clear();
    }
}
