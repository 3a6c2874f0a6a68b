// A CFRuntimeObject is what every object of the library is: it has a type and a count of
// references, and knows how objects of the type are compared and described.
//
//     struct __CFDate final : CFRuntimeObject { // named after its reference type, CFDateRef
//         explicit __CFDate(CFAbsoluteTime at) : CFRuntimeObject(kCFRuntimeDateType), mAt(at) {}
//         const CFAbsoluteTime mAt;
//     };
//     CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at) {
//         return CFRuntimeCreate<__CFDate>(allocator, at);
//     }
//     CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate) {
//         const auto* date = CFRuntimeArgument<__CFDate>(theDate, "theDate");
//         return date == nullptr ? 0 : date->mAt;
//     }
//
// The number of a type is one of those below or comes from `CFRuntimeRegisterType`.
// `CFRuntimeArgument` checks what a caller passed: it returns null for everything that is not an
// object of the type, or ends the process in strict mode. `CFRuntimeCast` and `CFRuntimeTypeOf` are
// for references that may well be null or of another type.
#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

// Types that have constants, which must exist before any code has run, have fixed numbers.
enum CFRuntimeBuiltInType : CFTypeID {
    kCFRuntimeNotAType,
    kCFRuntimeAllocatorType,
    kCFRuntimeArrayType,
    kCFRuntimeBooleanType,
    kCFRuntimeDataType,
    kCFRuntimeDateType,
    kCFRuntimeDictionaryType,
    kCFRuntimeErrorType,
    kCFRuntimeNumberType,
    kCFRuntimeStringType,
    kCFRuntimeURLType,
    kCFRuntimeUUIDType,
    kCFRuntimeFirstRegisteredType,
};

// Returns a new type number, or 0 if all 64 numbers are used up. `name` must live as long as the
// process. A type's `GetTypeID` keeps the number in a static variable. Any thread may call.
CFTypeID CFRuntimeRegisterType(const char* name);

// This argument tells a constructor that the object is never destroyed: the object is not counted,
// and retaining and releasing it do nothing.
struct CFRuntimeImmortal {};

class CFRuntimeObject {
public:
    CFRuntimeObject(const CFRuntimeObject&) = delete;
    CFRuntimeObject& operator=(const CFRuntimeObject&) = delete;

    CFTypeID TypeID() const { return mType; }
    bool IsImmortal() const { return mImmortal; }

    // Returns whether the objects are equal. `other` has the same type and is not this object.
    virtual bool Equals(const CFRuntimeObject& other) const;
    virtual CFHashCode Hash() const;
    // Returns a text for people that describes at most `depth` further levels of containers.
    virtual std::u16string Description(unsigned depth) const;

    // Retaining needs no ordering, because whoever retains has a reference already.
    void Retain() const {
        if (!mImmortal) {
            mReferences.fetch_add(1, std::memory_order_relaxed);
        }
    }

    // Retains the object unless it is being destroyed; returns whether it did. A table that finds
    // objects without owning a reference calls this under the lock that an object's destructor
    // takes to leave the table.
    bool RetainIfAlive() const {
        std::uint32_t references = mReferences.load(std::memory_order_relaxed);
        while (!mImmortal && references != 0) {
            if (mReferences.compare_exchange_weak(references, references + 1,
                                                  std::memory_order_relaxed)) {
                return true;
            }
        }
        return mImmortal;
    }

