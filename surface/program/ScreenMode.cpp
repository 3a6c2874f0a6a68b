#include "midiserver/midi/HexText.h"
#include "surface/program/EndSignals.h"
#include "surface/program/Modes.h"
#include "surface/screen/Controls.h"
#include "surface/screen/HelpPage.h"
#include "surface/screen/Terminal.h"

#include <fmt/format.h>

#include <algorithm>

namespace Surface {

namespace {

using Clock = std::chrono::steady_clock;

// 30 pictures a second at most.
constexpr std::chrono::milliseconds kBetweenPictures(34);
// Of the messages that were sent last.
constexpr std::size_t kMostShown = 3;

class ScreenMode {
public:
    ScreenMode(Feed& feed, FedPorts& ports)
        : mFeed(feed), mPorts(ports), mControls(ports.Ports().size()) {}

    void Run() {
        Terminal terminal;
        const EndSignals signals;
        bool isThere = true;
        while (isThere && !EndSignals::Came() && !mControls.EndIsWanted()) {
            mIsStale = mPorts.Take() || mIsStale;
            Perform(mControls.Advance(Clock::now()));
            ShowIfDue(terminal);
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(mNextPicture - Clock::now());
            isThere = terminal.WaitForInput(std::max(left, std::chrono::milliseconds(1)));
            while (const std::optional<UserInput> input = terminal.Read()) {
                mIsStale = true;
                Perform(mControls.Take(*input, mPicture.targets, mPorts.Ports(), Clock::now()));
            }
        }
        Perform(mControls.LetGo());
    }

private:
    void Perform(const std::vector<Controls::Done>& all) {
        std::string sent;
        std::size_t count = 0;
        for (const Controls::Done& done : all) {
            for (const auto& message : mPorts.Perform(done.port, done.action)) {
                if (++count <= kMostShown) {
                    sent += (sent.empty() ? "" : ", ") + MidiServer::HexText(message);
                }
            }
        }
        if (count > 0) {
            mSent = sent + (count > kMostShown ? ", ..." : "");
            mIsStale = true;
        }
    }

    void ShowIfDue(Terminal& terminal) {
        const auto now = Clock::now();
        if (now < mNextPicture) {
            return;
        }
        mNextPicture = now + kBetweenPictures;
        const std::string status = StatusText();
        const bool changed = mPorts.TakeChange();
        if (!changed && !mIsStale && status == mStatus) {
            return;
        }
        mIsStale = false;
        mStatus = status;
        if (mControls.ShowsHelp()) {
            terminal.Show(DrawHelpPage(terminal.Rows(), terminal.Columns()));
            return;
        }
        mPicture = DrawPicture(terminal.Rows(), terminal.Columns(), SceneNow());
        terminal.Show(mPicture.grid);
    }

    std::string StatusText() const {
        const FeedState state = mFeed.State();
        std::string text;
        if (state.lost > 0) {
            text += fmt::format("{} lost, ", state.lost);
        }
        if (state.unsent > 0) {
            text += fmt::format("{} not sent, ", state.unsent);
        }
        return text + state.detail;
    }

    Scene SceneNow() const {
        Scene scene;
        for (std::size_t i = 0; i < mPorts.Ports().size(); ++i) {
            scene.ports.push_back({mPorts.NumberOf(i), &mPorts.Ports()[i], mControls.Touched(i)});
        }
        scene.chosenPort = mControls.ChosenPort();
        scene.chosenFader = mControls.ChosenFader();
        scene.status = mStatus;
        scene.hint = (mSent.empty() ? mSent : fmt::format("sent {}  ", mSent)) + "? keys, q end";
        return scene;
    }

    Feed& mFeed;
    FedPorts& mPorts;
    Controls mControls;
    Picture mPicture{Grid(0, 0), {}};
    Clock::time_point mNextPicture{};
    bool mIsStale = true; // something happened that the picture does not show yet
    std::string mStatus;
    std::string mSent; // what the user did last
};

} // namespace

void RunScreen(Feed& feed, FedPorts& ports) {
    ScreenMode(feed, ports).Run();
}

} // namespace Surface
