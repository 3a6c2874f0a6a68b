#include "surface/program/SurfaceProgram.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/replay/session/SessionFile.h"
#include "surface/connection/ServiceConnection.h"
#include "surface/feed/PlayedCapture.h"
#include "surface/program/Modes.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <set>

namespace Surface {

namespace {

using MidiServer::InputError;
using MidiServer::Protocol;

constexpr std::size_t kMostPorts = 32;
constexpr double kLongestSeconds = 604800; // as a capture's
constexpr std::chrono::seconds kListening(2);

// The parser's own range checks let "nan" pass.
CLI::Validator Between(double least, double most) {
    return CLI::Validator(
        [least, most](const std::string& text) {
            double value = 0;
            return CLI::detail::lexical_cast(text, value) && value >= least && value <= most
                       ? std::string()
                       : fmt::format("{} is no number from {} to {}", text, least, most);
        },
        std::string());
}

std::string CheckSize(const std::string& text) {
    int columns = 0;
    int rows = 0;
    int end = 0;
    const bool isSize = std::sscanf(text.c_str(), "%4dx%4d%n", &columns, &rows, &end) == 2 &&
                        end == static_cast<int>(text.size());
    return isSize && columns >= kPortColumns && rows >= kLeastRows
               ? std::string()
               : fmt::format("{} is no size, such as {}x{}, which is the smallest", text,
                             kPortColumns, kLeastRows);
}

class SurfaceProgram : public MidiServer::CommandLineProgram {
public:
    SurfaceProgram() {
        mParser.set_version_flag("--version", "quorvel-surface " MIDISERVER_VERSION);
        std::vector<std::string> backends = ServiceConnection::Backends();
        backends.insert(backends.begin(), "auto");
        CLI::Option* backend =
            mParser
                .add_option("--backend", mBackend,
                            "How the service's private sources are heard; auto takes what the\n"
                            "service has")
                ->capture_default_str()
                ->check(CLI::IsMember(backends));
        mParser
            .add_option("--port", mPorts, "Ports of the service, or the number for what is played")
            ->check(CLI::Range(std::size_t{1}, kMostPorts))
            ->default_str("1");
        mParser
            .add_option("--protocol", mProtocol,
                        "What the ports speak; auto asks the service, and plays Mackie Control")
            ->capture_default_str()
            ->check(CLI::IsMember({"auto", "mackie", "hui"}));
        CLI::Option* play = mParser
                                .add_option("--play", mFile,
                                            "Show a capture instead of a service; - reads "
                                            "standard input")
                                ->excludes(backend);
        CLI::Option* speed = mParser.add_option("--speed", mSpeed, "Times the recorded speed")
                                 ->capture_default_str()
                                 ->check(Between(0.001, 1000.0))
                                 ->needs(play);
        mParser
            .add_flag("--as-fast-as-possible", mAsFastAsPossible, "Do not wait between messages")
            ->needs(play)
            ->excludes(speed);
        mParser
            .add_option("--at", mAt,
                        "Stop playing after so many seconds of the capture; without one, how\n"
                        "long --snapshot listens (2)")
            ->check(Between(0.0, kLongestSeconds));
        CLI::Option* log =
            mParser.add_flag("--log", mLog, "Print a line for each message, and show no picture");
        CLI::Option* snapshot =
            mParser
                .add_option("--snapshot", mSnapshot,
                            "Write the picture as SVG into this file, and show none; - writes\n"
                            "standard output. A capture is played at once to its end")
                ->excludes(log)
                ->excludes(speed);
        mParser.add_option("--size", mSize, "Of --snapshot, in characters: columns x rows")
            ->capture_default_str()
            ->check(CLI::Validator(CheckSize, std::string()))
            ->needs(snapshot);
    }

    CLI::App& Parser() override { return mParser; }

    int Run() override {
        if (std::set<std::size_t>(mPorts.begin(), mPorts.end()).size() != mPorts.size()) {
            throw InputError("--port: a port is named twice");
        }
        if (mAt && !mFile && !mSnapshot) {
            throw InputError("--at: it is for --play and --snapshot");
        }
        const std::unique_ptr<Feed> feed = MakeFeed();
        FedPorts ports(*feed, mPorts, GivenProtocol());
        if (mLog) {
            RunLog(*feed, ports);
        } else if (mSnapshot) {
            RunSnapshot(*feed, ports, Snapshot());
        } else {
            RunScreen(*feed, ports);
        }
        return EXIT_SUCCESS;
    }

private:
    std::optional<Protocol> GivenProtocol() const {
        if (mProtocol == "auto") {
            return std::nullopt;
        }
        return mProtocol == "hui" ? Protocol::kHui : Protocol::kMackieControl;
    }

    std::optional<SurfaceModel::Time> At() const {
        if (!mAt) {
            return std::nullopt;
        }
        return std::chrono::duration_cast<SurfaceModel::Time>(std::chrono::duration<double>(*mAt));
    }

    std::unique_ptr<Feed> MakeFeed() const {
        if (!mFile) {
            return std::make_unique<ServiceConnection>(mPorts, mBackend);
        }
        if (mPorts.size() != 1) {
            throw InputError("--play: a capture is of one port");
        }
        PlayOptions options;
        options.speed = mAsFastAsPossible || mSnapshot ? std::nullopt : std::optional(mSpeed);
        options.at = At();
        options.protocol = GivenProtocol().value_or(Protocol::kMackieControl);
        return std::make_unique<PlayedCapture>(MidiServer::ReadSessionFile(*mFile), *mFile,
                                               options);
    }

    SnapshotOptions Snapshot() const {
        SnapshotOptions options;
        options.file = *mSnapshot;
        std::sscanf(mSize.c_str(), "%dx%d", &options.columns, &options.rows);
        if (!mFile) {
            options.listening = At().value_or(kListening);
        }
        return options;
    }

    CLI::App mParser{"A control surface in the terminal for the Quorvel MIDI driver.",
                     "quorvel-surface"};
    std::vector<std::size_t> mPorts = {1};
    std::string mBackend = "auto";
    std::string mProtocol = "auto";
    std::optional<std::string> mFile;
    double mSpeed = 1.0;
    bool mAsFastAsPossible = false;
    std::optional<double> mAt;
    bool mLog = false;
    std::optional<std::string> mSnapshot;
    std::string mSize = fmt::format("{}x{}", kPortColumns, kLeastRows);
};

} // namespace

std::unique_ptr<MidiServer::CommandLineProgram> MakeSurfaceProgram() {
    return std::make_unique<SurfaceProgram>();
}

} // namespace Surface
