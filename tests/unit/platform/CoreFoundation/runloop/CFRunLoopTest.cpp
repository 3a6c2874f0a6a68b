#include "platform/support/CFOwned.h"
#include "tests/support/WaitUntil.h"

#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <random>
#include <thread>
#include <vector>

namespace {

using Source = CFOwned<CFRunLoopSourceRef>;

// What the source's callbacks were told, and what its perform callback shall do.
struct Probe {
    std::atomic<int> retained{0};
    std::atomic<int> released{0};
    std::atomic<int> scheduled{0};
    std::atomic<int> cancelled{0};
    std::atomic<int> performed{0};
    std::function<void()> onPerform;
};

Source MakeSource(Probe& probe, CFIndex order = 0) {
    CFRunLoopSourceContext context{};
    context.info = &probe;
    context.retain = [](const void* info) {
        ++static_cast<Probe*>(const_cast<void*>(info))->retained;
        return info;
    };
    context.release = [](const void* info) {
        ++static_cast<Probe*>(const_cast<void*>(info))->released;
    };
    context.schedule = [](void* info, CFRunLoopRef, CFRunLoopMode) {
        ++static_cast<Probe*>(info)->scheduled;
    };
    context.cancel = [](void* info, CFRunLoopRef, CFRunLoopMode) {
        ++static_cast<Probe*>(info)->cancelled;
    };
    context.perform = [](void* info) {
        auto* const self = static_cast<Probe*>(info);
        ++self->performed;
        if (self->onPerform) {
            self->onPerform();
        }
    };
    return Source(CFRunLoopSourceCreate(nullptr, order, &context));
}

void AddToCurrent(const Source& source, CFRunLoopMode mode = kCFRunLoopDefaultMode) {
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), mode);
}

// Waits until the loop sleeps.
testing::AssertionResult WaitUntilAsleep(CFRunLoopRef loop) {
    return TestSupport::WaitUntil("the loop sleeps",
                                  [loop] { return CFRunLoopIsWaiting(loop) != 0; });
}

constexpr CFTimeInterval kLong = 1000; // only the test's own time limit is shorter

TEST(CFRunLoop, IsOnePerThreadAndTheMainThreadsIsTheMainLoop) {
    const CFRunLoopRef mine = CFRunLoopGetCurrent();
    EXPECT_EQ(mine, CFRunLoopGetCurrent());
    EXPECT_EQ(mine, CFRunLoopGetMain());
    EXPECT_EQ(CFGetTypeID(mine), CFRunLoopGetTypeID());
    CFRunLoopRef others = nullptr;
    CFRunLoopRef mainSeenThere = nullptr;
    std::thread([&] {
        others = CFRunLoopGetCurrent();
        mainSeenThere = CFRunLoopGetMain();
    }).join();
    EXPECT_NE(others, nullptr);
    EXPECT_NE(others, mine);
    EXPECT_EQ(mainSeenThere, mine);
}

TEST(CFRunLoop, FinishesAtOnceWithoutSources) {
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, false), kCFRunLoopRunFinished);
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("a mode nobody uses"), kLong, false), kCFRunLoopRunFinished);
    CFRunLoopRun();
}

TEST(CFRunLoop, FinishesAtOnceInWhatIsNotAMode) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source, kCFRunLoopCommonModes);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopCommonModes, kLong, true), kCFRunLoopRunFinished);
    EXPECT_EQ(CFRunLoopRunInMode(nullptr, kLong, true), kCFRunLoopRunFinished);
    EXPECT_EQ(probe.performed, 0);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, TimesOutWhenNoSourceIsReady) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, true), kCFRunLoopRunTimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    for (const CFTimeInterval none : {0.0, -1.0, std::nan("")}) {
        EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, none, true), kCFRunLoopRunTimedOut);
    }
    EXPECT_EQ(probe.performed, 0);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, PerformsASignalledSourceOnceHoweverOftenItWasSignalled) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    CFRunLoopSourceSignal(source.Get());
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(probe.performed, 1);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true), kCFRunLoopRunTimedOut);
    EXPECT_EQ(probe.performed, 1);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, OnePassOverWhatIsReadyWithoutWaiting) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(probe.performed, 1);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, PerformsSourcesOfOnePassInTheirOrder) {
    std::vector<int> order;
    std::array<Probe, 4> probes;
    std::array<CFIndex, 4> orders{5, -1, 5, 0};
    std::vector<Source> sources;
    for (std::size_t i = 0; i < probes.size(); ++i) {
        probes[i].onPerform = [&order, i] { order.push_back(static_cast<int>(i)); };
        sources.push_back(MakeSource(probes[i], orders[i]));
        AddToCurrent(sources.back());
        CFRunLoopSourceSignal(sources.back().Get());
    }
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
    EXPECT_EQ(order, (std::vector<int>{1, 3, 0, 2}));
    for (const Source& source : sources) {
        CFRunLoopSourceInvalidate(source.Get());
    }
}