    // The ordering is acquire and release: what each thread did to the object before it released
    // the object happens before the destructor, which runs on the thread that gives up the last
    // reference.
    void Release() const {
        if (!mImmortal && mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    CFIndex RetainCount() const;

protected:
    explicit CFRuntimeObject(CFTypeID type) noexcept;
    constexpr CFRuntimeObject(CFTypeID type, CFRuntimeImmortal) noexcept
        : mType(type), mImmortal(true) {}
    virtual ~CFRuntimeObject();

private:
    mutable std::atomic<std::uint32_t> mReferences{1};
    const CFTypeID mType;
    const bool mImmortal;
};

// Returns a reference of any type as an object; null stays null.
inline const CFRuntimeObject* CFRuntimeObjectOf(CFTypeRef reference) {
    return static_cast<const CFRuntimeObject*>(reference);
}

// Returns the reference as an object of the type, or null if it is null or of another type. The
// result is const if the reference is.
template <typename Object>
const Object* CFRuntimeCast(CFTypeRef reference) {
    static_assert(std::is_final_v<Object>, "types are compared exactly");
    const auto* object = CFRuntimeObjectOf(reference);
    return object == nullptr || typeid(*object) != typeid(Object)
               ? nullptr
               : static_cast<const Object*>(object);
}
template <typename Object>
Object* CFRuntimeCast(void* reference) {
    return const_cast<Object*>(CFRuntimeCast<Object>(static_cast<CFTypeRef>(reference)));
}

// Returns the type of any object, and 0 for null.
inline CFTypeID CFRuntimeTypeOf(CFTypeRef reference) {
    return reference == nullptr ? CFTypeID{kCFRuntimeNotAType}
                                : CFRuntimeObjectOf(reference)->TypeID();
}

// Reports a call whose argument is not what it has to be. In strict mode this ends the process with
// a line on standard error; otherwise it does nothing and the caller answers the call. `expected`
// says what the argument should have been.
void CFRuntimeRefuse(CFTypeRef found, const char* expected, const char* argument,
                     const char* function) noexcept;
void CFRuntimeRefuse(CFTypeRef found, const std::type_info& expected, const char* argument,
                     const char* function) noexcept;

// Returns an exported function's argument as an object. If the argument is null or of another type,
// refuses it (see above) and returns null. The last parameter is the name of the calling function,
// which helpers pass on.
template <typename Object, typename Reference>
auto* CFRuntimeArgument(Reference* reference, const char* argument,
                        const char* function = __builtin_FUNCTION()) {
    auto* object = CFRuntimeCast<Object>(reference);
    if (object == nullptr) {
        CFRuntimeRefuse(reference, typeid(Object), argument, function);
    }
    return object;
}

// Does the same for types that can be mutable, and also refuses an immutable object.
template <typename Object, typename Reference>
Object* CFRuntimeMutableArgument(Reference* reference, const char* argument,
                                 const char* function = __builtin_FUNCTION()) {
    auto* object = CFRuntimeArgument<Object>(reference, argument, function);
    if (object == nullptr || object->mMutable) {
        return object;
    }
    CFRuntimeRefuse(reference, "a mutable object", argument, function);
    return nullptr;
}

// These two do the same for an object of any type, and for a type that is known by its number only.
inline const CFRuntimeObject* CFRuntimeArgument(CFTypeRef reference, const char* argument,
                                                const char* function = __builtin_FUNCTION()) {
    if (reference == nullptr) {
        CFRuntimeRefuse(reference, "an object", argument, function);
    }
    return CFRuntimeObjectOf(reference);
}
bool CFRuntimeIsArgument(CFTypeRef reference, CFTypeID type, const char* argument,
                         const char* function = __builtin_FUNCTION());
// Does the same for an argument that may be null: only an object of another type is refused.
inline bool CFRuntimeIsOptionalArgument(CFTypeRef reference, CFTypeID type, const char* argument,
                                        const char* function = __builtin_FUNCTION()) {
    return reference == nullptr || CFRuntimeIsArgument(reference, type, argument, function);
}

// Returns the point at which CFRuntimeHash evaluates its polynomials. It is drawn once for the
// process.
std::uint64_t CFRuntimeHashPoint() noexcept;

// Returns a hash of bytes or units: the value, at a secret point of the field of 2^31 - 1 elements,
// of the polynomial that has them as its coefficients. Two sequences of n units agree at no more
// than n points, so nobody who does not know the point can fill a file with keys that collide.
template <typename Units>
CFHashCode CFRuntimeHash(const Units& units) {
    constexpr std::uint64_t kElements = (std::uint64_t{1} << 31U) - 1;
    const std::uint64_t point = CFRuntimeHashPoint();
    std::uint64_t hash = 1; // so that zeros in front count
    for (const auto unit : units) {
        hash = (hash * point + static_cast<std::uint64_t>(unit)) % kElements;
    }
    return static_cast<CFHashCode>(hash);
}

// Returns whether objects may be made with the allocator.
bool CFRuntimeCanAllocate(CFAllocatorRef allocator);

// Calls `body` and returns its result, or `failure` if there is no memory or the system has no more
// of something else that `body` needs, such as descriptors.
template <typename Result, typename Body>
Result CFRuntimeGuard(Result failure, const Body& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return failure;
    } catch (const std::length_error&) {
        return failure;
    } catch (const std::runtime_error&) {
        return failure;
    }
}
// Does the same for a body without a result.
template <typename Body>
void CFRuntimeGuard(const Body& body) noexcept {
    CFRuntimeGuard(false, [&] {
        body();
        return true;
    });
}

// Makes an object with one reference. Returns null if there is no memory.
template <typename Object, typename... Arguments>
Object* CFRuntimeCreate(CFAllocatorRef allocator, Arguments&&... arguments) noexcept {
    if (!CFRuntimeCanAllocate(allocator)) {
        return nullptr;
    }
    return CFRuntimeGuard<Object*>(
        nullptr, [&] { return new Object(std::forward<Arguments>(arguments)...); });
}

// A CFRuntimeConstant holds an object that exists before any code runs and that no static
// destructor destroys, because threads may still use it while the process exits.
template <typename Object>
union CFRuntimeConstant {
    template <typename... Arguments>
    constexpr explicit CFRuntimeConstant(Arguments... arguments)
        : mObject(arguments..., CFRuntimeImmortal{}) {}
    constexpr ~CFRuntimeConstant() {}

    Object mObject;
};
