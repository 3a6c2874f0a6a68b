#include "midiserver/host/AddressSpace.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <sys/mman.h>
#include <sys/resource.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace MidiServer {

namespace {

// The space is tried in pieces, since the driver's buffers do not need to lie next to each other.
constexpr std::size_t kPiece = std::size_t{16} << 20;
// The size of the driver's buffers, each in whole pages. The threads' stacks and heaps come on top;
// they take much where there is much.
constexpr std::uint64_t kBuffers = 2'760'000'000;
constexpr std::uint64_t kRest = sizeof(void*) > 4 ? 540'000'000 : 80'000'000;
constexpr std::size_t kPieces = (kBuffers + kRest) / kPiece;

bool IsThere() {
    std::array<void*, kPieces> pieces{};
    std::size_t count = 0;
    while (count < kPieces) {
        // Writable, so that it counts as the driver's buffers will where memory is not
        // overcommitted.
        void* const piece =
            ::mmap(nullptr, kPiece, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (piece == MAP_FAILED) {
            break;
        }
        pieces[count++] = piece;
    }
    for (std::size_t i = 0; i < count; ++i) {
        ::munmap(pieces[i], kPiece);
    }
    return count == kPieces;
}

} // namespace

void RequireAddressSpace() {
    if (IsThere()) {
        return;
    }
    struct rlimit limit {};
    const bool limited = ::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    throw HostError(fmt::format(
        "out of address space: the driver reserves about 2.7 GB of it and touches 60 MB, and "
        "{:.1f} "
        "GB are needed in all; {}",
        static_cast<double>(kBuffers + kRest) / 1e9,
        limited ? fmt::format("raise the limit, which is {} MB (ulimit -v unlimited; for a "
                              "service LimitAS=infinity)",
                              limit.rlim_cur / 1'000'000)
                : std::string("let the system overcommit memory (vm.overcommit_memory=0), and run "
                              "a 64-bit program where that is possible")));
}

} // namespace MidiServer
