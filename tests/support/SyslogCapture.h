// Takes the place of syslog in the test program and in all modules that it loads: lines are kept
// here and reach no system log. Any thread.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

struct SyslogLine {
    int mPriority; // LOG_ERR, ...
    std::string mText;

    friend bool operator==(const SyslogLine&, const SyslogLine&) = default;
};

// The lines since the start of the program or the last clear, oldest first.
std::vector<SyslogLine> SyslogLines();
void ClearSyslogLines();

} // namespace TestSupport
