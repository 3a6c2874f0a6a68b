// One producer and one consumer on a ring without a lock, both at full speed.
#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "tests/support/TestSeed.h"
#include "tests/unit/MidiDriver/worker/circular_buffer/GuardedRing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

namespace {

// The byte at a position of the endless stream that goes through the ring; its period is prime, so
// that no slot ever holds the same bytes in two rounds running.
unsigned char StreamByte(std::uint64_t position) {
    return static_cast<unsigned char>(position % 251);
}

struct Shape {
    std::uint32_t elemSize;
    std::uint32_t numElems;
    bool copies;
};

class RingThreads : public testing::TestWithParam<Shape> {
protected:
    RingThreads() { cb_set_copy_func(mRing, GetParam().copies ? Copy : nullptr); }

    static void* Copy(void* destination, const void* source, unsigned long size) {
        return std::memcpy(destination, source, size);
    }

    // How many elements go through: thousands of rounds, but no more than a slow machine moves when
    // the threads must take turns for each of a few elements.
    std::uint64_t Elements() const {
        return std::min<std::uint64_t>(1'000'000 / GetParam().elemSize,
                                       5'000 * std::uint64_t{GetParam().numElems});
    }

    // Writes the stream in pieces of random length until all of it is stored.
    void Produce(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const std::uint32_t elemSize = GetParam().elemSize;
        const std::uint32_t largest = 2 * GetParam().numElems;
        Bytes piece(std::size_t{largest} * elemSize);
        std::uint64_t stored = 0;
        while (stored < Elements() && !mCorrupt) {
            const std::uint64_t wanted = random() % largest + 1;
            int count = static_cast<int>(std::min(wanted, Elements() - stored));
            for (std::size_t i = 0; i < static_cast<std::size_t>(count) * elemSize; ++i) {
                piece[i] = StreamByte(stored * elemSize + i);
            }
            cb_write(mRing, piece.data(), &count);
            stored += static_cast<std::uint64_t>(count);
            if (count == 0) {
                std::this_thread::yield();
            }
        }
    }

    // Reads the stream in pieces of random length, now and then peeking first, and checks it.
    void Consume(std::uint64_t seed) {
        std::mt19937_64 random(seed);
        const std::uint32_t elemSize = GetParam().elemSize;
        const std::uint32_t largest = 2 * GetParam().numElems;
        Bytes piece(std::size_t{largest} * elemSize);
        std::uint64_t taken = 0;
        while (taken < Elements()) {
            EXPECT_LE(cb_get_num_elem_used(mRing), GetParam().numElems);
            int count = static_cast<int>(random() % largest + 1);
            if (random() % 64 == 0) {
                // Beyond what is stored: an error of the consumer's side, or nothing stored at all.
                int none = 0;
                cb_peek(mRing, GetParam().numElems + 1, nullptr, &none);
            }
            const bool peeks = random() % 4 == 0;
            if (peeks) {
                cb_peek(mRing, 0, piece.data(), &count);
            } else {
                cb_read(mRing, piece.data(), &count);
            }
            for (std::size_t i = 0; i < static_cast<std::size_t>(count) * elemSize; ++i) {
                if (piece[i] != StreamByte(taken * elemSize + i)) {
                    mCorrupt = true;
                    FAIL() << "wrong byte " << i << " after " << taken << " elements";
                }
            }
            if (!peeks) {
                taken += static_cast<std::uint64_t>(count);
            }
            if (count == 0) {
                std::this_thread::yield();
            }
        }
    }

    GuardedRing mRing{GetParam().elemSize, GetParam().numElems};
    std::atomic<bool> mCorrupt{false};
};

INSTANTIATE_TEST_SUITE_P(Shapes, RingThreads,
                         testing::Values(Shape{1, 257, false}, Shape{1, 257, true},
                                         Shape{1, 1, false}, Shape{3, 100, false},
                                         Shape{3, 100, true}, Shape{12, 40, true},
                                         Shape{8, 1000, true}),
                         [](const auto& shape) {
                             return std::to_string(shape.param.elemSize) + "BytesTimes" +
                                    std::to_string(shape.param.numElems) +
                                    (shape.param.copies ? "InBlocks" : "");
                         });

TEST_P(RingThreads, DeliverEveryElementOnceInOrder) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::thread producer([this, seed] { Produce(seed); });
    std::thread consumer([this, seed] { Consume(seed + 1); });
    producer.join();
    consumer.join();
    EXPECT_EQ(cb_get_num_elem_used(mRing), 0u);
}

TEST_P(RingThreads, MayRecordAndClearErrorsAndLookAtTheStateAtAnyTime) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::atomic<bool> done{false};
    std::thread watcher([this, &done] {
        bool quiet = false;
        while (!done.load()) {
            const unsigned int error = cb_clear_errors(mRing);
            EXPECT_TRUE(error == 0 || error == kCBOverflow || error == kCBIndexBeyondStored);
            EXPECT_LE(cb_is_full(mRing), 1u);
            EXPECT_LE(cb_get_num_elem_used(mRing), GetParam().numElems);
            (quiet ? cb_set_flags : cb_clear_flags)(mRing, kCBNoOverflowError);
            EXPECT_EQ(cb_get_flags(mRing) & ~unsigned{kCBNoOverflowError}, 0u);
            quiet = !quiet;
            std::this_thread::yield();
        }
    });
    std::thread producer([this, seed] { Produce(seed); });
    Consume(seed + 1);
    producer.join();
    done = true;
    watcher.join();

    // Nothing that went on leaves the ring unable to record.
    cb_clear_errors(mRing);
    cb_clear_flags(mRing, kCBNoOverflowError);
    std::thread overflow([this] {
        const Bytes bytes(std::size_t{GetParam().numElems} * GetParam().elemSize);
        mRing.Write(bytes);
        EXPECT_EQ(mRing.Write(bytes).first, kCBOverflow);
    });
    overflow.join();
    EXPECT_EQ(cb_clear_errors(mRing), kCBOverflow);
}

} // namespace
