// Arbitrary bytes to a port that emulates a Mackie Control.
#include "fuzz/SurfaceStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FeedSurfacePort(MidiServer::Protocol::kMackieControl, {data, size});
    return 0;
}
