#pragma once

#include "tests/support/memory/AllocationFaults.h"

#include <CoreFoundation/CFRuntimeHost.h>
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

// Makes `call` with its first allocation failing, then with its second, and so on until it needs no
// more. It returns whether it got what it asked for, and keeps nothing. After a failure there is
// not an object and not a block more than before.
inline void FailEachAllocation(const std::function<bool()>& call) {
    ASSERT_TRUE(call()) << "with all the memory it wants";
    for (int n = 1;; n++) {
        ASSERT_LT(n, 5000);
        SCOPED_TRACE("allocation " + std::to_string(n) + " fails");
        const CFIndex objects = CFRuntimeHostLiveObjectCount(0);
        const long blocks = TestSupport::BlocksHeld();
        TestSupport::WatchAllAllocations(n);
        const bool done = call();
        const bool failed = TestSupport::AllocationFailed();
        TestSupport::WatchAllAllocations();
        if (!failed) {
            EXPECT_TRUE(done);
            return;
        }
        EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), objects);
        EXPECT_EQ(TestSupport::BlocksHeld(), blocks);
    }
}

// Whether there is an object; gives it up.
inline bool Made(CFTypeRef object) {
    if (object == nullptr) {
        return false;
    }
    CFRelease(object);
    return true;
}
