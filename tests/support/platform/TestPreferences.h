// The control-surface system's preferences for one test. They are empty at first, and the
// destructor removes them.
//
//     TestPreferences preferences;
//     preferences.SetApplications({{"1-4", "HUI"}});
#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

namespace TestSupport {

struct Application {
    std::string ports;
    std::string protocol;
};

class TestPreferences {
public:
    // Makes the process keep its preferences in a folder of the object's own.
    TestPreferences();
    TestPreferences(const TestPreferences&) = delete;
    TestPreferences& operator=(const TestPreferences&) = delete;
    ~TestPreferences();

    // Writes the array of applications. An application's dictionary gets those of "MIDI Ports" and
    // "Protocol" that are not empty.
    void SetApplications(const std::vector<Application>& applications);

    // Writes any value in the place of the array of applications; null removes the array.
    void SetValue(CFPropertyListRef value);

    const std::string& Path() const { return mDirectory.Path(); }

private:
    TemporaryDirectory mDirectory;
};

} // namespace TestSupport
