#pragma once

#include "hsl/CCat.h"
#include "hsl/LogManager.h"

#include <array>

namespace HSL {

// An application's category, typically a static object: its id, its name, and the sets that it
// forms with each severity level, kept so that a log call builds none.
//
//     const CCategoryHolder kTransport(20, "Transport");
//     context->Log(kTransport[kWarning], "late by %d us", late);
//
// `name` is not copied and must live as long as the object. Any thread may read the object.
class CCategoryHolder {
public:
    constexpr CCategoryHolder(unsigned char id, const char* name)
        : mID(id), mName(name), mSets{CCat(kUltraVerbose, id), CCat(kVerbose, id),
                                      CCat(kChatty, id),       CCat(kInfo, id),
                                      CCat(kWarning, id),      CCat(kError, id),
                                      CCat(kCatastrophy, id)} {}

    // Gives the category its name, unless it has one. Call it once after each Initialize, which
    // forgets the names.
    void Register() const {
        if (CLogManager* const manager = CLogManager::Instance()) {
            manager->SetCategoryName(mID, mName);
        }
    }

    constexpr unsigned char ID() const { return mID; }
    constexpr const char* Name() const { return mName; }
    constexpr const CCat& operator[](tLevel level) const { return mSets[level]; }

private:
    unsigned char mID;
    const char* mName;
    std::array<CCat, kCatastrophy + 1> mSets;
};

} // namespace HSL
