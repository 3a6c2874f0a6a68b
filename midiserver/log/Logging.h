#pragma once

#include "hsl/CategoryHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace MidiServer {

// What the user wants the log to show, by the names of the command line.
struct LogOptions {
    // Messages of this level and of those above it are logged; with "none", no level is logged.
    std::string level = "warning";
    // Every message of these categories is logged, whatever its level.
    std::vector<std::string> categories;
    // "plain", "json" or "journal". If it is empty, the format is "journal" where standard error
    // goes to the journal, and "plain" elsewhere.
    std::string format;
};

// Adds the options --log-level, --log-category and --log-format to a command. `options` must
// outlive the parser.
void AddLogOptions(CLI::App& command, LogOptions& options);

// While a Logging exists, the program's log goes to standard error. All that was logged before the
// destructor is called is written when it returns.
//
//     const Logging logging(options);
//     Log(kHostLog[HSL::kInfo], "driver started with %u ports", ports);
//
// A process has one at a time. One thread makes and destroys it, after NyInit; no other thread may
// log during the destruction.
class Logging {
public:
    // Throws InputError if an option holds an unknown name.
    explicit Logging(const LogOptions& options);
    ~Logging();
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;

    // Whether programs read the log lines (JSON or the journal). Lines for people should then be
    // log messages too. Any thread may call; returns false while there is no log.
    static bool IsStructured();

private:
    HSL::CLogManager::OutputCallback mPreviousCallback;
};

// Logs a message through the calling thread's log context. Does nothing while there is no log. A
// format with arguments must not contain "%%", see HSL::CLogContext::Log.
template <typename... Values>
void Log(const HSL::CCat& categories, const char* format, const Values&... values) {
    // Without a log nothing passes, and then there is no context to ask for either.
    if (HSL::CLogManager::PassesFilter(categories.Count(), categories.IDs())) {
        HSL::CLogManager::GetTLSContext()->Log(categories, format, values...);
    }
}

// Tells the user something that is not a failure: as a line on standard error or, where programs
// read the log, as a warning in it.
void TellUser(const HSL::CCategoryHolder& category, const std::string& text);

} // namespace MidiServer
