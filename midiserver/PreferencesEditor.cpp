#include "midiserver/PreferencesEditor.h"

#include "midiserver/InputError.h"

#include <fmt/format.h>
#include <plist/plist.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace MidiServer {

namespace {

constexpr const char* kDefaultFolder = "/etc/quorvel/preferences";
constexpr const char* kFolderVariable = "QUORVEL_PREFERENCES_DIR";
constexpr const char* kFileName = "com.quorvel.ControlSurface.plist";
constexpr const char* kApplicationsKey = "Sonaret Applications";
constexpr const char* kPortsKey = "MIDI Ports";
constexpr const char* kProtocolKey = "Protocol";
constexpr const char* kNameKey = "App Name";
constexpr std::uintmax_t kLargestFile = 16U << 20;
constexpr std::string_view kBinaryMagic = "bplist00";

std::filesystem::path PreferencesFolder(const std::optional<std::filesystem::path>& folder) {
    if (folder) {
        return *folder;
    }
    // As in the platform's preferences, only an absolute path counts there.
    const char* variable = std::getenv(kFolderVariable);
    return variable != nullptr && *variable == '/' ? variable : kDefaultFolder;
}

std::string ErrnoText(int error) {
    return std::generic_category().message(error);
}

[[noreturn]] void FailToWrite(const std::filesystem::path& path, int error) {
    throw InputError(fmt::format("{}: cannot be written: {}", path.string(), ErrnoText(error)));
}

// A file under a temporary name that takes the place of another when all of it is on the disk.
class ReplacementFile {
public:
    explicit ReplacementFile(const std::filesystem::path& target)
        : mTarget(target), mName(target.string() + ".XXXXXX") {
        mDescriptor = ::mkstemp(mName.data());
        if (mDescriptor < 0) {
            FailToWrite(mTarget, errno);
        }
    }
    ~ReplacementFile() {
        if (mDescriptor >= 0) {
            ::close(mDescriptor);
            ::unlink(mName.c_str());
        }
    }
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;

    void Write(std::string_view content) {
        while (!content.empty()) {
            const ssize_t count = ::write(mDescriptor, content.data(), content.size());
            if (count < 0 && errno != EINTR) {
                FailToWrite(mTarget, errno);
            }
            content.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
    }

    void Commit() {
        // Every user's driver reads the file; an administrator may have given it a mode of its own.
        struct stat status {};
        const mode_t mode = ::stat(mTarget.c_str(), &status) == 0 ? status.st_mode & 07777 : 0644;
        if (::fchmod(mDescriptor, mode) != 0 || ::fsync(mDescriptor) != 0 ||
            ::rename(mName.c_str(), mTarget.c_str()) != 0) {
            FailToWrite(mTarget, errno);
        }
        ::close(mDescriptor);
        mDescriptor = -1;
        const int folder =
            ::open(mTarget.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder >= 0) {
            ::fsync(folder);
            ::close(folder);
        }
    }

private:
    std::filesystem::path mTarget;
    std::string mName;
    int mDescriptor;
};

std::optional<std::string> TextOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return std::string(text, length);
}

PreferenceEntry EntryOf(plist_t node) {
    PreferenceEntry entry;
    entry.isDictionary = plist_get_node_type(node) == PLIST_DICT;
    if (!entry.isDictionary) {
        return entry;
    }
    const auto read = [&](const char* key) {
        plist_t value = plist_dict_get_item(node, key);
        std::optional<std::string> text = TextOf(value);
        if (value != nullptr && !text) {
            entry.wrongTyped.emplace_back(key);
        }
        return text;
    };
    entry.name = read(kNameKey);
    entry.ports = read(kPortsKey);
    entry.protocol = read(kProtocolKey);
    return entry;
}

} // namespace

// The property list in memory; the root is a dictionary or null.
struct PreferencesEditor::Document {
    plist_t root = nullptr;
    bool binary = false;

    Document() = default;
    ~Document() { plist_free(root); }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    plist_t Applications() const {
        return root == nullptr ? nullptr : plist_dict_get_item(root, kApplicationsKey);
    }
};

PreferencesEditor::PreferencesEditor(const std::optional<std::filesystem::path>& folder)
    : mFile(PreferencesFolder(folder) / kFileName), mDocument(std::make_unique<Document>()) {}

PreferencesEditor::~PreferencesEditor() = default;

void PreferencesEditor::Load() {
    mDocument = std::make_unique<Document>();
    mProblem.reset();
    mFileUnusable = false;
    ReadFile();
    mFileUnusable = mProblem.has_value();
    ReadEntries();
}

void PreferencesEditor::ReadFile() {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(mFile, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return;
    }
    if (error) {
        mProblem = fmt::format("{}: {}", mFile.string(), ErrnoText(error.value()));
        return;
    }
    if (status.type() != std::filesystem::file_type::regular) {
        mProblem = fmt::format("{}: not a regular file", mFile.string());
        return;
    }
    if (std::filesystem::file_size(mFile, error) > kLargestFile) {
        mProblem =
            fmt::format("{}: larger than 16 MiB, which is no preferences file", mFile.string());
        return;
    }
    std::ifstream stream(mFile, std::ios::binary);
    if (!stream) {
        mProblem = fmt::format("{}: {}", mFile.string(), ErrnoText(errno));
        return;
    }
    const std::string content((std::istreambuf_iterator<char>(stream)),
                              std::istreambuf_iterator<char>());
    plist_t root = nullptr;
    plist_from_memory(content.data(), static_cast<std::uint32_t>(content.size()), &root);
    if (root == nullptr || plist_get_node_type(root) != PLIST_DICT) {
        mProblem = fmt::format("{}: {}", mFile.string(),
                               root == nullptr ? "not a property list, or a damaged one"
                                               : "a property list that is no dictionary");
        plist_free(root);
        return;
    }
    mDocument->root = root;
    mDocument->binary = content.starts_with(kBinaryMagic);
}

