// What the running service makes of requests that no command of the program sends.
#include "midiserver/service/control/ControlProtocol.h"
#include "platform/support/CFOwned.h"
#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/TestSeed.h"
#include "tests/support/WaitUntil.h"

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CoreFoundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <random>

namespace QuorvelTest {
namespace {

using nlohmann::json;
using TestSupport::WaitUntil;

// What the commands send, for the requests 1 to 9 in turn.
const std::vector<json> kRequests = {
    json::object(),
    json::object(),
    {{"port", "1"}, {"peer", "daw:in"}},
    {{"port", "Quorvel Port 2"}, {"peer", "daw:in"}},
    {{"port", "3"}, {"stream", "toDaw"}},
    {{"recording", 1}},
    {{"recording", 1}},
    {{"port", "4"}, {"messages", {"90 01 7F", "F0 00 01 F7"}}},
    {{"port", "1"}, {"messages", {"90 5E 7F", "F0 00 01 F7"}}},
};

class HostileRequestsTest : public testing::Test {
protected:
    HostileRequestsTest() {
        // This process asks the service itself.
        ::setenv("QUORVEL_RUNTIME_DIR", mFolder.Path().c_str(), 1);
        ::setenv("XDG_STATE_HOME", mFolder.Path().c_str(), 1);
        mService = std::make_unique<Program>(
            MidiserverCommand({"run", "--backend", "embedded", "--prefs", mPreferences.Folder()}),
            "", std::vector<std::string>{"JOURNAL_STREAM=", "NOTIFY_SOCKET="});
    }

    void SetUp() override {
        ASSERT_TRUE(WaitUntil("it serves", [&] {
            return mService->ErrorSoFar().find("\tserving ") != std::string::npos;
        })) << mService->ErrorSoFar();
        const CFOwned<CFStringRef> name(CFStringCreateWithCString(
            nullptr, MidiServer::kControlPortName, kCFStringEncodingUTF8));
        mPort = CFOwned<CFMessagePortRef>(CFMessagePortCreateRemote(nullptr, name.Get()));
        ASSERT_TRUE(mPort);
    }

