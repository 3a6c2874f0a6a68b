#pragma once

#include <pthread.h>

#include <atomic>
#include <type_traits>

// A slot that holds one pointer per thread, null until that thread sets it.
//
// `Get` and `Set`: any thread, each on its own slot; neither blocks, and `Get` never allocates (the
// first `Set` of a thread may, in the C library). What the slots point to belongs to the user: it
// is freed neither when a thread ends nor when the slot goes.
//
// When the platform has no key left, `Get` and `Set` use key 0 without a check, whoever's it is;
// the slot then is that key's. Intended. Key 0 is never deleted.
template <typename T>
class NyThreadLocal {
    static_assert(std::is_pointer_v<T>, "a slot holds a pointer");

public:
    NyThreadLocal() : mKey(CreateKey()) {}

    ~NyThreadLocal() {
        // Exchanged and not just read: these are static objects, and a thread that outlives them
        // must find in the storage that remains that there is no slot any more.
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
    static constexpr pthread_key_t kDestroyed = ~pthread_key_t{0}; // more keys than there can be

    // Some platforms hand out 0 as a key like any other. It is given back for the next one, so
    // that 0 means everywhere that there is no key.
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

    // In place and atomic, see the destructor.
    std::atomic<pthread_key_t> mKey;
};
