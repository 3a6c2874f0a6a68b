#include "midiserver/preferences/ReadPortConfiguration.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/preferences/PreferencesEditor.h"

#include <fmt/format.h>

namespace MidiServer {

PortConfiguration ReadPortConfiguration(bool folderWasGiven) {
    PreferencesEditor preferences;
    preferences.Load();
    if (folderWasGiven && preferences.FileIsMissing()) {
        throw InputError(
            fmt::format("{}; --prefs names the folder of that file", *preferences.Problem()));
    }
    PortConfiguration configuration = preferences.Configuration();
    for (const PreferenceNotice& notice : configuration.notices) {
        TellUser(kPreferencesLog, fmt::format("preferences: {}", notice.text));
    }
    if (!configuration.portsFromPreferences) {
        TellUser(kPreferencesLog,
                 fmt::format("preferences: {} gives no number of ports, the driver publishes {}",
                             preferences.File().string(), configuration.publishedPorts));
    }
    Log(kPreferencesLog[HSL::kInfo], "read %s; applications: %u, ports: %u",
        preferences.File().string(), preferences.Entries().size(), configuration.publishedPorts);
    return configuration;
}

} // namespace MidiServer
