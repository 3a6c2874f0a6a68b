#include "midiserver/log/LogLine.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/log/LogCategories.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <ctime>
#include <vector>

namespace MidiServer {

namespace {

bool IsLevel(unsigned char id) {
    return id <= HSL::kCatastrophy;
}

std::string CategoryName(unsigned char id) {
    for (const HSL::CCategoryHolder* category : kLogCategories) {
        if (category->ID() == id) {
            return category->Name();
        }
    }
    return std::to_string(id);
}

std::vector<std::string> CategoryNames(std::span<const unsigned char> categories) {
    std::vector<std::string> names;
    for (const unsigned char id : categories) {
        if (!IsLevel(id)) {
            names.push_back(CategoryName(id));
        }
    }
    return names;
}

} // namespace

std::optional<HSL::tLevel> MostSevereLevel(std::span<const unsigned char> categories) {
    std::optional<HSL::tLevel> level;
    for (const unsigned char id : categories) {
        if (IsLevel(id) && (!level || id > *level)) {
            level = static_cast<HSL::tLevel>(id);
        }
    }
    return level;
}

int SyslogPriority(std::optional<HSL::tLevel> level) {
    // From ultra-verbose, verbose and chatty to catastrophy.
    constexpr std::array kPriorities = {7, 7, 7, 6, 4, 3, 2};
    static_assert(kPriorities.size() == kLogLevelNames.size());
    return kPriorities.at(level.value_or(HSL::kInfo));
}

std::string PlainLogLine(std::string_view line) {
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    // The tab separates the log's own header from the text.
    const std::size_t tab = std::min(line.find('\t'), line.size());
    std::string result = OneLine(std::string(line.substr(0, tab)));
    if (tab < line.size()) {
        result += '\t';
        result += OneLine(std::string(line.substr(tab + 1)));
    }
    return result + '\n';
}

std::string JsonLogLine(const LogMessage& message) {
    const std::optional<HSL::tLevel> level = MostSevereLevel(message.categories);
    const std::time_t seconds = message.seconds;
    const nlohmann::ordered_json line = {
        {"time",
         fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:06}Z", fmt::gmtime(seconds), message.microseconds)},
        {"level", level ? nlohmann::ordered_json(kLogLevelNames[*level]) : nullptr},
        {"categories", CategoryNames(message.categories)},
        {"context", message.context},
        {"indent", message.indent},
        {"message", message.text}};
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

std::string JournalLogLine(const LogMessage& message) {
    const std::vector<std::string> names = CategoryNames(message.categories);
    return fmt::format("<{}>{}{}{}\n", SyslogPriority(MostSevereLevel(message.categories)),
                       fmt::join(names, ","), names.empty() ? "" : ": ",
                       OneLine(std::string(message.text)));
}

} // namespace MidiServer
