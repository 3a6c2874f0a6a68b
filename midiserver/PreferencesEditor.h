#pragma once

#include "midiserver/PortConfiguration.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace MidiServer {

// The preferences of the control-surface system: reads them, changes an application's ports and
// protocol, and writes them back.
//
// Works on the property-list file itself, XML or binary, so that it can say why a file or an entry
// is not used, and so that every key, type and application that it does not know stays as it was.
// Not synchronised. A change by another program between Load and Save is overwritten.
class PreferencesEditor {
public:
    // The file in `folder`; without one, in QUORVEL_PREFERENCES_DIR or the system's folder.
    explicit PreferencesEditor(const std::optional<std::filesystem::path>& folder);
    ~PreferencesEditor();
    PreferencesEditor(const PreferencesEditor&) = delete;
    PreferencesEditor& operator=(const PreferencesEditor&) = delete;

    const std::filesystem::path& File() const { return mFile; }

    // Reads the file. Never fails: a file that cannot be read, or whose list of applications has
    // another type than an array, has no entries, and Problem() says why in one line. A file that
    // does not exist is no problem.
    void Load();
    const std::optional<std::string>& Problem() const { return mProblem; }

    const std::vector<PreferenceEntry>& Entries() const { return mEntries; }
    // What the driver makes of the entries, with Problem() among the notices.
    PortConfiguration Configuration() const;

    // Sets what is given for the application of this name, the last one when there are several,
    // since that is the one that counts; adds it when there is none. Throws InputError when
    // Problem() is set, so that nothing is overwritten that may still be of use.
    void Set(const std::string& application, const std::optional<std::string>& ports,
             const std::optional<std::string>& protocol);
    // Removes every application of this name; false when there is none. Throws as Set does.
    bool Clear(const std::string& application);
    // Removes the list of applications, whatever it is. Throws InputError only when the file is
    // there and is no property list.
    void ClearAll();

    // Writes the file: a temporary file beside it, synchronised and renamed, so that a reader sees
    // the old or the new content. Creates the folder. Throws InputError that names the path.
    void Save() const;

private:
    struct Document;

    void ReadFile();
    void ReadEntries();
    void RequireUsable() const;

    std::filesystem::path mFile;
    std::unique_ptr<Document> mDocument;
    bool mFileUnusable = false;
    std::optional<std::string> mProblem;
    std::vector<PreferenceEntry> mEntries;
};

// Checks what `prefs set` is given. Throws InputError for ports that the driver takes nothing from
// and, unless `force` is set, for a protocol that it does not know. Returns warnings, one line
// each.
std::vector<std::string> CheckPreferenceValues(const std::optional<std::string>& ports,
                                               const std::optional<std::string>& protocol,
                                               bool force);

} // namespace MidiServer