TEST(CFRunLoop, KeepsASourceThatIsAddedTwiceAsOneEntry) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    AddToCurrent(source);
    EXPECT_EQ(probe.scheduled, 1);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 2);
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    EXPECT_FALSE(
        CFRunLoopContainsSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode));
    EXPECT_EQ(probe.cancelled, 1);
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    EXPECT_EQ(probe.cancelled, 1);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
    EXPECT_TRUE(CFRunLoopSourceIsValid(source.Get()));
}

TEST(CFRunLoop, DoesNotPerformASourceOfAnotherMode) {
    Probe here;
    Probe there;
    const Source first = MakeSource(here);
    const Source second = MakeSource(there);
    AddToCurrent(first);
    AddToCurrent(second, CFSTR("another mode"));
    CFRunLoopSourceSignal(second.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true), kCFRunLoopRunTimedOut);
    EXPECT_EQ(there.performed, 0);
    EXPECT_EQ(CFRunLoopRunInMode(CFSTR("another mode"), kLong, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(there.performed, 1);
    CFRunLoopSourceInvalidate(first.Get());
    CFRunLoopSourceInvalidate(second.Get());
}

TEST(CFRunLoop, KeepsACommonSourceInTheDefaultMode) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source, kCFRunLoopCommonModes);
    AddToCurrent(source, kCFRunLoopDefaultMode);
    EXPECT_EQ(probe.scheduled, 1);
    for (const CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes}) {
        EXPECT_TRUE(CFRunLoopContainsSource(loop, source.Get(), mode));
    }
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    CFRunLoopRemoveSource(loop, source.Get(), kCFRunLoopCommonModes);
    for (const CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes}) {
        EXPECT_FALSE(CFRunLoopContainsSource(loop, source.Get(), mode));
    }
    EXPECT_EQ(probe.cancelled, 1);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
}

// A source that signals itself whenever it is performed keeps no other source waiting.
TEST(CFRunLoop, PerformsEachSourceOnceInAPass) {
    Probe busy;
    Probe patient;
    const Source busySource = MakeSource(busy, 0);
    const Source patientSource = MakeSource(patient, 1);
    busy.onPerform = [&] { CFRunLoopSourceSignal(busySource.Get()); };
    AddToCurrent(busySource);
    AddToCurrent(patientSource);
    CFRunLoopSourceSignal(busySource.Get());
    CFRunLoopSourceSignal(patientSource.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    EXPECT_EQ(busy.performed, 1);
    EXPECT_EQ(patient.performed, 1);
    CFRunLoopSourceInvalidate(busySource.Get());
    CFRunLoopSourceInvalidate(patientSource.Get());
}

TEST(CFRunLoop, StopEndsTheInnermostRunOnly) {
    Probe inner;
    Probe outer;
    const Source innerSource = MakeSource(inner);
    const Source outerSource = MakeSource(outer);
    inner.onPerform = [] { CFRunLoopStop(CFRunLoopGetCurrent()); };
    CFRunLoopRunResult innerResult = 0;
    outer.onPerform = [&] {
        CFRunLoopSourceSignal(innerSource.Get());
        innerResult = CFRunLoopRunInMode(CFSTR("inner"), kLong, false);
        const CFOwned<CFStringRef> mode(CFRunLoopCopyCurrentMode(CFRunLoopGetCurrent()));
        EXPECT_TRUE(CFEqual(mode.Get(), kCFRunLoopDefaultMode));
    };
    AddToCurrent(innerSource, CFSTR("inner"));
    AddToCurrent(outerSource);
    CFRunLoopSourceSignal(outerSource.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(innerResult, kCFRunLoopRunStopped);
    EXPECT_EQ(inner.performed, 1);
    EXPECT_EQ(CFRunLoopCopyCurrentMode(CFRunLoopGetCurrent()), nullptr);
    CFRunLoopSourceInvalidate(innerSource.Get());
    CFRunLoopSourceInvalidate(outerSource.Get());
}

TEST(CFRunLoop, StopDoesNotAffectALoopThatDoesNotRun) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    CFRunLoopStop(CFRunLoopGetCurrent());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, false), kCFRunLoopRunTimedOut);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, IsStoppedByAnotherThreadWhileItSleeps) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::thread stopper([&] {
        EXPECT_TRUE(WaitUntilAsleep(loop));
        CFRunLoopStop(loop);
    });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, false), kCFRunLoopRunStopped);
    stopper.join();
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, PerformsWhatAnotherThreadSignalsAndWakes) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::thread signaller([&] {
        EXPECT_TRUE(WaitUntilAsleep(loop));
        CFRunLoopSourceSignal(source.Get());
        CFRunLoopWakeUp(loop);
    });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    signaller.join();
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, PerformsASourceThatAnotherThreadAddsWhileItSleeps) {
    Probe resident;
    Probe added;
    const Source residentSource = MakeSource(resident);
    const Source addedSource = MakeSource(added);
    AddToCurrent(residentSource);
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    CFRunLoopSourceSignal(addedSource.Get());
    std::thread adder([&] {
        EXPECT_TRUE(WaitUntilAsleep(loop));
        CFRunLoopAddSource(loop, addedSource.Get(), kCFRunLoopDefaultMode);
        CFRunLoopWakeUp(loop);
    });
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    adder.join();
    EXPECT_EQ(added.performed, 1);
    CFRunLoopSourceInvalidate(residentSource.Get());
    CFRunLoopSourceInvalidate(addedSource.Get());
}

