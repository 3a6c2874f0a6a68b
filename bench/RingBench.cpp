// Measures what it costs to move a message through the ring: one write, and the read that takes the
// message out again, on one thread and so without cache traffic between cores. The peers run the
// same loop.
#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"

#include <benchmark/benchmark.h>
#include <boost/align/aligned_allocator.hpp>
#include <boost/lockfree/spsc_queue.hpp>
#include <jack/ringbuffer.h>

#include <array>
#include <cstddef>
#include <cstdlib>

namespace {

// Each of the rings has 65536 slots for it, of which one stays free.
constexpr std::size_t kCapacity = 65535;
constexpr std::size_t kLargestMessage = 4096;

// Where in a page the slots and the messages lie moves the figures of the largest messages by some
// percent either way, for each of the rings. So where it can be chosen, storage starts on a page.
constexpr std::size_t kPage = 4096;

void* AlignedMalloc(int size) {
    const auto pages = (static_cast<std::size_t>(size) + kPage - 1) / kPage;
    return std::aligned_alloc(kPage, pages * kPage);
}

using AlignedSpscQueue = boost::lockfree::spsc_queue<
    char, boost::lockfree::allocator<boost::alignment::aligned_allocator<char, kPage>>>;

template <typename Move>
void MoveMessages(benchmark::State& state, Move move) {
    alignas(kPage) std::array<char, kLargestMessage> source{};
    alignas(kPage) std::array<char, kLargestMessage> destination{};
    const auto size = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(source.data());
        if (move(source.data(), destination.data(), size) != size) {
            state.SkipWithError("the message did not come through whole");
            break;
        }
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void MoveThroughRing(benchmark::State& state, cb_copy_func copyFunc) {
    _t_circular_buffer* ring = nullptr;
    cb_initialize(&ring, 1, kCapacity, AlignedMalloc, CCircularBuffer::FreeFunc);
    cb_set_copy_func(ring, copyFunc);
    MoveMessages(state, [ring](const char* source, char* destination, std::size_t size) {
        int count = static_cast<int>(size);
        cb_write(ring, source, &count);
        cb_read(ring, destination, &count);
        return static_cast<std::size_t>(count);
    });
    cb_destroy(ring);
}

void RingElementPath(benchmark::State& state) {
    MoveThroughRing(state, nullptr);
}

void RingBlockPath(benchmark::State& state) {
    MoveThroughRing(state, CCircularBuffer::CopyFunc);
}

void BoostSpscQueue(benchmark::State& state) {
    AlignedSpscQueue queue(kCapacity);
    MoveMessages(state, [&queue](const char* source, char* destination, std::size_t size) {
        return queue.push(source, size) == size ? queue.pop(destination, size) : 0;
    });
}

void JackRingbuffer(benchmark::State& state) {
    jack_ringbuffer_t* ring = jack_ringbuffer_create(kCapacity);
    MoveMessages(state, [ring](const char* source, char* destination, std::size_t size) {
        jack_ringbuffer_write(ring, source, size);
        return jack_ringbuffer_read(ring, destination, size);
    });
    jack_ringbuffer_free(ring);
}

void MessageSizes(benchmark::internal::Benchmark* bench) {
    bench->ArgName("bytes")->Arg(1)->Arg(4)->Arg(32)->Arg(256)->Arg(4096);
}

BENCHMARK(RingElementPath)->Apply(MessageSizes);
BENCHMARK(RingBlockPath)->Apply(MessageSizes);
BENCHMARK(BoostSpscQueue)->Apply(MessageSizes);
BENCHMARK(JackRingbuffer)->Apply(MessageSizes);

} // namespace
