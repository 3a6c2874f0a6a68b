#include "midiserver/service/watch/FileWatch.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <system_error>
#include <utility>

namespace MidiServer {

namespace {

constexpr std::uint32_t kEvents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// As many links as the system itself follows.
constexpr int kMostLinks = 40;

} // namespace

FileWatch::FileWatch(const std::filesystem::path& file)
    : mFile(std::filesystem::absolute(file)), mNotices(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (!mNotices) {
        throw HostError(fmt::format("changes of {} cannot be watched: {}", mFile.string(),
                                    std::generic_category().message(errno)));
    }
    WatchAgain();
}

bool FileWatch::TakeChanges() {
    bool changed = false;
    alignas(inotify_event) std::array<char, 16 * (sizeof(inotify_event) + NAME_MAX + 1)> buffer;
    for (;;) {
        const ssize_t size = ::read(mNotices.Get(), buffer.data(), buffer.size());
        if (size <= 0) {
            break;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const char* const name = buffer.data() + at + sizeof event;
            at += sizeof event + event.len;
            if ((event.mask & IN_IGNORED) != 0) { // a watch is gone, for a reason that was told
                continue;
            }
            const auto folder = mNames.find(event.wd);
            // An event without a name is about the folder itself, or says that events were lost.
            changed = changed || event.len == 0 ||
                      (folder != mNames.end() && folder->second.contains(name));
        }
    }
    if (changed) {
        WatchAgain();
    }
    return changed;
}

void FileWatch::WatchAgain() {
    const std::map<int, std::set<std::string>> before = std::exchange(mNames, {});
    std::filesystem::path file = mFile;
    for (int links = 0; links < kMostLinks; ++links) {
        WatchFolderOf(file);
        std::error_code error;
        const std::filesystem::path target = std::filesystem::read_symlink(file, error);
        if (error) {
            break;
        }
        file = file.parent_path() / target;
    }
    for (const auto& [number, names] : before) {
        if (!mNames.contains(number)) {
            ::inotify_rm_watch(mNotices.Get(), number);
        }
    }
}

void FileWatch::WatchFolderOf(const std::filesystem::path& file) {
    std::filesystem::path folder = file.parent_path();
    std::filesystem::path name = file.filename();
    for (;;) {
        // Watching a folder once more gives the same number.
        const int number = ::inotify_add_watch(mNotices.Get(), folder.c_str(), kEvents);
        std::error_code error;
        if (number < 0) {
            if (folder == folder.parent_path()) {
                return;
            }
            name = folder.filename();
            folder = folder.parent_path();
        } else if (folder != file.parent_path() &&
                   std::filesystem::is_directory(folder / name, error)) {
            // It came between the two attempts, when nothing told.
            folder = file.parent_path();
            name = file.filename();
        } else {
            mNames[number].insert(name.string());
            return;
        }
    }
}

} // namespace MidiServer
