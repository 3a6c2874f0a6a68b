#include "midiserver/commands/Commands.h"
#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/json/Json.h"
#include "midiserver/preferences/PreferencesEditor.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

namespace MidiServer {

namespace {

// The text that is shown for a value that an entry does not have.
std::string ValueText(const std::optional<std::string>& value) {
    return value ? OneLine(*value) : "-";
}

void PrintText(const PreferencesEditor& preferences, const PortConfiguration& configuration) {
    fmt::print("{}\n", OneLine(preferences.File().string()));
    for (std::size_t i = 0; i < preferences.Entries().size(); ++i) {
        const PreferenceEntry& entry = preferences.Entries()[i];
        fmt::print("  {}. {}: ports {}, protocol {}\n", i + 1, ValueText(entry.name),
                   ValueText(entry.ports), ValueText(entry.protocol));
    }
    if (preferences.Entries().empty()) {
        fmt::print("  no applications\n");
    }
    for (const PreferenceNotice& notice : configuration.notices) {
        fmt::print("note: {}\n", OneLine(notice.text));
    }
    fmt::print("The driver publishes {} ports{}.\n", configuration.publishedPorts,
               configuration.portsFromPreferences ? "" : ", its default");
    for (unsigned first = 0; first < configuration.publishedPorts;) {
        unsigned last = first;
        while (last + 1 < configuration.publishedPorts &&
               configuration.protocols[last + 1] == configuration.protocols[first]) {
            ++last;
        }
        fmt::print("  {}-{}: {}\n", first + 1, last + 1,
                   ProtocolName(configuration.protocols[first]));
        first = last + 1;
    }
}

void PrintJson(const PreferencesEditor& preferences, const PortConfiguration& configuration) {
    Json applications = Json::array();
    for (const PreferenceEntry& entry : preferences.Entries()) {
        applications.push_back({{"name", OrNull(entry.name)},
                                {"ports", OrNull(entry.ports)},
                                {"protocol", OrNull(entry.protocol)}});
    }
    Json ports = Json::array();
    for (unsigned port = 0; port < configuration.publishedPorts; ++port) {
        ports.push_back(
            {{"port", port + 1}, {"protocol", ProtocolJson(configuration.protocols[port])}});
    }
    Json notices = Json::array();
    for (const PreferenceNotice& notice : configuration.notices) {
        notices.push_back(
            {{"entry", notice.entry ? Json(*notice.entry + 1) : nullptr}, {"text", notice.text}});
    }
    const Json document = {{"file", preferences.File().string()},
                           {"applications", std::move(applications)},
                           {"driver",
                            {{"portCount", configuration.publishedPorts},
                             {"portCountFromPreferences", configuration.portsFromPreferences},
                             {"ports", std::move(ports)}}},
                           {"notices", std::move(notices)}};
    fmt::print("{}", JsonText(document));
}

// The command `midiserver prefs show|set|clear` shows and changes that part of the control-surface
// system's preferences that the driver reads.
class PrefsCommand : public Command {
public:
    explicit PrefsCommand(CLI::App& program)
        : Command(program, "prefs", "Show and change the control-surface system's preferences"),
          mShow(mCommand->add_subcommand("show",
                                         "Show the applications and what the driver makes of "
                                         "them")),
          mSet(mCommand->add_subcommand("set", "Set an application's ports and protocol")),
          mClear(mCommand->add_subcommand("clear", "Remove an application, or all of them")) {
        mCommand->require_subcommand(1);
        for (CLI::App* command : {mShow, mSet, mClear}) {
            command->add_option("--prefs", mFolder, "Folder of the preferences");
        }
        mShow->add_flag("--json", mJson, "Print one JSON document");
        mSet->add_option("APP", mApplication, "Name of the application")->required();
        mSet->add_option(
            "--ports", mPorts,
            "First and last port: 1-4, 5-8, ... 29-32. Any other range gives its ports\n"
            "the protocol and does not count for the number of ports");
        mSet->add_option("--protocol", mProtocol, "HUI or MackieControl");
        mSet->add_flag("--force", mForce, "Write a protocol that the driver does not know");
        mClear->add_option("APP", mApplication, "Name of the application; without it, all");
    }

    int Run() override {
        if (mFolder) {
            UsePreferencesFolder(*mFolder);
        }
        if (mShow->parsed()) {
            Show();
        } else if (mSet->parsed()) {
            Set();
        } else {
            Clear();
        }
        return EXIT_SUCCESS;
    }

private:
    void Show() const {
        PreferencesEditor preferences;
        preferences.Load();
        if (mFolder && !std::filesystem::is_directory(*mFolder)) {
            throw InputError(fmt::format("{}: there is no such folder", *mFolder));
        }
        const PortConfiguration configuration = preferences.Configuration();
        if (mJson) {
            PrintJson(preferences, configuration);
        } else {
            PrintText(preferences, configuration);
        }
    }

    void Set() const {
        if (mApplication.empty()) {
            throw InputError("the application needs a name");
        }
        RequirePlainText("the application's name", mApplication);
        if (!mPorts && !mProtocol) {
            throw InputError("nothing to set: give --ports, --protocol or both");
        }
        for (const std::string& warning : CheckPreferenceValues(mPorts, mProtocol, mForce)) {
            ErrorOutput::Write(fmt::format("midiserver: warning: {}\n", OneLine(warning)));
        }
        PreferencesEditor::Set(mApplication, mPorts, mProtocol);
    }

    void Clear() const {
        if (mClear->count("APP") == 0) {
            PreferencesEditor::ClearAll();
        } else if (!PreferencesEditor::Clear(mApplication)) {
            throw InputError(fmt::format("{}: there is no application \"{}\"",
                                         PreferencesEditor::File().string(), mApplication));
        }
    }

    CLI::App* mShow;
    CLI::App* mSet;
    CLI::App* mClear;
    std::optional<std::string> mFolder;
    bool mJson = false;
    std::string mApplication;
    std::optional<std::string> mPorts;
    std::optional<std::string> mProtocol;
    bool mForce = false;
};

} // namespace

std::unique_ptr<Command> MakePrefsCommand(CLI::App& program) {
    return std::make_unique<PrefsCommand>(program);
}

} // namespace MidiServer
