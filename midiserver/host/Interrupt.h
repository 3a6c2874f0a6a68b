#pragma once

namespace MidiServer {

// Counts SIGINT and SIGTERM instead of dying of them, while it lives: the first asks to end what
// goes on in order, the second to stop waiting, the third goes to whoever handled it before. One at
// a time.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    // How many came since construction. Any thread; does not block.
    static unsigned Count();
};

} // namespace MidiServer
