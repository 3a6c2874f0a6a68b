// Takes the place of syslog in the test program and in all modules that it loads: it keeps the
// lines, which reach no system log. Any thread may call.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

struct SyslogLine {
    int mPriority; // LOG_ERR, ...
    std::string mText;

    friend bool operator==(const SyslogLine&, const SyslogLine&) = default;
};

// Returns the lines since the start of the program or the last clear, oldest first.
std::vector<SyslogLine> SyslogLines();
void ClearSyslogLines();

} // namespace TestSupport
