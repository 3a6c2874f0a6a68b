// The running service and the commands that ask it, as a user runs them.
#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <sstream>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;
using TestSupport::WaitUntil;

// Whether the program says this. The log's lines come a little later than what they tell of.
testing::AssertionResult Says(const Program& program, const std::string& text) {
    return WaitUntil("it says " + text,
                     [&] { return program.ErrorSoFar().find(text) != std::string::npos; });
}

class ServiceTest : public testing::Test {
protected:
    std::vector<std::string> Environment() const {
        return {"JOURNAL_STREAM=", "NOTIFY_SOCKET=", "QUORVEL_RUNTIME_DIR=" + Folder("runtime"),
                "XDG_STATE_HOME=" + Folder("state")};
    }

    std::string Folder(const std::string& name) const { return (mFolder.Path() / name).string(); }

    std::vector<std::string> RunArguments() const {
        return {"run", "--backend", "embedded", "--prefs", mPreferences.Folder()};
    }

    // Starts a service and waits until it serves.
    std::unique_ptr<Program> Start(std::vector<std::string> more = {}) const {
        std::vector<std::string> arguments = RunArguments();
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto service = std::make_unique<Program>(MidiserverCommand(arguments), "", Environment());
        EXPECT_TRUE(Says(*service, "\tserving ")) << service->ErrorSoFar();
        return service;
    }

    ProgramResult Ask(const std::vector<std::string>& arguments) const {
        return Midiserver(arguments, "", Environment());
    }

    nlohmann::json Status() const { return Summary(Ask({"status", "--json"})); }

