#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>
#include <utility>

namespace CoreMIDI {

// A CFOwned owns a reference to a CoreFoundation object, which may be null, and releases it in its
// destructor.
//
//     const CFOwned<CFStringRef> name = MakeString("Port 1");
//     MIDIObjectSetStringProperty(device, kMIDIPropertyName, name.Get());
template <typename Reference>
class CFOwned {
public:
    CFOwned() = default;
    // Takes over a reference that a Create or Copy function gave.
    explicit CFOwned(Reference created) : mReference(created) {}
    CFOwned(const CFOwned& other) : CFOwned(Retained(other.mReference)) {}
    CFOwned(CFOwned&& other) noexcept : mReference(std::exchange(other.mReference, nullptr)) {}
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
    static CFOwned Retained(Reference reference) {
        return CFOwned(reference == nullptr ? nullptr : static_cast<Reference>(Retain(reference)));
    }

    Reference Get() const { return mReference; }
    // Hands the reference over to the caller.
    Reference Release() { return std::exchange(mReference, nullptr); }
    explicit operator bool() const { return mReference != nullptr; }

private:
    static Reference Retain(Reference reference) {
        CFRetain(reference);
        return reference;
    }

    Reference mReference = nullptr;
};

// Whether it is a string, and one that a property list can hold.
bool IsName(CFTypeRef value);

inline bool IsString(CFTypeRef value) {
    return value != nullptr && CFGetTypeID(value) == CFStringGetTypeID();
}

// Returns the text of a string in UTF-8, or nothing if the object is not a string. Throws
// std::bad_alloc.
std::optional<std::string> TextOf(CFStringRef string);
// Null without memory.
CFOwned<CFStringRef> CreateString(const std::string& text) noexcept;
// The same and a number, but throw std::bad_alloc.
CFOwned<CFStringRef> MakeString(const std::string& text);
CFOwned<CFNumberRef> MakeNumber(SInt32 number);
// Returns the value of a number, or nothing if the object is not an integer within the range.
std::optional<SInt32> NumberOf(CFTypeRef value);

} // namespace CoreMIDI
