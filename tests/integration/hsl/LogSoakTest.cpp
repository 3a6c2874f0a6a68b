// Eight threads that log at full speed through contexts which come and go, while the output
// changes between its callbacks. QUORVEL_SOAK_SECONDS says for how long, 5 by default.
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "runtime/thread/NyThread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace HSL {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kThreads = 8;
constexpr char kBanner[] = "*** HSLOG DROPPED MESSAGE(S) ***";

// What one context was told, and how it ended.
struct Told {
    std::int64_t mAccepted = 0; // put into the ring: Log returned how many are pending
    std::int64_t mRefused = 0;  // dropped, or replaced by a banner
    bool mIsDrained = false;    // lived until all was collected
};

// What came out of one context. Written by the collection thread alone.
struct Heard {
    std::int64_t mMessages = 0;
    std::int64_t mBanners = 0;
    std::int64_t mLastSequence = 0;
};

// All of one writer's contexts, by their serial numbers.
struct Writer {
    std::vector<Told> mTold;
    std::vector<Heard> mHeard;
};

std::array<Writer, kThreads> sWriters;
std::atomic<std::int64_t> sFaults{0};
std::string sFirstFault; // the collection thread's
std::vector<bool> sSequences;
std::array<std::int64_t, 2> sPlain{};
std::array<std::int64_t, 2> sStructured{};

void Fault(const std::string& what) {
    if (sFaults++ == 0) {
        sFirstFault = what;
    }
}

// A context's name is "writer.serial", a message's text its number in that context.
Heard& HeardOf(const char* name) {
    char* end = nullptr;
    const auto writer = static_cast<std::size_t>(std::strtol(name, &end, 10));
    const auto serial = static_cast<std::size_t>(std::strtol(end + 1, nullptr, 10));
    std::vector<Heard>& heard = sWriters.at(writer).mHeard;
    if (heard.size() <= serial) {
        heard.resize(serial + 1);
    }
    return heard[serial];
}

void Count(Heard& heard, const char* text) {
    if (std::strncmp(text, kBanner, sizeof kBanner - 1) == 0) {
        ++heard.mBanners;
    } else if (std::strtol(text, nullptr, 10) == heard.mMessages) {
        ++heard.mMessages;
    } else {
        Fault(std::string("out of order: ") + text + " in place of " +
              std::to_string(heard.mMessages));
    }
}

template <std::size_t Which>
void Plain(const char* line) {
    ++sPlain[Which];
    Heard& heard = HeardOf(std::strchr(line, '[') + 1);
    const std::int64_t sequence = std::strtol(line, nullptr, 10);
    if (sequence <= heard.mLastSequence) {
        Fault(std::string("sequence went back: ") + line);
    }
    heard.mLastSequence = sequence;
    const auto index = static_cast<std::size_t>(sequence);
    if (sSequences.size() <= index) {
        sSequences.resize(index + index / 2 + 1);
    }
    if (sSequences[index]) {
        Fault(std::string("sequence seen twice: ") + line);
    }
    sSequences[index] = true;
    Count(heard, std::strchr(line, '\t') + 1);
}

template <std::size_t Which>
void Structured(const char* message, const std::string& contextName, unsigned char, unsigned char,
                const unsigned char*, unsigned int, unsigned int) {
    ++sStructured[Which];
    Count(HeardOf(contextName.c_str()), message);
}

class WriterThread : public NyThread {
public:
    void Begin(int writer, Clock::time_point end) {
        mWriter = writer;
        mEnd = end;
        Start();
    }

    void Run() override {
        const CCat cat(kInfo);
        const short format = CLogManager::Instance()->AddFormatString("%d of %d, %g");
        std::vector<Told>& contexts = sWriters.at(static_cast<std::size_t>(mWriter)).mTold;
        // A context of its own of the manager's too, which goes as the thread ends. It is silent.
        CLogManager::GetTLSContext()->Log(CCat(kError), "filtered");
        for (int serial = 0; Clock::now() < mEnd; ++serial) {
            Told told;
            const std::string name = std::to_string(mWriter) + "." + std::to_string(serial);
            // Small ones overflow, large ones hardly do.
            CLogContext context(name.c_str(), serial % 2 == 0 ? 32768 : 1 << 20,
                                CLogContext::MallocFunc, CLogContext::FreeFunc);
            for (int i = 0; i < 3000; ++i) {
                const int number = static_cast<int>(told.mAccepted);
                const int pending = i % 2 == 0 ? context.Log(cat, format, number, i, 0.5)
                                               : context.Log(cat, "%d %s", number, "text");
                if (pending > 0) {
                    ++told.mAccepted;
                } else {
                    ++told.mRefused;
                    std::this_thread::yield();
                }
                // Time for some passes within the context's life.
                if (serial % 4 == 0 && i % 1000 == 999) {
                    Sleep(50000);
                }
            }
            // Every third goes with what is still in it.
            if (serial % 3 != 0) {
                while (cb_get_num_elem_used(context.GetBuffer().GetRing()) != 0) {
                    Sleep(1000);
                }
                told.mIsDrained = true;
            }
            contexts.push_back(told);
        }
    }

private:
    int mWriter = 0;
    Clock::time_point mEnd;
};