    void SetPreferences(const std::string& ports, const std::string& protocol) const {
        const ProgramResult result = Ask({"prefs", "set", "Test", "--ports", ports, "--protocol",
                                          protocol, "--prefs", mPreferences.Folder()});
        ASSERT_EQ(result.status, 0) << result.err;
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    const TemporaryFolder mFolder;
};

TEST_F(ServiceTest, ShowsItsPortsAndTheirProtocols) {
    const auto service = Start();
    const nlohmann::json status = Status();

    EXPECT_EQ(status["schema"], 1);
    EXPECT_EQ(status["service"]["process"], service->Id());
    EXPECT_EQ(status["service"]["failure"], nullptr);
    EXPECT_EQ(status["service"]["driverStarts"], 1);
    EXPECT_EQ(status["service"]["setup"], Folder("state") + "/quorvel-midi/setup.plist");
    EXPECT_EQ(status["service"]["preferences"],
              mPreferences.Folder() + "/com.quorvel.ControlSurface.plist");
    EXPECT_EQ(status["device"]["name"], "Quorvel MIDI");
    EXPECT_TRUE(status["device"]["uniqueId"].is_number_integer());
    ASSERT_EQ(status["backends"].size(), 1U);
    EXPECT_EQ(status["backends"][0]["name"], "embedded");
    EXPECT_EQ(status["backends"][0]["isUp"], true);
    ASSERT_EQ(status["ports"].size(), 4U);
    EXPECT_EQ(status["ports"][3]["name"], "Quorvel Port 4");
    EXPECT_EQ(status["ports"][3]["protocol"], "MackieControl");
    for (const char* id : {"sourceId", "destinationId", "privateSourceId"}) {
        EXPECT_TRUE(status["ports"][3][id].is_number_integer()) << id;
    }
}

TEST_F(ServiceTest, ShowsItsStatusWithinEightyColumns) {
    const auto service = Start();
    const ProgramResult status = Ask({"status"});

    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(status.err, "");
    EXPECT_THAT(status.out, testing::StartsWith("Quorvel MIDI: 4 ports, running for "));
    EXPECT_THAT(status.out, HasSubstr("\n   4 Mackie       0     0 "));
    EXPECT_THAT(status.out, HasSubstr("\nQuorvel Port 4 "));
    EXPECT_THAT(status.out, HasSubstr("\nno connections\n"));
    std::istringstream lines(status.out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(ServiceTest, ShowsItsTrafficAnewUntilItIsInterrupted) {
    auto service = Start();
    Program watch(MidiserverCommand({"status", "--watch"}), "", Environment());
    const auto reports = [&watch](const std::string& text) {
        const std::string out = watch.OutputSoFar();
        std::size_t count = 0;
        for (std::size_t at = 0; (at = out.find(text, at)) != std::string::npos; ++at) {
            ++count;
        }
        return count;
    };
    ASSERT_TRUE(WaitUntil("there are two reports", [&] { return reports("port protocol") >= 2; }));
    service.reset();
    ASSERT_TRUE(WaitUntil("it says that no service runs",
                          [&] { return reports("no service runs in ") >= 1; }));
    service = Start();
    const std::size_t before = reports("port protocol");
    ASSERT_TRUE(
        WaitUntil("there is another report", [&] { return reports("port protocol") > before; }));
    watch.Signal(SIGINT);
    const ProgramResult result = watch.Wait();

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(ServiceTest, ListsWhatThereIs) {
    const auto service = Start();

    const ProgramResult text = Ask({"list"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_THAT(text.out,
                testing::StartsWith("Quorvel Port 1 (MackieControl)\nQuorvel Port 2 (Mackie"));
    EXPECT_THAT(text.out, HasSubstr("\n\nembedded: "));
    EXPECT_THAT(text.out, HasSubstr("\n  no ports of other programs\n"));
    const nlohmann::json list = Summary(Ask({"list", "--json"}));
    EXPECT_EQ(list["ports"].size(), 4U);
    EXPECT_EQ(list["backends"][0]["peers"], nlohmann::json::array());
    EXPECT_FALSE(list.contains("ok"));
}

TEST_F(ServiceTest, TellsWhoeverGivesAWrongNameWhatThereIs) {
    const auto service = Start();

    const ProgramResult port = Ask({"connect", "5", "ardour:in"});
    EXPECT_EQ(port.status, 2);
    EXPECT_EQ(port.err, "midiserver: the service has no port \"5\"; there are: Quorvel Port 1, "
                        "Quorvel Port 2, Quorvel Port 3, Quorvel Port 4\n");
    for (const char* command : {"connect", "disconnect"}) {
        const ProgramResult peer = Ask({command, "Quorvel Port 1", "ardour:in"});
        EXPECT_EQ(peer.status, 2);
        EXPECT_EQ(peer.err,
                  "midiserver: no other program has a port \"ardour:in\"; there are none\n");
    }
    EXPECT_THAT(Ask({"record", "Port 1", Folder("capture")}).err,
                testing::StartsWith("midiserver: the service has no port \"Port 1\"; there are: "));
    EXPECT_FALSE(std::filesystem::exists(Folder("capture")));
    EXPECT_EQ(Ask({"replay", Capture("ardour-hui.txt"), "--to", "0"}).status, 2);
}

TEST_F(ServiceTest, IsOneInAFolder) {
    const auto first = Start();
    const ProgramResult second = Ask(RunArguments());

    EXPECT_EQ(second.status, 3);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, "midiserver: another service (process " + std::to_string(first->Id()) +
                              ") runs already in " + Folder("runtime") +
                              "; end that one, or set QUORVEL_RUNTIME_DIR to another folder\n");
}

TEST_F(ServiceTest, IsMissedByEveryCommandThatNeedsIt) {
    const std::vector<std::vector<std::string>> commands = {
        {"status"},
        {"status", "--json"},
        {"list"},
        {"connect", "1", "ardour:in"},
        {"disconnect", "1", "ardour:in"},
        {"record", "1", Folder("capture")},
        {"replay", Capture("ardour-hui.txt"), "--to", "1"}};
    for (const std::vector<std::string>& arguments : commands) {
        const ProgramResult result = Ask(arguments);
        EXPECT_EQ(result.status, 3) << arguments.front();
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "midiserver: no service runs in " + Folder("runtime") +
                                  "; start one with \"midiserver run\"\n");
    }
    EXPECT_FALSE(std::filesystem::exists(Folder("capture")));
}

TEST_F(ServiceTest, EndsInOrderWhenItIsAsked) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto service = Start();
        service->Signal(signal);
        const ProgramResult result = service->Wait();
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr("\tstopping\n"));
        EXPECT_THAT(result.err, HasSubstr("\tstopped driver com.quorvel.QuorvelMIDI\n"));
        EXPECT_THAT(result.err, HasSubstr("\treleased plug-in com.quorvel.QuorvelMIDI\n"));
        EXPECT_EQ(Ask({"status"}).status, 3);
    }
}

TEST_F(ServiceTest, CarriesWhatIsReplayedAndRecordsIt) {
    const auto service = Start();
    Program record(MidiserverCommand({"record", "2", Folder("capture")}), "", Environment());
    ASSERT_TRUE(Says(record, "midiserver: recording Quorvel Port 2; end it with Ctrl-C\n"));
    const ProgramResult replay = Ask({"replay", Capture("ardour-buttons.txt"), "--to",
                                      "Quorvel Port 2", "--as-fast-as-possible", "--json"});
    ASSERT_EQ(replay.status, 0) << replay.err;
    const nlohmann::json summary = Summary(replay);
    const std::uint64_t messages = summary["messages"];
    EXPECT_EQ(summary["sent"], messages);
    EXPECT_EQ(summary["port"], "Quorvel Port 2");

    nlohmann::json port;
    ASSERT_TRUE(WaitUntil("everything is forwarded", [&] {
        port = Status()["ports"][1];
        return port["forwarded"]["messages"] == messages;
    })) << port;
    EXPECT_EQ(port["in"]["messages"], messages);
    EXPECT_EQ(port["in"]["bytes"], port["forwarded"]["bytes"]);
    EXPECT_EQ(port["dropped"]["total"], 0);
    EXPECT_EQ(port["forwardingMs"]["count"], messages);
    ASSERT_TRUE(WaitUntil("the file is whole", [&] {
        const std::string capture = ContentOf(Folder("capture"));
        return static_cast<std::uint64_t>(std::count(capture.begin(), capture.end(), '\n')) ==
               messages;
    }));
    record.Signal(SIGINT);
    const ProgramResult recorded = record.Wait();
    EXPECT_EQ(recorded.status, 0);
    EXPECT_THAT(recorded.err,
                HasSubstr(std::to_string(messages) + " messages of Quorvel Port 2 recorded\n"));

    // The bytes of each message are those of the session.
    const auto bytesOf = [](const std::string& capture) {
        std::vector<std::string> bytes;
        std::istringstream lines(capture);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line[0] != '#') {
                std::string message = line.substr(line.find(' ') + 1);
                std::transform(message.begin(), message.end(), message.begin(), ::toupper);
                bytes.push_back(message);
            }
        }
        return bytes;
    };
    EXPECT_EQ(bytesOf(ContentOf(Folder("capture"))),
              bytesOf(ContentOf(Capture("ardour-buttons.txt"))));
    // A file that is there is left alone.
    const ProgramResult again = Ask({"record", "2", Folder("capture")});
    EXPECT_EQ(again.status, 2);
    EXPECT_EQ(again.err, "midiserver: " + Folder("capture") + ": File exists\n");
}

