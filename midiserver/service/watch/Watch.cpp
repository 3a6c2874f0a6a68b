#include "midiserver/service/watch/Watch.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/service/watch/FileWatch.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <fmt/format.h>

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace MidiServer {

namespace {

// Who writes a file in several steps is done by then.
constexpr std::chrono::milliseconds kRest(100);

} // namespace

class Watch::Loop {
public:
    Loop(Options options, Callbacks callbacks)
        : mOptions(std::move(options)),
          mCallbacks(std::move(callbacks)),
          mFile(mOptions.file),
          mFileNotices(mContext, mFile.Descriptor()),
          mSignals(mContext, SIGTERM, SIGINT, SIGHUP) {
        AwaitSignal();
        AwaitFileNotice();
        if (mOptions.tickInterval) {
            AwaitTick();
        }
        mThread = std::thread([this] { mContext.run(); });
    }

    ~Loop() {
        mContext.stop();
        mThread.join();
        mFileNotices.release(); // mFile closes it
    }

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

private:
    using Error = boost::system::error_code;

    void AwaitSignal() {
        mSignals.async_wait([this](const Error& error, int number) {
            if (error) {
                return;
            }
            if (number == SIGHUP) {
                mCallbacks.reload();
            } else if (!std::exchange(mAskedForEnd, true)) {
                mCallbacks.end();
            } else {
                mSignals.clear(); // the signals do again what they did
                std::raise(number);
            }
            AwaitSignal();
        });
    }

    void AwaitFileNotice() {
        mFileNotices.async_wait(
            boost::asio::posix::stream_descriptor::wait_read, [this](const Error& error) {
                if (error) {
                    return;
                }
                if (mFile.TakeChanges()) {
                    mRest.expires_after(kRest); // also ends the rest that went on
                    mRest.async_wait([this](const Error& ended) {
                        if (!ended) {
                            mCallbacks.fileChanged();
                        }
                    });
                }
                AwaitFileNotice();
            });
    }

    void AwaitTick() {
        mTick.expires_after(*mOptions.tickInterval);
        mTick.async_wait([this](const Error& error) {
            if (!error) {
                mCallbacks.tick();
                AwaitTick();
            }
        });
    }

    const Options mOptions;
    const Callbacks mCallbacks;
    boost::asio::io_context mContext{1};
    FileWatch mFile;
    boost::asio::posix::stream_descriptor mFileNotices;
    boost::asio::signal_set mSignals;
    boost::asio::steady_timer mRest{mContext};
    boost::asio::steady_timer mTick{mContext};
    bool mAskedForEnd = false;
    std::thread mThread;
};

Watch::Watch(Options options, Callbacks callbacks) {
    try {
        mLoop = std::make_unique<Loop>(std::move(options), std::move(callbacks));
    } catch (const boost::system::system_error& error) {
        throw HostError(fmt::format("signals cannot be watched: {}", error.what()));
    }
}

Watch::~Watch() = default;

} // namespace MidiServer