    // Asks with any bytes. The service must answer, with an object that says whether it obeyed and
    // otherwise why not, in one line.
    json Ask(SInt32 request, const std::string& bytes) const {
        const CFOwned<CFDataRef> data(CFDataCreate(nullptr,
                                                   reinterpret_cast<const UInt8*>(bytes.data()),
                                                   static_cast<CFIndex>(bytes.size())));
        CFDataRef answer = nullptr;
        const SInt32 result = CFMessagePortSendRequest(mPort.Get(), request, data.Get(), 100, 100,
                                                       CFSTR("hostile"), &answer);
        const CFOwned<CFDataRef> owned(answer);
        EXPECT_EQ(result, kCFMessagePortSuccess);
        if (!owned) {
            return nullptr;
        }
        const UInt8* const start = CFDataGetBytePtr(owned.Get());
        json reply = json::parse(start, start + CFDataGetLength(owned.Get()), nullptr, false);
        EXPECT_TRUE(reply.is_object() && reply.contains("ok") && reply["ok"].is_boolean()) << reply;
        if (reply.is_object() && reply.value("ok", true) == false) {
            const std::string error = reply.value("error", "");
            EXPECT_NE(error, "");
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        }
        return reply;
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    const TemporaryFolder mFolder;
    std::unique_ptr<Program> mService;
    CFOwned<CFMessagePortRef> mPort;
};

// Any value, of any type and seldom deep.
json AnyValue(std::mt19937_64& random, int depth = 0) {
    switch (random() % (depth < 4 ? 9 : 7)) {
    case 0:
        return nullptr;
    case 1:
        return random() % 2 == 0;
    case 2:
        return random();
    case 3:
        return -static_cast<std::int64_t>(random() % 100);
    case 4:
        return static_cast<double>(random()) * 1e290;
    case 5:
        return std::to_string(random() % 6);
    case 6:
        return std::string(random() % 200, static_cast<char>(' ' + random() % 95));
    case 7: {
        json list = json::array();
        for (std::uint64_t i = random() % 4; i > 0; --i) {
            list.push_back(AnyValue(random, depth + 1));
        }
        return list;
    }
    default:
        return {{"port", AnyValue(random, depth + 1)}, {"messages", AnyValue(random, depth + 1)}};
    }
}

TEST_F(HostileRequestsTest, AreAnsweredAndChangeNothing) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    constexpr int kRounds = 1500;
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        const std::size_t index = random() % kRequests.size();
        json arguments = kRequests[index];
        std::string bytes = arguments.dump();
        // A number that is none of a request's, now and then.
        const SInt32 request =
            random() % 8 == 0 ? static_cast<SInt32>(random()) : static_cast<SInt32>(index + 1);
        switch (random() % 4) {
        case 0: // cut off
            bytes.resize(random() % (bytes.size() + 1));
            break;
        case 1: // some bytes are others
            for (std::uint64_t i = 1 + random() % 4; i > 0; --i) {
                bytes[random() % bytes.size()] = static_cast<char>(random());
            }
            break;
        case 2: // members of other types
            for (auto& member : arguments.items()) {
                if (random() % 2 == 0) {
                    member.value() = AnyValue(random);
                }
            }
            bytes = arguments.dump(-1, ' ', false, json::error_handler_t::replace);
            break;
        default: // no JSON at all
            bytes.assign(random() % 300, '\0');
            for (char& byte : bytes) {
                byte = static_cast<char>(random());
            }
            break;
        }
        SCOPED_TRACE("request " + std::to_string(request) + ": " + bytes);
        Ask(request, bytes);
    }
    const json status = Ask(1, "{}");
    EXPECT_EQ(status["ok"], true);
    EXPECT_EQ(status["status"]["ports"].size(), 4U);
    EXPECT_EQ(status["status"]["service"]["driverStarts"], 1);
    mService->Signal(SIGTERM);
    EXPECT_EQ(mService->Wait().status, 0);
}

TEST_F(HostileRequestsTest, NameRecordingsByWholeNumbersOnly) {
    for (const json& number : {json(1e300), json(-1e300), json(1.5), json(-1), json("1"), json()}) {
        for (const SInt32 request : {6, 7}) {
            EXPECT_EQ(Ask(request, json{{"recording", number}}.dump())["error"],
                      "\"recording\" must be a whole number")
                << number;
        }
    }
}

TEST_F(HostileRequestsTest, EmitWholeMessagesOnly) {
    for (const char* const message :
         {"", "90 5E", "90 5E 7F 00", "90 5E 90", "3C 40", "F7", "F0", "F0 01", "F0 80 F7"}) {
        const json messages = {"90 01 7F", message};
        EXPECT_EQ(Ask(9, json{{"port", "1"}, {"messages", messages}}.dump())["ok"], false)
            << message;
    }
    std::string tooLong = "F0";
    for (int i = 0; i < 65534; ++i) {
        tooLong += " 00";
    }
    tooLong += " F7";
    EXPECT_EQ(Ask(9, json{{"port", "1"}, {"messages", {tooLong}}}.dump())["ok"], false);
    EXPECT_EQ(Ask(9, json{{"port", "5"}, {"messages", {"F8"}}}.dump())["ok"], false);
    const json taken = Ask(9, json{{"port", "1"}, {"messages", {"90 5E 7F", "F8"}}}.dump());
    EXPECT_EQ(taken["emitted"], 2);
}

TEST_F(HostileRequestsTest, RecordTheStreamsThatAPortHas) {
    EXPECT_EQ(Ask(5, R"({"port": "2", "stream": "both"})")["error"],
              "a port has no stream \"both\"; there are: fromDaw, toDaw, toSurface");
    EXPECT_EQ(Ask(5, R"({"port": "2", "stream": 1})")["ok"], false);
    const json toDaw = Ask(5, R"({"port": "2", "stream": "toDaw"})");
    const json fromDaw = Ask(5, R"({"port": "2"})");
    const json toSurface = Ask(5, R"({"port": "2", "stream": "toSurface"})");
    Ask(9, R"({"port": "2", "messages": ["90 5E 7F"]})");
    Ask(8, R"({"port": "2", "messages": ["90 5D 7F"]})");
    const auto recorded = [this](const json& recording) {
        json messages = json::array();
        EXPECT_TRUE(WaitUntil("a message is there", [&] {
            messages = Ask(6, json{{"recording", recording["recording"]}}.dump())["messages"];
            return !messages.empty();
        }));
        return messages;
    };
    EXPECT_EQ(recorded(toDaw)[0][1], "90 5E 7F");
    EXPECT_EQ(recorded(fromDaw)[0][1], "90 5D 7F");
    EXPECT_EQ(recorded(toSurface)[0][1], "90 5D 7F");
}

TEST_F(HostileRequestsTest, MayBeDeepAndLong) {
    for (const std::string& open : {std::string("["), std::string("{\"a\":")}) {
        std::string deep;
        while (deep.size() < 500000) {
            deep += open;
        }
        EXPECT_EQ(Ask(1, deep)["ok"], false);
        EXPECT_EQ(Ask(8, "{\"port\":\"1\",\"messages\":" + deep)["ok"], false);
    }
    const std::string nested = std::string(200000, '[') + std::string(200000, ']');
    EXPECT_EQ(Ask(8, "{\"port\":\"1\",\"messages\":" + nested + "}")["ok"], false);
    EXPECT_EQ(Ask(3, "{\"port\":\"1\",\"peer\":\"" + std::string(500000, 'x') + "\"}")["ok"],
              false);
    EXPECT_EQ(Ask(2, "{}")["ok"], true);
}

} // namespace
} // namespace QuorvelTest