TEST_F(ServiceTest, AnswersThePingsOfAReplayedSession) {
    const auto service = Start();
    const ProgramResult replay =
        Ask({"replay", Capture("ardour-hui.txt"), "--to", "1", "--as-fast-as-possible"});

    EXPECT_EQ(replay.status, 0) << replay.err;
    EXPECT_THAT(replay.out, testing::MatchesRegex("775 of 775 messages of .*ardour-hui.txt sent to "
                                                  "Quorvel Port 1 of the running service, as fast "
                                                  "as possible, in [0-9.]+ s\n.*room.*\n"));
    ASSERT_TRUE(WaitUntil("both pings are answered",
                          [&] { return Status()["ports"][0]["answeredPings"] == 2; }));
    EXPECT_TRUE(Status()["ports"][0]["lastPingMs"].is_number());
    EXPECT_EQ(Status()["ports"][1]["lastPingMs"], nullptr);
}

TEST_F(ServiceTest, RestartsTheDriverWhenThePreferencesChangeAndKeepsThePortsThatStay) {
    const auto service = Start();
    const nlohmann::json before = Status();
    SetPreferences("1-4", "HUI");
    nlohmann::json after;
    ASSERT_TRUE(WaitUntil("the driver is restarted", [&] {
        after = Status();
        return after["service"]["driverStarts"] == 2;
    }));

    EXPECT_EQ(after["ports"][3]["protocol"], "HUI");
    EXPECT_EQ(after["device"]["uniqueId"], before["device"]["uniqueId"]);
    for (std::size_t port = 0; port < 4; ++port) {
        EXPECT_EQ(after["ports"][port]["sourceId"], before["ports"][port]["sourceId"]);
        EXPECT_EQ(after["ports"][port]["destinationId"], before["ports"][port]["destinationId"]);
    }
    EXPECT_TRUE(Says(*service, "\trestarting the driver: the preferences changed\n"));
    // With another number of ports the driver makes a new device.
    SetPreferences("5-8", "HUI");
    ASSERT_TRUE(WaitUntil("there are eight ports", [&] { return Status()["ports"].size() == 8; }));
}

