#include "midiserver/host/ControlQueue.h"

#include "runtime/thread/NyInit.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace MidiServer {
namespace {

class ControlQueueTest : public testing::Test {
protected:
    ControlQueueTest() { NyInit(); }

    const std::thread::id mOwner = std::this_thread::get_id();
};

TEST_F(ControlQueueTest, RunsWorkFromTheOwnersRunLoop) {
    ControlQueue queue;
    std::thread::id thread;
    bool fromRunLoop = false;
    queue.Run([&] {
        thread = std::this_thread::get_id();
        const CFOwned<CFStringRef> mode(CFRunLoopCopyCurrentMode(CFRunLoopGetCurrent()));
        fromRunLoop = static_cast<bool>(mode);
    });
    EXPECT_EQ(thread, mOwner);
    EXPECT_TRUE(fromRunLoop);
}

TEST_F(ControlQueueTest, RunsWorkInTheOrderOfPosting) {
    ControlQueue queue;
    std::vector<int> order;
    queue.Post([&] { order.push_back(1); });
    queue.Post([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    queue.Run([&] { order.push_back(3); });
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(ControlQueueTest, RethrowsWhatWorkThrewAndGoesOn) {
    ControlQueue queue;
    EXPECT_THROW(queue.Run([] { throw std::runtime_error("no"); }), std::runtime_error);
    bool ran = false;
    queue.Run([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST_F(ControlQueueTest, ServesUntilAnotherThreadsWorkSaysSo) {
    ControlQueue queue;
    constexpr int kPosts = 1000;
    int count = 0;
    bool onOwner = true;
    bool done = false;
    std::thread thread([&] {
        for (int i = 0; i < kPosts; ++i) {
            queue.Post([&] {
                ++count;
                onOwner = onOwner && std::this_thread::get_id() == mOwner;
            });
        }
        queue.Post([&] { done = true; });
    });
    queue.ServeUntil(done);
    thread.join();
    EXPECT_EQ(count, kPosts);
    EXPECT_TRUE(onOwner);
}

TEST_F(ControlQueueTest, ServesOtherSourcesOfTheRunLoopMeanwhile) {
    struct Other {
        ControlQueue queue;
        bool performed = false;
    } other;
    CFRunLoopSourceContext context{};
    context.info = &other;
    context.perform = [](void* info) {
        auto* const self = static_cast<Other*>(info);
        self->queue.Post([self] { self->performed = true; });
    };
    const CFOwned<CFRunLoopSourceRef> source(
        CFRunLoopSourceCreate(kCFAllocatorDefault, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source.Get());

    other.queue.ServeUntil(other.performed);

    EXPECT_TRUE(other.performed);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST_F(ControlQueueTest, DropsWorkThatHasNotBegunWhenItGoes) {
    const auto token = std::make_shared<int>(0);
    bool ran = false;
    {
        ControlQueue queue;
        queue.Post([&ran, token] { ran = true; });
    }
    EXPECT_FALSE(ran);
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 0), kCFRunLoopRunFinished);
}

TEST_F(ControlQueueTest, CanBeMadeAgainAndAgain) {
    for (int i = 0; i < 100; ++i) {
        ControlQueue queue;
        int runs = 0;
        queue.Run([&] { ++runs; });
        ASSERT_EQ(runs, 1);
    }
}

} // namespace
} // namespace MidiServer
