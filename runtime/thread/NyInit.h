// Start-up and clean-up of the runtime as a whole:
//
//     NyInit(); // first of all, on the main thread
//     ...
//     NyCleanup();
#pragma once

// Records the calling thread as the main thread, prepares the work queue and starts the sockets. To
// be called on the main thread before any NyThread starts. It may be called again; each call
// appends to NyThread::mAtStartFunctions again. Does not block. Throws std::bad_alloc and reports
// nothing else.
void NyInit();

// Takes the sockets down; nothing else of the runtime needs it.
void NyCleanup();
