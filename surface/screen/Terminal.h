#pragma once

#include "surface/screen/Grid.h"
#include "surface/screen/UserInput.h"

#include <chrono>
#include <memory>
#include <optional>

namespace Surface {

// The terminal that the program runs in, taken over as a whole: it shows grids and tells what the
// user does. While a Terminal exists, standard output belongs to it.
//
//     Terminal terminal;
//     for (;;) {
//         terminal.Show(DrawPicture(terminal.Rows(), terminal.Columns()));
//         terminal.WaitForInput(std::chrono::milliseconds(33));
//         while (const std::optional<UserInput> input = terminal.Read()) { ... }
//     }
//
// The destructor makes the terminal as it was before, and so does TerminalRescue if it does not
// come to that. A process has one Terminal at a time, and one thread uses it.
class Terminal {
public:
    // Throws MidiServer::InputError if standard input or output is no terminal, or one of a kind
    // that is not known.
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Its size at present.
    int Rows() const;
    int Columns() const;

    // Shows a grid at the top left; what of the terminal it does not cover is blank. Writes only
    // what has changed since the last call. Waits for a terminal that does not take it.
    void Show(const Grid& grid);

    // Waits until there is something to read, but at most so long. A signal ends the wait early.
    // Returns false, now or later, if the terminal has gone.
    bool WaitForInput(std::chrono::milliseconds longest);
    // Returns what the user did next, or nothing if there is nothing more for now. Does not wait,
    // but for a fortieth of a second after an escape, which may be the first byte of a key.
    std::optional<UserInput> Read();

private:
    class Screen; // what ncurses has, and what is given back

    std::unique_ptr<Screen> mScreen;
};

} // namespace Surface
