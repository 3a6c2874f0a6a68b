// Tells the leak detector of the one block that the output worker leaves unfreed on purpose: the
// packet buffer that its thread lets go when it ends. A source of the test program, not a library:
// the detector looks the function up weakly.

extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

const char* __lsan_default_suppressions() {
    return "leak:AllocatePacketBuffer\n";
}
