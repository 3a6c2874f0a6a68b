// Each command line that the documents show is run as it stands: here in a terminal, or elsewhere.
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using QuorvelTest::ContentOf;
using SurfaceTest::TerminalScreen;
using testing::HasSubstr;
using TestSupport::WaitUntil;

namespace fs = std::filesystem;

const fs::path kSources = QUORVEL_SOURCE_DIR;
const std::string kCapture = kSources / "tests/data/captures/ardour-hui.txt";

// A command line that is run here.
struct Command {
    std::string line;
    std::string shows; // a text that comes onto the screen
    bool goesOn = false;
    bool hearsADaw = false; // which sends again and again until the text is there
};

const Command kServe = {"midiserver run --backend embedded", "serving 4 ports", true};
const Command kRecord = {"midiserver record 1 FILE", "recording Quorvel Port 1", true};

const std::vector<Command> kBeforeTheService = {
    {"midiserver prefs set Mixer --ports 1-4 --protocol MackieControl", "ended with 0"},
    {"midiserver prefs set NAME --ports 1-4 --protocol HUI", "ended with 0"},
    {"midiserver prefs set Mixer --ports 1-4 --protocol MackieControl --prefs prefs",
     "ended with 0"},
    {"midiserver prefs show", "Mixer"},
    {"build/dev/bin/midiserver prefs show", "Mixer"},
    {"midiserver replay session.txt --speed 3 --prefs prefs", "ended with 0"},
    {"midiserver replay song.mid --as-fast-as-possible --json > result.json || echo lost",
     "ended with 0"},
    {"midiserver replay song.mid --log-level info --log-format json 2> log.json", "ended with 0"},
    {"build/dev/bin/midiserver replay FILE", "ended with 0"},
    {"midiserver run", "serving 4 ports", true},
    {"build/dev/bin/midiserver run", "serving 4 ports", true},
    {"midiserver run --backend alsa", "serving 4 ports", true},
    {"quorvel-surface --play session.txt", "Quorvel Port 1 ", true},
    {"quorvel-surface --play session.txt --as-fast-as-possible", " 775 messages,", true},
    {"quorvel-surface --play session.txt --snapshot picture.svg", "ended with 0"},
};

const std::vector<Command> kWithTheService = {
    {"midiserver replay ardour-hui.txt --to 1 --as-fast-as-possible", "ended with 0"},
    {"midiserver replay FILE --to 1", "ended with 0"},
    {"midiserver status", "Quorvel MIDI: 4 ports"},
    {"build/dev/bin/midiserver status", "Quorvel MIDI: 4 ports"},
    {"midiserver status --watch", "Quorvel MIDI: 4 ports", true},
    {"midiserver status --json", "\"name\": \"Quorvel Port 4\""},
    {"midiserver list", "Quorvel Port 1 ("},
    {"midiserver list --json", "\"backends\": ["},
    {"quorvel-surface --port 1", "\n embedded", true},
    {"quorvel-surface --port 1 2", "\n embedded", true},
    {"quorvel-surface --log", " 1 light play on", true, true},
};

// What others run: the file that runs it, and the text by which it does so.
struct Elsewhere {
    std::string line;
    fs::path file;
    std::string text;
};

const fs::path kGates = ".ci/run";
const fs::path kCleanSystem = "tests/integration/packaging/clean-root-check";
const fs::path kPackages = "tests/integration/packaging/DebianPackageTest.cpp";
const fs::path kInstalled = "tests/integration/packaging/InstalledTreeTest.cpp";
const fs::path kSourceTree = "tests/integration/packaging/SourceTreeTest.cpp";

