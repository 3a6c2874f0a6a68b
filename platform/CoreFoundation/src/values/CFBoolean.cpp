#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <CoreFoundation/CFNumber.h>

struct __CFBoolean final : CFRuntimeObject {
    constexpr __CFBoolean(bool value, CFRuntimeImmortal immortal)
        : CFRuntimeObject(kCFRuntimeBooleanType, immortal), mValue(value) {}

    CFHashCode Hash() const override { return mValue ? 1 : 0; }
    std::u16string Description(unsigned /*depth*/) const override {
        return mValue ? u"true" : u"false";
    }

    const bool mValue;
};

namespace {

constinit CFRuntimeConstant<__CFBoolean> sTrue(true);
constinit CFRuntimeConstant<__CFBoolean> sFalse(false);

} // namespace

constinit const CFBooleanRef kCFBooleanTrue = &sTrue.mObject;
constinit const CFBooleanRef kCFBooleanFalse = &sFalse.mObject;

CFTypeID CFBooleanGetTypeID(void) {
    return kCFRuntimeBooleanType;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    const auto* object = CFRuntimeArgument<__CFBoolean>(boolean, "boolean");
    return object != nullptr && object->mValue;
}
