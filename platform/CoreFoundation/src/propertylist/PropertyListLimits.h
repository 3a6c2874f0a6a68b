// The limits of property lists, whatever their format. They keep a file from exhausting the memory
// or the stack.
#pragma once

#include <cstddef>

constexpr std::size_t kPropertyListMaximumSize = 16U << 20U;     // bytes of a file
constexpr std::size_t kPropertyListMaximumContents = 64U << 20U; // bytes of its strings and data
constexpr std::size_t kPropertyListMaximumValues = 1U << 20U;
constexpr unsigned kPropertyListMaximumDepth = 128; // levels of containers

// Seconds since 2001: the years 1 to 9999, which XML's dates have.
constexpr double kPropertyListFirstDate = -63113904000.0;
constexpr double kPropertyListEndOfDates = 252423993600.0;

// A PropertyListFault tells why bytes are no property list or why a value cannot be one. It is
// thrown inside the library alone.
struct PropertyListFault {
    const char* text; // for people
};

// A PropertyListBudget keeps count while a property list is read or looked through. Its functions
// throw a PropertyListFault as soon as a limit is passed. A shared value counts each time that it
// is reached; so sharing cannot multiply beyond the limits, and a cycle ends.
//
//     PropertyListBudget budget;
//     const PropertyListBudget::Level level(budget); // for an array
//     budget.TakeValue();                            // for each of its members
class PropertyListBudget {
public:
    // A Level stands for one open container as long as it exists.
    class Level {
    public:
        explicit Level(PropertyListBudget& budget) : mBudget(budget) {
            if (mBudget.mDepth == kPropertyListMaximumDepth) {
                throw PropertyListFault{"containers nested too deep"};
            }
            ++mBudget.mDepth;
        }
        ~Level() { --mBudget.mDepth; }
        Level(const Level&) = delete;
        Level& operator=(const Level&) = delete;

    private:
        PropertyListBudget& mBudget;
    };

    void TakeValue() {
        if (++mValues > kPropertyListMaximumValues) {
            throw PropertyListFault{"too many values"};
        }
    }
    void TakeContents(std::size_t bytes) {
        if (bytes > kPropertyListMaximumContents - mContents) {
            throw PropertyListFault{"too much text and data"};
        }
        mContents += bytes;
    }
    // Throws unless both formats can hold the date.
    static void RequireDate(double at) {
        if (!(at >= kPropertyListFirstDate && at < kPropertyListEndOfDates)) {
            throw PropertyListFault{"a date out of range"};
        }
    }

private:
    std::size_t mValues = 0;
    std::size_t mContents = 0;
    unsigned mDepth = 0;
};
