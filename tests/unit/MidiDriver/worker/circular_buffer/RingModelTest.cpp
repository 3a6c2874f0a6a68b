// Random operations on a ring and on its model, with every visible state compared after each.
#include "tests/unit/MidiDriver/worker/circular_buffer/RingModel.h"

#include "tests/support/SlowBuild.h"
#include "tests/support/TestSeed.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace {

class RingAndModel {
public:
    RingAndModel(std::mt19937_64& random, int elemSize, int capacity)
        : mRandom(random),
          mElemSize(elemSize),
          mCapacity(capacity),
          mRing(static_cast<std::uint32_t>(elemSize), static_cast<std::uint32_t>(capacity)),
          mModel(elemSize, capacity, GuardedRing::kUnwritten) {}

    void Step() {
        switch (Below(20)) {
        case 0:
            mCopies = !mCopies;
            EXPECT_EQ(cb_set_copy_func(mRing, mCopies ? CopyCalls::Copy : nullptr), 0u);
            mModel.SetHasCopyFunc(mCopies);
            break;
        case 1:
            mQuiet = !mQuiet;
            EXPECT_EQ((mQuiet ? cb_set_flags : cb_clear_flags)(mRing, kCBNoOverflowError), 0u);
            mModel.SetRecordsOverflow(!mQuiet);
            break;
        case 2:
            EXPECT_EQ(cb_clear_errors(mRing), mModel.ClearErrors());
            break;
        case 3:
            Remove(RandomCount(-mCapacity - 2));
            break;
        case 4:
            Remove(static_cast<int>(cb_get_num_elem_used(mRing)));
            break;
        case 5:
        case 6:
            ReadAt(static_cast<unsigned int>(Below(mCapacity + 3)), RandomCount(-2), Below(2) == 0);
            break;
        case 7:
        case 8:
        case 9:
        case 10:
        case 11:
        case 12:
            ReadAt(0, RandomCount(-2), Below(4) != 0);
            break;
        default:
            Write(RandomCount(0));
        }
        Compare();
    }

private:
    int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(mRandom); }

    // Mostly small, at times beyond the capacity.
    int RandomCount(int least) {
        const int most = Below(3) == 0 ? 2 * mCapacity + 2 : mCapacity / 3 + 2;
        return std::uniform_int_distribution<int>(least, most)(mRandom);
    }

    std::size_t BytesOf(std::size_t elements) const {
        return elements * static_cast<std::size_t>(mElemSize);
    }

    void Write(int count) {
        std::vector<RingModel::Element> elements(static_cast<std::size_t>(count));
        Bytes bytes;
        for (RingModel::Element& element : elements) {
            element.resize(BytesOf(1));
            for (unsigned char& byte : element) {
                byte = static_cast<unsigned char>(mRandom());
            }
            bytes.insert(bytes.end(), element.begin(), element.end());
        }
        const RingModel::Outcome expected = mModel.Write(elements);
        CopyCalls calls;
        EXPECT_EQ(cb_write(mRing, bytes.data(), &count), expected.result);
        EXPECT_EQ(count, expected.count);
        const bool inBlocks = mCopies && bytes.size() > 32 && expected.count > 0;
        EXPECT_EQ(!calls.All().empty(), inBlocks);
        EXPECT_LE(calls.All().size(), 2u);
    }

    void ReadAt(unsigned int index, int count, bool consume) {
        const Bytes ahead = mRing.AheadOfFirstSlot(-mCapacity);
        std::vector<RingModel::Element> slots;
        for (auto slot = ahead.begin(); slot != ahead.end(); slot += mElemSize) {
            slots.emplace_back(slot, slot + mElemSize);
        }
        mModel.SetAhead(std::move(slots));
        const RingModel::Outcome expected = mModel.ReadAt(index, count, consume);
        constexpr unsigned char kUntouched = 0x3C;
        const auto capacity = static_cast<std::size_t>(std::max(count, 0));
        Bytes out(BytesOf(capacity), kUntouched);
        unsigned int result = 0;
        if (index == 0 && consume) {
            result = cb_read(mRing, out.data(), &count);
        } else if (consume) {
            result = cb_read_ex(mRing, index, out.data(), &count, kCBConsume);
        } else {
            result = cb_peek(mRing, index, out.data(), &count);
        }
        EXPECT_EQ(result, expected.result);
        EXPECT_EQ(count, expected.count);
        Bytes bytes;
        for (const RingModel::Element& element : expected.elements) {
            bytes.insert(bytes.end(), element.begin(), element.end());
        }
        bytes.resize(out.size(), kUntouched);
        EXPECT_EQ(out, bytes);
    }

    void Remove(int count) {
        const RingModel::Outcome expected = mModel.Remove(count);
        EXPECT_EQ(cb_remove(mRing, &count), expected.result);
        EXPECT_EQ(count, expected.count);
    }

    void Compare() {
        ASSERT_EQ(mRing.ReadSlot(), mModel.ReadSlot());
        ASSERT_EQ(mRing.WriteSlot(), mModel.WriteSlot());
        ASSERT_EQ(cb_get_num_elem_used(mRing), static_cast<unsigned int>(mModel.Used()));
        ASSERT_EQ(cb_is_full(mRing), mModel.IsFull() ? 1u : 0u);
        ASSERT_EQ(mRing->firstError, mModel.FirstError());
        ASSERT_EQ(mRing->lastError, mModel.LastError());
        ASSERT_EQ(cb_get_flags(mRing), mQuiet ? 2u : 0u);
        const unsigned char* slot = mRing.Data();
        for (const RingModel::Element& element : mModel.Slots()) {
            ASSERT_EQ(std::memcmp(slot, element.data(), element.size()), 0);
            slot += mElemSize;
        }
    }

    std::mt19937_64& mRandom;
    int mElemSize;
    int mCapacity;
    GuardedRing mRing;
    RingModel mModel;
    bool mCopies = false;
    bool mQuiet = false;
};

constexpr int kSteps = TestSupport::kIsSlowBuild ? 600 : 3000;

TEST(RingModelTest, AgreesWithTheModelThroughRandomOperations) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    for (int elemSize : {1, 2, 3, 4, 7, 12, 33, 100}) {
        for (int capacity : {1, 2, 3, 8, 31, 90}) {
            SCOPED_TRACE(testing::Message() << elemSize << " bytes x " << capacity);
            RingAndModel pair(random, elemSize, capacity);
            for (int step = 0; step < kSteps; ++step) {
                pair.Step();
                if (testing::Test::HasFailure()) {
                    FAIL() << "after " << step + 1 << " operations";
                }
            }
        }
    }
}

} // namespace
