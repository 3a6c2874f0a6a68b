#include "hsl/CategoryHolder.h"
#include "hsl/FormatHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogIndent.h"
#include "hsl/LogManager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr HSL::CCategoryHolder kTransport(20, "Transport");
HSL::CFormatHolder sLate("late by %d us on port %d");

std::vector<std::string> sMessages; // the collection thread's until Cleanup has returned

void KeepMessage(const char* message, const std::string& contextName, unsigned char indent,
                 unsigned char, const unsigned char*, unsigned int, unsigned int) {
    sMessages.push_back(contextName + ": " + std::string(indent, ' ') + message);
}

} // namespace

TEST(LoggingSamples, Logging) {
    HSL::CLogManager::Initialize();
    HSL::CLogManager* const manager = HSL::CLogManager::Instance();
    kTransport.Register();
    sLate.Register();
    manager->SetFilterValue(HSL::kWarning, true); // at first nothing passes
    manager->SetStructuredOutputCallback(KeepMessage);

    HSL::CLogContext* const context = HSL::CLogManager::GetTLSContext();
    context->Log(kTransport[HSL::kWarning], sLate, 250, 3);
    {
        const HSL::CLogIndent indent(*context);
        context->Log(kTransport[HSL::kWarning], "queue holds %u bytes", 4096U);
    }
    context->Log(HSL::CCat(HSL::kChatty), "a level that is not enabled");

    HSL::CLogManager::Cleanup(); // delivers what is pending
    EXPECT_EQ(sMessages, (std::vector<std::string>{"Main: late by 250 us on port 3",
                                                   "Main:  queue holds 4096 bytes"}));
}
