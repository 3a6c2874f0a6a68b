#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace MidiServer {

// Holds the one reference that a Create or Copy function gave, and releases it.
template <typename Ref>
class CFOwned {
public:
    CFOwned() = default;
    explicit CFOwned(Ref object) : mObject(object) {}
    CFOwned(CFOwned&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    CFOwned& operator=(CFOwned&& other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }
    ~CFOwned() {
        if (mObject != nullptr) {
            CFRelease(mObject);
        }
    }
    CFOwned(const CFOwned&) = delete;
    CFOwned& operator=(const CFOwned&) = delete;

    Ref Get() const { return mObject; }
    explicit operator bool() const { return mObject != nullptr; }

private:
    Ref mObject = nullptr;
};

} // namespace MidiServer
