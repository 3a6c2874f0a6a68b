#include "tests/support/TestSeed.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/hsl/LoggingTest.h"
#include "tests/unit/hsl/record/RecordBytes.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <atomic>
#include <bit>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <string_view>
#include <thread>
#include <utility>

namespace HSL {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

// The clock stands at 2001-09-09 01:46:40 UTC.
class CollectionTest : public LoggingTest {
protected:
    // A record now, so that times count from here whatever was logged before.
    void SetDeltaBase() {
        OwnContext context;
        context.Log(kCat, "base");
        CollectLines();
    }
    void LogAfter(CLogContext& context, microseconds length) {
        mClock.AdvanceWallTime(length);
        context.Log(kCat, "x");
    }
    static std::string Delta(const std::string& line) {
        const std::size_t start = line.find('(');
        return line.substr(start, line.find(')') + 1 - start);
    }
};

TEST_F(CollectionTest, ALineHasAllItsColumns) {
    SetDeltaBase();
    for (int i = 0; i < 40; ++i) {
        CLogManager::NextSequence();
    }
    mClock.AdvanceWallTime(microseconds(1500000));
    CLogContext* const context = CLogManager::GetTLSContext();
    context->SetIndent(1);
    context->Log(kCat, "ready");
    EXPECT_THAT(CollectLines(),
                ElementsAre("    42  01:46:41.500000  (01.500000) :  [Main              ]\t"
                            "|  ready\n"));
}

TEST_F(CollectionTest, ColumnsWidenWhereTheirContentsDo) {
    SetDeltaBase();
    for (int i = 0; i < 1234565; ++i) {
        CLogManager::NextSequence();
    }
    OwnContext context("A name of more than 18 characters");
    LogAfter(context, seconds(123456));
    EXPECT_THAT(CollectLines(), ElementsAre("1234567  12:04:16.000000  (123456.000000) :  "
                                            "[A name of more than 18 characters]\tx\n"));
}

TEST_F(CollectionTest, RandomColumnsAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    SetDeltaBase();
    double before = 1000000000;
    for (int i = 0; i < 5000; ++i) {
        const auto sequence = static_cast<std::int32_t>(random()) >> random() % 32;
        // Mostly within the second, and at times far away; 0 would leave no base.
        const std::uint32_t second =
            random() % 4 == 0 ? static_cast<std::uint32_t>(random() % 2000000000) + 1 : 1000000000;
        const auto microsecond = static_cast<std::uint32_t>(random() % 1000000);
        const std::string name(static_cast<std::size_t>(random() % 30), 'n');
        OwnContext context(name.c_str(), 8192);
        RecordBytes::Bytes record;
        for (const std::uint32_t number : {second, microsecond}) {
            record = RecordBytes::Join(record, RecordBytes::Raw(number));
        }
        record = RecordBytes::Join(record, RecordBytes::Bytes{0, 1, kInfo, 1, 1, 0, 'x', 0});
        if (std::endian::native == std::endian::big) {
            std::swap(record[12], record[13]);
        }
        int count = static_cast<int>(record.size());
        context.GetBuffer().Write(record.data(), count);
        Manager().OutputNextMessage(&context, sequence);

        const double moment = second + microsecond / 1e6;
        const double delta = moment - before;
        before = moment;
        const auto whole = static_cast<int>(delta);
        const auto part = static_cast<int>((delta - whole) * 1e6);
        const auto time = static_cast<std::time_t>(second);
        std::tm fields{};
        ::gmtime_r(&time, &fields);
        char expected[200];
        std::snprintf(expected, sizeof expected,
                      "%6d  %02d:%02d:%02d.%06d  (%02d.%06d) :  [%-18s]\tx\n", sequence,
                      fields.tm_hour, fields.tm_min, fields.tm_sec, static_cast<int>(microsecond),
                      whole, part, name.c_str());
        ASSERT_THAT(Output::TakeLines(), ElementsAre(expected)) << i;
    }
}

TEST_F(CollectionTest, WhatStandsBeforeAMessageIsCutAsAnyPieceIs) {
    SetDeltaBase();
    constexpr std::size_t kLongest = 65535;
    // Before the name, whatever the number of the record, and behind it.
    constexpr std::size_t kColumns =
        std::string_view("     2  01:46:40.000000  (00.000000) :  [").size();
    constexpr std::size_t kFits = kLongest - kColumns - std::string_view("]\t").size();
    for (const std::size_t nameSize : {kFits, kFits + 1, kFits + 2, kLongest, 3 * kLongest}) {
        const std::string name(nameSize, 'n');
        OwnContext context(name.c_str());
        context.SetIndent(1);
        context.Log(kCat, "%d", 5);
        const std::vector<std::string> lines = CollectLines();
        ASSERT_EQ(lines.size(), 1u);
        const std::string before = lines[0].substr(0, kColumns) + name + "]\t";
        EXPECT_TRUE(lines[0] == before.substr(0, kLongest) + "|  5\n") << nameSize;
    }
}

TEST_F(CollectionTest, EachIndentIsOneMark) {
    OwnContext context;
    context.SetIndent(3);
    context.Log(kCat, "deep");
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].ends_with("]\t|  |  |  deep\n")) << lines[0];
}