const std::vector<Elsewhere> kElsewhere = {
    {"./scripts/demo", kGates, "run_stage demo ./scripts/demo"},
    {"./scripts/test", kGates, "run_stage test ./scripts/test"},
    {"./scripts/check-format", kGates, "./scripts/check-format"},
    {"./scripts/check-tidy", kGates, "./scripts/check-tidy"},
    {"./scripts/fuzz", kGates, "./scripts/fuzz"},
    {"./scripts/bench", kGates, "./scripts/bench"},
    {"./scripts/bench ServiceBench", kGates, "./scripts/bench"},
    {"./scripts/bench AlsaBench", kGates, "./scripts/bench"},
    {"./scripts/install-packages lint", kGates, "./scripts/install-packages lint"},
    {"./scripts/package [FOLDER]", kGates, "./scripts/package"},
    {"./scripts/package", kGates, "./scripts/package"},
    {"./scripts/install", kGates, "./scripts/install "},
    {R"(./scripts/install "$HOME/quorvel")", kGates, "./scripts/install "},
    {"./scripts/install [PREFIX]", kGates, "./scripts/install "},
    {"./scripts/uninstall", kGates, "./scripts/uninstall "},
    {"./scripts/uninstall [PREFIX]", kGates, "./scripts/uninstall "},
    {"./scripts/alsa-machine", "tests/integration/alsa/CMakeLists.txt", "scripts/alsa-machine"},
    // The gates are what runs all of this.
    {"bash .ci/run", kGates, "run_stage"},
    {"cpack -G DEB", kPackages, "QUORVEL_CPACK"},
    {R"(cmake -S docs/samples/MinimalHost -B build/host "-DCMAKE_PREFIX_PATH=$HOME/quorvel")",
     kInstalled, "/embedding.md"},
    {"cmake --build build/host", kInstalled, "/embedding.md"},
    {"mkdir -p build/host/preferences", kInstalled, "/embedding.md"},
    {"QUORVEL_PREFERENCES_DIR=build/host/preferences build/host/MinimalHost", kInstalled,
     "/embedding.md"},
    {"DESTDIR=/staging cmake --install build/dev --strip --prefix /usr", kInstalled, "DESTDIR="},
    {"cmake -S /path/to/sources -B /path/to/build -DCMAKE_BUILD_TYPE=RelWithDebInfo", kSourceTree,
     "\"-S\", sources, \"-B\", build"},
    {R"(cmake --preset dev -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g")", kSourceTree,
     R"(-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g)"},
    {"apt-get install ./build/dev/packages/quorvel-midi_*.deb", kCleanSystem,
     "apt-get install -y ./quorvel-"},
    {"apt-get install ./build/dev/packages/quorvel-midi_*.deb "
     "./build/dev/packages/quorvel-surface_*.deb",
     kCleanSystem, "apt-get install -y ./quorvel-"},
    {"apt-get purge quorvel-midi", kCleanSystem, "apt-get purge -y --autoremove quorvel-midi"},
    {"jackd --no-realtime -d dummy -r 48000 -p 1024", kCleanSystem,
     "jackd --no-realtime -d dummy -r 48000 -p 1024"},
    {"jack_lsp -A -p", kCleanSystem, "musician jack_lsp -A -p"},
    {"midiserver connect 1 NAME", "tests/integration/alsa/AlsaServiceTest.cpp",
     R"({"connect", "1", )"},
    {R"(midiserver connect 1 "ardour:mackie control in")",
     "tests/integration/ardour/ArdourFixture.h", R"({command, "1", port})"},
    {R"(midiserver connect 1 "ardour:mackie control out")",
     "tests/integration/ardour/ArdourFixture.h", R"({command, "1", port})"},
    {"midiserver connect 1 midi-monitor:input", kCleanSystem,
     "musician midiserver connect 1 midi-monitor:input"},
    {"midiserver disconnect 1 midi-monitor:input", kCleanSystem,
     "musician midiserver disconnect 1 midi-monitor:input"},
    {"pw-jack midiserver run", kCleanSystem, "use_command pw-jack midiserver run"},
    {"systemctl --user enable --now midiserver", kCleanSystem,
     "musician systemctl --user enable --now midiserver"},
    {"systemctl --user start midiserver", kCleanSystem,
     "musician systemctl --user start midiserver"},
    {"quorvel-surface", kCleanSystem, "terminal new-session -d -x 80 -y 24 quorvel-surface\n"},
    {"systemctl --user status midiserver", kCleanSystem,
     "musician systemctl --user status midiserver"},
    {"systemctl --user reload midiserver", kCleanSystem,
     "musician systemctl --user reload midiserver"},
    {"journalctl --user -u midiserver", kCleanSystem, "musician journalctl --user -u midiserver"},
};

// What needs a Macintosh, which none of our gates is.
const std::vector<std::string> kOnMacOsAlone = {
    "cmake -S . -B build/mac -DQUORVEL_BUILD_TESTS=OFF",
    "cmake --build build/mac --target QuorvelMIDI",
    R"(cp -R build/mac/lib/quorvel/QuorvelMIDI.plugin "/Library/Audio/MIDI Drivers/")",
    R"(rm -R "/Library/Audio/MIDI Drivers/QuorvelMIDI.plugin")",
    "killall MIDIServer",
};

