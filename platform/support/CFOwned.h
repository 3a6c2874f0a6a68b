#pragma once

#include <CoreFoundation/CFBase.h>

#include <utility>

// A CFOwned owns a reference to a CoreFoundation object, which may be null, and releases it in its
// destructor:
//
//     const CFOwned<CFStringRef> name(CFStringCreateWithCString(nullptr, "Port 1", encoding));
//     MIDIObjectSetStringProperty(device, kMIDIPropertyName, name.Get());
//
// A copy has a reference of its own to the same object. None of the operations allocates or fails.
// As with a plain pointer, threads that share a CFOwned need a lock as soon as one of them changes
// it.
template <typename Reference>
class CFOwned {
public:
    CFOwned() = default;
    // Takes over the reference that a Create or Copy function gave.
    explicit CFOwned(Reference created) noexcept : mReference(created) {}
    CFOwned(const CFOwned& other) noexcept : CFOwned(Retained(other.mReference)) {}
    CFOwned(CFOwned&& other) noexcept : mReference(other.Release()) {}
    CFOwned& operator=(CFOwned other) noexcept {
        std::swap(mReference, other.mReference);
        return *this;
    }
    ~CFOwned() {
        if (mReference != nullptr) {
            CFRelease(mReference);
        }
    }

    // Adds a reference to an object that somebody else owns.
    static CFOwned Retained(Reference reference) noexcept {
        if (reference != nullptr) {
            CFRetain(reference);
        }
        return CFOwned(reference);
    }

    Reference Get() const noexcept { return mReference; }
    Reference operator->() const noexcept { return mReference; }
    explicit operator bool() const noexcept { return mReference != nullptr; }
    // Hands the reference over to the caller.
    Reference Release() noexcept { return std::exchange(mReference, nullptr); }
    void Reset(Reference created = nullptr) noexcept { *this = CFOwned(created); }

private:
    Reference mReference = nullptr;
};
