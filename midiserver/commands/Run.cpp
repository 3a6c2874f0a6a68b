#include "midiserver/commands/Commands.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/PlugInLoader.h"
#include "midiserver/host/StateFolder.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/preferences/PortList.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "midiserver/service/Service.h"

#include <cstdlib>
#include <exception>
#include <optional>
#include <vector>

namespace MidiServer {

namespace {

// The command `midiserver run` serves the driver to the DAWs of the machine until it is ended by a
// signal (see Service.h).
class RunCommand : public Command {
public:
    explicit RunCommand(CLI::App& program)
        : Command(program, "run",
                  "Serve the driver to the DAWs of this machine until SIGTERM or SIGINT") {
        std::vector<std::string> names = Backends::Offered();
        names.insert(names.begin(), kAutoBackend);
        mCommand
            ->add_option("--backend", mBackends,
                         "How DAWs reach the ports, auto by default; may be given several times")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->transform(CLI::IsMember(names, CLI::ignore_case));
        mCommand
            ->add_option(
                "--plugin", mPlugIns,
                "Plug-in bundle to load, the installed one by default; may be given several\n"
                "times, then the backends show the ports of the first")
            ->allow_extra_args(false);
        mCommand->add_option("--prefs", mPreferences, "Folder of the preferences to use");
        mCommand->add_option("--setup", mSetup,
                             "File that keeps the driver's device for the next run, by default\n"
                             "$XDG_STATE_HOME/quorvel-midi/setup.plist");
        mCommand->add_option("--coalesce", mCoalesce,
                             "Ports (\"all\", or \"1,3-5\") on which a fader's, pot ring's or\n"
                             "display's value is left out if a later one comes while it waits");
        // A service's life is to be seen in its log.
        mLog.level = "info";
        AddLogOptions(*mCommand, mLog);
    }

    int Run() override {
        // The environment must be changed while this is the only thread; the log starts another
        // one.
        if (mPreferences) {
            UsePreferencesFolder(*mPreferences);
        }
        Backends::Prepare();
        const Logging logging(mLog);
        try {
            Serve();
        } catch (const std::exception& error) {
            // Plain lines need it no second time: the program ends with the same line.
            if (Logging::IsStructured()) {
                Log(kServiceLog[HSL::kError], "%s", error.what());
            }
            throw;
        }
        return EXIT_SUCCESS;
    }

private:
    void Serve() const {
        ServiceOptions options;
        options.backends =
            ChooseBackends(mBackends.empty() ? std::vector<std::string>{kAutoBackend} : mBackends,
                           Backends::Survey());
        options.plugIns.assign(mPlugIns.begin(), mPlugIns.end());
        if (options.plugIns.empty()) {
            options.plugIns.push_back(PlugInLoader::DefaultBundle());
        }
        const std::filesystem::path folder = StateFolder();
        if (mSetup) {
            options.setup = *mSetup;
        } else if (!folder.empty()) {
            options.setup = folder / "setup.plist";
        } else {
            TellUser(kServiceLog,
                     "neither XDG_STATE_HOME nor HOME names a folder: the device's unique "
                     "IDs are not kept for the next run");
        }
        if (mCoalesce) {
            options.coalescing = ParsePortList(*mCoalesce);
        }
        options.preferencesFolderWasGiven = mPreferences.has_value();
        Service(options).Run();
    }

    std::vector<std::string> mBackends;
    std::vector<std::string> mPlugIns;
    std::optional<std::string> mPreferences;
    std::optional<std::string> mSetup;
    std::optional<std::string> mCoalesce;
    LogOptions mLog;
};

} // namespace

std::unique_ptr<Command> MakeRunCommand(CLI::App& program) {
    return std::make_unique<RunCommand>(program);
}

} // namespace MidiServer