TEST(CFRunLoop, FinishesWhenAnotherThreadTakesTheLastSourceAway) {
    Probe probe;
    const Source source = MakeSource(probe);
    AddToCurrent(source);
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::thread remover([&] {
        EXPECT_TRUE(WaitUntilAsleep(loop));
        CFRunLoopSourceInvalidate(source.Get());
    });
    CFRunLoopRun();
    remover.join();
    EXPECT_FALSE(CFRunLoopSourceIsValid(source.Get()));
}

TEST(CFRunLoop, FinishesWhenASourceRemovesItselfAsItPerforms) {
    Probe probe;
    const Source source = MakeSource(probe);
    probe.onPerform = [&] { CFRunLoopSourceInvalidate(source.Get()); };
    AddToCurrent(source);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, false), kCFRunLoopRunFinished);
    EXPECT_EQ(probe.performed, 1);
    EXPECT_EQ(probe.cancelled, 1);
}

TEST(CFRunLoop, DoesNotPerformASourceThatAnEarlierOneOfThePassRemoved) {
    Probe first;
    Probe second;
    const Source firstSource = MakeSource(first, 0);
    const Source secondSource = MakeSource(second, 1);
    first.onPerform = [&] {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), secondSource.Get(), kCFRunLoopDefaultMode);
    };
    AddToCurrent(firstSource);
    AddToCurrent(secondSource);
    CFRunLoopSourceSignal(firstSource.Get());
    CFRunLoopSourceSignal(secondSource.Get());
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
    EXPECT_EQ(first.performed, 1);
    EXPECT_EQ(second.performed, 0);
    CFRunLoopSourceInvalidate(firstSource.Get());
}

TEST(CFRunLoop, TakesNoInvalidSource) {
    Probe probe;
    const Source source = MakeSource(probe);
    CFRunLoopSourceInvalidate(source.Get());
    EXPECT_FALSE(CFRunLoopSourceIsValid(source.Get()));
    for (const CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes}) {
        AddToCurrent(source, mode);
        EXPECT_FALSE(CFRunLoopContainsSource(CFRunLoopGetCurrent(), source.Get(), mode));
    }
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(probe.scheduled, 0);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
}

TEST(CFRunLoop, InvalidatingTakesASourceOutOfEveryModeAndLoop) {
    Probe probe;
    const Source source = MakeSource(probe);
    std::promise<CFRunLoopRef> ready;
    std::promise<void> finish;
    std::thread other([&] {
        AddToCurrent(source);
        ready.set_value(CFRunLoopGetCurrent());
        finish.get_future().wait();
    });
    const CFRunLoopRef otherLoop = ready.get_future().get();
    AddToCurrent(source);
    AddToCurrent(source, CFSTR("another mode"));
    EXPECT_EQ(probe.scheduled, 3);
    CFRunLoopSourceInvalidate(source.Get());
    EXPECT_EQ(probe.cancelled, 3);
    EXPECT_FALSE(CFRunLoopContainsSource(otherLoop, source.Get(), kCFRunLoopDefaultMode));
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
    finish.set_value();
    other.join();
}

TEST(CFRunLoop, RetainsAndReleasesASourcesInfoOnce) {
    Probe probe;
    {
        const Source source = MakeSource(probe);
        EXPECT_EQ(probe.retained, 1);
        AddToCurrent(source);
        CFRunLoopSourceInvalidate(source.Get());
    }
    EXPECT_EQ(probe.retained, 1);
    EXPECT_EQ(probe.released, 1);
}

