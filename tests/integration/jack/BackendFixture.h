#pragma once

#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/jack/JackBackend.h"
#include "midiserver/backends/jack/JackLibrary.h"
#include "platform/packetlist/PacketListBuilder.h"
#include "tests/integration/jack/Peer.h"
#include "tests/integration/jack/TestServer.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace JackTest {

using TestSupport::WaitUntil;

// A backend with ports of which the test plays the driver, and a server.
class BackendFixture : public testing::Test {
protected:
    static constexpr std::size_t kPorts = 32;

    void SetUp() override {
        if (const std::string missing = TestServer::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
        // JACK's server waits for its clients; what PipeWire carries in a period that a busy
        // machine runs too late is lost. So it has long periods.
        mServer = std::make_unique<TestServer>(MidiServer::JackIsPipeWire() ? 4096 : 1024);
        MakeBackend();
    }

    void TearDown() override {
        mBackend.reset();
        if (HasFailure() && mServer) {
            std::cerr << mServer->Log();
        }
        mServer.reset();
    }

    void MakeBackend() {
        mBackend.reset();
        mInput.reset();
        mInput = std::make_unique<MidiServer::InputQueue>(kPorts, mArrived);
        mBackend =
            std::make_unique<MidiServer::JackBackend>(*mInput, mFolder.Path() + "/state.json");
    }

    void Publish(std::size_t count) { mBackend->Publish(Ports(count)); }

    static std::vector<MidiServer::BackendPort> Ports(std::size_t count) {
        std::vector<MidiServer::BackendPort> ports;
        for (std::size_t i = 0; i < count; ++i) {
            const auto number = static_cast<std::int32_t>(i + 1);
            ports.push_back({"Quorvel Port " + std::to_string(number), 1000 + number, -number});
        }
        return ports;
    }

    testing::AssertionResult WaitUntilUp() {
        return WaitUntil("the backend is up", [&] { return mBackend->State().isUp; });
    }

    // What DAWs sent to a port so far, pieces joined.
    const std::vector<Bytes>& Input(std::size_t port) {
        MidiServer::InputEvent event;
        while (mInput->Read(port, event)) {
            auto& messages = mMessages[port];
            if (!mOpen[port]) {
                messages.emplace_back();
            }
            Bytes& message = messages.back();
            mOpen[port] =
                (event.bytes.front() == 0xF0 || mOpen[port]) && event.bytes.back() != 0xF7;
            message.insert(message.end(), event.bytes.begin(), event.bytes.end());
            ++mEvents[port];
        }
        return mMessages[port];
    }

    // A connection may carry nothing for a moment after it was made. These two return once it
    // does, and forget what has shown it: from a program's first output to a port, and what `emit`
    // emits to the program's first input.
    testing::AssertionResult Carries(Peer& from, std::size_t port) {
        testing::AssertionResult result = ComesThrough(
            [&](const Bytes& bytes) { from.Send(1, bytes); }, [&] { return Input(port); });
        mMessages[port].clear();
        mEvents[port] = 0;
        return result;
    }
    template <typename Emit>
    testing::AssertionResult Carries(const Emit& emit, Peer& to) {
        testing::AssertionResult result = ComesThrough(emit, [&] { return to.Received(1); });
        to.Forget(1);
        return result;
    }

    void EmitFromPort(std::size_t port, const Bytes& bytes) {
        mList.Clear();
        mList.Add(bytes);
        mBackend->EmitFromPort(port, *mList.List());
    }

    void EmitFromPrivateSource(std::size_t port, const Bytes& bytes) {
        mList.Clear();
        mList.Add(bytes);
        mBackend->EmitFromPrivateSource(port, *mList.List());
    }

    template <typename Send, typename Received>
    static testing::AssertionResult ComesThrough(const Send& send, const Received& received) {
        testing::AssertionResult result = WaitUntil("the connection carries", [&] {
            send(Bytes{0xF8});
            return !received().empty();
        });
        if (result) {
            const Bytes last{0xF6};
            send(last);
            result = WaitUntil("all of it has come", [&] { return received().back() == last; });
        }
        return result;
    }

    TemporaryDirectory mFolder;
    std::unique_ptr<TestServer> mServer;
    MidiServer::WakeUpSignal mArrived;
    std::unique_ptr<MidiServer::InputQueue> mInput;
    std::unique_ptr<MidiServer::JackBackend> mBackend;
    std::map<std::size_t, std::vector<Bytes>> mMessages;
    std::map<std::size_t, bool> mOpen;
    std::map<std::size_t, std::size_t> mEvents;
    PacketListBuilder mList;
};

} // namespace JackTest
