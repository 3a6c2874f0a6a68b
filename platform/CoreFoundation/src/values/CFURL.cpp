#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <CoreFoundation/CFURL.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

namespace {

// Returns the working directory, or an empty string if it cannot be told.
std::string WorkingDirectory() {
    std::string path(256, '\0');
    while (getcwd(path.data(), path.size()) == nullptr) {
        if (errno != ERANGE) {
            return {};
        }
        path.resize(path.size() * 2);
    }
    path.resize(std::strlen(path.c_str()));
    return path;
}

// Leaves out repeated slashes and slashes at the end.
std::string Tidied(std::string_view path) {
    std::string result;
    for (const char c : path) {
        if (c != '/' || result.empty() || result.back() != '/') {
            result += c;
        }
    }
    if (result.size() > 1 && result.back() == '/') {
        result.pop_back();
    }
    return result;
}

} // namespace

struct __CFURL final : CFRuntimeObject {
    explicit __CFURL(std::string path)
        : CFRuntimeObject(kCFRuntimeURLType), mPath(std::move(path)) {}

    bool Equals(const CFRuntimeObject& other) const override {
        return mPath == static_cast<const __CFURL&>(other).mPath;
    }
    CFHashCode Hash() const override { return CFRuntimeHash(mPath); }
    std::u16string Description(unsigned /*depth*/) const override {
        return u"file://" + UTF16FromCString(mPath);
    }

    const std::string mPath; // absolute
};

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean /*isDirectory*/) {
    if (buffer == nullptr || bufLen <= 0 ||
        std::memchr(buffer, '\0', static_cast<std::size_t>(bufLen)) != nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFURLRef>(nullptr, [&]() -> CFURLRef {
        std::string path(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(bufLen));
        if (path.front() != '/') {
            const std::string directory = WorkingDirectory();
            if (directory.empty()) {
                return nullptr;
            }
            path.insert(0, directory + "/");
        }
        return CFRuntimeCreate<__CFURL>(allocator, Tidied(path));
    });
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean /*resolveAgainstBase*/,
                                         UInt8* buffer, CFIndex maxBufLen) {
    const auto* object = CFRuntimeArgument<__CFURL>(url, "url");
    if (object == nullptr || buffer == nullptr || maxBufLen <= 0 ||
        object->mPath.size() >= static_cast<std::size_t>(maxBufLen)) {
        return false;
    }
    std::memcpy(buffer, object->mPath.c_str(), object->mPath.size() + 1);
    return true;
}