bool IsSpace(char c) {
    return c == ' ' || c == '\t';
}

// A command without prompt, comment and what asks for root.
std::string Bare(std::string line) {
    for (const std::string start : {"$ ", "sudo "}) {
        if (line.starts_with(start)) {
            line.erase(0, start.size());
        }
    }
    for (const char* const end : {" # ", " &"}) {
        const std::size_t place = line.find(end);
        if (place != std::string::npos && (end[1] == '#' || place + 2 == line.size())) {
            line.erase(place);
        }
    }
    while (!line.empty() && IsSpace(line.back())) {
        line.pop_back();
    }
    return line;
}

// Commands, each with the page that shows it first.
using Shown = std::map<std::string, std::string>;

// A line may hold several, each after the success of the one before.
void AddLine(std::string line, const fs::path& page, Shown& shown) {
    const std::string separator = " && ";
    for (std::size_t end = 0; (end = line.find(separator)) != std::string::npos;) {
        shown.emplace(Bare(line.substr(0, end)), page);
        line.erase(0, end + separator.size());
    }
    shown.emplace(Bare(line), page);
}

// What a page shows in blocks: of a shell, of a session with its prompts, or indented.
void CollectFromBlocks(const fs::path& page, Shown& shown) {
    std::istringstream lines(ContentOf(kSources / page));
    std::string line;
    std::string block; // the mark of the one that is open
    while (std::getline(lines, line)) {
        if (line.starts_with("```")) {
            block = block.empty() ? line : "";
        } else if (block == "```sh" || (block == "```" && line.starts_with("$ ")) ||
                   (block.empty() && line.starts_with("    "))) {
            const std::size_t start = line.find_first_not_of(' ');
            if (start != std::string::npos) {
                AddLine(line.substr(start), page, shown);
            }
        }
    }
}

// What a page shows within its text: names of commands that stand alone are not meant to be typed.
void CollectFromText(const fs::path& page, Shown& shown) {
    std::istringstream pieces(ContentOf(kSources / page));
    std::string piece;
    for (bool isCode = false; std::getline(pieces, piece, '`'); isCode = !isCode) {
        const std::string first = piece.substr(0, piece.find(' '));
        const bool isOurs = piece.starts_with("./scripts/") || piece.starts_with("build/dev/bin/");
        const bool isCommand =
            std::set<std::string>{"DESTDIR=/staging", "apt-get",         "bash", "cmake", "cpack",
                                  "midiserver",       "quorvel-surface", "sudo"}
                .contains(first) &&
            piece.size() > first.size();
        const bool isName =
            first == "midiserver" && std::count(piece.begin(), piece.end(), ' ') < 2;
        if (isCode && (isOurs || (isCommand && !isName))) {
            AddLine(piece, page, shown);
        }
    }
}

// The examples of a manual page.
void CollectFromManual(const fs::path& page, Shown& shown) {
    std::istringstream lines(ContentOf(kSources / page));
    std::string line;
    bool isExample = false;
    while (std::getline(lines, line)) {
        if (line == ".nf" || line == ".fi") {
            isExample = line == ".nf";
        } else if (isExample) {
            line.erase(std::remove(line.begin(), line.end(), '\\'), line.end());
            AddLine(line, page, shown);
        }
    }
}

Shown ShownCommands() {
    Shown shown;
    std::vector<fs::path> pages = {"README.md", "CONTRIBUTING.md", "CHANGELOG.md"};
    for (const auto& entry : fs::directory_iterator(kSources / "docs")) {
        if (entry.path().extension() == ".md") {
            pages.push_back(entry.path().lexically_relative(kSources));
        }
    }
    for (const fs::path& page : pages) {
        CollectFromBlocks(page, shown);
        CollectFromText(page, shown);
    }
    CollectFromManual("docs/midiserver.1", shown);
    CollectFromManual("docs/quorvel-surface.1", shown);
    return shown;
}

TEST(DocumentedCommandsTest, AreAllRunByATest) {
    std::set<std::string> run = {kServe.line, kRecord.line};
    for (const auto* const commands : {&kBeforeTheService, &kWithTheService}) {
        for (const Command& command : *commands) {
            EXPECT_TRUE(run.insert(command.line).second) << command.line;
        }
    }
    for (const Elsewhere& elsewhere : kElsewhere) {
        EXPECT_TRUE(run.insert(elsewhere.line).second) << elsewhere.line;
        EXPECT_THAT(ContentOf(kSources / elsewhere.file), HasSubstr(elsewhere.text))
            << elsewhere.file << " does not run it";
    }
    run.insert(kOnMacOsAlone.begin(), kOnMacOsAlone.end());
    const Shown shown = ShownCommands();
    for (const auto& [line, page] : shown) {
        EXPECT_TRUE(run.contains(line)) << page << " shows what no test runs: " << line;
    }
    for (const std::string& line : run) {
        EXPECT_TRUE(shown.contains(line)) << "no document shows: " << line;
    }
}

