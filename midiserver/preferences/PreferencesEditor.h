#pragma once

#include "midiserver/preferences/PortConfiguration.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// Makes the folder the one that this process, with the driver in it, has its preferences in.
void UsePreferencesFolder(const std::filesystem::path& folder);

// The preferences of the control-surface system, as the driver's process reads them: shows them,
// and changes an application's ports and protocol.
//
// The file is read and written by CoreFoundation, so that host and driver cannot see different
// things in it; beside that this says why a file or an entry is not used. Every change loads,
// changes and saves the file while no other program can, and leaves every key, type and application
// as it was that it is not about. Not synchronised.
class PreferencesEditor {
public:
    // The file that the driver reads: in QUORVEL_PREFERENCES_DIR or the system's folder.
    static std::filesystem::path File();

    // Reads the file. Never fails: a file that is not there or cannot be read, or whose list of
    // applications has another type than an array, has no entries, and Problem() says why in one
    // line.
    void Load();
    const std::optional<std::string>& Problem() const { return mProblem; }
    bool FileIsMissing() const { return mFileIsMissing; }

    const std::vector<PreferenceEntry>& Entries() const { return mEntries; }
    // What the driver makes of the entries, with Problem() among the notices.
    PortConfiguration Configuration() const;

    // The changes. They throw InputError that names the file when it cannot be written or is no
    // property list, so that nothing is overwritten that may still be of use; the file is then as
    // it was. A missing file and its folder are made when there is something to be written.

    // Sets what is given for the application of this name, the last one when there are several,
    // since that is the one that counts; adds it when there is none. Throws when the list of
    // applications has another type than an array, too.
    static void Set(const std::string& application, const std::optional<std::string>& ports,
                    const std::optional<std::string>& protocol);
    // Removes every application of this name; false when there is none. Throws as Set does.
    static bool Clear(const std::string& application);
    // Removes the list of applications, whatever it is.
    static void ClearAll();

private:
    bool mFileIsMissing = false;
    std::optional<std::string> mProblem;
    std::vector<PreferenceEntry> mEntries;
};

// Throws InputError unless the text is UTF-8 without control characters; `what` names it.
void RequirePlainText(const std::string& what, const std::string& text);

// Checks what `prefs set` is given. Throws InputError for what is not plain text, for ports that
// the driver takes nothing from and, unless `force` is set, for a protocol that it does not know.
// Returns warnings, one line each.
std::vector<std::string> CheckPreferenceValues(const std::optional<std::string>& ports,
                                               const std::optional<std::string>& protocol,
                                               bool force);

} // namespace MidiServer
