// Arbitrary bytes to a port that emulates a HUI.
#include "fuzz/SurfaceStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FeedSurfacePort(MidiServer::Protocol::kHui, {data, size});
    return 0;
}
