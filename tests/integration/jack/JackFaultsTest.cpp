// Every call of the backend into JACK's library fails once, at the start and while it runs. The
// other side are programs of their own, because all calls of this one are the backend's.
#include "tests/integration/jack/JackFaults.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/log/Logging.h"
#include "runtime/thread/NyInit.h"
#include "tests/integration/jack/BackendFixture.h"
#include "tests/support/LibraryFaults.h"
#include "tests/support/Program.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <thread>

namespace JackTest {
namespace {

using MidiServer::BackendPort;
using testing::AllOf;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using TestSupport::LibraryFaults;

// A function, and what the user reads when it fails; an empty text if it is overcome silently.
struct Fault {
    std::string function;
    std::string line;
};

constexpr const char* kNoDescription = "the server takes no description of ";
constexpr const char* kNoCallback = "the JACK server refuses a callback; trying again";
constexpr const char* kNoConnection = "cannot be connected yet: ";
constexpr const char* kStopped = "the JACK library has ended a process thread; trying again";
constexpr const char* kRefused = "the JACK server refuses client \"Quorvel MIDI\" (status ";

const std::vector<Fault> kFaultsAtTheStart = {
    {"jack_activate", "the JACK server does not activate the client; trying again"},
    {"jack_client_open", kRefused},
    {"jack_connect", kNoConnection},
    {"jack_cycle_wait", kStopped},
    {"jack_get_buffer_size", ""},
    {"jack_get_cycle_times", ""},
    {"jack_get_ports", ""},
    {"jack_get_sample_rate", ""},
    {"jack_midi_max_event_size", ""},
    {"jack_port_by_name", ""}, // at first they only order the connections
    {"jack_port_flags", ""},
    {"jack_port_get_aliases", ""},
    {"jack_port_get_all_connections", ""},
    {"jack_port_get_buffer", ""},
    {"jack_port_register", "the server refuses port Quorvel Port 01 in"},
    {"jack_port_set_alias", kNoDescription},
    {"jack_port_uuid", kNoDescription},
    {"jack_set_buffer_size_callback", kNoCallback},
    {"jack_set_port_connect_callback", kNoCallback},
    {"jack_set_port_registration_callback", kNoCallback},
    {"jack_set_process_thread", kNoCallback},
    {"jack_set_property", kNoDescription},
    {"jack_set_sample_rate_callback", kNoCallback},
};

const std::vector<Fault> kFaultsWhileRunning = {
    {"jack_client_close", ""},
    {"jack_connect", "the JACK server does not connect "},
    {"jack_cycle_wait", kStopped},
    {"jack_deactivate", ""},
    {"jack_disconnect", "the JACK server does not disconnect "},
    {"jack_get_cycle_times", ""},
    {"jack_get_ports", ""},
    {"jack_midi_event_get", ""},
    {"jack_midi_event_reserve", ""},
    {"jack_midi_max_event_size", ""},
    {"jack_port_by_id", ""},
    {"jack_port_by_name", "the JACK server does not find port daw:in 2"},
    {"jack_port_flags", ""},
    {"jack_port_get_aliases", ""},
    {"jack_port_get_all_connections", ""},
    {"jack_port_get_buffer", ""},
    {"jack_port_name", ""},
    {"jack_port_set_alias", kNoDescription},
    {"jack_port_unregister", "the JACK server does not take port "},
    {"jack_port_unset_alias", kNoDescription},
    {"jack_port_uuid", kNoDescription},
    {"jack_set_property", kNoDescription},
};

const std::string kOurInput = "Quorvel MIDI:Quorvel Port 01 in";
const std::string kOurOutput = "Quorvel MIDI:Quorvel Port 01 out";

class JackFaultsTest : public BackendFixture, public testing::WithParamInterface<Fault> {
protected:
    void SetUp() override {
        BackendFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        NyInit();
        ::unsetenv("JOURNAL_STREAM");
        mServer->Start();
        mDaw.emplace("daw", 2);
    }

    void TearDown() override {
        LibraryFaults::FailNone();
        mDaw.reset();
        BackendFixture::TearDown();
    }

