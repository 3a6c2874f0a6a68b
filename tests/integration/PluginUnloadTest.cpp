// The bundle's module comes with its first instance and goes with the last reference.

#include "tests/integration/PluginHost.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/TestPreferences.h"

#include <cstdlib>

namespace {

using Integration::ModuleIsLoaded;
using Integration::PluginHost;

TEST(PluginUnload, TakesTheModuleOutOfTheProcess) {
    const TemporaryDirectory runtime;
    const TestSupport::TestPreferences preferences;
    setenv("QUORVEL_RUNTIME_DIR", runtime.Path().c_str(), 1);
    ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    ASSERT_FALSE(ModuleIsLoaded());
    {
        PluginHost host;
        ASSERT_NE(host.Driver(), nullptr);
        EXPECT_TRUE(ModuleIsLoaded());
        EXPECT_EQ(host.Start(), noErr);
    }
    EXPECT_FALSE(ModuleIsLoaded());
}

} // namespace