TEST_F(ServiceTest, LetsTheDriverGoOnWhenThePortsStayAsTheyAre) {
    const auto service = Start();
    SetPreferences("1-4", "MackieControl");
    ASSERT_TRUE(Says(*service, "\tthe preferences changed; ports and protocols are the same, the "
                               "driver goes on\n"));

    EXPECT_EQ(Status()["service"]["driverStarts"], 1);
}

TEST_F(ServiceTest, RestartsTheDriverAtAHangUp) {
    const auto service = Start();
    service->Signal(SIGHUP);
    ASSERT_TRUE(WaitUntil("the driver is restarted",
                          [&] { return Status()["service"]["driverStarts"] == 2; }));

    EXPECT_TRUE(Says(*service, "\trestarting the driver: SIGHUP\n"));
    EXPECT_EQ(Status()["ports"].size(), 4U);
    EXPECT_EQ(
        Ask({"replay", Capture("ardour-hui.txt"), "--to", "1", "--as-fast-as-possible"}).status, 0);
}

TEST_F(ServiceTest, GoesOnWithoutADriverThatCannotBeRestarted) {
    const std::string bundle = Folder("Copy.plugin");
    std::filesystem::copy(PlugInBundle(), bundle, std::filesystem::copy_options::recursive);
    const auto service = Start({"--plugin", bundle});
    std::filesystem::rename(bundle, Folder("Away.plugin"));
    service->Signal(SIGHUP);
    ASSERT_TRUE(WaitUntil("the driver is missed",
                          [&] { return !Status()["service"]["failure"].is_null(); }));

    const std::string failure = "plug-in " + bundle + ": No such file or directory";
    EXPECT_EQ(Status()["service"]["failure"], failure);
    EXPECT_THAT(Ask({"status"}).out, HasSubstr("\n  driver   DOES NOT RUN: " + failure + "\n"));
    EXPECT_THAT(Ask({"connect", "1", "x"}).err,
                HasSubstr("there are none, because the driver does not run\n"));
    EXPECT_TRUE(Says(*service, "\tthe driver does not run: " + failure +
                                   "; tried again when the preferences change or SIGHUP comes\n"));
    std::filesystem::rename(Folder("Away.plugin"), bundle);
    service->Signal(SIGHUP);
    ASSERT_TRUE(
        WaitUntil("the driver is back", [&] { return Status()["service"]["failure"].is_null(); }));
    EXPECT_EQ(Status()["ports"].size(), 4U);
    service->Signal(SIGTERM);
    EXPECT_EQ(service->Wait().status, 0);
}

