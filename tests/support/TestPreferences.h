// Preferences of the control-surface system for one test, empty at first and gone with the object.
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
    // Points the process's preferences at a folder of their own.
    TestPreferences();
    TestPreferences(const TestPreferences&) = delete;
    TestPreferences& operator=(const TestPreferences&) = delete;
    ~TestPreferences();

    // Each of "MIDI Ports" and "Protocol" that is not empty goes into the application's dictionary.
    void SetApplications(const std::vector<Application>& applications);

    // Whatever is to stand in the place of the array of applications; null removes it.
    void SetValue(CFPropertyListRef value);

    const std::string& Path() const { return mDirectory.Path(); }

private:
    TemporaryDirectory mDirectory;
};

} // namespace TestSupport
