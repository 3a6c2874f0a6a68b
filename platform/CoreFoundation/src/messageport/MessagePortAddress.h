// Where a message port's socket lies, and how it is opened and connected to.
//
// Functions that can fail give a reason in `error`, one line that names the path concerned and what
// to do about it. They may be called from any thread.
#pragma once

#include "platform/support/FileDescriptor.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace MessagePort {

inline constexpr std::size_t kMaximumName = 128; // bytes

// Tells one port from a later one of the same name: the file system may give a socket the number of
// one that is gone, so the moment at which it was made counts too.
struct SocketIdentity {
    dev_t device = 0;
    ino_t number = 0;
    time_t seconds = 0;
    long nanoseconds = 0;

    bool operator==(const SocketIdentity&) const = default;
};

// The user's runtime directory, which is made when it is missing. One that others may write to is
// refused.
std::optional<std::string> Folder(std::string& error);

// The path of a port's socket in the user's runtime directory, which is made when it is missing.
std::optional<std::string> SocketPath(const std::string& name, std::string& error);

// The identity of the socket at a path, if there is a socket.
std::optional<SocketIdentity> IdentityOf(const std::string& path);

// A listening, non-blocking socket at the path, in place of one that nobody listens on. Waits up to
// two seconds for other processes that open ports in the same directory.
FileDescriptor Listen(const std::string& path, SocketIdentity& identity, std::string& error);

enum class ConnectResult {
    kConnected,
    kBusy,    // it lives, but too many connections wait for it
    kAbsent,  // nobody listens there
    kRefused, // another user listens there, or the system has no descriptor left
};

// A non-blocking connection to the socket at the path. Does not wait.
ConnectResult Connect(const std::string& path, FileDescriptor& connection);

// Whether the other end of a connection runs as this user.
bool PeerIsThisUser(int connection);

} // namespace MessagePort