// A user's folder, with the files that the documents name.
class CommandsInATerminalTest : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string missing = TerminalScreen::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
        for (const char* const name : {"session.txt", "ardour-hui.txt", "FILE"}) {
            mFolder.Write(name, ContentOf(kCapture));
        }
        // A song of a single note.
        mFolder.Write("song.mid", std::string_view("MThd\0\0\0\6\0\0\0\1\0\x60"
                                                   "MTrk\0\0\0\14"
                                                   "\0\x90\x3C\x40\x60\x80\x3C\0\0\xFF\x2F\0",
                                                   14 + 8 + 12));
        fs::create_directories(mFolder.Path() / "build/dev");
        fs::create_directory_symlink(fs::path(MIDISERVER_PROGRAM).parent_path(),
                                     mFolder.Path() / "build/dev/bin");
    }

    std::unique_ptr<TerminalScreen> Start(const std::string& line) const {
        const std::string folder = mFolder.Path();
        const std::string programs = fs::path(MIDISERVER_PROGRAM).parent_path();
        // The terminal has its own idea of PATH. What goes on takes the shell's place, and so gets
        // the signals.
        const std::string start = "PATH=" + programs + ":$PATH && cd " + folder + " && " +
                                  (line.find('>') == std::string::npos ? "exec " : "");
        return std::make_unique<TerminalScreen>(
            std::vector<std::string>{"/bin/sh", "-c", start + line}, 120, 100, Environment());
    }

    std::vector<std::string> Environment() const {
        const std::string folder = mFolder.Path();
        return {"HOME=" + folder,
                "JACK_DEFAULT_SERVER=quorvel-none",
                "JACK_NO_START_SERVER=1",
                "JOURNAL_STREAM=",
                "NOTIFY_SOCKET=",
                "QUORVEL_PREFERENCES_DIR=" + folder,
                "QUORVEL_RUNTIME_DIR=" + folder + "/runtime",
                "XDG_STATE_HOME=" + folder};
    }

    static void ExpectEnd(const TerminalScreen& screen) {
        std::string text;
        EXPECT_TRUE(WaitUntil("it ends", [&] {
            text = screen.Text();
            return text.find("ended with ") != std::string::npos;
        }));
        EXPECT_THAT(text, HasSubstr("ended with 0\n"));
    }

    void Run(const std::vector<Command>& commands) const {
        for (const Command& command : commands) {
            SCOPED_TRACE(command.line);
            const auto screen = Start(command.line);
            ASSERT_TRUE(WaitUntil("it shows " + command.shows, [&] {
                if (command.hearsADaw) {
                    QuorvelTest::RunProgram({MIDISERVER_PROGRAM, "replay", kCapture, "--to", "1",
                                             "--as-fast-as-possible"},
                                            {}, Environment());
                }
                return screen->Text().find(command.shows) != std::string::npos;
            })) << screen->Text();
            if (command.goesOn) {
                ASSERT_EQ(::kill(screen->Process(), SIGINT), 0);
            }
            ExpectEnd(*screen);
        }
    }

    QuorvelTest::TemporaryFolder mFolder;
};

TEST_F(CommandsInATerminalTest, DoWhatTheDocumentsShowThemFor) {
    ASSERT_NO_FATAL_FAILURE(Run(kBeforeTheService));
    const auto service = Start(kServe.line);
    ASSERT_TRUE(WaitUntil("it serves", [&] {
        return service->Text().find(kServe.shows) != std::string::npos;
    })) << service->Text();
    fs::remove(mFolder.Path() / "FILE"); // a recording is a new one
    ASSERT_NO_FATAL_FAILURE(Run({kRecord}));
    fs::remove(mFolder.Path() / "FILE");
    mFolder.Write("FILE", ContentOf(kCapture));
    ASSERT_NO_FATAL_FAILURE(Run(kWithTheService));
    ASSERT_EQ(::kill(service->Process(), SIGINT), 0);
    ExpectEnd(*service);
}

} // namespace
