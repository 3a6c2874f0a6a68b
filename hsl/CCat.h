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

// The set of categories of a message, typically one level and one or more subjects:
//
//     constexpr HSL::CCat kSlowDisk(HSL::kWarning, 20);
//     context->Log(kSlowDisk, "the disk is slow");
//
// A message passes the filter when any category of its set is enabled. The empty set never passes.
//
// The class is a plain value: a count byte and that many category ids, at most 255. Further ids are
// left out. A set that is used often is best kept, because it has 256 bytes to fill.
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
    // The two most frequent sets: a level alone, and a level with a subject.
    constexpr explicit CCat(unsigned char id) : CCat(std::initializer_list<unsigned char>{id}) {}
    constexpr CCat(unsigned char level, unsigned char subject)
        : CCat(std::initializer_list<unsigned char>{level, subject}) {}

    constexpr unsigned char Count() const { return mCount; }
    constexpr const unsigned char* IDs() const { return mIDs; }

    // Writes the count byte and the ids to a ring, and returns 0. Only the ring's producer may call
    // it.
    int Serialize(CCircularBuffer* buffer) const;

    // Initialize names the levels, and Cleanup does nothing. The manager calls them as logging
    // starts and ends.
    static void Initialize();
    static void Cleanup();

private:
    static constexpr unsigned char kMaximum = 255;

    unsigned char mCount = 0;
    unsigned char mIDs[kMaximum] = {};
};

static_assert(sizeof(CCat) == 256, "the bytes of a set lie one after another");

} // namespace HSL
