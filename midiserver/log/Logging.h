#pragma once

#include "hsl/CategoryHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace MidiServer {

// What the user wants of the log, by the names of the command line.
struct LogOptions {
    // This level and those above it are logged; "none" logs no level.
    std::string level = "warning";
    // Of these categories every message is logged, whatever its level.
    std::vector<std::string> categories;
    // "plain", "json" or "journal"; empty: "journal" where standard error goes to the journal,
    // else "plain".
    std::string format;
};

// Adds --log-level, --log-category and --log-format; `options` must outlive the parser.
void AddLogOptions(CLI::App& command, LogOptions& options);

// Logs to standard error while it lives; what was logged before it goes is written by then.
//
// One at a time, made and destroyed by one thread after NyInit; no other thread may log while it
// goes.
class Logging {
public:
    // Throws InputError for a name that is none.
    explicit Logging(const LogOptions& options);
    ~Logging();
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;

    // Whether log lines are for programs (JSON or the journal), so that lines for people had better
    // be log messages too. Any thread; false when there is no log.
    static bool IsStructured();

private:
    HSL::CLogManager::OutputCallback mPreviousCallback;
};

// Logs a message through the calling thread's context; does nothing while there is no log. A format
// with arguments must hold no "%%", see HSL::CLogContext::Log.
template <typename... Values>
void Log(const HSL::CCat& categories, const char* format, const Values&... values) {
    // Without a log nothing passes, and then there is no context to ask for either.
    if (HSL::CLogManager::PassesFilter(categories.Count(), categories.IDs())) {
        HSL::CLogManager::GetTLSContext()->Log(categories, format, values...);
    }
}

// Tells the user something that is no failure, as a line on standard error, or as a warning where
// the log is structured.
void Tell(const HSL::CCategoryHolder& category, const std::string& text);

} // namespace MidiServer