TEST_F(CollectionTest, TheTimeIsThatOfTheLogCall) {
    OwnContext context;
    context.Log(kCat, "x");
    mClock.AdvanceWallTime(std::chrono::hours(5));
    EXPECT_THAT(CollectLines(), ElementsAre(testing::HasSubstr("  01:46:40.000000  ")));
}

TEST_F(CollectionTest, TheTimeIsLocal) {
    ::setenv("TZ", "EAST-2", 1);
    ::tzset();
    OwnContext context;
    // Not at the second that is known from another zone.
    LogAfter(context, seconds(3));
    EXPECT_THAT(CollectLines(), ElementsAre(testing::HasSubstr("  03:46:43.000000  ")));
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
}

TEST_F(CollectionTest, TheDeltaIsMeasuredFromTheRecordBefore) {
    SetDeltaBase();
    OwnContext one;
    OwnContext two;
    LogAfter(one, seconds(2));
    LogAfter(two, microseconds(250000));
    LogAfter(one, microseconds(0));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(Delta(lines[0]), "(02.000000)");
    EXPECT_EQ(Delta(lines[1]), "(00.250000)");
    EXPECT_EQ(Delta(lines[2]), "(00.000000)");
}

TEST_F(CollectionTest, TheDeltaIsTruncatedAndNotRounded) {
    SetDeltaBase();
    OwnContext context;
    // Not quite representable beside so many seconds.
    LogAfter(context, microseconds(1500250));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(01.500249)");
}

TEST_F(CollectionTest, RecordsThatAreNotShownMoveTheDeltaToo) {
    SetDeltaBase();
    OwnContext context;
    Manager().SetFilterValue(kError, true);
    mClock.AdvanceWallTime(seconds(10));
    context.Log(CCat(kError), "switched off before it is put out");
    LogAfter(context, seconds(3));
    Manager().SetFilterValue(kError, false);
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(03.000000)");
}

TEST_F(CollectionTest, StructuredRecordsMoveTheDeltaToo) {
    SetDeltaBase();
    OwnContext context;
    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    LogAfter(context, seconds(10));
    Manager().Collect();
    Manager().SetOutputCallback(Output::KeepLine);
    LogAfter(context, seconds(4));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(04.000000)");
}

TEST_F(CollectionTest, AClockThatIsSetBackGivesANegativeDelta) {
    SetDeltaBase();
    OwnContext context;
    LogAfter(context, -microseconds(1500000));
    LogAfter(context, -microseconds(250000));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(Delta(lines[0]), "(-1.-500000)");
    EXPECT_EQ(Delta(lines[1]), "(00.-250000)");
}

TEST_F(CollectionTest, AClockThatIsSetFarShowsTheWholeDelta) {
    SetDeltaBase();
    OwnContext context;
    LogAfter(context, seconds(3000000000));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(3000000000.000000)");
    LogAfter(context, -seconds(3000000000));
    CollectLines();
}

