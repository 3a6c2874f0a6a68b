#include "hsl/LogManager.h"

#include "runtime/thread/NyThread.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/hsl/LoggingTest.h"
#include "tests/unit/hsl/record/RecordBytes.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <bit>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>

namespace HSL {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Body : public NyThread {
public:
    explicit Body(std::function<void()> body) : mBody(std::move(body)) {}
    void Run() override { mBody(); }

private:
    std::function<void()> mBody;
};

class LogManagerTest : public LoggingTest {};

TEST(LogManagerIdleTest, IsNotInitializedAtFirst) {
    EXPECT_EQ(CLogManager::Instance(), nullptr);
    EXPECT_FALSE(CLogManager::IsInitialized());
}

TEST(LogManagerIdleTest, CleanupOfWhatDoesNotRunDoesNothing) {
    CLogManager::Cleanup();
    CLogManager::CleanupTLSContext();
    EXPECT_FALSE(CLogManager::IsInitialized());
}

TEST(LogManagerIdleTest, AThreadThatNeverLoggedEndsWithoutAManager) {
    std::atomic<bool> ran = false;
    Body thread([&ran] { ran = true; });
    thread.Start();
    EXPECT_EQ(thread.WaitForExit(), 0);
    EXPECT_TRUE(ran);
}

TEST(LogManagerIdleTest, AContextWithoutAManagerPassesNothing) {
    CLogContext context("Early", 5000, CLogContext::MallocFunc, CLogContext::FreeFunc);
    EXPECT_EQ(context.Log(CCat(kInfo), "x"), 0);
    EXPECT_EQ(cb_get_num_elem_used(context.GetBuffer().GetRing()), 0u);
}

TEST_F(LogManagerTest, InitializeASecondTimeDoesNothing) {
    CLogManager* const manager = CLogManager::Instance();
    CLogContext* const context = CLogManager::GetTLSContext();
    Release();
    CLogManager::Initialize();
    EXPECT_EQ(CLogManager::Instance(), manager);
    EXPECT_EQ(CLogManager::GetTLSContext(), context);
    EXPECT_TRUE(Manager().GetFilterValue(kInfo)) << "the filter was cleared";
}

TEST_F(LogManagerTest, EveryCategoryIsDisabledAtFirst) {
    Manager().SetFilterValue(kInfo, false); // the fixture's
    OwnContext context;
    for (int id = 0; id < 256; ++id) {
        const auto category = static_cast<unsigned char>(id);
        EXPECT_FALSE(Manager().GetFilterValue(category));
        EXPECT_EQ(context.Log(CCat(category), "x"), 0);
    }
    EXPECT_EQ(context.Used(), 0);
}

TEST_F(LogManagerTest, FilterValuesArePerCategory) {
    Manager().SetFilterValue(255, true);
    EXPECT_TRUE(Manager().GetFilterValue(255));
    EXPECT_FALSE(Manager().GetFilterValue(254));
    Manager().SetFilterValue(255, false);
    EXPECT_FALSE(Manager().GetFilterValue(255));
}

TEST_F(LogManagerTest, PassesWithAnyEnabledCategoryAmongTheCounted) {
    const unsigned char ids[] = {kError, 200, kInfo};
    EXPECT_FALSE(CLogManager::PassesFilter(0, ids));
    EXPECT_FALSE(CLogManager::PassesFilter(0, ids + 2));
    EXPECT_FALSE(CLogManager::PassesFilter(2, ids));
    EXPECT_TRUE(CLogManager::PassesFilter(3, ids));
    EXPECT_TRUE(CLogManager::PassesFilter(1, ids + 2));
    const std::vector<unsigned char> many(255, 9);
    EXPECT_FALSE(CLogManager::PassesFilter(255, many.data()));
    Manager().SetFilterValue(9, true);
    EXPECT_TRUE(CLogManager::PassesFilter(255, many.data()));
}

TEST_F(LogManagerTest, OnlyTwoCategoryRangesMayBeRegistered) {
    EXPECT_TRUE(Manager().RegisterCategoryRange(20, 59));
    EXPECT_TRUE(Manager().RegisterCategoryRange(20, 20));
    EXPECT_TRUE(Manager().RegisterCategoryRange(60, 79));
    EXPECT_TRUE(Manager().RegisterCategoryRange(60, 60));
    EXPECT_FALSE(Manager().RegisterCategoryRange(20, 60));
    EXPECT_FALSE(Manager().RegisterCategoryRange(60, 80));
    EXPECT_FALSE(Manager().RegisterCategoryRange(21, 30));
    EXPECT_FALSE(Manager().RegisterCategoryRange(80, 119));
    EXPECT_FALSE(Manager().RegisterCategoryRange(19, 25));
    EXPECT_FALSE(Manager().RegisterCategoryRange(30, 20));
    EXPECT_FALSE(Manager().RegisterCategoryRange(20, 19));
    EXPECT_FALSE(Manager().RegisterCategoryRange(60, 59));
    EXPECT_FALSE(Manager().RegisterCategoryRange(120, 130));
    EXPECT_FALSE(Manager().RegisterCategoryRange(-1, 5));
}

TEST_F(LogManagerTest, TheFirstNameOfACategoryWins) {
    Manager().SetCategoryName(3, "X");
    EXPECT_EQ(Manager().GetCategoryName(3), "Info");
    Manager().SetCategoryName(255, "");
    Manager().SetCategoryName(255, "Last");
    Manager().SetCategoryName(255, "Later");
    EXPECT_EQ(Manager().GetCategoryName(255), "Last");
}

TEST_F(LogManagerTest, TheEnableFlagIsKeptForClientsAndClearedByCleanup) {
    CLogManager::SetEnable(true);
    EXPECT_TRUE(CLogManager::IsEnabled());
    CLogManager::SetEnable(false);
    OwnContext context;
    EXPECT_EQ(context.Log(kCat, "logged all the same"), 1);
    CLogManager::SetEnable(true);
    Release();
    CLogManager::Cleanup();
    EXPECT_FALSE(CLogManager::IsEnabled());
}

TEST_F(LogManagerTest, TheInitializingThreadsContextIsNamedMain) {
    EXPECT_EQ(CLogManager::GetTLSContext()->GetName(), "Main");
    EXPECT_EQ(CLogManager::GetTLSContext()->GetBuffer().GetRing()->numElems, 262144u);
}

TEST_F(LogManagerTest, AThreadsContextIsNamedAfterItsHandle) {
    Release();
    std::string name;
    std::string expected;
    bool isKept = false;
    Body thread([&] {
        expected = "TID " + std::to_string(std::bit_cast<unsigned long>(NyThread::GetCurrentId()));
        CLogContext* const context = CLogManager::GetTLSContext();
        name = context->GetName();
        isKept = CLogManager::GetTLSContext() == context;
    });
    thread.Start();
    thread.WaitForExit();
    EXPECT_EQ(name, expected);
    EXPECT_TRUE(isKept);
}

TEST_F(LogManagerTest, EachThreadHasAContextOfItsOwn) {
    Release();
    CLogContext* const own = CLogManager::GetTLSContext();
    CLogContext* others = own;
    std::thread thread([&others] {
        others = CLogManager::GetTLSContext();
        CLogManager::CleanupTLSContext();
    });
    thread.join();
    EXPECT_NE(others, own);
}

// Tells when it is destroyed.
class Watched : public OwnContext {
public:
    explicit Watched(int& ends) : mEnds(ends) {}
    ~Watched() override { ++mEnds; }

private:
    int& mEnds;
};

TEST_F(LogManagerTest, CleanupDestroysAdoptedContexts) {
    int ends = 0;
    CLogManager::AdoptTLSContext(new Watched(ends));
    CLogManager::AdoptTLSContext(new Watched(ends));
    Release();
    CLogManager::Cleanup();
    EXPECT_EQ(ends, 2);
}

TEST_F(LogManagerTest, AContextRegistersItselfFromConstructionToDestruction) {
    auto context = std::make_unique<OwnContext>();
    context->Log(kCat, "x");
    EXPECT_EQ(CollectLines().size(), 1u);
    CLogManager::RemoveContext(context.get());
    context->Log(kCat, "x");
    EXPECT_THAT(CollectLines(), IsEmpty());
    CLogManager::AddContext(context.get());
    EXPECT_EQ(CollectLines().size(), 1u);
}

TEST_F(LogManagerTest, RemoveContextRemovesEveryOccurrence) {
    OwnContext context;
    CLogManager::AddContext(&context);
    CLogManager::RemoveContext(&context);
    context.Log(kCat, "x");
    EXPECT_THAT(CollectLines(), IsEmpty());
}

TEST_F(LogManagerTest, CleanupTLSContextReleasesTheCallersContext) {
    CLogContext* const context = CLogManager::GetTLSContext();
    context->Log(kCat, "lost with it");
    CLogManager::CleanupTLSContext();
    EXPECT_THAT(CollectTexts(), IsEmpty());
    CLogContext* const next = CLogManager::GetTLSContext();
    EXPECT_NE(next->GetName(), "Main");
    next->Log(kCat, "heard");
    EXPECT_THAT(CollectTexts(), ElementsAre("heard"));
    CLogManager::CleanupTLSContext();
    CLogManager::CleanupTLSContext(); // none left
}

TEST_F(LogManagerTest, AThreadThatEndsWhileCleanupRunsReleasesItsContextOnce) {
    for (int round = 0; round < 20; ++round) {
        Release();
        CLogManager::Initialize();
        std::barrier meet{2};
        Body thread([&meet] {
            CLogManager::GetTLSContext();
            meet.arrive_and_wait();
        });
        thread.Start();
        meet.arrive_and_wait();
        CLogManager::Cleanup();
        EXPECT_EQ(thread.WaitForExit(), 0);
    }
}

TEST_F(LogManagerTest, CleanupDeliversWhatIsPending) {
    OwnContext context;
    for (int i = 0; i < 1000; ++i) {
        context.Log(kCat, "%d", i);
    }
    Release();
    CLogManager::Cleanup();
    const std::vector<std::string> lines = Output::TakeLines();
    ASSERT_EQ(lines.size(), 1000u);
    EXPECT_TRUE(lines.back().ends_with("\t999\n")) << lines.back();
    EXPECT_FALSE(CLogManager::IsInitialized());
    EXPECT_EQ(CLogManager::Instance(), nullptr);
}

TEST_F(LogManagerTest, ContextsOfClientsOutliveCleanupAndLogNothingMore) {
    OwnContext context;
    Release();
    CLogManager::Cleanup();
    Output::TakeLines();
    EXPECT_EQ(context.Log(kCat, "nobody listens"), 0);
    EXPECT_EQ(context.Used(), 0);

    CLogManager::Initialize();
    Hold();
    Manager().SetFilterValue(kInfo, true);
    EXPECT_EQ(context.Log(kCat, "kept, but collected no more"), 1);
    EXPECT_THAT(CollectLines(), IsEmpty());
    CLogManager::AddContext(&context);
    EXPECT_THAT(CollectTexts(), ElementsAre("kept, but collected no more"));
}

TEST_F(LogManagerTest, InitializeAfterCleanupStartsAnew) {
    Manager().SetCategoryName(20, "Of the first time");
    Manager().SetFilterValue(99, true);
    EXPECT_EQ(Manager().AddFormatString("first"), 0);
    CLogManager::NextSequence();
    Release();
    CLogManager::Cleanup();
    CLogManager::Initialize();
    Hold();
    EXPECT_EQ(Manager().GetCategoryName(20), "");
    EXPECT_EQ(Manager().GetCategoryName(kInfo), "Info");
    EXPECT_FALSE(Manager().GetFilterValue(99));
    EXPECT_FALSE(Manager().GetFilterValue(kInfo));
    EXPECT_EQ(Manager().AddFormatString("second"), 0);
    EXPECT_EQ(CLogManager::GetTLSContext()->GetName(), "Main");
    Manager().SetFilterValue(kInfo, true);
    CLogManager::GetTLSContext()->Log(kCat, short{0});
    const std::vector<std::string> lines = CollectLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("     1  ")) << lines[0];
    EXPECT_TRUE(lines[0].ends_with("\tsecond\n")) << lines[0];
}