void PreferencesEditor::ReadEntries() {
    mEntries.clear();
    plist_t applications = mDocument->Applications();
    if (applications == nullptr) {
        return;
    }
    if (plist_get_node_type(applications) != PLIST_ARRAY) {
        mProblem = fmt::format("{}: \"{}\" is no array", mFile.string(), kApplicationsKey);
        return;
    }
    for (std::uint32_t i = 0; i < plist_array_get_size(applications); ++i) {
        mEntries.push_back(EntryOf(plist_array_get_item(applications, i)));
    }
}

PortConfiguration PreferencesEditor::Configuration() const {
    PortConfiguration configuration = DerivePortConfiguration(mEntries);
    if (mProblem) {
        configuration.notices.insert(configuration.notices.begin(),
                                     {std::nullopt, fmt::format("ignored: {}", *mProblem)});
    }
    return configuration;
}

void PreferencesEditor::RequireUsable() const {
    if (mProblem) {
        throw InputError(fmt::format("{}; nothing was changed", *mProblem));
    }
}

void PreferencesEditor::Set(const std::string& application, const std::optional<std::string>& ports,
                            const std::optional<std::string>& protocol) {
    RequireUsable();
    if (mDocument->root == nullptr) {
        mDocument->root = plist_new_dict();
    }
    plist_t applications = mDocument->Applications();
    if (applications == nullptr) {
        applications = plist_new_array();
        plist_dict_set_item(mDocument->root, kApplicationsKey, applications);
    }
    plist_t entry = nullptr;
    for (std::size_t i = 0; i < mEntries.size(); ++i) {
        if (mEntries[i].name == application) {
            entry = plist_array_get_item(applications, static_cast<std::uint32_t>(i));
        }
    }
    if (entry == nullptr) {
        entry = plist_new_dict();
        plist_dict_set_item(entry, kNameKey, plist_new_string(application.c_str()));
        plist_array_append_item(applications, entry);
    }
    if (ports) {
        plist_dict_set_item(entry, kPortsKey, plist_new_string(ports->c_str()));
    }
    if (protocol) {
        plist_dict_set_item(entry, kProtocolKey, plist_new_string(protocol->c_str()));
    }
    ReadEntries();
}

bool PreferencesEditor::Clear(const std::string& application) {
    RequireUsable();
    bool found = false;
    for (std::size_t i = mEntries.size(); i-- > 0;) {
        if (mEntries[i].name == application) {
            plist_array_remove_item(mDocument->Applications(), static_cast<std::uint32_t>(i));
            found = true;
        }
    }
    ReadEntries();
    return found;
}

void PreferencesEditor::ClearAll() {
    if (mFileUnusable) {
        RequireUsable();
    }
    if (mDocument->Applications() != nullptr) {
        plist_dict_remove_item(mDocument->root, kApplicationsKey);
    }
    mProblem.reset();
    ReadEntries();
}

void PreferencesEditor::Save() const {
    std::error_code error;
    std::filesystem::create_directories(mFile.parent_path(), error);
    if (error) {
        FailToWrite(mFile.parent_path(), error.value());
    }
    char* content = nullptr;
    std::uint32_t length = 0;
    const std::unique_ptr<void, void (*)(plist_t)> empty(
        mDocument->root == nullptr ? plist_new_dict() : nullptr, plist_free);
    const plist_t root = mDocument->root == nullptr ? empty.get() : mDocument->root;
    if (mDocument->binary) {
        plist_to_bin(root, &content, &length);
    } else {
        plist_to_xml(root, &content, &length);
    }
    const std::unique_ptr<char, void (*)(char*)> owner(
        content, mDocument->binary ? plist_to_bin_free : plist_to_xml_free);
    if (content == nullptr) {
        FailToWrite(mFile, ENOMEM);
    }
    ReplacementFile file(mFile);
    file.Write({content, length});
    file.Commit();
}

std::vector<std::string> CheckPreferenceValues(const std::optional<std::string>& ports,
                                               const std::optional<std::string>& protocol,
                                               bool force) {
    std::vector<std::string> warnings;
    if (ports) {
        const std::optional<PortRange> range = ParsePortRange(*ports);
        if (!range || range->first > range->last) {
            throw InputError(fmt::format("\"{}\" is no range of ports: first and last port joined "
                                         "by \"-\", from 1 to {}, are due, for example 1-4",
                                         *ports, kMaximumPorts));
        }
        if (!IsPortBlock(*ports)) {
            warnings.push_back(fmt::format(
                "\"{}\" gives its ports a protocol and does not count for the number of "
                "ports: only the blocks 1-4, 5-8, ... 29-32 do",
                *ports));
        }
    }
    if (protocol && ProtocolFromName(*protocol) == Protocol::kNone) {
        const std::string text =
            fmt::format("\"{}\" is neither \"HUI\" nor \"MackieControl\" (exactly so written): no "
                        "ping is answered with it",
                        *protocol);
        if (!force) {
            throw InputError(text + "; --force writes it nevertheless");
        }
        warnings.push_back(text);
    }
    return warnings;
}

} // namespace MidiServer
