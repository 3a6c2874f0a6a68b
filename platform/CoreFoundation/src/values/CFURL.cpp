#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFURL.h>

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace {

std::optional<std::string> WorkingDirectory() {
    std::string path(256, '\0');
    while (getcwd(path.data(), path.size()) == nullptr) {
        if (errno != ERANGE) {
            return std::nullopt;
        }
        path.resize(path.size() * 2);
    }
    path.resize(std::strlen(path.c_str()));
    return path;
}

// Without repeated slashes and slashes at the end.
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

bool StandsForItselfInURLs(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::strchr("/-._~!$&'()*+,=:@", c) != nullptr);
}

std::string URLText(std::string_view path, bool isDirectory) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text = "file://";
    for (const char c : path) {
        if (StandsForItselfInURLs(c)) {
            text += c;
        } else {
            text += '%';
            text += kDigits[static_cast<UInt8>(c) >> 4U];
            text += kDigits[static_cast<UInt8>(c) & 0x0FU];
        }
    }
    if (isDirectory && text.back() != '/') {
        text += '/';
    }
    return text;
}

} // namespace

struct __CFURL final : CFRuntimeObject {
    __CFURL(std::string path, bool isDirectory)
        : CFRuntimeObject(kCFRuntimeURLType),
          mPath(std::move(path)),
          mIsDirectory(isDirectory),
          mString(new __CFString(UTF16FromASCII(URLText(mPath, mIsDirectory)))) {}

    bool Equals(const CFRuntimeObject& other) const override {
        const auto& url = static_cast<const __CFURL&>(other);
        return mPath == url.mPath && mIsDirectory == url.mIsDirectory;
    }
    CFHashCode Hash() const override { return mString->Hash(); }
    std::u16string Description(unsigned /*depth*/) const override { return mString->Text(); }

    // The part after the last slash.
    std::string_view LastPart() const {
        const std::string_view path = mPath;
        return path.size() == 1 ? path : path.substr(path.rfind('/') + 1);
    }

    const std::string mPath; // absolute
    const bool mIsDirectory;
    const CFOwned<CFStringRef> mString;
};

namespace {

CFURLRef MakeURL(CFAllocatorRef allocator, std::string_view path, bool isDirectory) {
    if (path.empty() || path.find('\0') != std::string_view::npos) {
        return nullptr;
    }
    return CFRuntimeGuard<CFURLRef>(nullptr, [&]() -> CFURLRef {
        std::string whole;
        if (path.front() != '/') {
            const std::optional<std::string> directory = WorkingDirectory();
            if (!directory) {
                return nullptr;
            }
            whole = *directory + "/";
        }
        whole += path;
        return CFRuntimeCreate<__CFURL>(allocator, Tidied(whole), isDirectory);
    });
}

CFStringRef MakeText(std::string_view bytes) {
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                   static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8,
                                   false);
}

} // namespace

CFTypeID CFURLGetTypeID(void) {
    return kCFRuntimeURLType;
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* buffer,
                                                 CFIndex bufLen, Boolean isDirectory) {
    if (buffer == nullptr || bufLen < 0) {
        return nullptr;
    }
    return MakeURL(allocator,
                   {reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(bufLen)},
                   isDirectory != 0);
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory) {
    return CFRuntimeGuard<CFURLRef>(nullptr, [&]() -> CFURLRef {
        const std::optional<std::string> path = UTF8OfString(filePath);
        return pathStyle != kCFURLPOSIXPathStyle || !path
                   ? nullptr
                   : MakeURL(allocator, *path, isDirectory != 0);
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

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle) {
    const auto* object = CFRuntimeArgument<__CFURL>(anURL, "anURL");
    return object == nullptr || pathStyle != kCFURLPOSIXPathStyle ? nullptr
                                                                  : MakeText(object->mPath);
}

CFStringRef CFURLGetString(CFURLRef anURL) {
    const auto* object = CFRuntimeArgument<__CFURL>(anURL, "anURL");
    return object == nullptr ? nullptr : object->mString.Get();
}

Boolean CFURLHasDirectoryPath(CFURLRef anURL) {
    const auto* object = CFRuntimeArgument<__CFURL>(anURL, "anURL");
    return object != nullptr && object->mIsDirectory;
}

CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                               CFStringRef pathComponent, Boolean isDirectory) {
    return CFRuntimeGuard<CFURLRef>(nullptr, [&]() -> CFURLRef {
        const auto* object = CFRuntimeArgument<__CFURL>(url, "url");
        const std::optional<std::string> part = UTF8OfString(pathComponent);
        return object == nullptr || !part
                   ? nullptr
                   : MakeURL(allocator, object->mPath + "/" + *part, isDirectory != 0);
    });
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url) {
    const auto* object = CFRuntimeArgument<__CFURL>(url, "url");
    if (object == nullptr) {
        return nullptr;
    }
    const std::size_t slash = object->mPath.rfind('/');
    return MakeURL(allocator, std::string_view(object->mPath).substr(0, slash == 0 ? 1 : slash),
                   true);
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    const auto* object = CFRuntimeArgument<__CFURL>(url, "url");
    return object == nullptr ? nullptr : MakeText(object->LastPart());
}

CFStringRef CFURLCopyPathExtension(CFURLRef url) {
    const auto* object = CFRuntimeArgument<__CFURL>(url, "url");
    if (object == nullptr) {
        return nullptr;
    }
    const std::string_view part = object->LastPart();
    const std::size_t dot = part.rfind('.');
    return dot == std::string_view::npos || dot == 0 || dot + 1 == part.size()
               ? nullptr
               : MakeText(part.substr(dot + 1));
}
