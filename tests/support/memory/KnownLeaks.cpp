// What the driver leaves unfreed on purpose, by the functions that allocate it, for the leak
// sanitizer: the worker's packet buffer, which its loop lets go when it ends; the factory's own
// reference to its UUID; protocol strings of a port that a later application claims as well.

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:AllocatePacketBuffer\n"
           "leak:CFUUIDCreateFromString\n"
           "leak:CopyEmulatedProtocols\n";
}
