#pragma once

#include <pthread.h>

#include <atomic>
#include <type_traits>

// A slot that holds one pointer per thread. The pointer is null until its thread sets it.
//
// Any thread may call `Get` and `Set`, which work on its own pointer. Neither blocks. `Get` never
// allocates; the first `Set` of a thread may, in the C library. What the pointers point to belongs
// to the user: it is freed neither when a thread ends nor when the slot is destroyed.
//
// When the platform has no key left, `Get` and `Set` use key 0 without a check, whoever owns it,
// and work on that key's pointers. This is intended, so that no access pays for a check. Key 0 is
// never deleted.
//
//     static NyThreadLocal<Session*> sSession;
//     sSession.Set(&session);
//     Session* const mine = sSession.Get();
template <typename T>
class NyThreadLocal {
    static_assert(std::is_pointer_v<T>, "a slot holds a pointer");

public:
    NyThreadLocal() : mKey(CreateKey()) {}

    ~NyThreadLocal() {
        // Marks the slot as destroyed. Slots are static objects, and a thread may outlive them; it
        // then finds the mark in the storage that remains.
        const pthread_key_t key = mKey.exchange(kDestroyed, std::memory_order_relaxed);
        if (key != kNoKey) {
            pthread_key_delete(key);
        }
    }

    NyThreadLocal(const NyThreadLocal&) = delete;
    NyThreadLocal& operator=(const NyThreadLocal&) = delete;

    T Get() const {
        // Relaxed: the key is written before any thread can know of the slot.
        const pthread_key_t key = mKey.load(std::memory_order_relaxed);
        return key == kDestroyed ? nullptr : static_cast<T>(pthread_getspecific(key));
    }

    void Set(T value) {
        const pthread_key_t key = mKey.load(std::memory_order_relaxed);
        if (key != kDestroyed) {
            pthread_setspecific(key, value);
        }
    }

private:
    static constexpr pthread_key_t kNoKey = 0;
    static constexpr pthread_key_t kDestroyed = ~pthread_key_t{0}; // beyond every platform's keys

    // Some platforms hand out 0 as a key like any other. It is given back in exchange for the next
    // key, so that 0 means on every platform that there is no key.
    static pthread_key_t CreateKey() {
        pthread_key_t key = kNoKey;
        if (pthread_key_create(&key, nullptr) != 0) {
            return kNoKey;
        }
        if (key != kNoKey) {
            return key;
        }
        pthread_key_t other = kNoKey;
        const bool created = pthread_key_create(&other, nullptr) == 0;
        pthread_key_delete(key);
        return created ? other : kNoKey;
    }

    // In the object itself, and atomic, because a thread may still read it after the destructor.
    std::atomic<pthread_key_t> mKey;
};