TEST(CFRunLoop, LetsGoOfItsSourcesWhenItsThreadEnds) {
    Probe probe;
    const Source source = MakeSource(probe);
    CFRunLoopRef loop = nullptr;
    std::thread([&] {
        AddToCurrent(source);
        AddToCurrent(source, kCFRunLoopCommonModes);
        loop = CFRunLoopGetCurrent();
        CFRetain(loop);
    }).join();
    EXPECT_EQ(probe.cancelled, probe.scheduled);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
    EXPECT_EQ(CFGetRetainCount(loop), 1);
    CFRunLoopAddSource(loop, source.Get(), kCFRunLoopDefaultMode);
    EXPECT_FALSE(CFRunLoopContainsSource(loop, source.Get(), kCFRunLoopDefaultMode));
    CFRunLoopWakeUp(loop);
    CFRunLoopStop(loop);
    CFRelease(loop);
}

TEST(CFRunLoop, MakesNoSourceOfAContextThatItDoesNotKnow) {
    CFRunLoopSourceContext context{};
    context.version = 1;
    EXPECT_EQ(CFRunLoopSourceCreate(nullptr, 0, &context), nullptr);
    EXPECT_EQ(CFRunLoopSourceCreate(nullptr, 0, nullptr), nullptr);
}

TEST(CFRunLoop, CountsASourceWithoutAPerformCallbackAsHandled) {
    CFRunLoopSourceContext context{};
    const Source source(CFRunLoopSourceCreate(nullptr, 0, &context));
    AddToCurrent(source);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true), kCFRunLoopRunHandledSource);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST(CFRunLoop, AnswersWrongTypesAndNull) {
    const auto wrongLoop = reinterpret_cast<CFRunLoopRef>(
        const_cast<void*>(static_cast<const void*>(CFSTR("no loop"))));
    const auto wrongSource = reinterpret_cast<CFRunLoopSourceRef>(wrongLoop);
    Probe probe;
    const Source source = MakeSource(probe);
    for (const CFRunLoopRef loop : {wrongLoop, CFRunLoopRef{}}) {
        CFRunLoopStop(loop);
        CFRunLoopWakeUp(loop);
        CFRunLoopAddSource(loop, source.Get(), kCFRunLoopDefaultMode);
        CFRunLoopRemoveSource(loop, source.Get(), kCFRunLoopDefaultMode);
        EXPECT_FALSE(CFRunLoopContainsSource(loop, source.Get(), kCFRunLoopDefaultMode));
        EXPECT_FALSE(CFRunLoopIsWaiting(loop));
        EXPECT_EQ(CFRunLoopCopyCurrentMode(loop), nullptr);
    }
    for (const CFRunLoopSourceRef each : {wrongSource, CFRunLoopSourceRef{}}) {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), each, kCFRunLoopDefaultMode);
        CFRunLoopSourceSignal(each);
        CFRunLoopSourceInvalidate(each);
        EXPECT_FALSE(CFRunLoopSourceIsValid(each));
    }
    AddToCurrent(source, nullptr);
    EXPECT_EQ(probe.scheduled, 0);
}

// Several threads signal, add, remove and invalidate at random while the loop runs; afterwards
// every reference and every schedule has been undone.
TEST(CFRunLoop, SurvivesRandomUseFromManyThreads) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    constexpr std::size_t kSources = 8;
    constexpr int kSteps = 2000;
    std::array<Probe, kSources> probes;
    std::vector<Source> sources;
    for (Probe& probe : probes) {
        sources.push_back(MakeSource(probe));
    }
    Probe keeper;
    const Source keeperSource = MakeSource(keeper);
    AddToCurrent(keeperSource);
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    std::atomic<int> running{3};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(seed + t);
            for (int step = 0; step < kSteps; ++step) {
                const CFRunLoopSourceRef source = sources[random() % kSources].Get();
                switch (random() % 5) {
                case 0:
                    CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
                    break;
                case 1:
                    CFRunLoopRemoveSource(loop, source, kCFRunLoopDefaultMode);
                    break;
                case 2:
                    CFRunLoopAddSource(loop, source, kCFRunLoopCommonModes);
                    break;
                case 3:
                    CFRunLoopSourceSignal(source);
                    CFRunLoopWakeUp(loop);
                    break;
                default:
                    CFRunLoopStop(loop);
                    break;
                }
            }
            for (const Source& source : sources) {
                CFRunLoopSourceInvalidate(source.Get());
            }
            --running;
            CFRunLoopSourceSignal(keeperSource.Get());
            CFRunLoopWakeUp(loop);
        });
    }
    while (running != 0) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    CFRunLoopSourceInvalidate(keeperSource.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, false), kCFRunLoopRunFinished);
    for (std::size_t i = 0; i < kSources; ++i) {
        EXPECT_EQ(probes[i].scheduled, probes[i].cancelled);
        EXPECT_EQ(CFGetRetainCount(sources[i].Get()), 1);
    }
}

} // namespace
