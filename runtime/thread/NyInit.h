// Start-up and clean-up of the runtime as a whole.
#pragma once

// Records the calling thread as the main thread and starts the work queue's registry and the
// sockets. Called on the main thread before any NyThread starts; may be called again. Does not
// block; reports nothing.
void NyInit();

// Takes the sockets down; nothing else needs it.
void NyCleanup();
