#include "midiserver/routing/InputThread.h"

#include "hsl/LogContext.h"
#include "hsl/LogManager.h"

#include <utility>

namespace MidiServer {

InputThread::InputThread(WakeUpSignal& signal, RealTimePriority& priority, Pass pass)
    : mSignal(signal), mPriority(priority), mPass(std::move(pass)), mThread([this] { Run(); }) {}

InputThread::~InputThread() {
    mEnding.store(true, std::memory_order_relaxed);
    mSignal.Raise();
    mThread.join();
}

void InputThread::Run() {
    if (HSL::CLogManager::IsInitialized()) {
        HSL::CLogManager::GetTLSContext()->SetName("Input");
    }
    mPriority.Take();
    while (!mEnding.load(std::memory_order_relaxed)) {
        mSignal.WaitUntil(mPass());
    }
}

} // namespace MidiServer
