#pragma once

#include "surface/event/UserAction.h"
#include "surface/screen/Keys.h"
#include "surface/screen/Picture.h"
#include "surface/screen/UserInput.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Surface {

// Makes of what the user does at the terminal what a user of a surface does at it: a fader that is
// moved is touched before and let go after, and a button that is pressed is let go.
//
//     Controls controls(ports);
//     for (const Controls::Done& done : controls.Take(input, picture.targets, ports, now)) {
//         ports[done.port].Perform(done.action); // before the next call
//     }
//     controls.Advance(now); // from time to time: a fader that keys have moved is let go
//
// Not synchronised.
class Controls {
public:
    using Time = std::chrono::steady_clock::time_point;
    // How long a fader stays touched after a key, or the mouse's wheel, has moved it.
    static constexpr std::chrono::milliseconds kTouch{600};

    // One thing that the user does at a port, by its index.
    struct Done {
        std::size_t port;
        UserAction action;
    };

    explicit Controls(std::size_t ports) : mPorts(ports) {}

    // `targets` are those of the picture that the user sees; `ports` what it shows.
    std::vector<Done> Take(const UserInput& input, std::span<const Target> targets,
                           std::span<const SurfacePort> ports, Time now);
    std::vector<Done> Advance(Time now);
    // Lets go of everything, as the program ends.
    std::vector<Done> LetGo();

    std::size_t ChosenPort() const { return mChosenPort; }
    std::uint8_t ChosenFader() const { return mChosenFader; }
    // A bit for each fader of a port that is touched, the first as bit 0.
    std::uint16_t Touched(std::size_t port) const;
    bool ShowsHelp() const { return mShowsHelp; }
    bool EndIsWanted() const { return mEndIsWanted; }

private:
    struct Touch {
        std::size_t port;
        std::uint8_t fader;
        std::optional<Time> end; // nothing: the mouse holds it
    };
    struct Press {
        std::size_t port;
        ButtonId button;
    };

    void Obey(const Command& command, std::span<const SurfacePort> ports, Time now,
              std::vector<Done>& done);
    void TakeMouse(const UserInput& input, std::span<const Target> targets,
                   std::span<const SurfacePort> ports, Time now, std::vector<Done>& done);
    void MoveFader(const Touch& touch, int position, std::vector<Done>& done);
    void LetGoOfFader(std::vector<Done>& done);
    void PressAndLetGo(ButtonId button, std::vector<Done>& done) const;
    void Hold(Button button, std::vector<Done>& done);

    std::size_t mPorts;
    std::size_t mChosenPort = 0;
    std::uint8_t mChosenFader = 0;
    bool mShowsHelp = false;
    bool mEndIsWanted = false;
    std::optional<Touch> mTouch;
    std::optional<Target> mDragged; // the fader that the mouse holds
    std::optional<Press> mPressed;  // the button that the mouse holds
    std::vector<Press> mHeld;       // those that keys hold
};

} // namespace Surface
