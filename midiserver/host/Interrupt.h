#pragma once

namespace MidiServer {

// While an Interrupt exists, SIGINT and SIGTERM are counted and do not end the process. The first
// signal asks the program to finish in order, the second to stop waiting; the third goes to the
// handler that was there before. A process has one Interrupt at a time.
//
//     const Interrupt interrupt;
//     while (Interrupt::Count() == 0) {
//         SendSomeMore();
//     }
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // Returns how many signals came since construction. Any thread may call; does not block.
    static unsigned Count();
};

} // namespace MidiServer