TEST_F(LogManagerTest, CallbacksTheirChoiceAndTheLastMomentOutliveCleanup) {
    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    Manager().SetOutputCallback(Output::KeepLine);
    CLogManager::GetTLSContext()->Log(kCat, "before");
    EXPECT_EQ(CollectLines().size(), 1u);
    const auto startAnew = [this] {
        Release();
        CLogManager::Cleanup();
        CLogManager::Initialize();
        Hold();
        Manager().SetFilterValue(kInfo, true);
    };
    startAnew();
    EXPECT_EQ(Manager().GetOutputCallback(), &Output::KeepLine);
    EXPECT_EQ(Manager().GetStructuredOutputCallback(), &Output::KeepMessage);
    EXPECT_EQ(Manager().GetOutputCallbackType(), 0);
    mClock.AdvanceWallTime(std::chrono::seconds(7));
    CLogManager::GetTLSContext()->Log(kCat, "behind");
    EXPECT_THAT(CollectLines(), ElementsAre(testing::HasSubstr("(07.000000)")));

    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    startAnew();
    EXPECT_EQ(Manager().GetOutputCallbackType(), 1);
}

TEST_F(LogManagerTest, TheCollectionThreadRunsAgainAfterInitializeAnew) {
    Release();
    for (int round = 0; round < 3; ++round) {
        CLogManager::Cleanup();
        Output::TakeLines();
        CLogManager::Initialize();
        Manager().SetFilterValue(kInfo, true);
        CLogManager::GetTLSContext()->Log(kCat, "heard");
        std::vector<std::string> lines;
        EXPECT_TRUE(TestSupport::WaitUntil(
            "a line is written", [&lines] { return !(lines = Output::TakeLines()).empty(); }));
        EXPECT_EQ(lines.size(), 1u);
    }
}

