#pragma once

#include <string>
#include <vector>

namespace JackTest {

// The functions of JACK's library that LibraryFaults makes fail in a program with JackFaults.cpp,
// and those that have no way to fail: they return nothing, or a value of which each is possible.
const std::vector<std::string>& FunctionsThatCanFail();
const std::vector<std::string>& FunctionsThatCannotFail();

} // namespace JackTest
