// Start-up and clean-up of the runtime as a whole.
#pragma once

// Records the calling thread as the main thread and starts the work queue's registry and the
// sockets. Called on the main thread before any NyThread starts; may be called again, which appends
// to NyThread::mAtStartFunctions again. Does not block. Throws std::bad_alloc; reports nothing
// else.
void NyInit();

// Takes the sockets down; nothing else needs it.
void NyCleanup();