TEST_F(ServiceTest, HasTheSameIdsAfterItWasKilled) {
    nlohmann::json before;
    {
        const auto service = Start();
        before = Status();
        service->Signal(SIGKILL);
        service->Wait();
    }
    EXPECT_EQ(Ask({"status"}).status, 3);
    const auto service = Start();
    const nlohmann::json after = Status();

    EXPECT_EQ(after["device"]["uniqueId"], before["device"]["uniqueId"]);
    EXPECT_EQ(after["ports"][3]["sourceId"], before["ports"][3]["sourceId"]);
}

TEST_F(ServiceTest, SaysWhatItCannotUse) {
    const ProgramResult preferences =
        Ask({"run", "--backend", "embedded", "--prefs", Folder("none")});
    EXPECT_EQ(preferences.status, 2);
    EXPECT_THAT(preferences.err, HasSubstr("--prefs names the folder of that file\n"));
    const ProgramResult plugIn = Ask({"run", "--backend", "embedded", "--plugin", "/none"});
    EXPECT_EQ(plugIn.status, 2);
    EXPECT_THAT(plugIn.err, HasSubstr("midiserver: plug-in /none: No such file or directory\n"));
    const ProgramResult backend = Ask({"run", "--backend", "windows"});
    EXPECT_EQ(backend.status, 2);
    EXPECT_THAT(backend.err, HasSubstr("embedded"));
    EXPECT_TRUE(IsOneLine(backend.err));
}

TEST_F(ServiceTest, LeavesSupersededValuesOutOnThePortsThatWereNamed) {
    const auto service = Start({"--coalesce", "2,4"});
    // A dozen seconds' worth of a line of the display, and a little more than a second's of a
    // fader.
    std::string characters;
    for (int i = 0; i < 26; ++i) {
        characters += " 2A";
    }
    std::string display;
    for (int i = 0; i < 5000; ++i) {
        display += fmt::format("0 F0 00 00 66 14 12 00{} {:02X} {:02X} F7\n", characters, i % 128,
                               i / 128);
    }
    std::string fader;
    for (int i = 0; i < 6000; ++i) {
        fader += fmt::format("0 E0 {:02X} {:02X}\n", i % 128, i / 128);
    }
    for (const auto& [port, session] : {std::pair("1", fader), std::pair("2", display)}) {
        const ProgramResult replay = Midiserver(
            {"replay", "-", "--to", port, "--as-fast-as-possible"}, session, Environment());
        EXPECT_EQ(replay.status, 0) << replay.err;
    }
    nlohmann::json ports;
    ASSERT_TRUE(WaitUntil("everything is forwarded", [&] {
        ports = Status()["ports"];
        const std::uint64_t coalesced = ports[1]["coalescedMessages"];
        return ports[0]["forwarded"]["messages"] == 6000 &&
               ports[1]["forwarded"]["messages"] == 5000 - coalesced;
    })) << ports;

    EXPECT_EQ(ports[0]["coalescedMessages"], 0);
    EXPECT_GT(ports[1]["coalescedMessages"], 1000);
    EXPECT_EQ(ports[1]["dropped"]["total"], 0);
}