TEST_F(CollectionTest, TheDeltaBaseOutlivesCleanup) {
    SetDeltaBase();
    Release();
    CLogManager::Cleanup();
    CLogManager::Initialize();
    Hold();
    Manager().SetFilterValue(kInfo, true);
    OwnContext context;
    LogAfter(context, seconds(7));
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(07.000000)");
}

TEST_F(CollectionTest, ARecordWithoutTimeLeavesNothingToMeasureFrom) {
    CLogContext withoutMemory(
        "Empty", 5000, [](int) -> void* { return nullptr; }, CLogContext::FreeFunc);
    withoutMemory.Log(kCat, "lost");
    CollectLines();
    OwnContext context;
    context.Log(kCat, "x");
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(Delta(lines[0]), "(00.000000)");
}

TEST_F(CollectionTest, TheFilterIsTestedAgainAtOutput) {
    OwnContext context;
    Manager().SetFilterValue(kError, true);
    context.Log(CCat(kError), "off %s", "by then");
    context.Log(kCat, "still on");
    context.Log(CCat(kError, kInfo), "on by its other category");
    Manager().SetFilterValue(kError, false);
    EXPECT_THAT(CollectTexts(), ElementsAre("still on", "on by its other category"));
    EXPECT_EQ(context.Used(), 0);
}

TEST_F(CollectionTest, TheFilterIsTestedAgainForStructuredOutput) {
    OwnContext context;
    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    Manager().SetFilterValue(kError, true);
    context.Log(CCat(kError), "off by then");
    context.Log(kCat, "still on");
    Manager().SetFilterValue(kError, false);
    Manager().Collect();
    const std::vector<StructuredMessage> messages = Output::TakeMessages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].mText, "still on");
}

TEST_F(CollectionTest, AStructuredMessageHasItsFieldsAndItsTextAlone) {
    OwnContext context("Structured");
    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    context.SetIndent(300);
    mClock.AdvanceWallTime(microseconds(7));
    context.Log(CCat{kInfo, 20, 119}, "a=%d", 1, 2);
    Manager().Collect();
    const std::vector<StructuredMessage> messages = Output::TakeMessages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].mText, "a=1 (2) ");
    EXPECT_EQ(messages[0].mContextName, "Structured");
    EXPECT_EQ(messages[0].mIndent, 255u);
    EXPECT_THAT(messages[0].mCategories, ElementsAre(kInfo, 20, 119));
    EXPECT_EQ(messages[0].mSeconds, 1000000000u);
    EXPECT_EQ(messages[0].mMicroseconds, 7u);
}

TEST_F(CollectionTest, MergesContextsInTheOrderOfTheSequence) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    std::vector<std::unique_ptr<OwnContext>> contexts;
    for (int i = 0; i < 50; ++i) {
        contexts.push_back(std::make_unique<OwnContext>(std::to_string(i).c_str(), 65536));
    }
    for (int pass = 0; pass < 5; ++pass) {
        std::vector<std::string> expected;
        for (int i = 0; i < 2000; ++i) {
            contexts[static_cast<std::size_t>(random() % contexts.size())]->Log(kCat, "%d", i);
            expected.push_back(std::to_string(i));
        }
        EXPECT_EQ(CollectTexts(), expected);
    }
}

TEST_F(CollectionTest, AlternatingContextsAreNotGrouped) {
    OwnContext one("One");
    OwnContext two("Two");
    for (int i = 0; i < 3; ++i) {
        one.Log(kCat, "x");
        two.Log(kCat, "x");
    }
    std::vector<std::string> names;
    for (const std::string& line : CollectLines()) {
        names.push_back(NameIn(line));
    }
    EXPECT_THAT(names, ElementsAre("One", "Two", "One", "Two", "One", "Two"));
}

OwnContext* sLogsFromCallback = nullptr;

void LogOneMore(const char* line) {
    Output::KeepLine(line);
    if (sLogsFromCallback != nullptr) {
        std::exchange(sLogsFromCallback, nullptr)->Log(CCat(kInfo), "from the callback");
    }
}

TEST_F(CollectionTest, RecordsWrittenDuringAPassWaitForTheNext) {
    OwnContext context;
    sLogsFromCallback = &context;
    Manager().SetOutputCallback(LogOneMore);
    context.Log(kCat, "first");
    EXPECT_THAT(CollectTexts(), ElementsAre("first"));
    EXPECT_THAT(CollectTexts(), ElementsAre("from the callback"));
    Manager().SetOutputCallback(Output::KeepLine);
}

