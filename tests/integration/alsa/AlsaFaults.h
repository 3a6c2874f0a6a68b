#pragma once

#include <string>
#include <vector>

namespace QuorvelTest {

// The functions of ALSA's library that LibraryFaults makes fail in a program with AlsaFaults.cpp:
// those that the backend calls when it finds the sequencer, and later on.
const std::vector<std::string>& CallsAtTheStart();
const std::vector<std::string>& CallsWhileRunning();

} // namespace QuorvelTest