    // Returns what `act` logs and throws.
    template <typename Act>
    static std::string LinesOf(const Act& act) {
        CaptureStderr();
        {
            const MidiServer::Logging logging(
                {.level = "info", .categories = {"JACK"}, .format = "plain"});
            act();
        }
        return GetCapturedStderr();
    }

    // The driver's ports after a restart: it keeps the device, and has new private sources.
    void PublishWithNewIds(std::size_t count) {
        std::vector<BackendPort> ports = Ports(count);
        for (BackendPort& port : ports) {
            port.privateId -= 100;
        }
        mBackend->Publish(ports);
    }

    // Sends a message each way, until one has come through.
    void ExpectThatMidiPasses() {
        static std::uint8_t number = 0;
        const Bytes message{0x90, ++number, 99};
        const auto contains = [&](const std::vector<Bytes>& messages) {
            return std::find(messages.begin(), messages.end(), message) != messages.end();
        };
        EXPECT_TRUE(WaitUntil("the DAW's message is there", [&] {
            mDaw->Send(1, message);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return contains(Input(0));
        }));
        EXPECT_TRUE(WaitUntil("the driver's message is there", [&] {
            EmitFromPort(0, message);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return contains(mDaw->Received(1));
        }));
    }

    void Work() {
        mBackend->Disconnect(1, "daw:in 2");
        mBackend->Connect(1, "daw:in 2");
        mBackend->Connect(1, "daw:out 2");
    }

