// Logging that runs with the collection thread held off: a test logs, looks at the rings and runs
// collection passes itself, at moments of its own choosing. The clocks stand still.
#pragma once

#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "runtime/sync/NyLock.h"
#include "tests/support/platform/ControllableClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace HSL {

struct StructuredMessage {
    std::string mText;
    std::string mContextName;
    unsigned int mIndent;
    std::vector<unsigned char> mCategories;
    unsigned int mSeconds;
    unsigned int mMicroseconds;
};

// What the callbacks below were given. Also used on the collection thread.
class Output {
public:
    static void KeepLine(const char* line) {
        const std::lock_guard guard(msMutex);
        msLines.emplace_back(line);
    }
    static void KeepMessage(const char* message, const std::string& contextName,
                            unsigned char indent, unsigned char categoryCount,
                            const unsigned char* categoryIDs, unsigned int seconds,
                            unsigned int microseconds) {
        const std::lock_guard guard(msMutex);
        msMessages.push_back({message,
                              contextName,
                              indent,
                              {categoryIDs, categoryIDs + categoryCount},
                              seconds,
                              microseconds});
    }
    static std::vector<std::string> TakeLines() {
        const std::lock_guard guard(msMutex);
        return std::exchange(msLines, {});
    }
    static std::vector<StructuredMessage> TakeMessages() {
        const std::lock_guard guard(msMutex);
        return std::exchange(msMessages, {});
    }

private:
    static inline std::mutex msMutex;
    static inline std::vector<std::string> msLines;
    static inline std::vector<StructuredMessage> msMessages;
};

class LoggingTest : public testing::Test {
protected:
    static constexpr CCat kCat{kInfo};

    LoggingTest() {
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        mClock.OnSleep([](std::chrono::microseconds) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        CLogManager::Initialize();
        Hold();
        mPreviousOutput = Manager().SetOutputCallback(Output::KeepLine);
        Manager().SetFilterValue(kInfo, true);
        Output::TakeLines();
        Output::TakeMessages();
    }

    ~LoggingTest() override {
        Release();
        CLogManager::Initialize(); // unless the test left it running
        for (int id = 0; id < 256; ++id) {
            Manager().SetFilterValue(static_cast<unsigned char>(id), false);
        }
        Manager().SetStructuredOutputCallback(nullptr);
        Manager().SetOutputCallback(mPreviousOutput);
        CLogManager::Cleanup();
    }

    static CLogManager& Manager() { return *CLogManager::Instance(); }

    // Keeps the collection thread from passing, and lets it again.
    void Hold() { mHold.emplace(CLogManager::AddRemoveContextLock(), true); }
    void Release() { mHold.reset(); }

    // One pass, and the lines that it put out.
    static std::vector<std::string> CollectLines() {
        Manager().Collect();
        return Output::TakeLines();
    }
    // The same without the columns in front of the message and without the line's end.
    static std::vector<std::string> CollectTexts() {
        std::vector<std::string> texts;
        for (const std::string& line : CollectLines()) {
            const std::size_t tab = line.find('\t');
            texts.push_back(line.substr(tab + 1, line.size() - tab - 2));
        }
        return texts;
    }

    // The name of the context that a line comes from.
    static std::string NameIn(const std::string& line) {
        const std::size_t start = line.find('[') + 1;
        const std::string name = line.substr(start, line.find("]\t") - start);
        return name.substr(0, name.find_last_not_of(' ') + 1);
    }

    TestSupport::ControllableClock mClock;

private:
    std::optional<NyLockGuard> mHold;
    CLogManager::OutputCallback mPreviousOutput = nullptr;
};

// A context of the client's own on the heap.
class OwnContext : public CLogContext {
public:
    explicit OwnContext(const char* name = "Own", int size = 262144)
        : CLogContext(name, size, MallocFunc, FreeFunc) {}

    // How many bytes are stored.
    int Used() { return static_cast<int>(cb_get_num_elem_used(GetBuffer().GetRing())); }

    // Stores bytes that are no record until so many are stored.
    void FillUpTo(int size) {
        const std::string filler(static_cast<std::size_t>(size - Used()), 'f');
        int count = static_cast<int>(filler.size());
        GetBuffer().Write(filler.data(), count);
    }

    // Takes that many bytes out of the ring, all of them by default.
    std::vector<unsigned char> Take(int size = -1) {
        int count = size < 0 ? Used() : size;
        std::vector<unsigned char> bytes(static_cast<std::size_t>(count) + 1);
        GetBuffer().Read(bytes.data(), count);
        bytes.resize(static_cast<std::size_t>(count));
        return bytes;
    }
};

} // namespace HSL
