// Watches the part of each period that JACK's process threads have to spend
// without waiting: from the end of jack_cycle_wait to jack_cycle_signal. It
// takes the place of both, and of what a thread could wait in or ask the system
// by: memory, locks, semaphores and system calls of the C library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace JackTest {

// How many such parts there were since the program's start.
std::uint64_t WatchedPeriods();

// The names of the functions that were called in such parts since the last
// call.
std::vector<std::string> TakeForbiddenCalls();

// Makes each such part call one of them, or none.
void CallInProcess(void (*function)());

} // namespace JackTest