    std::optional<Peer> mDaw;
};

class JackFaultsAtTheStartTest : public JackFaultsTest {};
class JackFaultsWhileRunningTest : public JackFaultsTest {};

TEST_P(JackFaultsAtTheStartTest, AreSaidInALineAndOvercome) {
    const MidiServer::SavedConnections saved(mFolder.Path() + "/state.json", "jack");
    saved.Store({{kOurInput, "daw:out 1"}, {kOurOutput, "daw:in 1"}});
    MakeBackend();
    const std::string lines = LinesOf([&] {
        LibraryFaults::FailNext(GetParam().function.c_str());
        Publish(2);
        ASSERT_TRUE(WaitUntil("it has failed", [] { return LibraryFaults::HasFailed(); }));
        ASSERT_TRUE(WaitUntilUp());
        ASSERT_TRUE(WaitUntil("it stays up", [&] {
            Publish(2); // as when the driver is restarted
            return mBackend->State().isUp && mBackend->Connections().size() == 2;
        }));
        ExpectThatMidiPasses();
        EXPECT_TRUE(WaitUntilUp());
    });
    EXPECT_THAT(lines, HasSubstr(GetParam().line));
}

TEST_P(JackFaultsWhileRunningTest, AreSaidInALineAndOvercome) {
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    ASSERT_TRUE(mDaw->Connect("daw:out 1", kOurInput));
    ASSERT_TRUE(mDaw->Connect(kOurOutput, "daw:in 1"));
    mBackend->Connect(1, "daw:in 2");
    ExpectThatMidiPasses();
    std::string thrown;
    const std::string lines = LinesOf([&] {
        LibraryFaults::FailNext(GetParam().function.c_str());
        try {
            Work();
        } catch (const MidiServer::HostError& error) {
            thrown = error.what();
        } catch (const MidiServer::InputError& error) {
            thrown = error.what(); // the list of ports was cut short
        }
        ExpectThatMidiPasses();
        PublishWithNewIds(1);
        PublishWithNewIds(2);
        ExpectThatMidiPasses();
        mBackend->Withdraw();
        Publish(2);
        ExpectThatMidiPasses();
        ASSERT_TRUE(WaitUntilUp());
    });
    EXPECT_TRUE(LibraryFaults::HasFailed());
    EXPECT_THAT(lines + thrown, HasSubstr(GetParam().line));
    // An event that the library does not hand over is not lost silently.
    EXPECT_EQ(mInput->TakeLoss(0).upstream, GetParam().function == "jack_midi_event_get" ? 1U : 0U);
}

std::string FunctionOf(const testing::TestParamInfo<Fault>& fault) {
    return fault.param.function;
}

INSTANTIATE_TEST_SUITE_P(EachCall, JackFaultsAtTheStartTest, testing::ValuesIn(kFaultsAtTheStart),
                         FunctionOf);
INSTANTIATE_TEST_SUITE_P(EachCall, JackFaultsWhileRunningTest,
                         testing::ValuesIn(kFaultsWhileRunning), FunctionOf);

// Nothing but the server's answer says that a refusal is over, so the backend asks again.
TEST_F(JackFaultsTest, OfWhatAPortNeedsAreMadeGoodWithoutANewStartOfTheDriver) {
    const std::string key = "urn:quorvel:midi:unique-id";
    for (const std::string function :
         {"jack_port_register", "jack_set_property", "jack_port_set_alias"}) {
        SCOPED_TRACE(function);
        const std::string lines = LinesOf([&] {
            LibraryFaults::FailNext(function.c_str());
            Publish(2);
            ASSERT_TRUE(WaitUntil("it has failed", [] { return LibraryFaults::HasFailed(); }));
            for (const std::string& port : {kOurInput, kOurOutput}) {
                EXPECT_TRUE(WaitUntil(port, [&] {
                    return !mDaw->Ask("meta http://jackaudio.org/metadata/pretty-name " + port)
                                .empty();
                }));
            }
            EXPECT_TRUE(WaitUntil("the unique ID is there", [&] {
                return mDaw->Ask("meta " + key + " " + kOurOutput) == "1001" &&
                       mDaw->Ask("aliases " + kOurOutput).find("Quorvel MIDI ID:1001") !=
                           std::string::npos;
            }));
            mBackend->Withdraw();
        });
        EXPECT_THAT(lines, AllOf(HasSubstr("; trying again every second"),
                                 HasSubstr("port 1 is complete now")));
    }
}

// Whose name is taken is asked only then.
TEST_F(JackFaultsTest, OfTheQuestionWhoseNameIsTakenAreSaidInALineAndOvercome) {
    const std::string lines = LinesOf([&] {
        const Peer other("Quorvel MIDI");
        LibraryFaults::FailNext("jack_get_uuid_for_client_name");
        Publish(1);
        EXPECT_TRUE(LibraryFaults::HasFailed());
    });
    EXPECT_THAT(lines, HasSubstr(kRefused));
    EXPECT_TRUE(WaitUntilUp());
}

// PipeWire's library may forget in a client's first period that it is active.
TEST_F(JackFaultsTest, ActivatesAClientOnceMoreAfterItsFirstPeriodOverPipeWire) {
    constexpr int kClients = 2;
    LibraryFaults::FailNext("jack_activate", kClients);
    Publish(1);
    EXPECT_TRUE(WaitUntilUp());
    EXPECT_EQ(LibraryFaults::HasFailed(), MidiServer::JackIsPipeWire());
}

// The functions that the program uses, from the program itself.
TEST(JackFaultsListTest, HasEveryFunctionThatTheProgramCalls) {
    const auto imports =
        QuorvelTest::RunProgram({QUORVEL_NM, "--dynamic", "--undefined-only", MIDISERVER_PROGRAM});
    ASSERT_EQ(imports.status, 0) << imports.err;
    std::vector<std::string> called;
    std::istringstream words(imports.out);
    for (std::string word; words >> word;) {
        if (word.starts_with("jack_")) {
            called.push_back(word);
        }
    }
    std::vector<std::string> listed = FunctionsThatCanFail();
    const auto& others = FunctionsThatCannotFail();
    listed.insert(listed.end(), others.begin(), others.end());
    EXPECT_THAT(called, testing::UnorderedElementsAreArray(listed));

    std::vector<std::string> tried = {"jack_get_uuid_for_client_name"};
    for (const auto* faults : {&kFaultsAtTheStart, &kFaultsWhileRunning}) {
        for (const Fault& fault : *faults) {
            tried.push_back(fault.function);
        }
    }
    EXPECT_THAT(tried, testing::IsSupersetOf(FunctionsThatCanFail()));
}

} // namespace
} // namespace JackTest
