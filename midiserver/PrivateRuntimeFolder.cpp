#include "midiserver/PrivateRuntimeFolder.h"

#include "midiserver/Host.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <unistd.h>

namespace MidiServer {

namespace {

constexpr const char* kRuntimeFolderVariable = "QUORVEL_RUNTIME_DIR";

} // namespace

PrivateRuntimeFolder::PrivateRuntimeFolder() {
    if (std::getenv(kRuntimeFolderVariable) != nullptr) {
        return;
    }
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    std::string name = ((error ? "/tmp" : temporary) / "midiserver-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw HostError(fmt::format("{}: no folder can be made: {}", name,
                                    std::generic_category().message(errno)));
    }
    mFolder = name;
    ::setenv(kRuntimeFolderVariable, name.c_str(), 1);
}

PrivateRuntimeFolder::~PrivateRuntimeFolder() {
    if (!mFolder.empty()) {
        ::unsetenv(kRuntimeFolderVariable);
        std::error_code ignored;
        std::filesystem::remove_all(mFolder, ignored);
    }
}

} // namespace MidiServer
