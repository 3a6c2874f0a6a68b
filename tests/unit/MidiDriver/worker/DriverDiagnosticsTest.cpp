#include "MidiDriver/worker/DriverDiagnostics.h"

#include "tests/support/platform/SyslogCapture.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <string>

using TestSupport::SyslogLine;
using TestSupport::SyslogLines;

namespace {

using Lines = std::vector<SyslogLine>;

// Whoever formats it crashes.
const auto* const kUnreadable = reinterpret_cast<const char*>(1);

} // namespace

TEST(DriverDiagnostics, WritesTheCodeAndTheMessageOfAnError) {
    LogIfError(1, "VirtualMidi: Error initializing MIDI Throttle circular buffer[%i]", 12);
    EXPECT_EQ(SyslogLines(),
              (Lines{{LOG_ERR, "Error: 1, VirtualMidi: Error initializing MIDI Throttle circular "
                               "buffer[12]"}}));
}

TEST(DriverDiagnostics, WritesCodesAsSignedNumbers) {
    LogIfError(0xFFFFFFFF, "text");
    EXPECT_EQ(SyslogLines(), (Lines{{LOG_ERR, "Error: -1, text"}}));
}

TEST(DriverDiagnostics, CutsTheMessageTo127Bytes) {
    LogIfError(2, "%s", std::string(127, 'a').c_str());
    LogIfError(2, "%s", std::string(128, 'b').c_str());
    LogIfError(2, "%s", std::string(200, 'c').c_str());
    EXPECT_EQ(SyslogLines(), (Lines{{LOG_ERR, "Error: 2, " + std::string(127, 'a')},
                                    {LOG_ERR, "Error: 2, " + std::string(127, 'b')},
                                    {LOG_ERR, "Error: 2, " + std::string(127, 'c')}}));
}

TEST(DriverDiagnostics, TakesAPercentSignInTheMessageForText) {
    LogIfError(3, "%s", "100%d");
    EXPECT_EQ(SyslogLines(), (Lines{{LOG_ERR, "Error: 3, 100%d"}}));
}

TEST(DriverDiagnostics, WritesNothingAndLooksAtNoFormatWithoutAnError) {
    LogIfError(0, "%s", kUnreadable);
    LogIfError(0, "text");
    EXPECT_TRUE(SyslogLines().empty());
}

TEST(DriverDiagnostics, KeepsTheDebugChannelsSilent) {
    LogDebugInfo("writeCBBytes: numbytes %d, MIDI Data circular buffer", 3);
    LogThrottleDebugInfo("** %f %i", 1.0, 2);
    LogDebugInfo("%s", kUnreadable);
    LogThrottleDebugInfo("%s", kUnreadable);
    EXPECT_TRUE(SyslogLines().empty());
}
