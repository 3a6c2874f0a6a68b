// One round of the bundle's life after the other, from loading to unloading.
#pragma once

#include "tests/integration/PluginHost.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/ReceivedLists.h"
#include "tests/support/platform/TestPreferences.h"

#include <CoreFoundation/CFRuntimeHost.h>

#include <gtest/gtest.h>

#include <cstdlib>

namespace Integration {

// As long as no other block in the program: the worker's packet buffer grows to a list's length.
inline constexpr std::size_t kListSize = 54321;

struct LiveObjects {
    CFIndex strings = CFRuntimeHostLiveObjectCount(CFStringGetTypeID());
    CFIndex uuids = CFRuntimeHostLiveObjectCount(CFUUIDGetTypeID());
    CFIndex all = CFRuntimeHostLiveObjectCount(0);
};

class PluginRounds : public testing::Test {
protected:
    PluginRounds() {
        setenv("QUORVEL_RUNTIME_DIR", mRuntime.Path().c_str(), 1);
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        // One string is overwritten per round, that of port 1.
        mPreferences.SetApplications({{"1-1", "Overwritten"}, {"1-4", "HUI"}});
    }

    // Loads, starts, sends, stops, releases and unloads.
    static void Round() {
        {
            PluginHost host;
            ASSERT_NE(host.Driver(), nullptr);
            ASSERT_TRUE(ModuleIsLoaded());
            ASSERT_EQ(host.Start(), noErr);
            // As a server does; a closed port's last bits go when the loop runs next.
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
            TestSupport::ClearReceivedLists();
            TestSupport::Bytes ping = TestSupport::MakePacketList({{0x90, 0x00, 0x00}});
            ASSERT_EQ(host.Send(0, ping), noErr);
            TestSupport::Bytes list =
                TestSupport::MakePacketList({TestSupport::Bytes(kListSize - 14, 0x01)});
            ASSERT_EQ(list.size(), kListSize);
            ASSERT_EQ(host.Send(1, list), noErr);
            // The answer, the ping and the list.
            ASSERT_TRUE(TestSupport::WaitForReceivedLists(3));
            TestSupport::ClearReceivedLists();
        }
        ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    }

    static void Rounds(int count) {
        for (int round = 0; round < count; round++) {
            SCOPED_TRACE(round);
            ASSERT_NO_FATAL_FAILURE(Round());
        }
    }

    static void ExpectLeftOnPurpose(const LiveObjects& before, const LiveObjects& after,
                                    int rounds) {
        EXPECT_EQ(after.uuids - before.uuids, rounds) << "the factory's own reference";
        EXPECT_EQ(after.strings - before.strings, rounds) << "overwritten protocols";
        EXPECT_EQ(after.all - before.all, 2 * rounds) << "objects of all types";
    }

    TemporaryDirectory mRuntime;
    TestSupport::TestPreferences mPreferences;
};

} // namespace Integration
