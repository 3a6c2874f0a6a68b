#include "midiserver/log/Logging.h"

#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/LogLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>

namespace MidiServer {

namespace {

constexpr const char* kNoLevel = "none";
constexpr const char* kPlain = "plain";
constexpr const char* kJson = "json";
constexpr const char* kJournal = "journal";

// Relaxed suffices, because it is set before the threads that read it start.
constinit std::atomic<bool> sStructured = false;

void WritePlain(const char* line) {
    ErrorOutput::Write(PlainLogLine(line));
}

template <std::string (*Line)(const LogMessage&)>
void WriteStructured(const char* message, const std::string& contextName, unsigned char indent,
                     unsigned char categoryCount, const unsigned char* categoryIDs,
                     unsigned int seconds, unsigned int microseconds) {
    ErrorOutput::Write(
        Line({message, contextName, indent, {categoryIDs, categoryCount}, seconds, microseconds}));
}

// The service manager sets the variable for what it connects to the journal.
bool GoesToTheJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    return stream != nullptr && *stream != '\0' && ::isatty(STDERR_FILENO) == 0;
}

std::vector<std::string> LevelNames() {
    std::vector<std::string> names(kLogLevelNames.begin(), kLogLevelNames.end());
    names.emplace_back(kNoLevel);
    return names;
}

std::vector<std::string> CategoryNames() {
    std::vector<std::string> names;
    names.reserve(kLogCategories.size());
    for (const HSL::CCategoryHolder* category : kLogCategories) {
        names.emplace_back(category->Name());
    }
    return names;
}

[[noreturn]] void Refuse(const char* what, const std::string& name) {
    throw InputError(fmt::format("{} is no {} of the log", name, what));
}

// Returns the lowest level to log, or the highest level plus one if none is to be logged.
std::size_t LowestLevel(const std::string& name) {
    const auto at = std::find(kLogLevelNames.begin(), kLogLevelNames.end(), name);
    if (at == kLogLevelNames.end() && name != kNoLevel) {
        Refuse("level", name);
    }
    return static_cast<std::size_t>(at - kLogLevelNames.begin());
}

unsigned char CategoryID(const std::string& name) {
    for (const HSL::CCategoryHolder* category : kLogCategories) {
        if (category->Name() == name) {
            return category->ID();
        }
    }
    Refuse("category", name);
}

} // namespace

void AddLogOptions(CLI::App& command, LogOptions& options) {
    command.add_option("--log-level", options.level, "Log this level and what is more severe")
        ->capture_default_str()
        ->transform(CLI::IsMember(LevelNames(), CLI::ignore_case));
    // Each option takes one name, since the next argument is the file.
    command
        .add_option("--log-category", options.categories,
                    "Log all of this category too, whatever its level")
        ->allow_extra_args(false)
        ->delimiter(',')
        ->transform(CLI::IsMember(CategoryNames(), CLI::ignore_case));
    command
        .add_option("--log-format", options.format,
                    "Form of the log's lines; journal is the default for a service of systemd")
        ->transform(CLI::IsMember({kPlain, kJson, kJournal}, CLI::ignore_case));
}

Logging::Logging(const LogOptions& options) {
    const std::size_t lowest = LowestLevel(options.level);
    std::vector<unsigned char> categories;
    for (const std::string& name : options.categories) {
        categories.push_back(CategoryID(name));
    }
    const std::string format =
        !options.format.empty() ? options.format : (GoesToTheJournal() ? kJournal : kPlain);
    if (format != kPlain && format != kJson && format != kJournal) {
        Refuse("format", format);
    }

    HSL::CLogManager::Initialize();
    HSL::CLogManager& manager = *HSL::CLogManager::Instance();
    mPreviousCallback = manager.SetOutputCallback(WritePlain);
    if (format == kJson) {
        manager.SetStructuredOutputCallback(WriteStructured<JsonLogLine>);
    } else if (format == kJournal) {
        manager.SetStructuredOutputCallback(WriteStructured<JournalLogLine>);
    }
    sStructured.store(format != kPlain, std::memory_order_relaxed);
    for (const HSL::CCategoryHolder* category : kLogCategories) {
        category->Register();
    }
    for (std::size_t level = lowest; level < kLogLevelNames.size(); ++level) {
        manager.SetFilterValue(static_cast<unsigned char>(level), true);
    }
    for (const unsigned char category : categories) {
        manager.SetFilterValue(category, true);
    }
}

Logging::~Logging() {
    HSL::CLogManager* const manager = HSL::CLogManager::Instance();
    HSL::CLogManager::Cleanup();
    // Whoever logs next starts with what there was before.
    manager->SetOutputCallback(mPreviousCallback);
    sStructured.store(false, std::memory_order_relaxed);
}

bool Logging::IsStructured() {
    return sStructured.load(std::memory_order_relaxed);
}

void TellUser(const HSL::CCategoryHolder& category, const std::string& text) {
    if (Logging::IsStructured()) {
        Log(category[HSL::kWarning], "%s", text);
    } else {
        ErrorOutput::Write(fmt::format("midiserver: {}\n", OneLine(text)));
    }
}

} // namespace MidiServer