TEST_F(LogManagerTest, AThreadWhoseContextIsOfAnEarlierTimeGetsANewOne) {
    Release();
    std::barrier step{2};
    std::string name;
    std::thread thread([&] {
        CLogManager::GetTLSContext();
        step.arrive_and_wait(); // cleaned up and initialised anew meanwhile
        step.arrive_and_wait();
        CLogManager::GetTLSContext()->Log(kCat, "from the new one");
        name = CLogManager::GetTLSContext()->GetName();
        step.arrive_and_wait(); // output meanwhile
        step.arrive_and_wait();
        CLogManager::CleanupTLSContext();
    });
    step.arrive_and_wait();
    CLogManager::Cleanup();
    Output::TakeLines();
    CLogManager::Initialize();
    Manager().SetFilterValue(kInfo, true);
    step.arrive_and_wait();
    step.arrive_and_wait();
    std::vector<std::string> lines;
    EXPECT_TRUE(TestSupport::WaitUntil(
        "a line is written", [&lines] { return !(lines = Output::TakeLines()).empty(); }));
    step.arrive_and_wait();
    thread.join();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].ends_with("\tfrom the new one\n"));
    EXPECT_TRUE(name.starts_with("TID ")) << name;
}

TEST_F(LogManagerTest, AThreadWithAStaleContextReleasesNothingInAnotherTime) {
    Release();
    std::barrier step{2};
    std::thread thread([&] {
        CLogManager::GetTLSContext();
        step.arrive_and_wait();
        step.arrive_and_wait();
        CLogManager::CleanupTLSContext();
    });
    step.arrive_and_wait();
    CLogManager::Cleanup();
    CLogManager::Initialize();
    step.arrive_and_wait();
    thread.join();
    EXPECT_EQ(CLogManager::GetTLSContext()->GetName(), "Main");
}