TEST_F(CollectionTest, GapsInTheSequenceColumnCountLostMessages) {
    OwnContext context("Own", 32768);
    int written = 0;
    while (context.Log(kCat, "written") != 0) {
        ++written;
    }
    for (int i = 0; i < 6; ++i) {
        context.Log(kCat, "lost");
    }
    std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(written) + 1);
    EXPECT_TRUE(lines.back().ends_with("\t*** HSLOG DROPPED MESSAGE(S) ***\n")) << lines.back();
    EXPECT_EQ(std::stoi(lines.back()), written + 1);
    context.Log(kCat, "after");
    lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(std::stoi(lines[0]), written + 1 + 6 + 1);
}

TEST_F(CollectionTest, AnEmptyPassPutsNothingOut) {
    OwnContext context;
    EXPECT_EQ(Manager().Collect(), 0);
    EXPECT_THAT(CollectLines(), IsEmpty());
}

TEST_F(CollectionTest, ARecordThatWasCutDoesNotHarmOtherContexts) {
    OwnContext cut("Cut", 10000);
    OwnContext sound("Sound");
    cut.FillUpTo(0);
    cut.Log(kCat, "%s%s%s", std::string(1500, 'x'), std::string(60000, 'y'), "z");
    sound.Log(kCat, "heard");
    const std::vector<std::string> texts = CollectTexts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[1], "heard");
    EXPECT_EQ(cut.Used(), 0);
    cut.Log(kCat, "whole again");
    EXPECT_THAT(CollectTexts(), ElementsAre("whole again"));
}

// A child process collects; that it is still at it when the alarm comes shows as its end.
TEST_F(CollectionTest, AnEscapedPerCentSignBeforeAnArgumentHangsThePassEvenIfTheMessageIsHidden) {
    // A lock that is held does not survive a fork: this thread lets go of the manager's, and the
    // collection thread sleeps. Shared: it may still do so as the test ends.
    struct Gate {
        std::atomic<bool> mIsAsleep = false;
        std::atomic<bool> mIsOpen = false;
    };
    const auto gate = std::make_shared<Gate>();
    mClock.OnSleep([gate](microseconds) {
        gate->mIsAsleep = true;
        while (!gate->mIsOpen) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    Release();
    ASSERT_TRUE(TestSupport::WaitUntil("the collection thread sleeps",
                                       [&gate] { return gate->mIsAsleep.load(); }));
    const auto collectUntilTheAlarm = [](bool isShown) {
        Manager().SetFilterValue(kInfo, true);
        OwnContext context;
        context.Log(kCat, "%d and 100%% of", 1, 2);
        Manager().SetFilterValue(kInfo, isShown);
        ::alarm(1);
        Manager().Collect();
        std::_Exit(0);
    };
    EXPECT_EXIT(collectUntilTheAlarm(true), testing::KilledBySignal(SIGALRM), "");
    EXPECT_EXIT(collectUntilTheAlarm(false), testing::KilledBySignal(SIGALRM), "");
    gate->mIsOpen = true;
}

TEST_F(CollectionTest, TheCollectionThreadDeliversByItself) {
    OwnContext context;
    context.Log(kCat, "by itself");
    Release();
    std::vector<std::string> lines;
    ASSERT_TRUE(TestSupport::WaitUntil(
        "the line is written", [&lines] { return !(lines = Output::TakeLines()).empty(); }));
    EXPECT_TRUE(lines[0].ends_with("\tby itself\n"));
}

TEST_F(CollectionTest, PassesAreATenthOfASecondApart) {
    // Shared: the thread may still sleep as the test ends.
    const auto length = std::make_shared<std::atomic<std::int64_t>>(0);
    mClock.OnSleep([length](microseconds slept) {
        *length = slept.count();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    Release();
    EXPECT_TRUE(TestSupport::WaitUntil("the thread sleeps", [&] { return *length != 0; }));
    EXPECT_EQ(*length, 100000);
}

} // namespace
} // namespace HSL
