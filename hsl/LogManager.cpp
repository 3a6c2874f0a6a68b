#include "hsl/LogManager.h"

#include "hsl/CollectionThread.h"
#include "hsl/LogContext.h"
#include "hsl/LogManagerState.h"
#include "runtime/sync/NyLock.h"
#include "runtime/thread/NyThread.h"

#include <libkern/OSAtomic.h>

#include <bit>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <mutex>
#include <vector>

namespace HSL {

namespace {

void PrintLine(const char* line) {
    std::printf("%s", line);
}

// Relaxed but for the pair of callback and type: who sees that structured output is in use sees
// the callback that it came with.
constinit std::atomic<CLogManager::OutputCallback> gOutputCallback{PrintLine};
constinit std::atomic<CLogManager::StructuredOutputCallback> gStructuredOutputCallback{nullptr};
constinit std::atomic<int> gOutputCallbackType{0};

// The generation that the thread's slot was filled in. Under another one the slot points to a
// context that Cleanup destroyed.
thread_local unsigned int gThreadGeneration = 0;

} // namespace

constinit std::atomic<CLogManager*> CLogManager::msThis{nullptr};
constinit std::atomic<bool> CLogManager::msEnabled{false};
constinit std::atomic<unsigned int> CLogManager::msGeneration{0};
constinit std::array<std::atomic<unsigned char>, 256> CLogManager::msFilter{};
constinit CLogManager::Sequence CLogManager::msSequence;

CLogManager::State::~State() {
    // A process, or a plug-in, that ends while it logs: no thread may outlive its code.
    Cleanup();
}

CLogManager::State& CLogManager::TheState() {
    static State statics;
    return statics;
}

NyLock& CLogManager::AddRemoveContextLock() {
    return TheState().mAddRemoveContextLock;
}

void CLogManager::Initialize() {
    if (IsInitialized()) {
        return;
    }
    State& state = TheState();
    CLogManager& manager = state.mManager;
    manager.mStopCollecting = 0;
    manager.mBufferSize = kDefaultBufferSize;
    msSequence.mLast = 0;
    for (std::atomic<unsigned char>& enabled : msFilter) {
        enabled.store(0, std::memory_order_relaxed);
    }
    msGeneration.fetch_add(1, std::memory_order_relaxed);
    msThis.store(&manager, std::memory_order_release);
    CCat::Initialize();
    state.mCollectionThread.Start();
    GetTLSContext()->SetName("Main");
}

void CLogManager::Cleanup() {
    CLogManager* const manager = Instance();
    if (manager == nullptr) {
        return;
    }
    SetEnable(false);
    State& state = TheState();
    {
        const NyLockGuard guard(state.mAddRemoveContextLock, true);
        manager->mStopCollecting = 1;
    }
    state.mCollectionThread.WaitForExit();
    CCat::Cleanup();
    {
        const NyLockGuard guard(state.mAddRemoveContextLock, true);
        // Taken out first: a context's end does not look for itself among the adopted ones.
        std::vector<CLogContext*> adopted;
        adopted.swap(state.mAdoptedTLSContexts);
        for (CLogContext* const context : adopted) {
            delete context;
        }
        state.mFormatStrings.clear();
        state.mLogContexts.clear();
    }
    {
        const std::lock_guard guard(state.mNameMutex);
        for (std::string& name : state.mCategoryNames) {
            name.clear();
        }
    }
    // Contexts of client code that outlive this log nothing more.
    for (std::atomic<unsigned char>& enabled : msFilter) {
        enabled.store(0, std::memory_order_relaxed);
    }
    state.mTLSLogContext.Set(nullptr);
    msThis.store(nullptr, std::memory_order_release);
}

CLogContext* CLogManager::GetTLSContext() {
    State& state = TheState();
    const unsigned int generation = Generation();
    CLogContext* context = state.mTLSLogContext.Get();
    if (context != nullptr && gThreadGeneration == generation) {
        return context;
    }
    // The handle as a number, whatever its type is.
    const auto handle = std::bit_cast<unsigned long>(NyThread::GetCurrentId());
    const std::string name = "TID " + std::to_string(handle);
    context = new CLogContext(name.c_str(), Instance()->GetBufferSize(), CLogContext::MallocFunc,
                              CLogContext::FreeFunc);
    AdoptTLSContext(context);
    state.mTLSLogContext.Set(context);
    gThreadGeneration = generation;
    return context;
}

void CLogManager::CleanupTLSContext() {
    if (!IsInitialized()) {
        return;
    }
    State& state = TheState();
    CLogContext* const context = state.mTLSLogContext.Get();
    state.mTLSLogContext.Set(nullptr);
    if (context == nullptr) {
        return;
    }
    {
        const NyLockGuard guard(state.mAddRemoveContextLock, true);
        // A Cleanup that came first has destroyed it, also while this thread waited for the lock.
        if (gThreadGeneration != Generation() ||
            std::erase(state.mAdoptedTLSContexts, context) == 0) {
            return;
        }
    }
    delete context;
}

bool CLogManager::RegisterCategoryRange(int first, int last) const {
    // Two ranges, fixed on purpose.
    return first <= last && ((first == 20 && last <= 59) || (first == 60 && last <= 79));
}

void CLogManager::SetCategoryName(unsigned char id, const char* name) {
    State& state = TheState();
    const std::lock_guard guard(state.mNameMutex);
    if (state.mCategoryNames[id].empty()) {
        state.mCategoryNames[id] = name;
    }
}

std::string CLogManager::GetCategoryName(unsigned char id) const {
    State& state = TheState();
    const std::lock_guard guard(state.mNameMutex);
    return state.mCategoryNames[id];
}

void CLogManager::AddContext(CLogContext* context) {
    State& state = TheState();
    const NyLockGuard guard(state.mAddRemoveContextLock, true);
    state.mLogContexts.push_back(context);
}

void CLogManager::RemoveContext(CLogContext* context) {
    State& state = TheState();
    const NyLockGuard guard(state.mAddRemoveContextLock, true);
    std::erase(state.mLogContexts, context);
}

void CLogManager::AdoptTLSContext(CLogContext* context) {
    State& state = TheState();
    const NyLockGuard guard(state.mAddRemoveContextLock, true);
    state.mAdoptedTLSContexts.push_back(context);
}

CLogManager::OutputCallback CLogManager::SetOutputCallback(OutputCallback callback) {
    const OutputCallback previous = gOutputCallback.exchange(callback, std::memory_order_relaxed);
    gOutputCallbackType.store(0, std::memory_order_release);
    return previous;
}

CLogManager::OutputCallback CLogManager::GetOutputCallback() const {
    return gOutputCallback.load(std::memory_order_relaxed);
}

CLogManager::StructuredOutputCallback
CLogManager::SetStructuredOutputCallback(StructuredOutputCallback callback) {
    const StructuredOutputCallback previous =
        gStructuredOutputCallback.exchange(callback, std::memory_order_relaxed);
    gOutputCallbackType.store(1, std::memory_order_release);
    return previous;
}

CLogManager::StructuredOutputCallback CLogManager::GetStructuredOutputCallback() const {
    return gStructuredOutputCallback.load(std::memory_order_relaxed);
}

int CLogManager::GetOutputCallbackType() const {
    return gOutputCallbackType.load(std::memory_order_acquire);
}

short CLogManager::AddFormatString(const char* text) {
    return TheState().AddFormat(CFormatStringEntry{true, text, {}});
}

short CLogManager::AddFormatString(const wchar_t* text) {
    return TheState().AddFormat(CFormatStringEntry{false, {}, text});
}

short CLogManager::State::AddFormat(CFormatStringEntry entry) {
    const NyLockGuard guard(mAddRemoveContextLock, true);
    if (mFormatStrings.size() > static_cast<std::size_t>(std::numeric_limits<short>::max())) {
        return -1;
    }
    mFormatStrings.push_back(std::move(entry));
    return static_cast<short>(mFormatStrings.size() - 1);
}

std::int32_t CLogManager::NextSequence() {
    return OSAtomicAdd32Barrier(1, &msSequence.mLast);
}

} // namespace HSL
