#pragma once

#include "hsl/LogManager.h"

#include <atomic>

namespace HSL {

// A format holder registers a format string once, so that it is then logged by its id. It is
// typically a static object:
//
//     CFormatHolder sLate("late by %d us");
//     sLate.Register();                               // after Initialize
//     context->Log(cat, sLate, late);
//
// Before Register, the id is -1, which prints as an uninitialised format. It is -1 again if logging
// is initialised anew, until Register is called again. `text` is not copied and must live as long
// as the object. Any thread may read the id. Only one thread at a time may call Register, which
// waits for a collection pass.
class CFormatHolder {
public:
    constexpr explicit CFormatHolder(const char* text) : mText(text) {}
    CFormatHolder(const CFormatHolder&) = delete;
    CFormatHolder& operator=(const CFormatHolder&) = delete;

    void Register() {
        CLogManager* const manager = CLogManager::Instance();
        if (manager != nullptr && ID() == -1) {
            const short id = manager->AddFormatString(mText);
            mRegistration.store(Pack(CLogManager::Generation(), id), std::memory_order_relaxed);
        }
    }

    short ID() const {
        // Relaxed: the format behind the id is handed to the collection thread under a lock.
        const unsigned int registration = mRegistration.load(std::memory_order_relaxed);
        const auto id = static_cast<short>(registration & 0xFFFF);
        return registration == Pack(CLogManager::Generation(), id) ? id : short{-1};
    }
    operator short() const { return ID(); }

private:
    // The id and the generation that it belongs to, in one word so that both are read together. No
    // generation that logs is 0.
    static unsigned int Pack(unsigned int generation, short id) {
        return generation << 16 | static_cast<unsigned short>(id);
    }

    const char* mText;
    std::atomic<unsigned int> mRegistration{0xFFFF};
};

} // namespace HSL
