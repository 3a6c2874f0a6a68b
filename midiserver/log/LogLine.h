#pragma once

#include "hsl/CCat.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace MidiServer {

// A message as the log's structured output hands it over. Valid as long as what it refers to.
struct LogMessage {
    std::string_view text;
    std::string_view context; // the name of the log context, one per thread
    unsigned indent = 0;      // nesting depth
    std::span<const unsigned char> categories;
    unsigned seconds = 0; // since 1970, UTC
    unsigned microseconds = 0;
};

// The most severe level among the categories; none when they hold no level.
std::optional<HSL::tLevel> MostSevereLevel(std::span<const unsigned char> categories);

// The syslog priority of a level: 2 (critical), 3 (error), 4 (warning), 6 (informational) or
// 7 (debug). A message without a level is informational.
int SyslogPriority(std::optional<HSL::tLevel> level);

// Each of these is one line that ends in a newline, whatever the text holds.

// The line as the log formats it, with control characters replaced but for the tab behind its
// header.
std::string PlainLogLine(std::string_view line);

// A JSON object with the members `time` (ISO 8601 in UTC, with microseconds), `level` (null when
// there is none), `categories` (those of the program, by name), `context`, `indent` and `message`.
// Bytes that are no UTF-8 are replaced.
std::string JsonLogLine(const LogMessage& message);

// "<N>Category: text" as the journal takes it from a service's standard error: the journal adds
// the time and the process itself.
std::string JournalLogLine(const LogMessage& message);

} // namespace MidiServer
