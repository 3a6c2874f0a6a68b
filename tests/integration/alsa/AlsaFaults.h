#pragma once

#include <string>
#include <vector>

namespace QuorvelTest {

// Makes calls of this program into ALSA's library fail. The program's own calls stand in for the
// library's, for each function in the two lists.
//
//     AlsaFaults::FailNext("snd_seq_create_port");
//     ...
//     EXPECT_TRUE(AlsaFaults::HasFailed());
//
// Any thread may be the one whose call fails.
class AlsaFaults {
public:
    // The functions that the backend calls when it finds the sequencer, and later on.
    static const std::vector<std::string>& CallsAtTheStart();
    static const std::vector<std::string>& CallsWhileRunning();

    // The next call of this function fails, once. The text must last as long. Replaces what was
    // ordered before.
    static void FailNext(const std::string& function);
    // Whether it has been called since.
    static bool HasFailed();
    static void FailNone();
};

} // namespace QuorvelTest