void OtherLine(const char*) {}
void OtherMessage(const char*, const std::string&, unsigned char, unsigned char,
                  const unsigned char*, unsigned int, unsigned int) {}

TEST_F(LogManagerTest, SettersReturnThePreviousCallbackOfTheirKind) {
    EXPECT_EQ(Manager().GetOutputCallback(), &Output::KeepLine);
    EXPECT_EQ(Manager().GetOutputCallbackType(), 0);
    EXPECT_EQ(Manager().GetStructuredOutputCallback(), nullptr);

    EXPECT_EQ(Manager().SetStructuredOutputCallback(Output::KeepMessage), nullptr);
    EXPECT_EQ(Manager().GetOutputCallbackType(), 1);
    EXPECT_EQ(Manager().SetStructuredOutputCallback(OtherMessage), &Output::KeepMessage);
    EXPECT_EQ(Manager().GetStructuredOutputCallback(), &OtherMessage);
    EXPECT_EQ(Manager().GetOutputCallback(), &Output::KeepLine);

    EXPECT_EQ(Manager().SetOutputCallback(OtherLine), &Output::KeepLine);
    EXPECT_EQ(Manager().GetOutputCallbackType(), 0);
    EXPECT_EQ(Manager().SetOutputCallback(Output::KeepLine), &OtherLine);
    EXPECT_EQ(Manager().GetStructuredOutputCallback(), &OtherMessage);
}

