#include "surface/feed/PlayedCapture.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

namespace Surface {

using Microseconds = std::chrono::microseconds;

PlayedCapture::PlayedCapture(MidiServer::RecordedSession session, std::string name,
                             const PlayOptions& options)
    : mSession(std::move(session)),
      mName(std::filesystem::path(std::move(name)).filename().string()),
      mOptions(options),
      mNext(mSession.begin()) {
    for (const MidiServer::RecordedMessage& message : mSession) {
        mLength = Microseconds(message.microseconds);
    }
    mLength = mOptions.at.value_or(mLength);
}

bool PlayedCapture::IsAtEnd() const {
    return mNext == mSession.end() || Microseconds(mNext->microseconds) > mLength;
}

FeedState PlayedCapture::State() const {
    const auto seconds = [](SurfaceModel::Time time) {
        return std::chrono::duration<double>(time).count();
    };
    FeedState state;
    state.isThere = true;
    state.isAtEnd = IsAtEnd();
    state.detail = fmt::format("{} at {:.1f} of {:.1f} s", MidiServer::OneLine(mName),
                               seconds(std::min(Now(), mLength)), seconds(mLength));
    state.protocols = {mOptions.protocol};
    return state;
}

SurfaceModel::Time PlayedCapture::Now() const {
    if (!mStart) {
        return Microseconds(0);
    }
    if (!mOptions.speed) {
        return mLength;
    }
    const std::chrono::duration<double, std::micro> played = Clock::now() - *mStart;
    const Microseconds now(static_cast<std::int64_t>(played.count() * *mOptions.speed));
    return mOptions.at ? std::min(now, *mOptions.at) : now;
}

void PlayedCapture::Take(const Receive& receive) {
    if (!mStart) {
        mStart = Clock::now();
    }
    const SurfaceModel::Time now = Now();
    while (!IsAtEnd() && Microseconds(mNext->microseconds) <= now) {
        receive(0, Microseconds(mNext->microseconds), mNext->bytes);
        ++mNext;
    }
}

void PlayedCapture::Wait(std::chrono::milliseconds longest) {
    std::this_thread::sleep_for(longest);
}

} // namespace Surface
