// The part of the control-surface application that asks the driver for its virtual sources' IDs, as
// a process of its own: prints the four IDs for each message id that is given as an argument.

#include "tests/support/platform/CFText.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    const auto remote =
        CFOwned(CFMessagePortCreateRemote(nullptr, CFSTR("Quorvel Virtual Source IDs Port")));
    if (!remote) {
        std::fprintf(stderr, "VirtualSourceIDAsker: nobody serves the port\n");
        return 1;
    }
    for (int i = 1; i < argc; i++) {
        CFDataRef reply = nullptr;
        const SInt32 result = CFMessagePortSendRequest(
            remote.Get(), static_cast<SInt32>(std::strtol(argv[i], nullptr, 10)), nullptr, 60, 60,
            kCFRunLoopDefaultMode, &reply);
        const auto held = CFOwned(reply);
        std::array<SInt32, 4> ids;
        if (result != kCFMessagePortSuccess || reply == nullptr ||
            CFDataGetLength(reply) != static_cast<CFIndex>(sizeof ids)) {
            std::fprintf(stderr, "VirtualSourceIDAsker: no answer, result %d\n",
                         static_cast<int>(result));
            return 1;
        }
        std::memcpy(ids.data(), CFDataGetBytePtr(reply), sizeof ids);
        std::printf("%d %d %d %d\n", static_cast<int>(ids[0]), static_cast<int>(ids[1]),
                    static_cast<int>(ids[2]), static_cast<int>(ids[3]));
    }
    return 0;
}
