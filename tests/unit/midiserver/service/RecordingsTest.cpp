#include "midiserver/service/Recordings.h"

#include "midiserver/errors/Errors.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vector>

namespace MidiServer {
namespace {

using Json = nlohmann::ordered_json;

class RecordingsTest : public testing::Test {
protected:
    void Add(std::chrono::microseconds time, const std::vector<std::uint8_t>& bytes) {
        mTap->Add(mStart + time, bytes);
    }

    const Recordings::Time mStart{std::chrono::hours(1)};
    const std::shared_ptr<StreamTap> mTap = std::make_shared<StreamTap>(std::size_t{64});
    Recordings mRecordings;
};

TEST_F(RecordingsTest, GivesWhatTheTapCopied) {
    const std::uint64_t number = mRecordings.Start(mTap, mStart);
    Add(std::chrono::microseconds(-5), {0x90, 0x00, 0x7F}); // was on its way when it started
    Add(std::chrono::microseconds(1500), {0xC0, 0x0A});

    EXPECT_EQ(mRecordings.Take(number, mStart),
              Json::parse(R"({"messages": [[0, "90 00 7F"], [1500, "C0 0A"]], "lost": 0})"));
    EXPECT_EQ(mRecordings.Take(number, mStart), Json::parse(R"({"messages": [], "lost": 0})"));
}

TEST_F(RecordingsTest, TellsWhatIsMissing) {
    const std::uint64_t number = mRecordings.Start(mTap, mStart);
    Add({}, std::vector<std::uint8_t>(60, 0xF8));
    Add({}, std::vector<std::uint8_t>(60, 0xF8));

    EXPECT_EQ(mRecordings.Take(number, mStart)["lost"], 1);
    EXPECT_EQ(mRecordings.End(number), Json::parse(R"({"lost": 1})"));
}

TEST_F(RecordingsTest, KnowsNoRecordingThatHasEnded) {
    const std::uint64_t number = mRecordings.Start(mTap, mStart);
    mRecordings.End(number);

    EXPECT_THROW(mRecordings.Take(number, mStart), InputError);
    EXPECT_THROW(mRecordings.End(number), InputError);
    EXPECT_NE(mRecordings.Start(mTap, mStart), number);
}

TEST_F(RecordingsTest, ForgetsThoseThatNobodyTakesFrom) {
    const std::uint64_t left = mRecordings.Start(mTap, mStart);
    const std::uint64_t taken = mRecordings.Start(mTap, mStart);
    mRecordings.Take(taken, mStart + std::chrono::seconds(1));
    mRecordings.Start(mTap, mStart + Recordings::kPatience + std::chrono::milliseconds(1));

    EXPECT_THROW(mRecordings.End(left), InputError);
    EXPECT_NO_THROW(mRecordings.End(taken));
}

TEST_F(RecordingsTest, AreNotMoreThanTheyMayBe) {
    for (std::size_t i = 0; i < Recordings::kMost; ++i) {
        mRecordings.Start(mTap, mStart);
    }

    EXPECT_THROW(mRecordings.Start(mTap, mStart), InputError);
}

} // namespace
} // namespace MidiServer
