#include "MidiDriver/worker/ActiveSense.h"

#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

using testing::ElementsAreArray;

namespace {

constexpr unsigned int kUntouched = 100;

struct Answer {
    bool mResult;
    unsigned int mLength; // what the detector left in replyLength
    Bytes mReply;         // the whole capacity
};

// Calls with a packet and a reply buffer of exactly their sizes, so that the sanitizers see any
// byte read or written beyond them.
Answer Ask(tActiveSenseFn detect, const Bytes& packet, unsigned int capacity = kUntouched,
           unsigned int port = 0) {
    const std::unique_ptr<unsigned char[]> data(new unsigned char[packet.size()]);
    std::copy(packet.begin(), packet.end(), data.get());
    Answer answer{false, capacity, Bytes(capacity, 0xEE)};
    answer.mReply.shrink_to_fit();
    answer.mResult = detect(port, data.get(), static_cast<unsigned int>(packet.size()),
                            answer.mReply.data(), &answer.mLength);
    return answer;
}

void ExpectNoPing(tActiveSenseFn detect, const Bytes& packet) {
    SCOPED_TRACE(testing::PrintToString(packet));
    const Answer answer = Ask(detect, packet);
    EXPECT_FALSE(answer.mResult);
    EXPECT_EQ(answer.mLength, kUntouched);
    EXPECT_EQ(answer.mReply, Bytes(kUntouched, 0xEE));
}

Bytes FirstBytes(const Answer& answer) {
    return Bytes(answer.mReply.begin(), answer.mReply.begin() + answer.mLength);
}

const Bytes kHUIPing = {0x90, 0x00, 0x00};
const Bytes kMackiePing = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7};

Bytes MackieReplyWith(unsigned char model, unsigned char code, unsigned char port) {
    return {0xF0, 0x00, 0x00, 0x66, model, code, 0x00, 0x03, 0x00,
            0x02, 0x01, 0x09, 0x05, 0x07,  port, 0x07, 0x07, 0xF7};
}

} // namespace

TEST(HUIActiveSense, AnswersThePingWithThreeBytes) {
    const Answer answer = Ask(IsHUIActiveSenseFn, kHUIPing, 3);
    EXPECT_TRUE(answer.mResult);
    EXPECT_EQ(answer.mLength, 3u);
    EXPECT_EQ(answer.mReply, (Bytes{0x90, 0x00, 0x7F}));
}

TEST(HUIActiveSense, AnswersTheSameOnEveryPort) {
    for (const unsigned int port : {0u, 5u, 31u, 200u}) {
        EXPECT_EQ(FirstBytes(Ask(IsHUIActiveSenseFn, kHUIPing, 8, port)),
                  (Bytes{0x90, 0x00, 0x7F}));
    }
}

TEST(HUIActiveSense, RefusesAReplyBufferOfTwoBytesAndSetsTheLengthToZero) {
    for (const unsigned int capacity : {0u, 1u, 2u}) {
        const Answer answer = Ask(IsHUIActiveSenseFn, kHUIPing, capacity);
        EXPECT_FALSE(answer.mResult);
        EXPECT_EQ(answer.mLength, 0u);
        EXPECT_EQ(answer.mReply, Bytes(capacity, 0xEE));
    }
}

TEST(HUIActiveSense, TakesNothingElseForAPing) {
    ExpectNoPing(IsHUIActiveSenseFn, {0x91, 0x00, 0x00});
    ExpectNoPing(IsHUIActiveSenseFn, {0x90, 0x00, 0x00, 0x00});
    ExpectNoPing(IsHUIActiveSenseFn, {0x90, 0x01, 0x00});
    ExpectNoPing(IsHUIActiveSenseFn, {0x90, 0x00, 0x01});
    ExpectNoPing(IsHUIActiveSenseFn, {0x80, 0x00, 0x00});
    ExpectNoPing(IsHUIActiveSenseFn, {0x90, 0x00});
    ExpectNoPing(IsHUIActiveSenseFn, {0x90});
    ExpectNoPing(IsHUIActiveSenseFn, {});
}

TEST(HUIActiveSense, AnswersFalseForNullArguments) {
    Bytes reply(8);
    unsigned int length = 8;
    EXPECT_FALSE(IsHUIActiveSenseFn(0, nullptr, 3, reply.data(), &length));
    EXPECT_EQ(length, 8u);
    EXPECT_FALSE(IsHUIActiveSenseFn(0, kHUIPing.data(), 3, reply.data(), nullptr));
    EXPECT_FALSE(IsHUIActiveSenseFn(0, kHUIPing.data(), 3, nullptr, &length));
    EXPECT_EQ(length, 0u);
}

