#include "platform/support/FileReading.h"

#include "platform/support/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

FileFailure ReadToEnd(int descriptor, std::size_t limit, std::string& bytes) {
    bytes.clear();
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        bytes.reserve(static_cast<std::size_t>(
            std::min<std::uint64_t>(static_cast<std::uint64_t>(status.st_size), limit)));
    }
    for (;;) {
        char block[16384];
        const ssize_t count = read(descriptor, block, sizeof block);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return LastFileFailure("cannot be read");
        }
        if (count == 0) {
            bytes.shrink_to_fit(); // what a pipe brought is in a string that grew
            return {};
        }
        if (static_cast<std::size_t>(count) > limit - bytes.size()) {
            return {EFBIG, "too large"};
        }
        bytes.append(block, static_cast<std::size_t>(count));
    }
}

FileFailure ReadWholeFile(const std::string& path, std::size_t limit, std::string& bytes) {
    // Not blocking, so that a pipe in the file's place does not hold the caller up.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        return LastFileFailure("cannot be opened");
    }
    if (!S_ISREG(status.st_mode)) {
        return {S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "not a regular file"};
    }
    return ReadToEnd(file.Get(), limit, bytes);
}
