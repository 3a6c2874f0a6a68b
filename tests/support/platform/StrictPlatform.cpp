// Sets CoreFoundation's strict mode for the whole program, and for the programs that it starts:
// what the original platform would crash on ends the test. Linked as an object, since nothing
// refers to it by name.
#include <cstdlib>

namespace {

[[maybe_unused]] const int kStrict = setenv("QUORVEL_CF_STRICT", "1", 1);

} // namespace
