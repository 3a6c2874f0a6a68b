#pragma once

#include <cstddef>
#include <initializer_list>

class CCircularBuffer;

namespace HSL {

// The severity levels, the first category ids. Ids 20 to 119 are for applications, see
// CLogManager::RegisterCategoryRange.
enum tLevel : unsigned char {
    kUltraVerbose = 0,
    kVerbose = 1,
    kChatty = 2,
    kInfo = 3,
    kWarning = 4,
    kError = 5,
    kCatastrophy = 6,
};

// The set of categories of a message, typically one level and one or more subjects. It passes the
// filter when any of them is enabled; the empty set never does.
//
// A plain value: a count byte and that many category ids, at most 255; more are left out. Keep sets
// that are used often, rather than to build them for every message.
class CCat {
public:
    constexpr CCat() = default;
    constexpr CCat(std::initializer_list<unsigned char> ids) {
        for (const unsigned char id : ids) {
            if (mCount < kMaximum) {
                mIDs[mCount++] = id;
            }
        }
    }
    // The two most frequent kinds: a level, and a level with a subject.
    constexpr explicit CCat(unsigned char id) : CCat(std::initializer_list<unsigned char>{id}) {}
    constexpr CCat(unsigned char level, unsigned char subject)
        : CCat(std::initializer_list<unsigned char>{level, subject}) {}

    constexpr unsigned char Count() const { return mCount; }
    constexpr const unsigned char* IDs() const { return mIDs; }

    // Writes the count byte and the ids. Returns 0. The ring's producer only.
    int Serialize(CCircularBuffer* buffer) const;

    // Names the levels. The manager calls both as it starts and ends.
    static void Initialize();
    static void Cleanup();

private:
    static constexpr unsigned char kMaximum = 255;

    unsigned char mCount = 0;
    unsigned char mIDs[kMaximum] = {};
};

static_assert(sizeof(CCat) == 256, "the bytes of a set lie one after another");

} // namespace HSL