std::chrono::seconds SoakTime() {
    const char* const given = std::getenv("QUORVEL_SOAK_SECONDS");
    return std::chrono::seconds(given == nullptr ? 5 : std::atoi(given));
}

TEST(LogSoakTest, EveryRecordIsDeliveredOnceInOrderOrCountedByAGap) {
    CLogManager::Initialize();
    CLogManager& manager = *CLogManager::Instance();
    const CLogManager::OutputCallback printer = manager.SetOutputCallback(Plain<0>);
    manager.SetFilterValue(kInfo, true);

    const Clock::time_point end = Clock::now() + SoakTime();
    std::array<WriterThread, kThreads> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.at(static_cast<std::size_t>(i)).Begin(i, end);
    }
    for (int turn = 1; Clock::now() < end; ++turn) {
        std::this_thread::sleep_for(std::chrono::milliseconds(70));
        switch (turn % 4) {
        case 0:
            manager.SetOutputCallback(Plain<0>);
            break;
        case 1:
            manager.SetStructuredOutputCallback(Structured<0>);
            break;
        case 2:
            manager.SetOutputCallback(Plain<1>);
            break;
        default:
            manager.SetStructuredOutputCallback(Structured<1>);
            break;
        }
    }
    for (WriterThread& thread : threads) {
        ASSERT_EQ(thread.WaitForExit(), 0);
    }
    const std::int64_t sequences = CLogManager::NextSequence() - 1;
    manager.SetStructuredOutputCallback(nullptr);
    manager.SetOutputCallback(printer);
    CLogManager::Cleanup();

    EXPECT_EQ(sFaults, 0) << sFirstFault;
    std::int64_t accepted = 0;
    std::int64_t refused = 0;
    std::int64_t messages = 0;
    std::int64_t banners = 0;
    std::int64_t contexts = 0;
    for (Writer& writer : sWriters) {
        ASSERT_LE(writer.mHeard.size(), writer.mTold.size());
        writer.mHeard.resize(writer.mTold.size());
        for (std::size_t serial = 0; serial < writer.mTold.size(); ++serial) {
            const Told& told = writer.mTold[serial];
            const Heard& heard = writer.mHeard[serial];
            // In order and without holes is counted as it comes in: this is all of it.
            if (told.mIsDrained) {
                ASSERT_EQ(heard.mMessages, told.mAccepted);
                ASSERT_EQ(heard.mBanners > 0, told.mRefused > 0);
            } else {
                ASSERT_LE(heard.mMessages, told.mAccepted);
            }
            ASSERT_LE(heard.mBanners, told.mRefused);
            accepted += told.mAccepted;
            refused += told.mRefused;
            messages += heard.mMessages;
            banners += heard.mBanners;
            ++contexts;
        }
    }
    // Every message took one number, whether it was written, became a banner or was dropped.
    EXPECT_EQ(sequences, accepted + refused);
    EXPECT_EQ(messages + banners, sPlain[0] + sPlain[1] + sStructured[0] + sStructured[1]);
    for (const std::int64_t calls : {sPlain[0], sPlain[1], sStructured[0], sStructured[1]}) {
        EXPECT_GT(calls, 0) << "a callback was never called";
    }
    EXPECT_GT(refused, 0) << "nothing overflowed";
    RecordProperty("contexts", std::to_string(contexts));
    RecordProperty("messages", std::to_string(messages));
    RecordProperty("dropped", std::to_string(refused));
    std::printf("%lld contexts, %lld messages delivered, %lld banners, %lld dropped\n",
                static_cast<long long>(contexts), static_cast<long long>(messages),
                static_cast<long long>(banners), static_cast<long long>(refused));
}

} // namespace
} // namespace HSL
