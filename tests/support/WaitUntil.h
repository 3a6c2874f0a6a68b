// Waits for what another thread or another program brings about.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

namespace TestSupport {

// Asks every millisecond whether the condition holds, for two minutes at most, which is beyond what
// the slowest machine needs and within every test's time limit. The result is false only after that
// time, and its message says what was waited for.
//
//     ASSERT_TRUE(WaitUntil("the loop sleeps", [&] { return CFRunLoopIsWaiting(loop) != 0; }));
//
// Any thread may call; the condition is called on it.
template <typename Condition>
[[nodiscard]] testing::AssertionResult WaitUntil(const std::string& what,
                                                 const Condition& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return testing::AssertionFailure() << "waited two minutes in vain until " << what;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return testing::AssertionSuccess();
}

} // namespace TestSupport
