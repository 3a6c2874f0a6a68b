#include "surface/screen/Terminal.h"

#include "midiserver/errors/Errors.h"
#include "surface/screen/TerminalRescue.h"

// Its functions have names of one word, and as macros they would stand in for members.
#define NCURSES_NOMACROS
#include <curses.h>
#include <langinfo.h>
#include <poll.h>
#include <term.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace Surface {

namespace {

// Reports presses, releases and, in between, moves. The library's own request leaves out the moves
// on most terminals; this one is understood by all that report a mouse at all.
constexpr const char* kFollowMouse = "\x1b[?1002h";
constexpr const char* kIgnoreMouse = "\x1b[?1006l\x1b[?1003l\x1b[?1002l\x1b[?1000l";
constexpr int kEscapeDelayMilliseconds = 25;

void Write(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

// A string of the terminal's description, without the pauses that terminals of long ago need.
std::string Capability(const char* name) {
    const char* const value = tigetstr(name);
    if (value == nullptr || value == reinterpret_cast<const char*>(-1)) {
        return {};
    }
    std::string text = value;
    for (std::size_t start = 0; (start = text.find("$<", start)) != std::string::npos;) {
        const std::size_t end = text.find('>', start);
        text.erase(start, end == std::string::npos ? end : end + 1 - start);
    }
    return text;
}

// Terminals speak UTF-8, whatever the user's language is.
void SpeakUtf8() {
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

SpecialKey KeyOf(wint_t code) {
    switch (code) {
    case KEY_UP:
        return SpecialKey::kUp;
    case KEY_DOWN:
        return SpecialKey::kDown;
    case KEY_LEFT:
        return SpecialKey::kLeft;
    case KEY_RIGHT:
        return SpecialKey::kRight;
    case KEY_PPAGE:
        return SpecialKey::kPageUp;
    case KEY_NPAGE:
        return SpecialKey::kPageDown;
    case KEY_HOME:
        return SpecialKey::kHome;
    case KEY_END:
        return SpecialKey::kEnd;
    case KEY_ENTER:
        return SpecialKey::kEnter;
    case KEY_BTAB:
        return SpecialKey::kBackTab;
    default:
        return SpecialKey::kNone;
    }
}

SpecialKey KeyOfControl(wint_t character) {
    switch (character) {
    case '\r':
    case '\n':
        return SpecialKey::kEnter;
    case '\t':
        return SpecialKey::kTab;
    case '\x1b':
        return SpecialKey::kEscape;
    default:
        return SpecialKey::kNone;
    }
}

constexpr short kGreyOfManyColours = 8;

short TerminalColour(Colour colour) {
    switch (colour) {
    case Colour::kRed:
        return COLOR_RED;
    case Colour::kGreen:
        return COLOR_GREEN;
    case Colour::kYellow:
        return COLOR_YELLOW;
    case Colour::kBlue:
        return COLOR_BLUE;
    case Colour::kCyan:
        return COLOR_CYAN;
    case Colour::kGrey:
        return COLORS > kGreyOfManyColours ? kGreyOfManyColours : short{-1};
    case Colour::kPlain:
        break;
    }
    return -1; // the terminal's own
}

constexpr short PairOf(Colour colour) {
    return static_cast<short>(colour); // pair 0 is the terminal's own colours
}

} // namespace

class Terminal::Screen {
public:
    Screen() {
        if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) {
            throw MidiServer::InputError(
                "standard input and output are no terminal; --log prints lines, and --snapshot "
                "writes a picture");
        }
        SpeakUtf8();
        termios settings{};
        ::tcgetattr(STDIN_FILENO, &settings);
        // ncurses' own way, initscr, ends the process where it fails.
        mScreen = newterm(nullptr, stdout, stdin);
        if (mScreen == nullptr) {
            const char* const kind = std::getenv("TERM");
            throw MidiServer::InputError(
                std::string("nothing is known of terminals of the kind that TERM names: \"") +
                (kind == nullptr ? "" : kind) + "\"");
        }
        cbreak();
        noecho();
        nonl();
        curs_set(0);
        set_escdelay(kEscapeDelayMilliseconds);
        keypad(stdscr, TRUE);
        nodelay(stdscr, TRUE);
        leaveok(stdscr, TRUE);
        MakeColours();
        mouseinterval(0); // presses and releases as they come, and no clicks made of them
        mousemask(ALL_MOUSE_EVENTS | REPORT_MOUSE_POSITION, nullptr);
        Write(kFollowMouse);
        mRescue.emplace(kIgnoreMouse + Capability("sgr0") + Capability("op") + Capability("rmkx") +
                            Capability("cnorm") + Capability("rmcup"),
                        settings);
    }

    ~Screen() {
        Write(kIgnoreMouse);
        endwin();
        mRescue.reset();
        delscreen(mScreen);
    }

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    void Show(const Grid& grid) {
        if (!mShown || mShown->Rows() != grid.Rows() || mShown->Columns() != grid.Columns()) {
            werase(stdscr);
            mShown.emplace(grid.Rows(), grid.Columns());
        }
        for (int row = 0; row < grid.Rows(); ++row) {
            for (int column = 0; column < grid.Columns(); ++column) {
                const Cell& cell = grid.At(row, column);
                if (!(cell == mShown->At(row, column))) {
                    ShowCell(row, column, cell);
                }
            }
        }
        *mShown = grid;
        wrefresh(stdscr);
    }

    void ShowAnew() {
        wclear(stdscr);
        mShown.reset();
    }

    std::optional<UserInput> Read() {
        wint_t code = 0;
        const int kind = wget_wch(stdscr, &code);
        if (kind == ERR) {
            return std::nullopt;
        }
        UserInput input;
        if (kind != KEY_CODE_YES) {
            input.key = KeyOfControl(code);
            input.character = input.key == SpecialKey::kNone ? static_cast<char32_t>(code) : 0;
            return input;
        }
        if (code == KEY_RESIZE) {
            ShowAnew();
            input.kind = UserInput::Kind::kResize;
        } else if (code == KEY_MOUSE) {
            return ReadMouse();
        } else if (code > KEY_F0 && code <= KEY_F(63)) {
            input.key = SpecialKey::kFunction;
            input.character = static_cast<char32_t>(code - KEY_F0);
        } else if (code == KEY_BACKSPACE || code == KEY_DC) {
            input.character = U'\x7f';
        } else {
            input.key = KeyOf(code);
        }
        return input;
    }

private:
    static void MakeColours() {
        if (!has_colors()) {
            return;
        }
        start_color();
        use_default_colors();
        for (const Colour colour : {Colour::kGrey, Colour::kRed, Colour::kGreen, Colour::kYellow,
                                    Colour::kBlue, Colour::kCyan}) {
            init_pair(PairOf(colour), TerminalColour(colour), -1);
        }
    }

    static void ShowCell(int row, int column, const Cell& cell) {
        const Style& style = cell.style;
        attr_t attributes = A_NORMAL;
        attributes |= style.isBold ? A_BOLD : A_NORMAL;
        attributes |= style.isReversed ? A_REVERSE : A_NORMAL;
        attributes |= style.isBlinking ? A_BLINK : A_NORMAL;
        const bool hasGrey = has_colors() && COLORS > kGreyOfManyColours;
        attributes |= style.colour == Colour::kGrey && !hasGrey ? A_DIM : A_NORMAL;
        const std::array<wchar_t, 2> text = {static_cast<wchar_t>(cell.character), L'\0'};
        cchar_t shown{};
        setcchar(&shown, text.data(), attributes, PairOf(style.colour), nullptr);
        mvwadd_wch(stdscr, row, column, &shown);
    }

    std::optional<UserInput> ReadMouse() {
        MEVENT event{};
        if (getmouse(&event) != OK) {
            return Read();
        }
        UserInput input;
        input.kind = UserInput::Kind::kMouse;
        input.row = event.y;
        input.column = event.x;
        if ((event.bstate & BUTTON4_PRESSED) != 0) {
            input.mouse = MouseAction::kWheelUp;
        } else if ((event.bstate & BUTTON5_PRESSED) != 0) {
            input.mouse = MouseAction::kWheelDown;
        } else if ((event.bstate & BUTTON1_PRESSED) != 0) {
            mIsPressed = true;
            input.mouse = MouseAction::kPress;
        } else if ((event.bstate & BUTTON1_RELEASED) != 0) {
            mIsPressed = false;
            input.mouse = MouseAction::kRelease;
        } else if ((event.bstate & REPORT_MOUSE_POSITION) != 0 && mIsPressed) {
            input.mouse = MouseAction::kDrag;
        } else {
            return Read(); // the other buttons, of which there are no more waiting than were
                           // pressed
        }
        return input;
    }

    SCREEN* mScreen = nullptr;
    std::optional<Grid> mShown;
    std::optional<TerminalRescue> mRescue;
    bool mIsPressed = false;
};

Terminal::Terminal() : mScreen(std::make_unique<Screen>()) {}
Terminal::~Terminal() = default;

int Terminal::Rows() const {
    return getmaxy(stdscr);
}

int Terminal::Columns() const {
    return getmaxx(stdscr);
}

void Terminal::Show(const Grid& grid) {
    mScreen->Show(grid);
}

bool Terminal::WaitForInput(std::chrono::milliseconds longest) {
    pollfd keyboard{STDIN_FILENO, POLLIN, 0};
    return ::poll(&keyboard, 1, static_cast<int>(longest.count())) <= 0 ||
           (keyboard.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

std::optional<UserInput> Terminal::Read() {
    return mScreen->Read();
}

} // namespace Surface
