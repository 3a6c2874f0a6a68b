#include "midiserver/backends/SavedConnections.h"

#include "midiserver/host/StateFolder.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "platform/support/FileReading.h"
#include "platform/support/LockedFile.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <utility>

namespace MidiServer {

namespace {

using nlohmann::json;

// Many times what 64 ports with a dozen connections each take.
constexpr std::size_t kLargestFile = 1 << 20;

void LogFailure(const std::filesystem::path& file, const std::string& text) {
    Log(kConnectionsLog[HSL::kWarning], "%s %s", file.c_str(), text.c_str());
}

// Throws json::exception if it is no object of lists of connections, one for each backend.
json Parse(const std::string& bytes) {
    json lists = json::parse(bytes);
    lists.get_ref<const json::object_t&>();
    for (const json& list : lists) {
        for (const json& connection : list.get_ref<const json::array_t&>()) {
            connection.at("port").get_ref<const std::string&>();
            connection.at("peer").get_ref<const std::string&>();
        }
    }
    return lists;
}

json ReadLists(const std::filesystem::path& file, LockedFile& locked) {
    std::string bytes;
    const FileFailure failure = ReadWholeFile(file, kLargestFile, bytes);
    if (failure.error == ENOENT) {
        return json::object();
    }
    if (!failure) {
        try {
            return Parse(bytes);
        } catch (const json::exception&) {
            // It is moved aside below.
        }
    }
    std::string aside;
    if (const FileFailure notMoved = locked.MoveAside(aside)) {
        LogFailure(file, "holds no saved connections and " + notMoved.text);
    } else {
        LogFailure(file, "holds no saved connections and was renamed to " + aside);
    }
    return json::object();
}

} // namespace

SavedConnections::SavedConnections(std::filesystem::path file, std::string backend)
    : mFile(std::move(file)), mBackend(std::move(backend)) {}

std::filesystem::path SavedConnections::DefaultFile() {
    const std::filesystem::path folder = StateFolder();
    return folder.empty() ? folder : folder / "connections.json";
}

std::vector<BackendConnection> SavedConnections::Load() const {
    std::error_code ignored;
    if (mFile.empty() || !std::filesystem::exists(mFile, ignored)) {
        return {};
    }
    LockedFile locked(mFile);
    std::vector<BackendConnection> connections;
    const json lists = ReadLists(mFile, locked);
    if (const auto list = lists.find(mBackend); list != lists.end()) {
        for (const json& connection : *list) {
            connections.push_back({connection["port"], connection["peer"]});
        }
    }
    return connections;
}

void SavedConnections::Store(const std::vector<BackendConnection>& connections) const {
    if (mFile.empty()) {
        return;
    }
    LockedFile locked(mFile);
    if (locked.Failure()) {
        LogFailure(mFile, locked.Failure().text);
        return;
    }
    json lists = ReadLists(mFile, locked);
    json list = json::array();
    for (const BackendConnection& connection : connections) {
        list.push_back({{"port", connection.port}, {"peer", connection.peer}});
    }
    lists[mBackend] = std::move(list);
    // Names are what other programs made of them; a byte that is not UTF-8 is replaced.
    const std::string text = lists.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
    if (const FileFailure failure = locked.Replace(text)) {
        LogFailure(mFile, failure.text);
    }
}

} // namespace MidiServer
