#pragma once

#include <string>
#include <vector>

namespace JackTest {

// Makes calls of this program into JACK's library fail. The program's own calls stand in for the
// library's, for each function that can fail.
//
//     JackFaults::FailNext("jack_port_register");
//     ...
//     EXPECT_TRUE(JackFaults::HasFailed());
//
// Any thread may be the one whose call fails.
class JackFaults {
public:
    // Those functions, by name, and those of the library that have no way to fail: they return
    // nothing, or a value of which each is possible.
    static const std::vector<std::string>& CanFail();
    static const std::vector<std::string>& CannotFail();

    // The next call of this function of CanFail fails, once. Replaces what was ordered before.
    static void FailNext(const std::string& function);
    // Whether it has been called since.
    static bool HasFailed();
    static void FailNone();
};

} // namespace JackTest