TEST_F(LogManagerTest, OnlyTheCallbackThatWasSetLastIsCalled) {
    OwnContext context;
    context.Log(kCat, "plain");
    EXPECT_EQ(CollectLines().size(), 1u);
    EXPECT_THAT(Output::TakeMessages(), IsEmpty());

    Manager().SetStructuredOutputCallback(Output::KeepMessage);
    context.Log(kCat, "structured");
    EXPECT_THAT(CollectLines(), IsEmpty());
    EXPECT_EQ(Output::TakeMessages().size(), 1u);

    Manager().SetOutputCallback(Output::KeepLine);
    context.Log(kCat, "plain again");
    EXPECT_EQ(CollectLines().size(), 1u);
    EXPECT_THAT(Output::TakeMessages(), IsEmpty());
}

TEST_F(LogManagerTest, ANullCallbackDropsMessages) {
    OwnContext context;
    Manager().SetStructuredOutputCallback(nullptr);
    context.Log(kCat, "nowhere");
    Manager().Collect();
    Manager().SetOutputCallback(nullptr);
    context.Log(kCat, "nowhere");
    Manager().Collect();
    EXPECT_EQ(context.Used(), 0);
}

TEST(LogManagerPrinterTest, TheFirstCallbackPrintsLinesToStandardOutput) {
    CLogManager::Initialize();
    CLogManager* const manager = CLogManager::Instance();
    const CLogManager::OutputCallback printer = manager->GetOutputCallback();
    ASSERT_NE(printer, nullptr);
    EXPECT_EQ(manager->GetOutputCallbackType(), 0);
    testing::internal::CaptureStdout();
    printer("a line with %d as it is\n");
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a line with %d as it is\n");
    EXPECT_EQ(manager->SetStructuredOutputCallback(OtherMessage), nullptr);
    EXPECT_EQ(manager->SetOutputCallback(OtherLine), printer);
    manager->SetStructuredOutputCallback(nullptr);
    manager->SetOutputCallback(printer);
    CLogManager::Cleanup();
}

TEST_F(LogManagerTest, FormatIDsCountUpAndEachCallAddsOne) {
    EXPECT_EQ(Manager().AddFormatString("same"), 0);
    EXPECT_EQ(Manager().AddFormatString("same"), 1);
    EXPECT_EQ(Manager().AddFormatString(L"wide"), 2);
    EXPECT_EQ(Manager().AddFormatString("next"), 3);
}

TEST_F(LogManagerTest, ThereAre32768FormatIDs) {
    for (int id = 0; id < 32768; ++id) {
        ASSERT_EQ(Manager().AddFormatString("f"), id);
    }
    EXPECT_EQ(Manager().AddFormatString("one too many"), -1);
    EXPECT_EQ(Manager().AddFormatString(L"one too many"), -1);
    OwnContext context;
    context.Log(kCat, short{32767});
    EXPECT_THAT(CollectTexts(), ElementsAre("f"));
}

TEST_F(LogManagerTest, SequenceNumbersAreUniqueAcrossThreads) {
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::vector<std::unique_ptr<OwnContext>> contexts;
    for (int i = 0; i < kThreads; ++i) {
        contexts.push_back(std::make_unique<OwnContext>());
    }
    {
        std::vector<std::jthread> threads;
        for (const auto& context : contexts) {
            threads.emplace_back([&context] {
                for (int i = 0; i < kEach; ++i) {
                    context->Log(kCat, "x");
                }
            });
        }
    }
    std::vector<bool> seen(kThreads * kEach + 1);
    for (const auto& context : contexts) {
        RecordBytes::Reader reader(context->Take());
        std::int32_t last = 0;
        while (!reader.IsAtEnd()) {
            const std::int32_t sequence = reader.Next().mSequence;
            ASSERT_GT(sequence, last);
            last = sequence;
            ASSERT_LT(static_cast<std::size_t>(sequence), seen.size());
            ASSERT_FALSE(seen[static_cast<std::size_t>(sequence)]);
            seen[static_cast<std::size_t>(sequence)] = true;
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), kThreads * kEach);
}

} // namespace
} // namespace HSL
