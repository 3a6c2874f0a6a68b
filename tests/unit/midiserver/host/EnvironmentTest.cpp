// What is told through the environment, when there is no memory for it.
#include "midiserver/host/PrivateRuntimeFolder.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>

namespace {

bool sHasMemory = true;

} // namespace

// In the place of the C library's.
extern "C" int setenv(const char* name, const char* value, int overwrite) noexcept {
    if (!sHasMemory) {
        errno = ENOMEM;
        return -1;
    }
    using Function = int(const char*, const char*, int);
    static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "setenv"));
    return real(name, value, overwrite);
}

namespace MidiServer {
namespace {

class EnvironmentTest : public testing::Test {
protected:
    EnvironmentTest() {
        ::unsetenv("QUORVEL_RUNTIME_DIR");
        ::setenv("TMPDIR", mFolder.Path().c_str(), 1);
        ::setenv("QUORVEL_PREFERENCES_DIR", "/before", 1);
        sHasMemory = false;
    }
    ~EnvironmentTest() override { sHasMemory = true; }

    const TemporaryDirectory mFolder;
};

TEST_F(EnvironmentTest, PreferencesAreNotLookedForElsewhereWithoutMemory) {
    EXPECT_THROW(UsePreferencesFolder(mFolder.Path()), std::bad_alloc);
    sHasMemory = true;
    UsePreferencesFolder(mFolder.Path());
    EXPECT_EQ(PreferencesEditor::File().parent_path(), mFolder.Path());
}

TEST_F(EnvironmentTest, PrivateRuntimeFolderIsNotMadeWithoutMemory) {
    EXPECT_THROW(PrivateRuntimeFolder(), std::bad_alloc);
    EXPECT_TRUE(std::filesystem::is_empty(mFolder.Path()));
    sHasMemory = true;
    const PrivateRuntimeFolder folder;
    EXPECT_FALSE(std::filesystem::is_empty(mFolder.Path()));
}

} // namespace
} // namespace MidiServer
