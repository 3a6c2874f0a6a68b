// JACK's library keeps the ports' descriptions in a database, whose own locks it takes in an order
// that changes. No lock of this program is among them.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();

const char* __tsan_default_suppressions() {
    return "deadlock:libdb-\n";
}
