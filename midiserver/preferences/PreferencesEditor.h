#pragma once

#include "midiserver/preferences/PortConfiguration.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// Makes this process, with the driver in it, keep its preferences in the folder.
void UsePreferencesFolder(const std::filesystem::path& folder);

// An editor shows the preferences of the control-surface system as the driver's process reads them,
// and changes the ports and the protocol of an application.
//
//     PreferencesEditor::Set("Mixer", "1-4", "HUI");
//     PreferencesEditor editor;
//     editor.Load();
//     editor.Configuration().publishedPorts; // 4
//
// CoreFoundation reads and writes the file, so that host and driver cannot see different things in
// it; the editor adds the reasons why a file or an entry is not used. Every change loads, changes
// and saves the file while it keeps other programs from doing so, and leaves all other keys, types
// and applications as they were. Not synchronised.
class PreferencesEditor {
public:
    // Returns the path of the file that the driver reads, in QUORVEL_PREFERENCES_DIR or the
    // system's folder.
    static std::filesystem::path File();

    // Reads the file. Never fails: if the file is missing or unreadable, or its list of
    // applications is not an array, there are no entries, and Problem() says why in one line.
    void Load();
    const std::optional<std::string>& Problem() const { return mProblem; }
    bool FileIsMissing() const { return mFileIsMissing; }

    const std::vector<PreferenceEntry>& Entries() const { return mEntries; }
    // Returns what the driver makes of the entries, with Problem() among the notices.
    PortConfiguration Configuration() const;

    // The functions below change the file. They throw an InputError that names the file if it
    // cannot be written or is not a property list; the file then stays as it was, since its content
    // may still be of use. They make a missing file and its folder when there is something to
    // write.

    // Sets those of `ports` and `protocol` that are given for the application of this name. If
    // there are several, it changes the last one, which is the one that counts; if there is none,
    // it adds one. Also throws if the list of applications is not an array.
    static void Set(const std::string& application, const std::optional<std::string>& ports,
                    const std::optional<std::string>& protocol);
    // Removes every application of this name. Returns false if there is none. Throws as Set does.
    static bool Clear(const std::string& application);
    // Removes the list of applications, whatever its type.
    static void ClearAll();

private:
    bool mFileIsMissing = false;
    std::optional<std::string> mProblem;
    std::vector<PreferenceEntry> mEntries;
};

// Throws InputError unless the text is UTF-8 without control characters. `what` names the text in
// the error's line.
void RequirePlainText(const std::string& what, const std::string& text);

// Checks the values that `prefs set` was given. Throws InputError for a text that is not plain, for
// ports that the driver takes nothing from and, unless `force` is set, for a protocol that it does
// not know. Returns warnings, one line each.
std::vector<std::string> CheckPreferenceValues(const std::optional<std::string>& ports,
                                               const std::optional<std::string>& protocol,
                                               bool force);

} // namespace MidiServer
