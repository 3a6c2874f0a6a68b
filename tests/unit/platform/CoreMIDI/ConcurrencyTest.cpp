#include "tests/unit/platform/CoreMIDI/FakeDriver.h"

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>

using namespace MidiTest;

namespace {

unsigned Seed() {
    return std::random_device{}();
}

// A reader whose port may be disposed of: knows whether it may be called.
struct WatchedReader {
    std::atomic<bool> mIsDisposed{false};
    std::atomic<int> mCallsAfterDispose{0};

    static void Read(const MIDIPacketList*, void* refCon, void*) {
        auto& self = *static_cast<WatchedReader*>(refCon);
        if (self.mIsDisposed) {
            ++self.mCallsAfterDispose;
        }
    }
};

} // namespace

TEST(ConcurrencyTest, CallsNoReadProcedureAfterDisposeHasReturned) {
    constexpr int kRounds = 100;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    std::atomic<bool> isOver = false;
    std::vector<std::thread> deliverers;
    for (int i = 0; i < 3; ++i) {
        deliverers.emplace_back([&] {
            const List list({{0, {0x90, 0, 0}}});
            while (!isOver) {
                EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        WatchedReader reader;
        MIDIPortRef port = 0;
        ASSERT_EQ(MIDIInputPortCreate(client, CFSTR("in"), WatchedReader::Read, &reader, &port),
                  noErr);
        ASSERT_EQ(MIDIPortConnectSource(port, source, nullptr), noErr);
        if (round % 2 == 0) {
            ASSERT_EQ(MIDIPortDisconnectSource(port, source), noErr);
            reader.mIsDisposed = true;
            ASSERT_EQ(MIDIPortDispose(port), noErr);
        } else {
            ASSERT_EQ(MIDIPortDispose(port), noErr);
            reader.mIsDisposed = true;
        }
        std::this_thread::yield();
        ASSERT_EQ(reader.mCallsAfterDispose, 0);
    }
    isOver = true;
    for (std::thread& deliverer : deliverers) {
        deliverer.join();
    }
}

TEST(ConcurrencyTest, AnswersStaleReferencesWhileOthersDispose) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 400;
    const MIDIClientRef client = MakeClient();
    const MIDIPortRef output = MakeOutput(client);
    std::array<std::atomic<MIDIEndpointRef>, 8> shared{};
    Received received;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, seed = Seed()] {
            std::mt19937 random(seed);
            const List list({{0, {0x90, 0, 0}}});
            for (int i = 0; i < kRounds; ++i) {
                auto& place = shared[random() % shared.size()];
                MIDIEndpointRef made = 0;
                const bool isSource = random() % 2 == 0;
                const OSStatus status =
                    isSource ? MIDISourceCreate(client, CFSTR("s"), &made)
                             : MIDIDestinationCreate(client, CFSTR("d"), Received::Read, &received,
                                                     &made);
                EXPECT_EQ(status, noErr);
                const MIDIEndpointRef old = place.exchange(made);
                const MIDIEndpointRef some = shared[random() % shared.size()];
                const OSStatus results[] = {MIDIReceived(some, list.Get()),
                                            MIDISend(output, some, list.Get())};
                for (const OSStatus result : results) {
                    EXPECT_TRUE(result == noErr || result == kMIDIUnknownEndpoint ||
                                result == kMIDIWrongEndpointType)
                        << result;
                }
                SInt32 uniqueID = 0;
                const OSStatus got =
                    MIDIObjectGetIntegerProperty(some, kMIDIPropertyUniqueID, &uniqueID);
                EXPECT_TRUE(got == noErr || got == kMIDIObjectNotFound) << got;
                if (old != 0) {
                    // Exactly one thread took it out, so it is there to be disposed of.
                    EXPECT_EQ(MIDIEndpointDispose(old), noErr);
                    EXPECT_EQ(MIDIReceived(old, list.Get()), kMIDIUnknownEndpoint);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ItemCount left = 0;
    for (const auto& place : shared) {
        left += place != 0 ? 1 : 0;
    }
    EXPECT_EQ(MIDIGetNumberOfSources() + MIDIGetNumberOfDestinations(), left);
}

TEST(ConcurrencyTest, LosesAndReordersNothingWhileTheSetupChanges) {
    constexpr int kSenders = 3;
    constexpr int kEach = 400;
    FakeDriver driver;
    ASSERT_EQ(MIDIServerHostAttachDriver(driver.Ref(), CFSTR("fake")), noErr);
    const MIDIDeviceRef device = MakeDevice(driver.Ref(), kSenders);
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    const MIDIClientRef client = MakeClient();
    std::atomic<bool> isOver = false;
    std::thread changer([&] {
        while (!isOver) {
            for (ItemCount i = 0; i < kSenders; ++i) {
                EXPECT_EQ(MIDIEndpointSetRefCons(DestinationOf(device, i), &driver, nullptr),
                          noErr);
            }
            const MIDIDeviceRef other = MakeDevice(nullptr, 1);
            EXPECT_EQ(MIDISetupAddDevice(other), noErr);
            EXPECT_EQ(MIDISetupRemoveDevice(other), noErr);
        }
    });
    std::vector<std::thread> senders;
    for (int t = 0; t < kSenders; ++t) {
        senders.emplace_back([&, t] {
            const MIDIPortRef output = MakeOutput(client);
            for (int i = 0; i < kEach; ++i) {
                const List list({{0,
                                  {static_cast<Byte>(t), static_cast<Byte>(i / 128),
                                   static_cast<Byte>(i % 128)}}});
                EXPECT_EQ(
                    MIDISend(output, DestinationOf(device, static_cast<ItemCount>(t)), list.Get()),
                    noErr);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    isOver = true;
    changer.join();
    ASSERT_EQ(MIDIServerHostDetachDriver(driver.Ref()), noErr);
    std::array<int, kSenders> next{};
    for (const auto& call : driver.Calls("Send")) {
        const Bytes& data = call.mPackets.at(0).second;
        ASSERT_EQ(data[1] * 128 + data[2], next.at(data[0])++);
    }
    for (const int count : next) {
        EXPECT_EQ(count, kEach);
    }
}

// One thread, random calls, each compared with what a plain model says.
TEST(ConcurrencyTest, BehavesAsAPlainModelDoes) {
    struct ModelPort {
        std::map<MIDIEndpointRef, std::uintptr_t> mConnections;
    };
    const unsigned seed = Seed();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const MIDIClientRef client = MakeClient();
    std::map<MIDIEndpointRef, SInt32> sources; // with their unique IDs
    std::map<MIDIPortRef, ModelPort> ports;
    std::vector<MIDIObjectRef> everything{0, client};
    std::multiset<std::pair<MIDIPortRef, std::uintptr_t>> delivered;
    struct PortRefCon {
        decltype(delivered)* mDelivered;
        MIDIPortRef mPort;
    };
    std::vector<std::unique_ptr<PortRefCon>> refCons;
    const auto read = [](const MIDIPacketList*, void* refCon, void* connection) {
        const auto& port = *static_cast<PortRefCon*>(refCon);
        port.mDelivered->emplace(port.mPort, reinterpret_cast<std::uintptr_t>(connection));
    };
    const List list({{0, {0xF8}}});
    const auto any = [&] { return everything[random() % everything.size()]; };
    for (int step = 0; step < 6000; ++step) {
        SCOPED_TRACE(step);
        const MIDIObjectRef first = any();
        const MIDIObjectRef second = any();
        const bool isPort = ports.contains(first);
        const bool isSource = sources.contains(second);
        switch (random() % 7) {
        case 0: {
            const MIDIEndpointRef source = MakeSource(client);
            sources[source] = IntegerProperty(source, kMIDIPropertyUniqueID);
            everything.push_back(source);
            break;
        }
        case 1: {
            refCons.push_back(std::make_unique<PortRefCon>(PortRefCon{&delivered, 0}));
            MIDIPortRef port = 0;
            ASSERT_EQ(MIDIInputPortCreate(client, CFSTR("in"), read, refCons.back().get(), &port),
                      noErr);
            refCons.back()->mPort = port;
            ports[port];
            everything.push_back(port);
            break;
        }
        case 2:
            if (random() % 2 == 0) {
                ASSERT_EQ(MIDIPortDispose(first), isPort ? OSStatus{noErr} : kMIDIInvalidPort);
                ports.erase(first);
            }
            break;
        case 3:
            if (random() % 2 == 0) {
                ASSERT_EQ(MIDIEndpointDispose(second),
                          isSource ? OSStatus{noErr} : kMIDIUnknownEndpoint);
                sources.erase(second);
                for (auto& [port, model] : ports) {
                    model.mConnections.erase(second);
                }
            }
            break;
        case 4: {
            const std::uintptr_t refCon = random();
            const OSStatus expected = !isPort     ? kMIDIInvalidPort
                                      : !isSource ? kMIDIUnknownEndpoint
                                                  : OSStatus{noErr};
            ASSERT_EQ(MIDIPortConnectSource(first, second, reinterpret_cast<void*>(refCon)),
                      expected);
            if (expected == noErr) {
                ports[first].mConnections[second] = refCon;
            }
            break;
        }
        case 5: {
            const bool isConnected = isPort && ports[first].mConnections.contains(second);
            const OSStatus expected = !isPort        ? kMIDIInvalidPort
                                      : !isSource    ? kMIDIUnknownEndpoint
                                      : !isConnected ? kMIDINoConnection
                                                     : OSStatus{noErr};
            ASSERT_EQ(MIDIPortDisconnectSource(first, second), expected);
            if (expected == noErr) {
                ports[first].mConnections.erase(second);
            }
            break;
        }
        default: {
            delivered.clear();
            ASSERT_EQ(MIDIReceived(second, list.Get()),
                      isSource ? OSStatus{noErr} : kMIDIUnknownEndpoint);
            decltype(delivered) expected;
            for (const auto& [port, model] : ports) {
                const auto found = model.mConnections.find(second);
                if (found != model.mConnections.end()) {
                    expected.emplace(port, found->second);
                }
            }
            ASSERT_EQ(delivered, expected);
            MIDIObjectRef found = 0;
            if (isSource) {
                ASSERT_EQ(MIDIObjectFindByUniqueID(sources[second], &found, nullptr), noErr);
                ASSERT_EQ(found, second);
            }
        }
        }
        ASSERT_EQ(MIDIGetNumberOfSources(), sources.size());
        if (everything.size() > 60) {
            everything.erase(everything.begin() + 2, everything.begin() + 12);
        }
    }
}