TEST_F(ServiceTest, RefusesPortsThatThereAreNotForCoalescing) {
    const ProgramResult result =
        Ask({"run", "--backend", "embedded", "--prefs", mPreferences.Folder(), "--coalesce", "33"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "midiserver: \"33\" names no ports; ports are \"all\", or numbers from 1 "
                          "to 32 and ranges, such as \"1,3-5\"\n");
}

TEST_F(ServiceTest, SaysThatTwoBundlesHaveOneIdentifier) {
    const std::string copy = Folder("Copy.plugin");
    std::filesystem::copy(PlugInBundle(), copy, std::filesystem::copy_options::recursive);
    std::vector<std::string> arguments = RunArguments();
    arguments.insert(arguments.end(), {"--plugin", PlugInBundle(), "--plugin", copy});
    const ProgramResult result = Ask(arguments);

    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(
        result.err,
        testing::EndsWith(
            "midiserver: plug-in " + copy +
            ": another one with the same identifier (com.quorvel.QuorvelMIDI) runs already in this "
            "program; give only one of them, or an identifier of its own to the other\n"));
}

TEST_F(ServiceTest, RestartsADriverThatForwardsNothingAnyMore) {
    std::vector<std::string> arguments = RunArguments();
    arguments.insert(arguments.end(), {"--plugin", MIDISERVER_FAULTY_PLUGIN});
    std::vector<std::string> environment = Environment();
    environment.emplace_back("FAULTY_DRIVER=stall"); // from the third list on
    const Program service(MidiserverCommand(arguments), "", environment);
    ASSERT_TRUE(Says(service, "\tserving 4 ports\n"));
    const std::string message = mFolder.Write("message.txt", "0 90 01 7F\n");
    const auto send = [&] {
        const ProgramResult replay = Ask({"replay", message, "--to", "1", "--as-fast-as-possible"});
        EXPECT_EQ(replay.status, 0) << replay.err;
    };
    for (int i = 0; i < 3; ++i) {
        send();
    }
    nlohmann::json status;
    ASSERT_TRUE(WaitUntil("the driver is restarted", [&] {
        status = Status();
        return status["service"]["driverStarts"] == 2;
    }));
    EXPECT_EQ(status["service"]["driverStalls"], 1);
    EXPECT_EQ(status["service"]["failure"], nullptr);
    const std::uint64_t lost = status["ports"][0]["dropped"]["lostInDriver"];
    const std::uint64_t forwarded = status["ports"][0]["forwarded"]["messages"];
    EXPECT_GE(lost, 1U);
    EXPECT_EQ(lost + forwarded, 3U);
    EXPECT_TRUE(Says(service,
                     "\tthe driver forwards nothing any more; it is restarted, and what it "
                     "had is lost\n"));
    send();
    EXPECT_TRUE(WaitUntil("the new driver forwards", [&] {
        return Status()["ports"][0]["forwarded"]["messages"] == forwarded + 1;
    }));
}

// The socket of a service manager.
class ServiceManager {
public:
    explicit ServiceManager(const std::string& path)
        : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), address.sun_path);
        EXPECT_EQ(::bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~ServiceManager() { ::close(mSocket); }
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    // Whether a notice that holds the text comes; those before it are passed over.
    testing::AssertionResult Hears(const std::string& text) const {
        return WaitUntil("the service manager hears " + text, [&] {
            std::array<char, 4096> buffer{};
            const ssize_t size = ::recv(mSocket, buffer.data(), buffer.size(), 0);
            return size > 0 &&
                   std::string(buffer.data(), static_cast<std::size_t>(size)).find(text) !=
                       std::string::npos;
        });
    }

private:
    int mSocket;
};

TEST_F(ServiceTest, TellsTheServiceManagerHowItIs) {
    const ServiceManager manager(Folder("notify"));
    std::vector<std::string> environment = Environment();
    environment[1] = "NOTIFY_SOCKET=" + Folder("notify");
    environment.emplace_back("WATCHDOG_USEC=100000");
    Program service(MidiserverCommand(RunArguments()), "", environment);

    ASSERT_TRUE(manager.Hears("READY=1\nSTATUS=4 ports; embedded up"));
    EXPECT_TRUE(manager.Hears("WATCHDOG=1"));
    service.Signal(SIGHUP);
    EXPECT_TRUE(manager.Hears("RELOADING=1\nMONOTONIC_USEC="));
    EXPECT_TRUE(manager.Hears("READY=1\nSTATUS=4 ports; embedded up"));
    service.Signal(SIGTERM);
    EXPECT_TRUE(manager.Hears("STOPPING=1"));
    EXPECT_EQ(service.Wait().status, 0);
}

} // namespace
} // namespace QuorvelTest
