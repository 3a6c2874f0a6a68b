// What every object of the library is: a type, a count of references, and how objects of the type
// are compared and described.
//
// A type derives a final struct named after its opaque reference type (`struct __CFUUID final :
// CFRuntimeObject`) and gives its type number to the constructor: one of those below, or one from
// `CFRuntimeRegisterType`. Exported functions turn their arguments into objects with
// `CFRuntimeArgument`, which answers null for everything that is not an object of that type (and in
// strict mode ends the process instead), and make objects with `CFRuntimeCreate`. What the library
// itself has in hand may well be null or of another type: that is what `CFRuntimeCast` and
// `CFRuntimeTypeOf` are for.
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

// A new type number; `name` must live as long as the process. 0 when the numbers (64) are used up.
// Any thread. Kept in a function-local static by the type's `GetTypeID`.
CFTypeID CFRuntimeRegisterType(const char* name);

// Tells constructors that the object is never destroyed: it is not counted, and retaining and
// releasing it do nothing.
struct CFRuntimeImmortal {};

class CFRuntimeObject {
public:
    CFRuntimeObject(const CFRuntimeObject&) = delete;
    CFRuntimeObject& operator=(const CFRuntimeObject&) = delete;

    CFTypeID TypeID() const { return mType; }
    bool IsImmortal() const { return mImmortal; }

    // `other` is an object of the same type, and not this one.
    virtual bool Equals(const CFRuntimeObject& other) const;
    virtual CFHashCode Hash() const;
    // For people; `depth` is how many more levels of containers are described.
    virtual std::u16string Description(unsigned depth) const;

    // No ordering is needed to retain: whoever retains has a reference already.
    void Retain() const {
        if (!mImmortal) {
            mReferences.fetch_add(1, std::memory_order_relaxed);
        }
    }

    // For tables that find objects without owning a reference, under the lock that the object's
    // destructor takes to leave the table: false when the object is being destroyed.
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

    // Acquire and release: what each thread did to the object before its release happens before the
    // destructor, which runs on the thread that gives up the last reference.
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

// The reference of any type as an object; null stays null.
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

// The type of any object, 0 for null.
inline CFTypeID CFRuntimeTypeOf(CFTypeRef reference) {
    return reference == nullptr ? CFTypeID{kCFRuntimeNotAType}
                                : CFRuntimeObjectOf(reference)->TypeID();
}

// What becomes of a call whose argument is not what it has to be: in strict mode it ends the
// process with a line on standard error, else it goes on and is answered. `expected` says what the
// argument should have been.
void CFRuntimeRefuse(CFTypeRef found, const char* expected, const char* argument,
                     const char* function) noexcept;
void CFRuntimeRefuse(CFTypeRef found, const std::type_info& expected, const char* argument,
                     const char* function) noexcept;

// An exported function's argument as an object, null when it is null or of another type. The last
// parameter is the name of the calling function, which helpers pass on.
template <typename Object, typename Reference>
auto* CFRuntimeArgument(Reference* reference, const char* argument,
                        const char* function = __builtin_FUNCTION()) {
    auto* object = CFRuntimeCast<Object>(reference);
    if (object == nullptr) {
        CFRuntimeRefuse(reference, typeid(Object), argument, function);
    }
    return object;
}

// The same for types that can be mutable; null for an immutable object too.
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

// The same for an object of any type, and for types whose objects are not known where they are
// asked for.
inline const CFRuntimeObject* CFRuntimeArgument(CFTypeRef reference, const char* argument,
                                                const char* function = __builtin_FUNCTION()) {
    if (reference == nullptr) {
        CFRuntimeRefuse(reference, "an object", argument, function);
    }
    return CFRuntimeObjectOf(reference);
}
bool CFRuntimeIsArgument(CFTypeRef reference, CFTypeID type, const char* argument,
                         const char* function = __builtin_FUNCTION());
// Null is an answer that the function knows: only an object of another type is refused.
inline bool CFRuntimeIsOptionalArgument(CFTypeRef reference, CFTypeID type, const char* argument,
                                        const char* function = __builtin_FUNCTION()) {
    return reference == nullptr || CFRuntimeIsArgument(reference, type, argument, function);
}

// The point at which CFRuntimeHash takes its polynomials: drawn once for the process.
std::uint64_t CFRuntimeHashPoint() noexcept;

// A hash over bytes or units: the polynomial that has them as its coefficients, at a secret point
// of the field of 2^31 - 1 elements. Two sequences of n units agree at n points at most, so nobody
// who does not know the point can fill a file with keys that collide.
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

// Whether objects may be made with the allocator.
bool CFRuntimeCanAllocate(CFAllocatorRef allocator);

// Calls `body` and gives its result, or `failure` when there was no memory for it, or the system
// had nothing left of something else that it needs (descriptors).
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
// The same for what has no result.
template <typename Body>
void CFRuntimeGuard(const Body& body) noexcept {
    CFRuntimeGuard(false, [&] {
        body();
        return true;
    });
}

// A new object with one reference, null when there is no memory.
template <typename Object, typename... Arguments>
Object* CFRuntimeCreate(CFAllocatorRef allocator, Arguments&&... arguments) noexcept {
    if (!CFRuntimeCanAllocate(allocator)) {
        return nullptr;
    }
    return CFRuntimeGuard<Object*>(
        nullptr, [&] { return new Object(std::forward<Arguments>(arguments)...); });
}

// An object that is there before any code runs and that no static destructor ends, since threads
// may still use it when the process exits.
template <typename Object>
union CFRuntimeConstant {
    template <typename... Arguments>
    constexpr explicit CFRuntimeConstant(Arguments... arguments)
        : mObject(arguments..., CFRuntimeImmortal{}) {}
    constexpr ~CFRuntimeConstant() {}

    Object mObject;
};
