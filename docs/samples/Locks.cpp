#include "runtime/sync/NyLock.h"
#include "runtime/sync/NyThreadLocal.h"

#include <gtest/gtest.h>

namespace {

class Mixer {
public:
    void SetLevel(int level) {
        const NyLockGuard guard(mLock, true); // held to the end of the scope
        mLevel = level;
    }
    void Raise(int by) {
        const NyLockGuard guard(mLock, true);
        SetLevel(mLevel + by); // the lock is recursive
    }
    int GetLevel() {
        const NyLockGuard guard(mLock, true);
        return mLevel;
    }

private:
    NyLock mLock{"Mixer"};
    int mLevel = 0;
};

// One slot a thread; null until the thread sets it.
NyThreadLocal<Mixer*> sCurrentMixer;

} // namespace

TEST(RuntimeSamples, Locks) {
    Mixer mixer;
    mixer.SetLevel(-6);
    mixer.Raise(2);
    EXPECT_EQ(mixer.GetLevel(), -4);

    EXPECT_EQ(sCurrentMixer.Get(), nullptr);
    sCurrentMixer.Set(&mixer);
    EXPECT_EQ(sCurrentMixer.Get(), &mixer);
    sCurrentMixer.Set(nullptr);
}