TEST(MackieControlActiveSense, AnswersTheFirstPingWithItsModelItsQueryAndItsPort) {
    const Answer answer =
        Ask(IsMackieControlActiveSenseFn, {0xF0, 0, 0, 0x66, 0x15, 0x1A, 0xF7}, 18, 9);
    EXPECT_TRUE(answer.mResult);
    EXPECT_EQ(answer.mLength, 18u);
    EXPECT_EQ(answer.mReply, MackieReplyWith(0x15, 0x1B, 9));
}

TEST(MackieControlActiveSense, KeepsTheAnswerOfTheFirstPingForAllLaterOnes) {
    const Bytes kept = MackieReplyWith(0x14, 0x01, 2);
    EXPECT_EQ(FirstBytes(Ask(IsMackieControlActiveSenseFn, kMackiePing, 18, 2)), kept);
    EXPECT_EQ(FirstBytes(Ask(IsMackieControlActiveSenseFn,
                             {0xF0, 0, 0, 0x66, 0x15, 0x1A, 1, 2, 3, 0xF7}, 128, 7)),
              kept);
}

TEST(MackieControlActiveSense, TakesTheLowSevenBitsOfThePort) {
    EXPECT_EQ(FirstBytes(Ask(IsMackieControlActiveSenseFn, kMackiePing, 18, 0x1FF)),
              MackieReplyWith(0x14, 0x01, 0x7F));
}

TEST(MackieControlActiveSense, FixesTheAnswerEvenWhenItDoesNotFit) {
    const Answer refused = Ask(IsMackieControlActiveSenseFn, kMackiePing, 17, 5);
    EXPECT_FALSE(refused.mResult);
    EXPECT_EQ(refused.mLength, 0u);
    EXPECT_EQ(refused.mReply, Bytes(17, 0xEE));

    EXPECT_EQ(
        FirstBytes(Ask(IsMackieControlActiveSenseFn, {0xF0, 0, 0, 0x66, 0x15, 0x1A, 0xF7}, 18, 6)),
        MackieReplyWith(0x14, 0x01, 5));
}

TEST(MackieControlActiveSense, TakesNothingElseForAPing) {
    for (std::size_t length = 0; length < kMackiePing.size(); ++length) {
        const auto end = kMackiePing.begin() + static_cast<std::ptrdiff_t>(length);
        ExpectNoPing(IsMackieControlActiveSenseFn, Bytes(kMackiePing.begin(), end));
    }
    for (std::size_t i = 0; i < kMackiePing.size(); ++i) {
        Bytes changed = kMackiePing;
        changed[i] = 0x01;
        ExpectNoPing(IsMackieControlActiveSenseFn, changed);
    }
    ExpectNoPing(IsMackieControlActiveSenseFn, {0xF0, 0x00, 0x00, 0x66, 0x14, 0xF7});
    ExpectNoPing(IsMackieControlActiveSenseFn, {0xF0, 0x00, 0x00, 0x66, 0x16, 0x00, 0xF7});
    ExpectNoPing(IsMackieControlActiveSenseFn, {0xF0, 0x00, 0x00, 0x66, 0x14, 0x1B, 0xF7});
    ExpectNoPing(IsMackieControlActiveSenseFn, {0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7, 0x00});

    // None of them fixed the answer.
    EXPECT_EQ(FirstBytes(Ask(IsMackieControlActiveSenseFn, kMackiePing, 18, 3)),
              MackieReplyWith(0x14, 0x01, 3));
}

TEST(MackieControlActiveSense, AnswersFalseForNullArguments) {
    Bytes reply(18);
    unsigned int length = 18;
    EXPECT_FALSE(IsMackieControlActiveSenseFn(0, nullptr, 7, reply.data(), &length));
    EXPECT_EQ(length, 18u);
    EXPECT_FALSE(IsMackieControlActiveSenseFn(0, kMackiePing.data(), 7, reply.data(), nullptr));
    EXPECT_FALSE(IsMackieControlActiveSenseFn(0, kMackiePing.data(), 7, nullptr, &length));
    EXPECT_EQ(length, 0u);
}

TEST(MackieControlActiveSense, GivesConcurrentFirstPingsOneAnswer) {
    constexpr unsigned int kThreads = 4;
    std::vector<Bytes> answers(kThreads);
    std::vector<std::thread> threads;
    for (unsigned int port = 0; port < kThreads; ++port) {
        threads.emplace_back([port, &answers] {
            answers[port] = FirstBytes(Ask(IsMackieControlActiveSenseFn, kMackiePing, 18, port));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(answers[0].size(), 18u);
    EXPECT_LT(answers[0][14], kThreads);
    for (const Bytes& answer : answers) {
        EXPECT_THAT(answer, ElementsAreArray(answers[0]));
    }
}
