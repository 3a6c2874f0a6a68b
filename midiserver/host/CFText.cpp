#include "midiserver/host/CFText.h"

#include <new>
#include <vector>

namespace MidiServer {

CFOwned<CFStringRef> MakeCFString(const std::string& text) {
    CFOwned<CFStringRef> string(
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
    if (!string) {
        throw std::bad_alloc();
    }
    return string;
}

std::string TextOf(CFStringRef string) {
    if (string == nullptr) {
        return {};
    }
    // A UTF-16 unit becomes at most three bytes of UTF-8.
    std::vector<char> buffer(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1);
    if (CFStringGetCString(string, buffer.data(), static_cast<CFIndex>(buffer.size()),
                           kCFStringEncodingUTF8) == 0) {
        return {};
    }
    return buffer.data();
}

} // namespace MidiServer
