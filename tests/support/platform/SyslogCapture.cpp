#include "tests/support/platform/SyslogCapture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace TestSupport {

namespace {

struct Capture {
    std::mutex mMutex;
    std::vector<SyslogLine> mLines;
};

// Never destroyed: threads may log while the process ends.
Capture& TheCapture() {
    static auto* const capture = new Capture;
    return *capture;
}

void Keep(int priority, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    Capture& capture = TheCapture();
    const std::lock_guard lock(capture.mMutex);
    capture.mLines.push_back({priority, std::move(text)});
}

} // namespace

std::vector<SyslogLine> SyslogLines() {
    Capture& capture = TheCapture();
    const std::lock_guard lock(capture.mMutex);
    return capture.mLines;
}

void ClearSyslogLines() {
    Capture& capture = TheCapture();
    const std::lock_guard lock(capture.mMutex);
    capture.mLines.clear();
}

} // namespace TestSupport

// All the names under which the C library's headers call it, depending on the optimisation.
#define QUORVEL_INTERPOSED extern "C" __attribute__((visibility("default")))

QUORVEL_INTERPOSED void syslog(int priority, const char* format, ...);
QUORVEL_INTERPOSED void vsyslog(int priority, const char* format, va_list arguments);
QUORVEL_INTERPOSED void __syslog_chk(int priority, int flag, const char* format, ...);
QUORVEL_INTERPOSED void __vsyslog_chk(int priority, int flag, const char* format,
                                      va_list arguments);

void vsyslog(int priority, const char* format, va_list arguments) {
    TestSupport::Keep(priority, format, arguments);
}

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    TestSupport::Keep(priority, format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    TestSupport::Keep(priority, format, arguments);
}

void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    TestSupport::Keep(priority, format, arguments);
    va_end(arguments);
}
