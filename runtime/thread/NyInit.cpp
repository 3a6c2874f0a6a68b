#include "runtime/thread/NyInit.h"

#include "runtime/socket/NySocket.h"
#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/NyWorkQueue.h"

void NyInit() {
    NyThread::Initialize();
    NyWorkQueue::Initialize();
    NySocket::Initialize();
}

void NyCleanup() {
    NySocket::Cleanup();
}
