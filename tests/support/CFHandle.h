// Owns one reference to a CoreFoundation object, as the result of a Create or Copy function.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <utility>

template <typename Ref>
class CFHandle {
public:
    CFHandle() = default;
    explicit CFHandle(Ref object) : mObject(object) {}
    CFHandle(CFHandle&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    CFHandle& operator=(CFHandle&& other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }
    ~CFHandle() { Reset(); }

    Ref Get() const { return mObject; }
    explicit operator bool() const { return mObject != nullptr; }
    void Reset() {
        if (mObject != nullptr) {
            CFRelease(std::exchange(mObject, nullptr));
        }
    }

private:
    Ref mObject = nullptr;
};
