#pragma once

#include "hsl/CCat.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace MidiServer {

// A message as the log's structured output hands it over. It refers to text and categories of
// others, and is valid as long as these are.
struct LogMessage {
    std::string_view text;
    std::string_view context; // the name of the log context, one per thread
    unsigned indent = 0;      // nesting depth
    std::span<const unsigned char> categories;
    unsigned seconds = 0; // since 1970, UTC
    unsigned microseconds = 0;
};

// Returns the most severe level among the categories, or nothing if no category is a level.
std::optional<HSL::tLevel> MostSevereLevel(std::span<const unsigned char> categories);

// Returns the syslog priority of a level: 2 (critical), 3 (error), 4 (warning), 6 (informational)
// or 7 (debug). A message without a level is informational.
int SyslogPriority(std::optional<HSL::tLevel> level);

// Each of the following functions returns one line that ends in a newline, whatever the text holds.

// Returns a line that the log has formatted with its control characters replaced, except for the
// tab behind its header.
std::string PlainLogLine(std::string_view line);

// Returns a JSON object with the members `time` (ISO 8601 in UTC, with microseconds), `level` (null
// if there is none), `categories` (those of the program, by name), `context`, `indent` and
// `message`. Bytes that are not UTF-8 are replaced.
std::string JsonLogLine(const LogMessage& message);

// Returns "<N>Category: text", where N is the syslog priority. The journal takes this form from a
// service's standard error, and adds the time and the process itself.
std::string JournalLogLine(const LogMessage& message);

} // namespace MidiServer
