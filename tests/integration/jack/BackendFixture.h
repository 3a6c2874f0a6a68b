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
