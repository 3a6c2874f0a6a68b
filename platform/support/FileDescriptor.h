// A FileDescriptor owns a file descriptor and closes it in its destructor.
//
//     const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
//     if (file) {
//         read(file.Get(), buffer, sizeof buffer);
//     }
#pragma once

#include <unistd.h>

#include <utility>

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : mDescriptor(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            Reset();
            mDescriptor = other.Release();
        }
        return *this;
    }
    ~FileDescriptor() { Reset(); }

    int Get() const { return mDescriptor; }
    explicit operator bool() const { return mDescriptor >= 0; }
    int Release() { return std::exchange(mDescriptor, -1); }
    void Reset() {
        if (mDescriptor >= 0) {
            close(Release());
        }
    }

private:
    int mDescriptor = -1;
};
